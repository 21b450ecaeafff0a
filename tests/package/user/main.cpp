// A user of the installed library: a table programmer on hooks that are not overridden, which needs
// VEL_NOOP_AGENT in the environment.
#include <cstdlib>
#include <iostream>

#include "VelMroute/Async.h"

int main() {
   std::cout << "version " << VELMROUTE_VERSION_MAJOR << '.' << VELMROUTE_VERSION_MINOR << '.'
             << VELMROUTE_VERSION_PATCH << " (" << VELMROUTE_VERSION << ")\n";
   setenv("VEL_NOOP_AGENT", "", 1);
   auto const hooks = Qor::make<VelHelper::AsyncMrouteHelper>("hooks", nullptr, nullptr);
   auto const chip = Vel::Mroute::asyncMrouteSwitchFactory("chip", nullptr, hooks);
   auto const oifSet = Qor::make<MrouteLib::OifSet>(nullptr, MrouteLib::PortVlanSet());
   chip->doAllocateMtableOifSet({}, oifSet, nullptr, 0, false);
   std::cout << "group " << chip->doGetMulticastId(chip->mtableOifSet()) << '\n';
   try {
      Bridging::VlanId{4095};
   } catch (Qor::RangeException const& e) {
      std::cout << e.what() << '\n';
   }
}
