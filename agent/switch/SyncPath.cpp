#include "agent/switch/SyncPath.h"

#include "agent/timeline/SyncObserver.h"

namespace Agent {

SyncPath::Inputs::Inputs(Surroundings const& s) {
   acsd->verifyDataIs(verifyData);
   s.mfibHwStatus->hwRoutingIs(true);
}

void SyncPath::Inputs::vrfIs(L3::VrfName const& vrf, Vel::VrfId id) const {
   l3Status->vrfNameToVrfIdIs(vrf.name(), id);
   mcastEnabledStatus->vrfIs(vrf);
}

SyncPath::SyncPath(Surroundings const& s, Crashed const* crashed)
      : SyncPath(s, crashed, Inputs(s)) {}

SyncPath::SyncPath(Surroundings const& s, Crashed const* crashed, Inputs inputs)
      : SwitchPathBase(s, newTable(s, crashed, inputs), crashed != nullptr),
        hooks_(s.platform->syncHooks()),
        inputs_(std::move(inputs)),
        verifier_(std::make_unique<Verifier>(inputs_.verifyData)) {}

std::unique_ptr<VelMroute::SyncRouteTable> SyncPath::newTable(Surroundings const& s,
                                                              Crashed const* crashed,
                                                              Inputs const& inputs) {
   auto const counterControl = Qor::make<Routing::Multicast::Fib::CounterStatusCtl>();
   counterControl->pollingRefCntIs(1);
   auto const routing = Qor::make<VelMroute::SyncRouting>(
         VelMroute::SyncRouting::Inputs{.hooks = s.platform->syncHooks(),
                                        .checks = hookChecks(s, crashed != nullptr),
                                        .l3Status = inputs.l3Status,
                                        .common = inputs.acsd,
                                        .config = s.mfibConfig,
                                        .published = s.mfibHwStatus,
                                        .enabled = inputs.mcastEnabledStatus,
                                        .ipStatus = nullptr,
                                        .counters = inputs.counterStatus,
                                        .counterControl = counterControl});
   auto table = std::make_unique<VelMroute::SyncRouteTable>(
         VelMroute::SyncRouteTable::Inputs{.switchId = switchId,
                                           .routing = routing,
                                           .vlans = s.intfVlanIdTable,
                                           .links = s.ethIntfStatusDir,
                                           .intfs = nullptr,
                                           .localIntfs = nullptr});
   if (!crashed) return table;
   for (auto const& [vrf, id] : crashed->vrfs)
      inputs.vrfIs(vrf, id);
   return table;
}

// The platform and the agent change no input of the reactor while it applies a decision on
// multicast routing. A decision that it abandoned is therefore a fault.
std::vector<Qor::String> SyncPath::faults() const {
   Qor::U32 const abandoned = table().routing()->reactor()->abandonedDecisions();
   if (abandoned == 0) return {};
   return {"decisions on multicast routing were abandoned " + std::to_string(abandoned) + " times"};
}

std::optional<Qor::U64> SyncPath::counter(RouteKey const& key) const {
   auto const* const found = inputs_.counterStatus->counter().find(key);
   if (!found) return std::nullopt;
   return found->second.value;
}

TreeRoots SyncPath::roots() const {
   return {
         {"counterStatus", Qor::toGeneric(inputs_.counterStatus)},
         {"counterStatusCtl", Qor::toGeneric(table().routing()->reactor()->mfibCounterStatusCtl())},
         {"enabledStatus", Qor::toGeneric(inputs_.mcastEnabledStatus)},
         {"helper/1", Qor::toGeneric(hooks_)},
         {"l3Status", Qor::toGeneric(inputs_.l3Status)},
         {"mroute", Qor::toGeneric(table().routing()->reactor())},
         {"sm/1", Qor::toGeneric(table().reactor())},
         {"switch/1", Qor::toGeneric(mrouteSwitch())},
         {"verifyData", Qor::toGeneric(inputs_.verifyData)}};
}

void SyncPath::timelineIs(Timeline* timeline) {
   if (timeline) timeline->observe(std::make_unique<SyncObserver>(*timeline, *mrouteSwitch()));
}

RecordRow SyncPath::rowOf(Vel::MtableOifSet const& record) const {
   RecordRow row;
   row.index = record.oifSetIndex();
   return row;
}

}  // namespace Agent
