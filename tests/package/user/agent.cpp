// A user of the installed routing layer: a programmer on hooks that are not overridden, which needs
// VEL_NOOP_AGENT in the environment. Such hooks have no room for an entry.
#include <cstdlib>
#include <iostream>

#include "VelMroute/Programmer.h"

int main() {
   std::cout << "version " VELMROUTE_VERSION_STRING "\n";
   setenv("VEL_NOOP_AGENT", "", 1);
   L3::VrfName const vrf("default");
   Lnet::IntfId const input("et1"), output("et2");
   auto const vrfs = Qor::make<Routing::Hardware::RouteStatus>();
   vrfs->newVrfStatus(vrf, Vel::VrfId());
   auto const vlans = Qor::make<IntfVlanId::Table>();
   vlans->intfIdToVlanIdIs(input, Bridging::VlanId{1});
   vlans->intfIdToVlanIdIs(output, Bridging::VlanId{2});
   auto const published = Qor::make<Routing::Multicast::Fib::Hardware::Status>();
   auto hooks = Qor::make<VelHelper::AsyncMrouteHelper>("hooks", nullptr, nullptr);

   VelMroute::OutputsPool pool;
   VelMroute::Programmer programmer(
         {.table = VelMroute::asyncRouteTable(
                {.hooks = hooks, .vrfs = vrfs, .vlans = vlans, .published = published})});
   auto const key = VelMroute::RouteKey::fromAddresses(Lnet::IpGenAddr::parse("10.0.0.1").value(),
                                                       Lnet::IpGenAddr::parse("239.0.0.1").value());
   programmer.routeIs(vrf, key, {.iif = input, .outputs = pool.get({output})});
   while (programmer.nextDeadline() <= Qor::now())
      programmer.runDue();
   auto const status = programmer.route(vrf, key).value();
   std::cout << status.state << ": " << status.reason << '\n';
}
