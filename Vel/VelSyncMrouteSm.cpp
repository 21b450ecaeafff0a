// Set-up of the synchronous per-switch reactor, room for routes, and clean-up.
#include "Vel/VelSyncMrouteSm.h"

#include <cmath>
#include <utility>

#include "Vel/VelDescribe.h"
#include "Vel/VelFrr.h"
#include "Vel/VelSyncMrouteSmReactors.h"
#include "Vel/VelTrace.h"

namespace Vel {

namespace {

constexpr char smType[] = "Vel::MrouteSwitchSm";

bool isDuration(Qor::Seconds v) {
   return v >= 0 && std::isfinite(v);
}

}  // namespace

MrouteSwitchSm::MrouteSwitchSm(
      Qor::U32 switchId, Qor::Ptr<VelCommonSmData> acsd, Qor::Ptr<L3Status> l3Status,
      Qor::Ptr<MrouteSwitch> mrouteSwitch, Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibConfig,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus,
      Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper, Qor::Ptr<Qor::Clock const> zombieClock,
      Qor::Ptr<Qor::Clock const> agingClock,
      Qor::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir,
      Qor::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
      Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir)
      : Entity("MrouteSwitchSm"),
        switchId_(switchId),
        intfVlanIdTable_(std::move(intfVlanIdTable)),
        mfibHwStatus_(std::move(mfibHwStatus)),
        mrouteHelper_(std::move(mrouteHelper)),
        allIntfStatusDir_(std::move(allIntfStatusDir)),
        allIntfStatusLocalDir_(std::move(allIntfStatusLocalDir)) {
   acsd_.is(this, std::move(acsd));
   l3Status_.is(this, std::move(l3Status));
   mrouteSwitchIs(std::move(mrouteSwitch));
   mfibConfig_.is(this, std::move(mfibConfig));
   zombieClock_.is(this, std::move(zombieClock));
   agingClock_.is(this, std::move(agingClock));
   ethIntfStatusDir_.is(this, std::move(ethIntfStatusDir));
   syncEthIntfStatus();
   handleClock();
   if (this->acsd()) verifyDataIs(this->acsd()->verifyData());
   handleInitialized();
}

// The nested reactors are released first, so that no nested reactor calls this object when
// listeners are notified of the empty collection.
MrouteSwitchSm::~MrouteSwitchSm() {
   doCleanup();
   disarmClocks();
   acsd_.release();
   l3Status_.release();
   mrouteSwitch_.release();
   mfibConfig_.release();
   zombieClock_.release();
   agingClock_.release();
   ethIntfStatusDir_.release();
   clock_.release();
   verifyData_.release();
   ethIntfStatus_.release();
   ethIntfStatusDelAll();
}

Qor::Ptr<MrouteSwitchSm> MrouteSwitchSmIs(
      Qor::U32 switchId, Qor::Ptr<VelCommonSmData> acsd, Qor::Ptr<L3Status> l3Status,
      Qor::Ptr<MrouteSwitch> mrouteSwitch, Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibConfig,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus,
      Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper, Qor::Ptr<Qor::Clock const> zombieClock,
      Qor::Ptr<Qor::Clock const> agingClock,
      Qor::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir,
      Qor::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
      Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir) {
   return Qor::make<MrouteSwitchSm>(switchId, std::move(acsd), std::move(l3Status),
                                    std::move(mrouteSwitch), std::move(intfVlanIdTable),
                                    std::move(mfibConfig), std::move(mfibHwStatus),
                                    std::move(mrouteHelper), std::move(zombieClock),
                                    std::move(agingClock), std::move(ethIntfStatusDir),
                                    std::move(allIntfStatusDir), std::move(allIntfStatusLocalDir));
}

// ---- Inputs and settings ----

void MrouteSwitchSm::acsdIs(Qor::Ptr<VelCommonSmData> v) {
   auto const self = hold();
   bool const changed = acsd_.is(this, v);
   verifyDataIs(v ? v->verifyData() : nullptr);
   if (changed) notify<&Notifiee::onAcsd>();
}

MrouteSwitchSm::QorAcsd* MrouteSwitchSm::newAcsd(Qor::Ptr<VelCommonSmData> v) {
   auto const self = hold();
   acsdIs(std::move(v));
   return acsd_.reactor();
}

void MrouteSwitchSm::l3StatusIs(Qor::Ptr<L3Status> v) {
   auto const self = hold();
   if (l3Status_.is(this, std::move(v))) notify<&Notifiee::onL3Status>();
}

MrouteSwitchSm::QorL3Status* MrouteSwitchSm::newL3Status(Qor::Ptr<L3Status> v) {
   auto const self = hold();
   l3StatusIs(std::move(v));
   return l3Status_.reactor();
}

void MrouteSwitchSm::mrouteSwitchIs(Qor::Ptr<MrouteSwitch> v) {
   if (!v) Qor::throwNullParameter(smType, "mrouteSwitch");
   auto const self = hold();
   bool const first = !mrouteSwitch();
   bool const changed = mrouteSwitch_.is(this, std::move(v));
   if (initialized()) {
      if (first) handleZombie();  // a nested reactor that moved has called it already
      handleClock();
      maybeScheduleAgingReview();
   }
   if (changed) notify<&Notifiee::onMrouteSwitch>();
}

MrouteSwitchSm::QorMrouteSwitch* MrouteSwitchSm::newMrouteSwitch(Qor::Ptr<MrouteSwitch> v) {
   auto const self = hold();
   mrouteSwitchIs(std::move(v));
   return mrouteSwitch_.reactor();
}

void MrouteSwitchSm::mrouteSwitchDel() {
   auto const self = hold();
   bool const changed = mrouteSwitch_.is(this, nullptr);
   disarmClocks();
   if (changed) notify<&Notifiee::onMrouteSwitch>();
}

// This reactor has armed these clocks: a clock left armed would fire without a handler.
void MrouteSwitchSm::disarmClocks() {
   zombieClock_.arm(Qor::never);
   agingClock_.arm(Qor::never);
   clock_.arm(Qor::never);
   reviewStopped();
   FrrPosition<MrouteSwitchSm>::clear(this);
}

void MrouteSwitchSm::mfibConfigIs(Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> v) {
   auto const self = hold();
   bool const changed = mfibConfig_.is(this, std::move(v));
   handlePollingInterval();
   if (hasRoutes()) maybeScheduleAgingReview();
   if (changed) notify<&Notifiee::onMfibConfig>();
}

MrouteSwitchSm::QorMfibConfig* MrouteSwitchSm::newMfibConfig(
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> v) {
   auto const self = hold();
   mfibConfigIs(std::move(v));
   return mfibConfig_.reactor();
}

void MrouteSwitchSm::zombieClockIs(Qor::Ptr<Qor::Clock const> v) {
   auto const self = hold();
   bool const changed = zombieClock_.is(this, std::move(v));
   handleZombie();
   if (changed) notify<&Notifiee::onZombieClock>();
}

MrouteSwitchSm::QorZombieClock* MrouteSwitchSm::newZombieClock(Qor::Ptr<Qor::Clock const> v) {
   auto const self = hold();
   zombieClockIs(std::move(v));
   return zombieClock_.reactor();
}

void MrouteSwitchSm::agingClockIs(Qor::Ptr<Qor::Clock const> v) {
   auto const self = hold();
   bool const changed = agingClock_.is(this, std::move(v));
   if (hasRoutes()) maybeScheduleAgingReview();
   if (changed) notify<&Notifiee::onAgingClock>();
}

MrouteSwitchSm::QorAgingClock* MrouteSwitchSm::newAgingClock(Qor::Ptr<Qor::Clock const> v) {
   auto const self = hold();
   agingClockIs(std::move(v));
   return agingClock_.reactor();
}

void MrouteSwitchSm::ethIntfStatusDirIs(Qor::Ptr<Interface::EthIntfStatusDir const> v) {
   auto const self = hold();
   bool const changed = ethIntfStatusDir_.is(this, std::move(v));
   syncEthIntfStatus();
   if (changed) notify<&Notifiee::onEthIntfStatusDir>();
}

MrouteSwitchSm::QorEthIntfStatusDir* MrouteSwitchSm::newEthIntfStatusDir(
      Qor::Ptr<Interface::EthIntfStatusDir const> v) {
   auto const self = hold();
   ethIntfStatusDirIs(std::move(v));
   return ethIntfStatusDir_.reactor();
}

void MrouteSwitchSm::clockIs(Qor::Ptr<Qor::Clock const> v) {
   auto const self = hold();
   bool const changed = clock_.is(this, std::move(v));
   if (setsWait()) clock_.arm(Qor::now());
   if (changed) notify<&Notifiee::onClock>();
}

MrouteSwitchSm::QorClock* MrouteSwitchSm::newClock(Qor::Ptr<Qor::Clock const> v) {
   auto const self = hold();
   clockIs(std::move(v));
   return clock_.reactor();
}

void MrouteSwitchSm::verifyDataIs(Qor::Ptr<VerifyData const> v) {
   auto const self = hold();
   if (verifyData_.is(this, std::move(v))) notify<&Notifiee::onVerifyData>();
}

MrouteSwitchSm::QorVerifyData* MrouteSwitchSm::newVerifyData(Qor::Ptr<VerifyData const> v) {
   auto const self = hold();
   verifyDataIs(std::move(v));
   return verifyData_.reactor();
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

MrouteSwitchSm::QorEthIntfStatus* MrouteSwitchSm::ethIntfStatus(Lnet::IntfId intfId) const {
   return ethIntfStatus_.find(intfId);
}

Qor::U32 MrouteSwitchSm::ethIntfStatuses() const {
   return ethIntfStatus_.size();
}

MrouteSwitchSm::QorEthIntfStatus* MrouteSwitchSm::newEthIntfStatus(EthIntfStatusPtr status) {
   auto const self = hold();
   ethIntfStatusIs(status);
   return ethIntfStatus(status->intfId());
}

void MrouteSwitchSm::ethIntfStatusIs(EthIntfStatusPtr status) {
   if (!status) Qor::throwNullParameter(smType, "ethIntfStatus");
   ethIntfStatus_.is(*this, status->intfId(), status);
}

void MrouteSwitchSm::ethIntfStatusDel(Lnet::IntfId intfId) {
   ethIntfStatus_.del(*this, intfId);
}

MrouteSwitchSm::EthIntfStatusColl::Iterator MrouteSwitchSm::ethIntfStatusDel(
      EthIntfStatusColl::Iterator it) {
   return ethIntfStatus_.del(*this, it);
}

void MrouteSwitchSm::ethIntfStatusDelAll() {
   ethIntfStatus_.delAll(*this);
}

void MrouteSwitchSm::ethIntfStatusNotify(Lnet::IntfId intfId) {
   ethIntfStatus_.notify(*this, intfId);
}

void MrouteSwitchSm::syncEthIntfStatus() {
   ethIntfStatus_.sync(
         *this, [this] { return ethIntfStatusDir() ? &ethIntfStatusDir()->intfStatus() : nullptr; },
         [this](auto const& status) { ethIntfStatusIs(status); });
}

void MrouteSwitchSm::QorEthIntfStatusDir::onIntfStatus(Lnet::IntfId intfId) {
   auto const status = notifier()->intfStatus(intfId);
   if (status) {
      mrouteSwitchSm()->ethIntfStatusIs(status);
   } else {
      mrouteSwitchSm()->ethIntfStatusDel(intfId);
   }
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
   Qor::Ptr<MrouteSwitch> const chip = mrouteSwitch();
   if (!chip) return;
   auto const self = hold();
   chip->deletedIs(true);
   auto const& zombies = chip->zombieOifSet();
   for (Qor::U32 count = 0; !zombies.empty(); ++count) {
      auto const [key, record] = *zombies.begin();
      VEL_TRACE(4, "Deleting zombie oifSetIndex: " << record->oifSetIndex() << ", iter " << count);
      VEL_BLIP("doCleanup, Delete zombie oifSetIndex: %s", record->oifSetIndex());
      chip->zombieOifSetDel(key);
   }
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
   type.attribute<&Sm::mrouteSwitch, &Sm::mrouteSwitchIs, &Told::onMrouteSwitch>();
   type.operation<&Sm::mrouteSwitchDel>();
   type.attribute<&Sm::intfVlanIdTable>();
   type.attribute<&Sm::mfibConfig, &Sm::mfibConfigIs, &Told::onMfibConfig>();
   type.operation<&Sm::mfibConfigDel>();
   type.attribute<&Sm::mfibHwStatus>();
   type.attribute<&Sm::mrouteHelper>();
   type.attribute<&Sm::zombieClock, &Sm::zombieClockIs, &Told::onZombieClock>();
   type.operation<&Sm::zombieClockDel>();
   type.attribute<&Sm::agingClock, &Sm::agingClockIs, &Told::onAgingClock>();
   type.operation<&Sm::agingClockDel>();
   type.attribute<&Sm::ethIntfStatusDir, &Sm::ethIntfStatusDirIs, &Told::onEthIntfStatusDir>();
   type.operation<&Sm::ethIntfStatusDirDel>();
   type.attribute<&Sm::allIntfStatusDir>();
   type.attribute<&Sm::allIntfStatusLocalDir>();
   type.attribute<&Sm::clock, &Sm::clockIs, &Told::onClock>();
   type.operation<&Sm::clockDel>();
   type.attribute<&Sm::verifyData, &Sm::verifyDataIs, &Told::onVerifyData>();
   type.operation<&Sm::verifyDataDel>();
   type.attribute<&Sm::agingReviewInterval, &Sm::agingReviewIntervalIs,
                  &Told::onAgingReviewInterval>();
   type.attribute<&Sm::agingReviewQuota, &Sm::agingReviewQuotaIs, &Told::onAgingReviewQuota>();
   type.attribute<&Sm::disableVerify, &Sm::disableVerifyIs, &Told::onDisableVerify>();
   type.collection<Sm::EthIntfStatusColl, Sm, &Sm::ethIntfStatus, &Sm::ethIntfStatusDel,
                   &Sm::ethIntfStatusDelAll, &Sm::ethIntfStatusNotify, &Sm::ethIntfStatusIs>();
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
