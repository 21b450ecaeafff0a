#include "Vel/VelSyncMrouteKeys.h"

#include "Vel/VelDescribe.h"

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

namespace {

Qor::Type describeZombieKey() {
   Qor::Describe<ZombieKey> type(typeModule);
   type.constructible<Qor::U32, Qor::Seconds>("groupId", "expiryTime");
   type.attribute<&ZombieKey::groupId>();
   type.attribute<&ZombieKey::expiryTime>();
   type.operation<&ZombieKey::isZombie>();
   return type;
}
Qor::TypeRegistration const zombieKeyRegistered(describeZombieKey);

Qor::Type describeRouteKeyVlanId() {
   Qor::Describe<RouteKeyVlanId> type(typeModule);
   type.constructible<Routing::Multicast::Fib::IpGenRouteKey, Bridging::VlanIdOrNone>("route",
                                                                                      "vlan");
   type.attribute<&RouteKeyVlanId::route>();
   type.attribute<&RouteKeyVlanId::vlan>();
   return type;
}
Qor::TypeRegistration const routeKeyVlanIdRegistered(describeRouteKeyVlanId);

}  // namespace

}  // namespace Vel
