#include "agent/Recovery.h"

#include <utility>

#include "Vel/VelMrouteRecoverySm.h"

namespace Agent {

void recoverHwStatus(std::map<L3::VrfName, Vel::VrfId> const& vrfs,
                     std::vector<Sim::FoundRoute> const& found,
                     Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
                     Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus) {
   auto const l3Status = Qor::make<Vel::L3Status>();
   auto const enabled = Qor::make<Routing::Multicast::Fib::VrfEnabledStatus>();
   for (auto const& [vrf, id] : vrfs) {
      l3Status->vrfNameToVrfIdIs(vrf.name(), id);
      enabled->vrfIs(vrf);
   }
   auto const recovery = Vel::Mroute::recoverySmFactory(l3Status, std::move(intfVlanIdTable),
                                                        enabled, std::move(mfibHwStatus));
   recovery->doAddMfibHwVrfStatus();
   for (Sim::FoundRoute const& route : found) {
      recovery->doAddMfibHwStatusEntry(Vel::VrfId(route.vrfId), route.key, route.acceptingVlan);
   }
}

}  // namespace Agent
