// The two key types of the asynchronous programmer's collections. A parsing constructor reads the
// string form (strep()) of its type, and raises Qor::RangeException on any other text.
#pragma once

#include <ostream>

#include "Bridging/VlanId.h"
#include "Qor/Export.h"
#include "Qor/Strep.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"
#include "Vel/VelZombieOrder.h"
#include "Vel/VrfId.h"

namespace Vel::Mroute {

// The place of a zombie in zombieOifSet. The default key means "not a zombie".
class ZombieKey : public ZombieOrder<ZombieKey> {
 public:
   static constexpr char const* typeName = "Vel::Mroute::ZombieKey";
   static constexpr char const* groupName = "multicastId";

   ZombieKey() = default;
   ZombieKey(Qor::U32 multicastId, Qor::Seconds expiryTime)
         : ZombieOrder(multicastId, expiryTime) {}
   explicit ZombieKey(Qor::String const& strep)
         : ZombieKey(Qor::parseStrep<ZombieKey>(typeName, strep)) {}

   Qor::U32 multicastId() const { return number(); }
};

// The key of a programmed route: (source, group), accepting vlan or none, and VRF.
class QOR_PUBLIC InUseRouteHandleKey {
 public:
   InUseRouteHandleKey() = default;
   InUseRouteHandleKey(Routing::Multicast::Fib::IpGenRouteKey const& routeKey,
                       Bridging::VlanIdOrNone vlan, VrfId vrfId)
         : routeKey_(routeKey), vlan_(vlan), vrfId_(vrfId) {}
   explicit InUseRouteHandleKey(Qor::String const& strep);

   Routing::Multicast::Fib::IpGenRouteKey const& routeKey() const { return routeKey_; }
   Bridging::VlanIdOrNone vlan() const { return vlan_; }
   VrfId vrfId() const { return vrfId_; }

   Qor::U32 hash() const;

   friend bool operator==(InUseRouteHandleKey const& a, InUseRouteHandleKey const& b) = default;

   // Keys are ordered by their hashes alone, as unsigned numbers: two different keys of equal hash
   // are each <= the other. No collection is ordered by this key.
   friend bool operator<=(InUseRouteHandleKey const& a, InUseRouteHandleKey const& b) {
      return a.hash() <= b.hash();
   }
   friend bool operator>=(InUseRouteHandleKey const& a, InUseRouteHandleKey const& b) {
      return a.hash() >= b.hash();
   }
   friend bool operator>(InUseRouteHandleKey const& a, InUseRouteHandleKey const& b) {
      return !(a <= b);
   }
   friend bool operator<(InUseRouteHandleKey const& a, InUseRouteHandleKey const& b) {
      return !(a >= b);
   }

   // "Value('Vel::Mroute::InUseRouteHandleKey', ** {'routeKey': %s, 'vlan': %s, 'vrfId': %s})"
   Qor::String strep() const;
   static InUseRouteHandleKey fromStrep(Qor::StrepReader& reader);

 private:
   Routing::Multicast::Fib::IpGenRouteKey routeKey_;
   Bridging::VlanIdOrNone vlan_;
   VrfId vrfId_;
};

QOR_PUBLIC std::ostream& operator<<(std::ostream& os, InUseRouteHandleKey const& key);

}  // namespace Vel::Mroute
