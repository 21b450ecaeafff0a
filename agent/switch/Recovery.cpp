#include "agent/switch/Recovery.h"

#include "Qor/Type.h"
#include "Routing/Multicast/Fib/VrfEnabledStatus.h"
#include "Vel/L3Status.h"

namespace Agent {

void recoverHwStatus(std::map<L3::VrfName, Vel::VrfId> const& vrfs,
                     std::vector<VelMroute::Restart::Route> const& found,
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
   for (VelMroute::Restart::Route const& route : found) {
      Qor::call(recovery, "doAddMfibHwStatusEntry",
                {route.vrfId.strep(), route.key.strep(), route.vlan.strep()});
   }
}

}  // namespace Agent
