// Set-up of the synchronous per-switch reactor, room for routes, and clean-up. The part that both
// paths have in common is in VelPerSwitchSmMembers.h.
#include "Vel/VelSyncMrouteSm.h"

#include <cmath>
#include <utility>

#include "Vel/VelDescribe.h"
#include "Vel/VelSyncMrouteSmReactors.h"
#include "Vel/VelTrace.h"

namespace Vel {

namespace {

bool isDuration(Qor::Seconds v) {
   return v >= 0 && std::isfinite(v);
}

}  // namespace

MrouteSwitchSm::MrouteSwitchSm(Inputs inputs)
      : PerSwitchSm("MrouteSwitchSm", inputs), switchId_(inputs.switchId) {
   acsd_.is(this, std::move(inputs.acsd));
   l3Status_.is(this, std::move(inputs.l3Status));
   bindInputs(inputs);
   syncEthIntfStatus();
   handleClock();
   if (acsd()) verifyDataIs(acsd()->verifyData());
   handleInitialized();
}

MrouteSwitchSm::~MrouteSwitchSm() {
   doCleanup();
   disarmClocks();
   reviewStopped();
   releaseReactors();
   acsd_.release();
   l3Status_.release();
   verifyData_.release();
   ethIntfStatusDelAll();
}

Qor::Ptr<MrouteSwitchSm> mrouteSwitchSmFactory(MrouteSwitchSm::Inputs inputs) {
   return Qor::make<MrouteSwitchSm>(std::move(inputs));
}

// ---- Inputs and settings ----

// A nested reactor that moved to another switch has called handleZombie() already.
void MrouteSwitchSm::switchFollows(bool first) {
   if (first) handleZombie();
   handleClock();
   maybeScheduleAgingReview();
}

// This reactor has armed the clocks: a clock left armed would fire without a handler.
void MrouteSwitchSm::mrouteSwitchDel() {
   auto const self = hold();
   bool const changed = mrouteSwitch_.is(this, nullptr);
   disarmClocks();
   reviewStopped();
   if (changed) notify<&Notifiee::onMrouteSwitch>();
}

void MrouteSwitchSm::configFollows(bool) {
   handlePollingInterval();
   if (hasRoutes()) maybeScheduleAgingReview();
}

void MrouteSwitchSm::agingClockFollows() {
   if (hasRoutes()) maybeScheduleAgingReview();
}

void MrouteSwitchSm::acsdIs(Qor::Ptr<VelCommonSmData> v) {
   auto const self = hold();
   bool const changed = acsd_.is(this, v);
   verifyDataIs(v ? v->verifyData() : nullptr);
   if (changed) notify<&Notifiee::onAcsd>();
}

void MrouteSwitchSm::l3StatusIs(Qor::Ptr<L3Status> v) {
   auto const self = hold();
   if (l3Status_.is(this, std::move(v))) notify<&Notifiee::onL3Status>();
}

void MrouteSwitchSm::verifyDataIs(Qor::Ptr<VerifyData const> v) {
   auto const self = hold();
   if (verifyData_.is(this, std::move(v))) notify<&Notifiee::onVerifyData>();
}

void MrouteSwitchSm::agingReviewIntervalIs(Qor::Seconds v) {
   if (!isDuration(v)) {
      Qor::throwRange("MrouteSwitchSm::agingReviewInterval < 0 or not finite not allowed");
   }
   attrIs<&Notifiee::onAgingReviewInterval>(agingReviewInterval_, v);
}

void MrouteSwitchSm::agingReviewQuotaIs(Qor::Seconds v) {
   if (!isDuration(v)) {
      Qor::throwRange("MrouteSwitchSm::agingReviewQuota < 0 or not finite not allowed");
   }
   attrIs<&Notifiee::onAgingReviewQuota>(agingReviewQuota_, v);
}

// ---- Life ----

void MrouteSwitchSm::handleInitialized() {
   VEL_TRACE(4, "handleInitialized"
                      << ", state machine # " << switchId());
   if (initialized()) return;
   auto const self = hold();
   initialized_ = true;
   zombieClock_.arm(Qor::never);
   agingClock_.arm(Qor::never);
   handlePollingInterval();
   // Zombies and routes older than this reactor would otherwise wait for the next change.
   if (!mrouteSwitch()->zombieOifSet().empty()) handleZombie();
   if (!mrouteSwitch()->route().empty()) maybeScheduleAgingReview();
}

void MrouteSwitchSm::doCleanup() {
   VEL_TRACE(4, "doCleanup"
                      << ", state machine # " << switchId());
   if (!mrouteSwitch()) return;
   auto const self = hold();
   Qor::U32 count = 0;
   purgeAllZombies([&, function = __func__](ZombieKey const&, MtableOifSet const& record) {
      Qor::U32 const index = record.oifSetIndex();
      VEL_TRACE_IN(function, 4, "Deleting zombie oifSetIndex: " << index << ", iter " << count);
      VEL_BLIP("doCleanup, Delete zombie oifSetIndex: %s", index);
      ++count;
   });
}

void MrouteSwitchSm::handleVerify() {
   VEL_TRACE(9, "handleVerify"
                      << ", state machine # " << switchId());
   if (!initialized() || disableVerify()) return;
   Qor::Ptr<MrouteSwitch> const chip = mrouteSwitch();
   if (chip) chip->handleVerify();
}

// ---- Room for routes ----

void MrouteSwitchSm::maybeScheduleRoutesReview() {
   auto const self = hold();
   Qor::Ptr<MrouteSwitch> const chip = mrouteSwitch();
   if (!chip) return;
   if (!chip->mrouteTcamFree() && mrouteHelper() && !mrouteHelper()->mrouteFull(switchId())) {
      VEL_TRACE(5, "Free space now available in the mroute table");
      chip->mrouteTcamFreeIs(true);
   }
   maybeScheduleAgingReview();
}

namespace {

Qor::Type describeMrouteSwitchSm() {
   using Sm = MrouteSwitchSm;
   using Told = Sm::Notifiee;
   Qor::Describe<Sm> type(typeModule);
   type.base<Qor::StateMachine>();
   type.constructor<&MrouteSwitchSmIs>(
         "switchId", "acsd", "l3Status", Qor::Required("mrouteSwitch"), "intfVlanIdTable",
         "mfibConfig", "mfibHwStatus", "mrouteHelper", "zombieClock", "agingClock",
         "ethIntfStatusDir", "allIntfStatusDir", "allIntfStatusLocalDir");
   type.attribute<&Sm::switchId>();
   type.attribute<&Sm::acsd, &Sm::acsdIs, &Told::onAcsd>();
   type.operation<&Sm::acsdDel>();
   type.attribute<&Sm::l3Status, &Sm::l3StatusIs, &Told::onL3Status>();
   type.operation<&Sm::l3StatusDel>();
   type.operation<&Sm::mrouteSwitchDel>();
   describePerSwitchInputs<Sm>(type);
   describePerSwitchClock<Sm>(type);
   type.attribute<&Sm::verifyData, &Sm::verifyDataIs, &Told::onVerifyData>();
   type.operation<&Sm::verifyDataDel>();
   type.attribute<&Sm::agingReviewInterval, &Sm::agingReviewIntervalIs,
                  &Told::onAgingReviewInterval>();
   type.attribute<&Sm::agingReviewQuota, &Sm::agingReviewQuotaIs, &Told::onAgingReviewQuota>();
   type.attribute<&Sm::disableVerify, &Sm::disableVerifyIs, &Told::onDisableVerify>();
   describeEthIntfStatus<Sm, SyncSmPath>(type);
   type.attribute<&Sm::initialized>();
   type.operation<&Sm::handleInitialized>();
   type.operation<&Sm::doCleanup>();
   type.operation<&Sm::maybeScheduleRoutesReview>();
   type.operation<&Sm::maybeScheduleAgingReview>();
   type.operation<&Sm::handleZombie>();
   type.operation<&Sm::handleZombieClock>();
   type.operation<&Sm::handlePollingInterval>();
   type.operation<&Sm::doRouteAgingReview>();
   type.operation<&Sm::updateFrrMtableOif>("intfId");
   type.operation<&Sm::handleClock>();
   type.operation<&Sm::handleVerify>();
   return type;
}
Qor::TypeRegistration const mrouteSwitchSmRegistered(describeMrouteSwitchSm);

}  // namespace

}  // namespace Vel

// All operations of the common part.
template class Vel::PerSwitchSm<Vel::MrouteSwitchSm, Vel::SyncSmPath>;
