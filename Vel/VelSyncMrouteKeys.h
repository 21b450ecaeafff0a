// The two key types of the synchronous programmer's collections. Their parsing constructors read
// the string forms back, and raise Qor::RangeException for a text that does not match.
#pragma once

#include "Bridging/VlanId.h"
#include "Qor/Export.h"
#include "Qor/Hash.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"
#include "Vel/VelZombieOrder.h"

namespace Vel {

// The position of a zombie record in the switch's order of expiry; `groupId` is the oif set index
// of the record. The default key means "not a zombie".
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

// The name of a programmed route: the route key and the accepting vlan, or a vlan of none. The VRF
// is not part of the name. An accepting vlan belongs to one VRF. No-RPF routes of several VRFs with
// one key share the name, which then stands for the latest of these routes.
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
   // Ordered by the route key, then by the number of the vlan.
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
