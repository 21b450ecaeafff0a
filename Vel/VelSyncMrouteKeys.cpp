#include "Vel/VelSyncMrouteKeys.h"

namespace Vel {

Qor::String RouteKeyVlanId::strep() const {
   return "Value('Vel::RouteKeyVlanId', ** {'route': " + Qor::valueToStrep(route_) +
          ", 'vlan': " + Qor::valueToStrep(vlan_) + "})";
}

RouteKeyVlanId RouteKeyVlanId::fromStrep(Qor::StrepReader& reader) {
   reader.expect("Value('Vel::RouteKeyVlanId', ** {'route': ");
   auto const route = Routing::Multicast::Fib::IpGenRouteKey::fromStrep(reader);
   reader.expect(", 'vlan': ");
   auto const vlan = Bridging::VlanIdOrNone::fromStrep(reader);
   reader.expect("})");
   return {route, vlan};
}

}  // namespace Vel
