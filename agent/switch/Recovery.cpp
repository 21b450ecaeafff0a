#include "agent/switch/Recovery.h"

#include "Qor/Type.h"
#include "Routing/Multicast/Fib/VrfEnabledStatus.h"
#include "Vel/L3Status.h"

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
   Qor::Generic const recovery = Qor::construct(
         "recoverySmFactory", {Qor::toGeneric(l3Status), Qor::toGeneric(intfVlanIdTable),
                               Qor::toGeneric(enabled), Qor::toGeneric(mfibHwStatus)});
   Qor::call(recovery, "doAddMfibHwVrfStatus", {});
   for (Sim::FoundRoute const& route : found) {
      Qor::call(recovery, "doAddMfibHwStatusEntry",
                {std::to_string(route.vrfId), route.key.strep(), route.acceptingVlan.strep()});
   }
}

}  // namespace Agent
