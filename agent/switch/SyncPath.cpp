#include "agent/switch/SyncPath.h"

#include "agent/timeline/SyncObserver.h"

namespace Agent {

namespace {

Sim::SyncPlatformConfig platformConfig(PathConfig const& config) {
   Sim::SyncPlatformConfig out;
   out.callCost = config.callCost;
   return out;
}

}  // namespace

SyncPath::Inputs::Inputs(Surroundings const& s) {
   acsd->verifyDataIs(verifyData);
   s.mfibHwStatus->hwRoutingIs(true);
}

void SyncPath::Inputs::vrfIs(L3::VrfName const& vrf, Vel::VrfId id) const {
   l3Status->vrfNameToVrfIdIs(vrf.name(), id);
   mcastEnabledStatus->vrfIs(vrf);
}

SyncPath::SyncPath(Surroundings const& s, PathConfig const& config, Crashed const* crashed)
      : SyncPath(s, crashed,
                 Qor::make<Sim::SyncPlatform>("sim", s.chip, switchId, platformConfig(config)),
                 Inputs(s)) {}

SyncPath::SyncPath(Surroundings const& s, Crashed const* crashed, PlatformPtr platform,
                   Inputs inputs)
      : SwitchPathBase(s, newTable(s, crashed, platform, inputs),
                       crashed ? newRestart(platform) : nullptr),
        platform_(std::move(platform)),
        inputs_(std::move(inputs)),
        verifier_(std::make_unique<Verifier>(inputs_.verifyData)) {}

std::unique_ptr<VelMroute::SyncRouteTable> SyncPath::newTable(Surroundings const& s,
                                                              Crashed const* crashed,
                                                              PlatformPtr const& platform,
                                                              Inputs const& inputs) {
   auto const counterControl = Qor::make<Routing::Multicast::Fib::CounterStatusCtl>();
   counterControl->pollingRefCntIs(1);
   auto const routing = Qor::make<VelMroute::SyncRouting>(
         VelMroute::SyncRouting::Inputs{.hooks = platform,
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
   platform->faults() = crashed->faults;
   for (auto const& [vrf, id] : crashed->vrfs)
      inputs.vrfIs(vrf, id);
   return table;
}

std::unique_ptr<Sim::ChipRestart> SyncPath::newRestart(PlatformPtr const& platform) {
   return std::make_unique<Sim::ChipRestart>(*platform->chip(), platform->found(), [platform] {
      platform->sweepUnadopted();
      return true;
   });
}

// The platform and the agent change no input of the reactor while it applies a decision on
// multicast routing. A decision that it abandoned is therefore a fault.
void SyncPath::addFaults(std::vector<Qor::String>& faults) const {
   platform_->differences().audit(faults);
   if (Qor::U32 const abandoned = table().routing()->reactor()->abandonedDecisions()) {
      faults.push_back("decisions on multicast routing were abandoned " +
                       std::to_string(abandoned) + " times");
   }
}

std::vector<Qor::String> SyncPath::audit() const {
   verifier_->verify();
   std::vector<Qor::String> faults = platform_->audit();
   addFaults(faults);
   return faults;
}

std::vector<Qor::String> SyncPath::platformFaults() const {
   std::vector<Qor::String> faults = platform_->violations().texts();
   addFaults(faults);
   return faults;
}

Sim::Entry const* SyncPath::entry(MrouteLib::RouteHandle handle) const {
   if (handle.isNull()) return nullptr;
   Sim::Chip const& chip = *platform_->chip();
   return (platform_->isBoundary(handle) ? chip.boundaries() : chip.routes())
         .find(platform_->entryOf(handle));
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
         {"helper/1", Qor::toGeneric(Qor::Ptr<VelHelper::MrouteSmHelper>(platform_))},
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
   row.group = platform_->groupOf(record.oifSetIndex());
   return row;
}

}  // namespace Agent
