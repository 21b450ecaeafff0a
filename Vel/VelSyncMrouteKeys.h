// The two key types of the synchronous programmer's collections. Their string forms are read back
// by their parsing constructors, which raise Qor::RangeException on a mismatch.
#pragma once

#include "Bridging/VlanId.h"
#include "Qor/Export.h"
#include "Qor/Hash.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"
#include "Vel/VelZombieOrder.h"

namespace Vel {

// The place of a zombie among the zombies; `groupId` is its oif set index. The default key means
// "not a zombie".
class ZombieKey : public ZombieOrder<ZombieKey> {
 public:
   static constexpr char const* typeName = "Vel::ZombieKey";
   static constexpr char const* groupName = "groupId";

   ZombieKey() = default;
   ZombieKey(Qor::U32 groupId, Qor::Seconds expiryTime) : ZombieOrder(groupId, expiryTime) {}
   explicit ZombieKey(Qor::String const& strep)
         : ZombieKey(Qor::parseStrep<ZombieKey>(typeName, strep)) {}

   Qor::U32 groupId() const { return number(); }
};

// Names a programmed route: its key, and the vlan it accepts from, or none. The VRF is no part of
// it: an accepting vlan belongs to one VRF, and of the no-RPF routes that different VRFs have under
// one key the latest is named.
class QOR_PUBLIC RouteKeyVlanId {
 public:
   static constexpr char const* typeName = "Vel::RouteKeyVlanId";

   RouteKeyVlanId() = default;
   RouteKeyVlanId(Routing::Multicast::Fib::IpGenRouteKey const& route, Bridging::VlanIdOrNone vlan)
         : route_(route), vlan_(vlan) {}
   explicit RouteKeyVlanId(Qor::String const& strep)
         : RouteKeyVlanId(Qor::parseStrep<RouteKeyVlanId>(typeName, strep)) {}

   Routing::Multicast::Fib::IpGenRouteKey const& route() const { return route_; }
   Bridging::VlanIdOrNone vlan() const { return vlan_; }

   Qor::U32 hash() const {
      return Qor::hashFold(Qor::hashBytes(&route_, sizeof route_, vlan_.value()));
   }

   friend bool operator==(RouteKeyVlanId const&, RouteKeyVlanId const&) = default;
   // By the route, then by the vlan as a number.
   friend bool operator<(RouteKeyVlanId const& a, RouteKeyVlanId const& b) {
      if (a.route_ == b.route_) return a.vlan_.value() < b.vlan_.value();
      return a.route_ < b.route_;
   }
   friend bool operator<=(RouteKeyVlanId const& a, RouteKeyVlanId const& b) { return !(b < a); }
   friend bool operator>(RouteKeyVlanId const& a, RouteKeyVlanId const& b) { return b < a; }
   friend bool operator>=(RouteKeyVlanId const& a, RouteKeyVlanId const& b) { return !(a < b); }

   // "Value('Vel::RouteKeyVlanId', ** {'route': %s, 'vlan': %s})"
   Qor::String strep() const;
   static RouteKeyVlanId fromStrep(Qor::StrepReader& reader);
   friend std::ostream& operator<<(std::ostream& os, RouteKeyVlanId const& key) {
      return os << key.strep();
   }

 private:
   Routing::Multicast::Fib::IpGenRouteKey route_;
   Bridging::VlanIdOrNone vlan_;
};

}  // namespace Vel
