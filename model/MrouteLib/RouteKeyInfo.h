// The route for which an outgoing set is allocated, as far as a platform may want to know it when
// it chooses a multicast group. The programmer passes it on unread.
#pragma once

#include <ostream>
#include <utility>

#include "Bridging/VlanId.h"
#include "L3/VrfName.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"

namespace MrouteLib {

class RouteKeyInfo final {
 public:
   using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
   using RouteKeyType = Routing::Multicast::Fib::RouteKeyType;

   RouteKeyInfo() = default;
   RouteKeyInfo(IpGenRouteKey const& routeKey, L3::VrfName vrfName,
                Bridging::VlanIdOrNone acceptingVlanId, RouteKeyType type)
         : routeKey_(routeKey),
           vrfName_(std::move(vrfName)),
           acceptingVlanId_(acceptingVlanId),
           type_(type) {}

   IpGenRouteKey const& routeKey() const { return routeKey_; }
   L3::VrfName const& vrfName() const { return vrfName_; }
   Bridging::VlanIdOrNone acceptingVlanId() const { return acceptingVlanId_; }
   RouteKeyType type() const { return type_; }

   friend bool operator==(RouteKeyInfo const&, RouteKeyInfo const&) = default;
   // "(10.0.0.2, 239.10.0.7) vrf default vlan 1006 routed"
   friend std::ostream& operator<<(std::ostream& out, RouteKeyInfo const& info) {
      return out << info.routeKey_ << " vrf " << info.vrfName_ << " vlan " << info.acceptingVlanId_
                 << ' ' << info.type_;
   }

 private:
   IpGenRouteKey routeKey_;
   L3::VrfName vrfName_;
   Bridging::VlanIdOrNone acceptingVlanId_;
   RouteKeyType type_ = RouteKeyType::invalid;
};

}  // namespace MrouteLib
