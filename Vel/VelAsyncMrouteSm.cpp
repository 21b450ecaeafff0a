// Set-up of the asynchronous per-switch reactor, tracking of directories, and clean-up.
#include "Vel/VelAsyncMrouteSm.h"

#include <utility>

#include "Vel/VelAsyncMrouteSmReactors.h"
#include "Vel/VelDescribe.h"
#include "Vel/VelFrr.h"
#include "Vel/VelTrace.h"

namespace Vel::Mroute {

namespace {

constexpr char smType[] = "Vel::Mroute::AsyncMrouteSwitchSm";

}  // namespace

AsyncMrouteSwitchSm::AsyncMrouteSwitchSm(
      Qor::Ptr<AsyncMrouteSwitch> mrouteSwitch, Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibConfig,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus,
      Qor::Ptr<VelHelper::AsyncMrouteHelper> mrouteHelper, Qor::Ptr<Qor::Clock const> zombieClock,
      Qor::Ptr<Qor::Clock const> agingClock,
      Qor::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir,
      Qor::Ptr<Bfd::StatusPeer const> bfdAllPeerStatusDir,
      Qor::Ptr<Bfd::AppStatus> bfdAllPeerStatus,
      Qor::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
      Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir)
      : Entity("AsyncMrouteSwitchSm"),
        intfVlanIdTable_(std::move(intfVlanIdTable)),
        mfibHwStatus_(std::move(mfibHwStatus)),
        mrouteHelper_(std::move(mrouteHelper)),
        bfdAllPeerStatusDir_(std::move(bfdAllPeerStatusDir)),
        allIntfStatusDir_(std::move(allIntfStatusDir)),
        allIntfStatusLocalDir_(std::move(allIntfStatusLocalDir)) {
   mrouteSwitchIs(std::move(mrouteSwitch));
   mfibConfig_.is(this, std::move(mfibConfig));
   zombieClock_.is(this, std::move(zombieClock));
   agingClock_.is(this, std::move(agingClock));
   ethIntfStatusDir_.is(this, std::move(ethIntfStatusDir));
   bfdAllPeerStatus_.is(this, std::move(bfdAllPeerStatus));
   if (this->mfibConfig()) {
      handleMulticastCounterMode();
      handleWildcardCounter();
   }
   syncEthIntfStatus();
   syncBfdStatus();
   handleClock();
   syncMfibConfigVrf();
   handleInitialized();
}

// The clocks may outlive the reactor, and a clock left armed would fire without a handler. The
// nested reactors are released before the collections are emptied, so that no listener of that
// change causes a call of this object.
AsyncMrouteSwitchSm::~AsyncMrouteSwitchSm() {
   doCleanup();
   zombieClock_.arm(Qor::never);
   agingClock_.arm(Qor::never);
   clock_.arm(Qor::never);
   FrrPosition<AsyncMrouteSwitchSm>::clear(this);
   mrouteSwitch_.release();
   mfibConfig_.release();
   zombieClock_.release();
   agingClock_.release();
   ethIntfStatusDir_.release();
   bfdAllPeerStatus_.release();
   clock_.release();
   ethIntfStatus_.release();
   bfdStatus_.release();
   mfibConfigVrf_.release();
   bfdVelAsyncMrouteSmDel();
   ethIntfStatusDelAll();
   bfdStatusDelAll();
   mfibConfigVrfDelAll();
}

Qor::Ptr<AsyncMrouteSwitchSm> AsyncMrouteSwitchSmIs(
      Qor::Ptr<AsyncMrouteSwitch> mrouteSwitch, Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibConfig,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus,
      Qor::Ptr<VelHelper::AsyncMrouteHelper> mrouteHelper, Qor::Ptr<Qor::Clock const> zombieClock,
      Qor::Ptr<Qor::Clock const> agingClock,
      Qor::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir,
      Qor::Ptr<Bfd::StatusPeer const> bfdAllPeerStatusDir,
      Qor::Ptr<Bfd::AppStatus> bfdAllPeerStatus,
      Qor::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
      Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir) {
   return Qor::make<AsyncMrouteSwitchSm>(
         std::move(mrouteSwitch), std::move(intfVlanIdTable), std::move(mfibConfig),
         std::move(mfibHwStatus), std::move(mrouteHelper), std::move(zombieClock),
         std::move(agingClock), std::move(ethIntfStatusDir), std::move(bfdAllPeerStatusDir),
         std::move(bfdAllPeerStatus), std::move(allIntfStatusDir),
         std::move(allIntfStatusLocalDir));
}

// ---- Inputs ----

void AsyncMrouteSwitchSm::mrouteSwitchIs(Qor::Ptr<AsyncMrouteSwitch> v) {
   if (!v) Qor::throwNullParameter(smType, "mrouteSwitch");
   auto const self = hold();
   bool const changed = mrouteSwitch_.is(this, std::move(v));
   if (initialized()) handleClock();
   if (changed) notify<&Notifiee::onMrouteSwitch>();
}

void AsyncMrouteSwitchSm::mfibConfigIs(Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> v) {
   auto const self = hold();
   bool const changed = mfibConfig_.is(this, std::move(v));
   if (changed && mfibConfig()) {
      handleMulticastCounterMode();
      handleWildcardCounter();
   }
   syncMfibConfigVrf();
   if (initialized()) handlePollingInterval();
   if (changed) notify<&Notifiee::onMfibConfig>();
}

void AsyncMrouteSwitchSm::zombieClockIs(Qor::Ptr<Qor::Clock const> v) {
   auto const self = hold();
   bool const changed = zombieClock_.is(this, std::move(v));
   if (initialized()) handleZombie();
   if (changed) notify<&Notifiee::onZombieClock>();
}

void AsyncMrouteSwitchSm::agingClockIs(Qor::Ptr<Qor::Clock const> v) {
   auto const self = hold();
   bool const changed = agingClock_.is(this, std::move(v));
   if (initialized() && mfibHwStatus()) doMaybeScheduleRouteAgingReview();
   if (changed) notify<&Notifiee::onAgingClock>();
}

void AsyncMrouteSwitchSm::ethIntfStatusDirIs(Qor::Ptr<Interface::EthIntfStatusDir const> v) {
   auto const self = hold();
   bool const changed = ethIntfStatusDir_.is(this, std::move(v));
   syncEthIntfStatus();
   if (changed) notify<&Notifiee::onEthIntfStatusDir>();
}

void AsyncMrouteSwitchSm::bfdAllPeerStatusIs(Qor::Ptr<Bfd::AppStatus> v) {
   auto const self = hold();
   if (!bfdAllPeerStatus_.is(this, std::move(v))) return;
   syncBfdStatus();
   if (initialized()) registerWithBfd();
   notify<&Notifiee::onBfdAllPeerStatus>();
}

void AsyncMrouteSwitchSm::clockIs(Qor::Ptr<Qor::Clock const> v) {
   auto const self = hold();
   bool const changed = clock_.is(this, std::move(v));
   if (!mrouteSwitch()->frrProcessingOifSet().empty()) clock_.arm(Qor::now());
   if (changed) notify<&Notifiee::onClock>();
}

// ---- Tracking of directories ----

AsyncMrouteSwitchSm::QorEthIntfStatus* AsyncMrouteSwitchSm::ethIntfStatus(
      Lnet::IntfId intfId) const {
   return ethIntfStatus_.find(intfId);
}

Qor::U32 AsyncMrouteSwitchSm::ethIntfStatuses() const {
   return ethIntfStatus_.size();
}

AsyncMrouteSwitchSm::QorEthIntfStatus* AsyncMrouteSwitchSm::newEthIntfStatus(
      EthIntfStatusPtr status) {
   auto const self = hold();
   ethIntfStatusIs(status);
   return ethIntfStatus(status->intfId());
}

void AsyncMrouteSwitchSm::ethIntfStatusIs(EthIntfStatusPtr status) {
   if (!status) Qor::throwNullParameter(smType, "ethIntfStatus");
   ethIntfStatus_.is(*this, status->intfId(), status);
}

void AsyncMrouteSwitchSm::ethIntfStatusDel(Lnet::IntfId intfId) {
   ethIntfStatus_.del(*this, intfId);
}

AsyncMrouteSwitchSm::EthIntfStatusColl::Iterator AsyncMrouteSwitchSm::ethIntfStatusDel(
      EthIntfStatusColl::Iterator it) {
   return ethIntfStatus_.del(*this, it);
}

void AsyncMrouteSwitchSm::ethIntfStatusDelAll() {
   ethIntfStatus_.delAll(*this);
}

void AsyncMrouteSwitchSm::ethIntfStatusNotify(Lnet::IntfId intfId) {
   ethIntfStatus_.notify(*this, intfId);
}

void AsyncMrouteSwitchSm::syncEthIntfStatus() {
   ethIntfStatus_.sync(
         *this, [this] { return ethIntfStatusDir() ? &ethIntfStatusDir()->intfStatus() : nullptr; },
         [this](auto const& status) { ethIntfStatusIs(status); });
}

void AsyncMrouteSwitchSm::QorEthIntfStatusDir::onIntfStatus(Lnet::IntfId intfId) {
   auto const status = notifier()->intfStatus(intfId);
   if (status) {
      asyncMrouteSwitchSm()->ethIntfStatusIs(status);
   } else {
      asyncMrouteSwitchSm()->ethIntfStatusDel(intfId);
   }
}

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
   if (!status) Qor::throwNullParameter(smType, "bfdStatus");
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
   if (!config) Qor::throwNullParameter(smType, "mfibConfigVrf");
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

void AsyncMrouteSwitchSm::QorMfibConfig::onConfig(Qor::Name const& vrfName) {
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
   if (mrouteSwitch()->inUseRouteHandleKey(handle) == InUseRouteHandleKey()) return;
   doMaybeScheduleRouteAgingReview();
}

// The reactor holds the switch, so the switch is not in its destructor here.
void AsyncMrouteSwitchSm::doCleanup() {
   VEL_TRACE(2, "AsyncMrouteSwitchSm::doCleanup()");
   if (!initialized()) return;
   auto const self = hold();
   Qor::Ptr<AsyncMrouteSwitch> const chip = mrouteSwitch();
   chip->deletedIs(true);
   auto const& zombies = chip->zombieOifSet();
   while (!zombies.empty()) {
      ZombieKey const key = zombies.begin()->first;
      VEL_TRACE(2, "Deleting zombie with mcastId: " << key.multicastId());
      chip->zombieOifSetDel(key);
   }
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
   type.attribute<&Sm::mrouteSwitch, &Sm::mrouteSwitchIs, &Told::onMrouteSwitch>();
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
   type.attribute<&Sm::bfdAllPeerStatusDir>();
   type.attribute<&Sm::bfdAllPeerStatus, &Sm::bfdAllPeerStatusIs, &Told::onBfdAllPeerStatus>();
   type.operation<&Sm::bfdAllPeerStatusDel>();
   type.attribute<&Sm::allIntfStatusDir>();
   type.attribute<&Sm::allIntfStatusLocalDir>();
   type.attribute<&Sm::clock, &Sm::clockIs, &Told::onClock>();
   type.operation<&Sm::clockDel>();
   type.attribute<&Sm::bfdVelAsyncMrouteSm, nullptr, &Told::onBfdVelAsyncMrouteSm>();
   type.operation<&Sm::bfdVelAsyncMrouteSmIs>("appName", "dir", "status", "vrfName");
   type.operation<&Sm::bfdVelAsyncMrouteSmDel>();
   type.attribute<&Sm::initialized, &Sm::initializedIs>();
   type.collection<Sm::EthIntfStatusColl, Sm, &Sm::ethIntfStatus, &Sm::ethIntfStatusDel,
                   &Sm::ethIntfStatusDelAll, &Sm::ethIntfStatusNotify, &Sm::ethIntfStatusIs>();
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
