// Describes the route for which an oif set is allocated. The programmer passes the description to
// the platform, which may use it to choose a multicast group; the programmer does not read it.
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

   static constexpr char const* typeName = "MrouteLib::RouteKeyInfo";

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

   Qor::String strep() const {
      return Qor::String("Value('") + typeName + "', ** {'routeKey': " + routeKey_.strep() +
             ", 'vrfName': " + vrfName_.strep() +
             ", 'acceptingVlanId': " + acceptingVlanId_.strep() +
             ", 'type': " + std::to_string(static_cast<unsigned>(type_)) + "})";
   }
   static RouteKeyInfo fromStrep(Qor::StrepReader& reader) {
      RouteKeyInfo info;
      reader.expect("Value('MrouteLib::RouteKeyInfo', ** {'routeKey': ");
      info.routeKey_ = IpGenRouteKey::fromStrep(reader);
      reader.expect(", 'vrfName': ");
      info.vrfName_ = L3::VrfName::fromStrep(reader);
      reader.expect(", 'acceptingVlanId': ");
      info.acceptingVlanId_ = Bridging::VlanIdOrNone::fromStrep(reader);
      reader.expect(", 'type': ");
      auto const last = static_cast<Qor::U64>(Routing::Multicast::Fib::lastRouteKeyType);
      info.type_ = static_cast<RouteKeyType>(reader.number(last));
      reader.expect("})");
      return info;
   }

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
