// Private header: the nested reactors of the asynchronous per-switch reactor. Each class binds the
// notifications of one input to a handler of its owner. A reactor points back at its owner without
// holding it; the owner creates and deletes the reactor.
#pragma once

#include "Vel/VelAsyncMrouteSm.h"
#include "Vel/VelPerSwitchSmMembers.h"

namespace Vel::Mroute {

class AsyncSmPath::Reactor : public Qor::OwnedReactor<AsyncMrouteSwitchSm> {
 public:
   AsyncMrouteSwitchSm* asyncMrouteSwitchSm() const { return owner(); }
   void asyncMrouteSwitchSmIs(AsyncMrouteSwitchSm* sm) { ownerIs(sm); }
};

class AsyncSmPath::QorMrouteSwitch final : public AsyncMrouteSwitch::Notifiee, public Reactor {
 public:
   void onInUseRouteHandleKey(MrouteLib::RouteHandle const& handle) override {
      asyncMrouteSwitchSm()->handleRoute(handle);
   }
   void onZombieOifSet(ZombieKey const& key) override { asyncMrouteSwitchSm()->handleZombie(key); }
   void onZombieOifSetImmediate() override { asyncMrouteSwitchSm()->handleZombie(); }
};

class AsyncSmPath::QorMfibConfig final : public Routing::Multicast::Fib::VrfConfig::Notifiee,
                                         public Reactor {
 public:
   void onConfig(Qor::Name const& vrfName) override;
   void onConfigImmediate() override { asyncMrouteSwitchSm()->syncMfibConfigVrf(); }
   void onActivityPollingInterval() override { asyncMrouteSwitchSm()->handlePollingInterval(); }
   void onCounterMode() override { asyncMrouteSwitchSm()->handleMulticastCounterMode(); }
   void onAllCounter() override { asyncMrouteSwitchSm()->handleWildcardCounter(); }
};

class AsyncMrouteSwitchSm::QorMfibConfigVrf final
      : public Routing::Multicast::Fib::Config::Notifiee,
        public AsyncSmPath::Reactor {
 public:
   explicit QorMfibConfigVrf(ConfigPtr config) : config_(std::move(config)) {}

   // Only traces the change: the platform handles the counters of single routes.
   void handleCounterRoute(IpGenRouteKey const& key);
   void onCounterRoute(IpGenRouteKey const& key) override { handleCounterRoute(key); }

 private:
   ConfigPtr const config_;
};

class AsyncMrouteSwitchSm::QorBfdAllPeerStatus final : public Bfd::AppStatus::Notifiee,
                                                       public AsyncSmPath::Reactor {
 public:
   void onPeerStatus(Bfd::Peer const& peer) override;
   void onPeerStatusImmediate() override { asyncMrouteSwitchSm()->syncBfdStatus(); }
};

class AsyncMrouteSwitchSm::QorBfdStatus final : public Bfd::BfdPeerStatus::Notifiee,
                                                public AsyncSmPath::Reactor {
 public:
   explicit QorBfdStatus(BfdPeerStatusPtr status) : status_(std::move(status)) {}

   // The state of the session at the last handled change.
   Bfd::OperState peerState() const { return peerState_; }
   void peerStateIs(Bfd::OperState v) { peerState_ = v; }

   // Starts a reroute of the interface when a single-hop session goes down; not again while the
   // session stays down.
   void handleBfdStatus();
   void onStatus() override { handleBfdStatus(); }

 private:
   BfdPeerStatusPtr const status_;
   Bfd::OperState peerState_{};
};

}  // namespace Vel::Mroute

extern template class Vel::PerSwitchSm<Vel::Mroute::AsyncMrouteSwitchSm, Vel::Mroute::AsyncSmPath>;
