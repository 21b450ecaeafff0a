// Set-up of the asynchronous per-switch reactor, tracking of directories, and clean-up.
#include "Vel/VelAsyncMrouteSm.h"

#include <utility>
#include <vector>

#include "Vel/VelAsyncMrouteSmReactors.h"

namespace Vel::Mroute {

namespace {

constexpr char velTraceSource[] = "VelAsyncMrouteSm";
constexpr char smType[] = "Vel::Mroute::AsyncMrouteSwitchSm";

// One reactor for each member of a directory, made by `track`, and none besides; no directory has no
// members.
template <class Reactors, class Members, class Track>
void bringInStep(Reactors& reactors, Members const* members, Track const& track) {
   if (members) {
      for (auto const& [key, member] : *members)
         track(member);
   }
   std::vector<typename Reactors::Key> gone;
   for (auto const& [key, reactor] : reactors) {
      if (!members || !members->find(key)) gone.push_back(key);
   }
   for (auto const& key : gone)
      reactors.take(key);
}

template <class Reactors, class Key>
auto* reactorOf(Reactors const& reactors, Key const& key) {
   auto const* const entry = reactors.find(key);
   return entry ? entry->second.get() : nullptr;
}

// Ends a reactor's part in the life of its owner: it watches nothing and calls nobody from now on.
template <class Reactor>
void release(Reactor& reactor) {
   reactor.asyncMrouteSwitchSmIs(nullptr);
   reactor.notifierIs(nullptr);
}

template <class Reactors>
void releaseAll(Reactors const& reactors) {
   for (auto const& [key, reactor] : reactors)
      release(*reactor);
}

}  // namespace

// The entity is in place before the reactor is bound: a reactor that moves brings itself in step at
// once, by the new one.
template <class T, class Reactor>
void AsyncMrouteSwitchSm::watch(Watched<T, Reactor>& input, Qor::Ptr<T> object) {
   Qor::Ptr<T> const before = std::exchange(input.object, object);
   if (!object) {
      input.reactor.reset();
      return;
   }
   if (!input.reactor) {
      input.reactor = std::make_unique<Reactor>();
      input.reactor->asyncMrouteSwitchSmIs(this);
   }
   input.reactor->notifierIs(object.get());
}

// What one clock was set to goes over to the one that takes its place: it would fire for nobody.
template <class Reactor>
void AsyncMrouteSwitchSm::watchClock(Watched<Qor::Clock const, Reactor>& input,
                                     Qor::Ptr<Qor::Clock const> clock) {
   Qor::Ptr<Qor::Clock const> const before = input.object;
   if (before == clock) return;
   Qor::Seconds const setting = before ? before->timeMin() : Qor::never;
   watch(input, clock);
   if (before) before->timeMinIs(Qor::never);
   if (clock) clock->timeMinIs(setting);
}

template <class K, class Reactor, class Entity>
void AsyncMrouteSwitchSm::trackedIs(Qor::HashMap<K, std::unique_ptr<Reactor>>& reactors, K key,
                                    Qor::Ptr<Entity> const& entity) {
   auto* const there = reactorOf(reactors, key);
   if (there && there->notifier() == entity.get()) return;
   auto reactor = std::make_unique<Reactor>(entity);
   reactor->asyncMrouteSwitchSmIs(this);
   reactor->notifierIs(entity.get());
   reactors.take(key);
   reactors.insert(key, std::move(reactor));
}

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
      : StateMachine("AsyncMrouteSwitchSm"),
        intfVlanIdTable_(std::move(intfVlanIdTable)),
        mfibHwStatus_(std::move(mfibHwStatus)),
        mrouteHelper_(std::move(mrouteHelper)),
        bfdAllPeerStatusDir_(std::move(bfdAllPeerStatusDir)),
        allIntfStatusDir_(std::move(allIntfStatusDir)),
        allIntfStatusLocalDir_(std::move(allIntfStatusLocalDir)) {
   mrouteSwitchIs(std::move(mrouteSwitch));
   watch(mfibConfig_, std::move(mfibConfig));
   watch(zombieClock_, std::move(zombieClock));
   watch(agingClock_, std::move(agingClock));
   watch(ethIntfStatusDir_, std::move(ethIntfStatusDir));
   watch(bfdAllPeerStatus_, std::move(bfdAllPeerStatus));
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

// The clocks are the owner's, but what armed them goes: a clock left armed would fire for nobody.
AsyncMrouteSwitchSm::~AsyncMrouteSwitchSm() {
   doCleanup();
   if (zombieClock()) zombieClock()->timeMinIs(Qor::never);
   if (agingClock()) agingClock()->timeMinIs(Qor::never);
   if (clock()) clock()->timeMinIs(Qor::never);
   frrPositionDel();
   auto const releaseReactor = [](auto const& input) {
      if (input.reactor) release(*input.reactor);
   };
   releaseReactor(mrouteSwitch_);
   releaseReactor(mfibConfig_);
   releaseReactor(zombieClock_);
   releaseReactor(agingClock_);
   releaseReactor(ethIntfStatusDir_);
   releaseReactor(bfdAllPeerStatus_);
   releaseReactor(clock_);
   releaseAll(ethIntfStatus_);
   releaseAll(bfdStatus_);
   releaseAll(mfibConfigVrf_);
   bfdVelAsyncMrouteSmDel();
   ethIntfStatus_.clear();
   bfdStatus_.clear();
   mfibConfigVrf_.clear();
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
   watch(mrouteSwitch_, std::move(v));
}

void AsyncMrouteSwitchSm::mfibConfigIs(Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> v) {
   watch(mfibConfig_, std::move(v));
   syncMfibConfigVrf();
}

void AsyncMrouteSwitchSm::zombieClockIs(Qor::Ptr<Qor::Clock const> v) {
   watchClock(zombieClock_, std::move(v));
   if (initialized()) handleZombie();
}

void AsyncMrouteSwitchSm::agingClockIs(Qor::Ptr<Qor::Clock const> v) {
   watchClock(agingClock_, std::move(v));
   if (initialized() && mfibHwStatus()) doMaybeScheduleRouteAgingReview();
}

void AsyncMrouteSwitchSm::ethIntfStatusDirIs(Qor::Ptr<Interface::EthIntfStatusDir const> v) {
   watch(ethIntfStatusDir_, std::move(v));
   syncEthIntfStatus();
}

void AsyncMrouteSwitchSm::bfdAllPeerStatusIs(Qor::Ptr<Bfd::AppStatus> v) {
   if (v == bfdAllPeerStatus()) return;
   watch(bfdAllPeerStatus_, std::move(v));
   syncBfdStatus();
   if (initialized()) registerWithBfd();
}

void AsyncMrouteSwitchSm::clockIs(Qor::Ptr<Qor::Clock const> v) {
   watchClock(clock_, std::move(v));
   if (clock() && !mrouteSwitch()->frrProcessingOifSet().empty()) clock()->timeMinIs(Qor::now());
}

// ---- Tracking of directories ----

AsyncMrouteSwitchSm::QorEthIntfStatus* AsyncMrouteSwitchSm::ethIntfStatus(
      Lnet::IntfId intfId) const {
   return reactorOf(ethIntfStatus_, intfId);
}

Qor::U32 AsyncMrouteSwitchSm::ethIntfStatuses() const {
   return ethIntfStatus_.size();
}

void AsyncMrouteSwitchSm::ethIntfStatusIs(EthIntfStatusPtr status) {
   if (!status) Qor::throwNullParameter(smType, "ethIntfStatus");
   trackedIs(ethIntfStatus_, status->intfId(), status);
}

void AsyncMrouteSwitchSm::ethIntfStatusDel(Lnet::IntfId intfId) {
   ethIntfStatus_.take(intfId);
}

void AsyncMrouteSwitchSm::syncEthIntfStatus() {
   auto const directory = ethIntfStatusDir();
   bringInStep(ethIntfStatus_, directory ? &directory->intfStatus() : nullptr,
               [this](auto const& member) { ethIntfStatusIs(member); });
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
   return reactorOf(bfdStatus_, peer);
}

Qor::U32 AsyncMrouteSwitchSm::bfdStatuses() const {
   return bfdStatus_.size();
}

void AsyncMrouteSwitchSm::bfdStatusIs(BfdPeerStatusPtr status) {
   if (!status) Qor::throwNullParameter(smType, "bfdStatus");
   trackedIs(bfdStatus_, status->peer(), status);
}

void AsyncMrouteSwitchSm::bfdStatusDel(Bfd::Peer peer) {
   bfdStatus_.take(peer);
}

void AsyncMrouteSwitchSm::syncBfdStatus() {
   auto const directory = bfdAllPeerStatus();
   bringInStep(bfdStatus_, directory ? &directory->peerStatus() : nullptr,
               [this](auto const& member) { bfdStatusIs(member); });
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
   return reactorOf(mfibConfigVrf_, vrfName);
}

Qor::U32 AsyncMrouteSwitchSm::mfibConfigVrfs() const {
   return mfibConfigVrf_.size();
}

void AsyncMrouteSwitchSm::mfibConfigVrfIs(ConfigPtr config) {
   if (!config) Qor::throwNullParameter(smType, "mfibConfigVrf");
   trackedIs(mfibConfigVrf_, config->name(), config);
}

void AsyncMrouteSwitchSm::mfibConfigVrfDel(Qor::Name vrfName) {
   mfibConfigVrf_.take(vrfName);
}

void AsyncMrouteSwitchSm::syncMfibConfigVrf() {
   auto const directory = mfibConfig();
   bringInStep(mfibConfigVrf_, directory ? &directory->config() : nullptr,
               [this](auto const& member) { mfibConfigVrfIs(member); });
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
   bfdVelAsyncMrouteSm_ = Qor::make<Bfd::AppRegistration>(std::move(appName), std::move(dir),
                                                          std::move(status), std::move(vrfName));
}

void AsyncMrouteSwitchSm::registerWithBfd() {
   bfdVelAsyncMrouteSmDel();
   if (bfdAllPeerStatusDir() && bfdAllPeerStatus()) {
      bfdVelAsyncMrouteSmIs("", bfdAllPeerStatusDir(), bfdAllPeerStatus(), L3::VrfName("default"));
   }
}

// ---- Life ----

void AsyncMrouteSwitchSm::handleInitialized() {
   VEL_TRACE(2, "AsyncMrouteSwitchSm::handleInitialized()");
   if (initialized()) return;
   if (zombieClock()) zombieClock()->timeMinIs(Qor::never);
   if (agingClock()) agingClock()->timeMinIs(Qor::never);
   handlePollingInterval();
   initializedIs(true);
   registerWithBfd();
   // Zombies that were there before this reactor would otherwise wait for the next one.
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

// The switch cannot be on its way out here: this reactor holds it.
void AsyncMrouteSwitchSm::doCleanup() {
   VEL_TRACE(2, "AsyncMrouteSwitchSm::doCleanup()");
   if (!initialized()) return;
   Qor::Ptr<AsyncMrouteSwitch> const chip = mrouteSwitch();
   chip->deletedIs(true);
   auto const& zombies = chip->zombieOifSet();
   while (!zombies.empty()) {
      ZombieKey const key = zombies.begin()->first;
      VEL_TRACE(2, "Deleting zombie with mcastId: " << key.multicastId());
      chip->zombieOifSetDel(key);
   }
   if (zombieClock()) zombieClock()->timeMinIs(Qor::never);
   bfdVelAsyncMrouteSmDel();
}

}  // namespace Vel::Mroute
