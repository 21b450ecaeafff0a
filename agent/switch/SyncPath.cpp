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

SyncPath::Inputs::Inputs(Surroundings const& surroundings) {
   acsd->verifyDataIs(verifyData);
   surroundings.mfibHwStatus->hwRoutingIs(true);
}

SyncPath::SyncPath(Surroundings const& surroundings, PathConfig const& config)
      : SyncPath(surroundings,
                 Qor::make<Sim::SyncPlatform>("sim", surroundings.chip, switchId,
                                              platformConfig(config)),
                 Inputs(surroundings)) {}

SyncPath::SyncPath(Surroundings const& s, PlatformPtr platform, Inputs inputs)
      : SwitchPathBase(Vel::mrouteSwitchFactory("switch1", switchId, inputs.acsd, inputs.l3Status,
                                                platform, nullptr, s.mfibHwStatus)),
        platform_(std::move(platform)),
        inputs_(std::move(inputs)),
        verifier_(std::make_unique<Verifier>(inputs_.verifyData)),
        routeProgrammer_(mrouteSwitch(), Qor::make<MrouteLib::MrouteTableColl>(), s.mfibHwStatus),
        reactor_(Vel::mrouteSwitchSmFactory({.switchId = switchId,
                                             .acsd = inputs_.acsd,
                                             .l3Status = inputs_.l3Status,
                                             .mrouteSwitch = mrouteSwitch(),
                                             .intfVlanIdTable = s.intfVlanIdTable,
                                             .mfibConfig = s.mfibConfig,
                                             .mfibHwStatus = s.mfibHwStatus,
                                             .mrouteHelper = platform_,
                                             .zombieClock = Qor::make<Qor::Clock>("zombieClock"),
                                             .agingClock = Qor::make<Qor::Clock>("agingClock"),
                                             .ethIntfStatusDir = s.ethIntfStatusDir})),
        mrouteSm_(Vel::MrouteSmIs(inputs_.acsd, inputs_.l3Status, s.mfibConfig, s.mfibHwStatus,
                                  nullptr, platform_, inputs_.mcastEnabledStatus)) {
   auto const ctl = Qor::make<Routing::Multicast::Fib::CounterStatusCtl>();
   ctl->pollingRefCntIs(1);
   mrouteSm_->mfibCounterStatusIs(inputs_.counterStatus);
   mrouteSm_->mfibCounterStatusCtlIs(ctl);
}

void SyncPath::vrfIs(L3::VrfName const& vrf, Vel::VrfId id) {
   inputs_.l3Status->vrfNameToVrfIdIs(vrf.name(), id);
   inputs_.mcastEnabledStatus->vrfIs(vrf);
}

// The platform and the agent change no input of the reactor while it applies a decision on
// multicast routing. A decision that it abandoned is therefore a fault.
void SyncPath::addFaults(std::vector<Qor::String>& faults) const {
   platform_->differences().audit(faults);
   if (Qor::U32 const abandoned = mrouteSm_->abandonedDecisions()) {
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

// The table programmer sets its room flags after its own deletions. The platform deletes found
// groups and entries without the table programmer, so the flags are set here.
bool SyncPath::sweepUnadopted() {
   platform_->sweepUnadopted();
   if (!platform_->mtableFull(switchId)) mrouteSwitch()->mtableFreeIs(true);
   if (!platform_->mrouteFull(switchId)) mrouteSwitch()->mrouteTcamFreeIs(true);
   if (!platform_->mrouteBoundaryFull(switchId)) mrouteSwitch()->boundaryTcamFreeIs(true);
   routeProgrammer_.tryAgain();
   return true;
}

Sim::Entry const* SyncPath::entry(MrouteLib::RouteHandle handle) const {
   if (handle.isNull()) return nullptr;
   Sim::Chip const& chip = *platform_->chip();
   return (platform_->isBoundary(handle) ? chip.boundaries() : chip.routes())
         .find(platform_->entryOf(handle));
}

std::optional<Qor::U64> SyncPath::counter(RouteProgrammer::RouteKey const& key) const {
   auto const* const found = inputs_.counterStatus->counter().find(key);
   if (!found) return std::nullopt;
   return found->second.value;
}

TreeRoots SyncPath::roots() const {
   return {{"counterStatus", Qor::toGeneric(inputs_.counterStatus)},
           {"counterStatusCtl", Qor::toGeneric(mrouteSm_->mfibCounterStatusCtl())},
           {"enabledStatus", Qor::toGeneric(inputs_.mcastEnabledStatus)},
           {"helper/1", Qor::toGeneric(Qor::Ptr<VelHelper::MrouteSmHelper>(platform_))},
           {"l3Status", Qor::toGeneric(inputs_.l3Status)},
           {"mroute", Qor::toGeneric(mrouteSm_)},
           {"sm/1", Qor::toGeneric(reactor_)},
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
