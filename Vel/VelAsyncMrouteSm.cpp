// Set-up of the asynchronous per-switch reactor, tracking of directories, and clean-up. The part
// that both paths have in common is in VelPerSwitchSmMembers.h.
#include "Vel/VelAsyncMrouteSm.h"

#include <utility>

#include "Vel/VelAsyncMrouteSmReactors.h"
#include "Vel/VelDescribe.h"
#include "Vel/VelTrace.h"

namespace Vel::Mroute {

AsyncMrouteSwitchSm::AsyncMrouteSwitchSm(Inputs inputs)
      : PerSwitchSm("AsyncMrouteSwitchSm", inputs),
        bfdAllPeerStatusDir_(std::move(inputs.bfdAllPeerStatusDir)) {
   bindInputs(inputs);
   bfdAllPeerStatus_.is(this, std::move(inputs.bfdAllPeerStatus));
   if (mfibConfig()) {
      handleMulticastCounterMode();
      handleWildcardCounter();
   }
   syncEthIntfStatus();
   syncBfdStatus();
   handleClock();
   syncMfibConfigVrf();
   handleInitialized();
}

AsyncMrouteSwitchSm::~AsyncMrouteSwitchSm() {
   doCleanup();
   disarmClocks();
   releaseReactors();
   bfdAllPeerStatus_.release();
   bfdStatus_.release();
   mfibConfigVrf_.release();
   bfdVelAsyncMrouteSmDel();
   ethIntfStatusDelAll();
   bfdStatusDelAll();
   mfibConfigVrfDelAll();
}

Qor::Ptr<AsyncMrouteSwitchSm> asyncMrouteSwitchSmFactory(AsyncMrouteSwitchSm::Inputs inputs) {
   return Qor::make<AsyncMrouteSwitchSm>(std::move(inputs));
}

// ---- Inputs ----

void AsyncMrouteSwitchSm::switchFollows(bool) {
   handleClock();
}

void AsyncMrouteSwitchSm::configFollows(bool changed) {
   if (changed && mfibConfig()) {
      handleMulticastCounterMode();
      handleWildcardCounter();
   }
   syncMfibConfigVrf();
   if (initialized()) handlePollingInterval();
}

void AsyncMrouteSwitchSm::agingClockFollows() {
   if (initialized() && mfibHwStatus()) doMaybeScheduleRouteAgingReview();
}

void AsyncMrouteSwitchSm::bfdAllPeerStatusIs(Qor::Ptr<Bfd::AppStatus> v) {
   auto const self = hold();
   if (!bfdAllPeerStatus_.is(this, std::move(v))) return;
   syncBfdStatus();
   if (initialized()) registerWithBfd();
   notify<&Notifiee::onBfdAllPeerStatus>();
}

// ---- Tracking of directories ----

AsyncMrouteSwitchSm::QorBfdStatus* AsyncMrouteSwitchSm::bfdStatus(Bfd::Peer const& peer) const {
   return bfdStatus_.find(peer);
}

Qor::U32 AsyncMrouteSwitchSm::bfdStatuses() const {
   return bfdStatus_.size();
}

AsyncMrouteSwitchSm::QorBfdStatus* AsyncMrouteSwitchSm::newBfdStatus(BfdPeerStatusPtr status) {
   auto const self = hold();
   bfdStatusIs(status);
   return bfdStatus(status->peer());
}

void AsyncMrouteSwitchSm::bfdStatusIs(BfdPeerStatusPtr status) {
   if (!status) Qor::throwNullParameter(typeName, "bfdStatus");
   bfdStatus_.is(*this, status->peer(), status);
}

void AsyncMrouteSwitchSm::bfdStatusDel(Bfd::Peer peer) {
   bfdStatus_.del(*this, peer);
}

AsyncMrouteSwitchSm::BfdStatusColl::Iterator AsyncMrouteSwitchSm::bfdStatusDel(
      BfdStatusColl::Iterator it) {
   return bfdStatus_.del(*this, it);
}

void AsyncMrouteSwitchSm::bfdStatusDelAll() {
   bfdStatus_.delAll(*this);
}

void AsyncMrouteSwitchSm::bfdStatusNotify(Bfd::Peer peer) {
   bfdStatus_.notify(*this, peer);
}

void AsyncMrouteSwitchSm::syncBfdStatus() {
   bfdStatus_.sync(
         *this, [this] { return bfdAllPeerStatus() ? &bfdAllPeerStatus()->peerStatus() : nullptr; },
         [this](auto const& status) { bfdStatusIs(status); });
}

void AsyncMrouteSwitchSm::QorBfdAllPeerStatus::onPeerStatus(Bfd::Peer const& peer) {
   auto const status = notifier()->peerStatus(peer);
   if (status) {
      asyncMrouteSwitchSm()->bfdStatusIs(status);
   } else {
      asyncMrouteSwitchSm()->bfdStatusDel(peer);
   }
}

AsyncMrouteSwitchSm::QorMfibConfigVrf* AsyncMrouteSwitchSm::mfibConfigVrf(
      Qor::Name const& vrfName) const {
   return mfibConfigVrf_.find(vrfName);
}

Qor::U32 AsyncMrouteSwitchSm::mfibConfigVrfs() const {
   return mfibConfigVrf_.size();
}

AsyncMrouteSwitchSm::QorMfibConfigVrf* AsyncMrouteSwitchSm::newMfibConfigVrf(ConfigPtr config) {
   auto const self = hold();
   mfibConfigVrfIs(config);
   return mfibConfigVrf(config->name());
}

void AsyncMrouteSwitchSm::mfibConfigVrfIs(ConfigPtr config) {
   if (!config) Qor::throwNullParameter(typeName, "mfibConfigVrf");
   mfibConfigVrf_.is(*this, config->name(), config);
}

void AsyncMrouteSwitchSm::mfibConfigVrfDel(Qor::Name vrfName) {
   mfibConfigVrf_.del(*this, vrfName);
}

AsyncMrouteSwitchSm::MfibConfigVrfColl::Iterator AsyncMrouteSwitchSm::mfibConfigVrfDel(
      MfibConfigVrfColl::Iterator it) {
   return mfibConfigVrf_.del(*this, it);
}

void AsyncMrouteSwitchSm::mfibConfigVrfDelAll() {
   mfibConfigVrf_.delAll(*this);
}

void AsyncMrouteSwitchSm::mfibConfigVrfNotify(Qor::Name vrfName) {
   mfibConfigVrf_.notify(*this, vrfName);
}

void AsyncMrouteSwitchSm::syncMfibConfigVrf() {
   mfibConfigVrf_.sync(
         *this, [this] { return mfibConfig() ? &mfibConfig()->config() : nullptr; },
         [this](auto const& config) { mfibConfigVrfIs(config); });
}

void AsyncSmPath::QorMfibConfig::onConfig(Qor::Name const& vrfName) {
   auto const config = notifier()->config(vrfName);
   if (config) {
      asyncMrouteSwitchSm()->mfibConfigVrfIs(config);
   } else {
      asyncMrouteSwitchSm()->mfibConfigVrfDel(vrfName);
   }
}

void AsyncMrouteSwitchSm::bfdVelAsyncMrouteSmIs(Qor::Name appName,
                                                Qor::Ptr<Bfd::StatusPeer const> dir,
                                                Qor::Ptr<Bfd::AppStatus> status,
                                                L3::VrfName vrfName) {
   auto const self = hold();
   attrIs<&Notifiee::onBfdVelAsyncMrouteSm>(
         bfdVelAsyncMrouteSm_,
         Qor::make<Bfd::AppRegistration>(std::move(appName), std::move(dir), std::move(status),
                                         std::move(vrfName)));
}

void AsyncMrouteSwitchSm::bfdVelAsyncMrouteSmDel() {
   attrIs<&Notifiee::onBfdVelAsyncMrouteSm>(bfdVelAsyncMrouteSm_, nullptr);
}

void AsyncMrouteSwitchSm::registerWithBfd() {
   auto const self = hold();
   bfdVelAsyncMrouteSmDel();
   if (bfdAllPeerStatusDir() && bfdAllPeerStatus()) {
      bfdVelAsyncMrouteSmIs("", bfdAllPeerStatusDir(), bfdAllPeerStatus(), L3::VrfName("default"));
   }
}

// ---- Life ----

void AsyncMrouteSwitchSm::handleInitialized() {
   VEL_TRACE(2, "AsyncMrouteSwitchSm::handleInitialized()");
   if (initialized()) return;
   auto const self = hold();
   zombieClock_.arm(Qor::never);
   agingClock_.arm(Qor::never);
   handlePollingInterval();
   initializedIs(true);
   registerWithBfd();
   // Zombies older than this reactor would otherwise wait until the next zombie is added.
   if (!mrouteSwitch()->zombieOifSet().empty()) handleZombie();
}

void AsyncMrouteSwitchSm::handleRoute(MrouteLib::RouteHandle handle) {
   VEL_TRACE(2, "AsyncMrouteSwitchSm"
                      << "::"
                      << "handleRoute"
                      << "( " << handle << " )");
   auto const* const entry = mrouteSwitch()->inUseRouteHandleKey().find(handle);
   if (!entry || entry->second == InUseRouteHandleKey()) return;
   doMaybeScheduleRouteAgingReview();
}

void AsyncMrouteSwitchSm::doCleanup() {
   VEL_TRACE(2, "AsyncMrouteSwitchSm::doCleanup()");
   if (!initialized()) return;
   auto const self = hold();
   purgeAllZombies([function = __func__](ZombieKey const& key, AsyncMtableOifSet const&) {
      VEL_TRACE_IN(function, 2, "Deleting zombie with mcastId: " << key.multicastId());
   });
   zombieClock_.arm(Qor::never);
   bfdVelAsyncMrouteSmDel();
}

namespace {

Qor::Type describeAsyncMrouteSwitchSm() {
   using Sm = AsyncMrouteSwitchSm;
   using Told = Sm::Notifiee;
   Qor::Describe<Sm> type(typeModule);
   type.base<Qor::StateMachine>();
   type.constructor<&AsyncMrouteSwitchSmIs>(
         Qor::Required("mrouteSwitch"), "intfVlanIdTable", "mfibConfig", "mfibHwStatus",
         "mrouteHelper", "zombieClock", "agingClock", "ethIntfStatusDir", "bfdAllPeerStatusDir",
         "bfdAllPeerStatus", "allIntfStatusDir", "allIntfStatusLocalDir");
   describePerSwitchInputs<Sm>(type);
   type.attribute<&Sm::bfdAllPeerStatusDir>();
   type.attribute<&Sm::bfdAllPeerStatus, &Sm::bfdAllPeerStatusIs, &Told::onBfdAllPeerStatus>();
   type.operation<&Sm::bfdAllPeerStatusDel>();
   describePerSwitchClock<Sm>(type);
   type.attribute<&Sm::bfdVelAsyncMrouteSm, nullptr, &Told::onBfdVelAsyncMrouteSm>();
   type.operation<&Sm::bfdVelAsyncMrouteSmIs>("appName", "dir", "status", "vrfName");
   type.operation<&Sm::bfdVelAsyncMrouteSmDel>();
   type.attribute<&Sm::initialized, &Sm::initializedIs>();
   describeEthIntfStatus<Sm, AsyncSmPath>(type);
   type.collection<Sm::BfdStatusColl, Sm, &Sm::bfdStatus, &Sm::bfdStatusDel, &Sm::bfdStatusDelAll,
                   &Sm::bfdStatusNotify, &Sm::bfdStatusIs>();
   type.collection<Sm::MfibConfigVrfColl, Sm, &Sm::mfibConfigVrf, &Sm::mfibConfigVrfDel,
                   &Sm::mfibConfigVrfDelAll, &Sm::mfibConfigVrfNotify, &Sm::mfibConfigVrfIs>();
   type.operation<&Sm::handleInitialized>();
   type.operation<&Sm::handleRoute>("handle");
   type.operation<&Sm::doCleanup>();
   type.operation<static_cast<void (Sm::*)()>(&Sm::handleZombie)>();
   type.operation<static_cast<void (Sm::*)(ZombieKey const&)>(&Sm::handleZombie)>("key");
   type.operation<&Sm::handleZombieClock>();
   type.operation<&Sm::doForcePurgeOneZombie>();
   type.operation<&Sm::handlePollingInterval>();
   type.operation<&Sm::doMaybeScheduleRouteAgingReview>();
   type.operation<&Sm::doRouteAgingReview>();
   type.operation<&Sm::updateFrrMtableOif>("intfId");
   type.operation<&Sm::handleClock>();
   type.operation<&Sm::handleMulticastCounterMode>();
   type.operation<&Sm::handleWildcardCounter>();
   return type;
}
Qor::TypeRegistration const asyncMrouteSwitchSmRegistered(describeAsyncMrouteSwitchSm);

}  // namespace

}  // namespace Vel::Mroute

// All operations of the common part.
template class Vel::PerSwitchSm<Vel::Mroute::AsyncMrouteSwitchSm, Vel::Mroute::AsyncSmPath>;
