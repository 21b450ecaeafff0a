// The two key types of the asynchronous programmer's collections. Their string forms are read back
// by their parsing constructors, which raise Qor::RangeException on a mismatch.
#pragma once

#include <ostream>

#include "Bridging/VlanId.h"
#include "Qor/Export.h"
#include "Qor/Strep.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"
#include "Vel/VrfId.h"

namespace Vel::Mroute {

// Where a zombie stands in the queue of zombies: ordered by the time it may be purged, then by the
// multicast id, so that the first key always expires first.
class QOR_PUBLIC ZombieKey {
 public:
   // The key that means "not a zombie": multicast id 0, expiry never.
   ZombieKey() = default;
   ZombieKey(Qor::U32 multicastId, Qor::Seconds expiryTime)
         : multicastId_(multicastId), expiryTime_(expiryTime) {}
   explicit ZombieKey(Qor::String const& strep);

   Qor::U32 multicastId() const { return multicastId_; }
   // Absolute, on the Qor::now() time base.
   Qor::Seconds expiryTime() const { return expiryTime_; }
   bool isZombie() const { return expiryTime_ <= Qor::maxFinite; }

   friend bool operator==(ZombieKey const& a, ZombieKey const& b) = default;
   friend bool operator<=(ZombieKey const& a, ZombieKey const& b) {
      if (a.expiryTime_ > b.expiryTime_) return false;
      if (a.expiryTime_ < b.expiryTime_) return true;
      return a.multicastId_ <= b.multicastId_;
   }
   friend bool operator>=(ZombieKey const& a, ZombieKey const& b) { return b <= a; }
   friend bool operator<(ZombieKey const& a, ZombieKey const& b) { return !(b <= a); }
   friend bool operator>(ZombieKey const& a, ZombieKey const& b) { return !(a <= b); }

   // "Value('Vel::Mroute::ZombieKey', ** {'multicastId': %s, 'expiryTime': %s})"
   Qor::String strep() const;
   static ZombieKey fromStrep(Qor::StrepReader& reader);

 private:
   Qor::U32 multicastId_ = 0;
   Qor::Seconds expiryTime_ = Qor::never;
};

QOR_PUBLIC std::ostream& operator<<(std::ostream& os, ZombieKey const& key);

// Names a programmed route: (source, group), accepting vlan or none, and VRF.
class QOR_PUBLIC InUseRouteHandleKey {
 public:
   InUseRouteHandleKey() = default;
   InUseRouteHandleKey(Routing::Multicast::Fib::IpGenRouteKey routeKey, Bridging::VlanIdOrNone vlan,
                       VrfId vrfId)
         : routeKey_(routeKey), vlan_(vlan), vrfId_(vrfId) {}
   explicit InUseRouteHandleKey(Qor::String const& strep);

   Routing::Multicast::Fib::IpGenRouteKey const& routeKey() const { return routeKey_; }
   Bridging::VlanIdOrNone vlan() const { return vlan_; }
   VrfId vrfId() const { return vrfId_; }

   Qor::U32 hash() const;

   friend bool operator==(InUseRouteHandleKey const& a, InUseRouteHandleKey const& b) = default;

   // The order is the order of the hashes, as unsigned numbers, and nothing more: two different
   // keys of equal hash are each <= the other. No collection is ordered by this key.
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
