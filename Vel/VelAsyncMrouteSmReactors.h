// Private header: the nested reactors of the asynchronous per-switch reactor. Each class binds the
// notifications of one input to a handler of its owner. A reactor points back at its owner without
// holding it; the owner creates and deletes the reactor.
#pragma once

#include "Vel/VelAsyncMrouteSm.h"

namespace Vel::Mroute {

class AsyncMrouteSwitchSmReactor : public Qor::OwnedReactor<AsyncMrouteSwitchSm> {
 public:
   AsyncMrouteSwitchSm* asyncMrouteSwitchSm() const { return owner(); }
   void asyncMrouteSwitchSmIs(AsyncMrouteSwitchSm* sm) { ownerIs(sm); }
};

class AsyncMrouteSwitchSm::QorMrouteSwitch final : public AsyncMrouteSwitch::Notifiee,
                                                   public AsyncMrouteSwitchSmReactor {
 public:
   void onInUseRouteHandleKey(MrouteLib::RouteHandle const& handle) override {
      asyncMrouteSwitchSm()->handleRoute(handle);
   }
   void onZombieOifSet(ZombieKey const& key) override { asyncMrouteSwitchSm()->handleZombie(key); }
   void onZombieOifSetImmediate() override { asyncMrouteSwitchSm()->handleZombie(); }
};

class AsyncMrouteSwitchSm::QorMfibConfig final
      : public Routing::Multicast::Fib::VrfConfig::Notifiee,
        public AsyncMrouteSwitchSmReactor {
 public:
   void onConfig(Qor::Name const& vrfName) override;
   void onConfigImmediate() override { asyncMrouteSwitchSm()->syncMfibConfigVrf(); }
   void onActivityPollingInterval() override { asyncMrouteSwitchSm()->handlePollingInterval(); }
   void onCounterMode() override { asyncMrouteSwitchSm()->handleMulticastCounterMode(); }
   void onAllCounter() override { asyncMrouteSwitchSm()->handleWildcardCounter(); }
};

class AsyncMrouteSwitchSm::QorMfibConfigVrf final
      : public Routing::Multicast::Fib::Config::Notifiee,
        public AsyncMrouteSwitchSmReactor {
 public:
   explicit QorMfibConfigVrf(ConfigPtr config) : config_(std::move(config)) {}

   // Only traces the change: the platform handles the counters of single routes.
   void handleCounterRoute(IpGenRouteKey const& key);
   void onCounterRoute(IpGenRouteKey const& key) override { handleCounterRoute(key); }

 private:
   ConfigPtr const config_;
};

class AsyncMrouteSwitchSm::QorZombieClock final : public Qor::Clock::Notifiee,
                                                  public AsyncMrouteSwitchSmReactor {
 public:
   void onTime() override { asyncMrouteSwitchSm()->handleZombieClock(); }
};

class AsyncMrouteSwitchSm::QorAgingClock final : public Qor::Clock::Notifiee,
                                                 public AsyncMrouteSwitchSmReactor {
 public:
   void onTime() override { asyncMrouteSwitchSm()->doRouteAgingReview(); }
};

class AsyncMrouteSwitchSm::QorClock final : public Qor::Clock::Notifiee,
                                            public AsyncMrouteSwitchSmReactor {
 public:
   void onTime() override { asyncMrouteSwitchSm()->handleClock(); }
};

class AsyncMrouteSwitchSm::QorEthIntfStatusDir final : public Interface::EthIntfStatusDir::Notifiee,
                                                       public AsyncMrouteSwitchSmReactor {
 public:
   void onIntfStatus(Lnet::IntfId intfId) override;
   void onIntfStatusImmediate() override { asyncMrouteSwitchSm()->syncEthIntfStatus(); }
};

class AsyncMrouteSwitchSm::QorEthIntfStatus final : public Interface::EthIntfStatus::Notifiee,
                                                    public AsyncMrouteSwitchSmReactor {
 public:
   explicit QorEthIntfStatus(EthIntfStatusPtr status) : status_(std::move(status)) {}

   // Starts a reroute if the interface is down or lower-layer-down. After the recovery of the
   // interface, the routing layer programs the routes again.
   void handleOperStatus();
   void onOperStatus() override { handleOperStatus(); }

 private:
   EthIntfStatusPtr const status_;
};

class AsyncMrouteSwitchSm::QorBfdAllPeerStatus final : public Bfd::AppStatus::Notifiee,
                                                       public AsyncMrouteSwitchSmReactor {
 public:
   void onPeerStatus(Bfd::Peer const& peer) override;
   void onPeerStatusImmediate() override { asyncMrouteSwitchSm()->syncBfdStatus(); }
};

class AsyncMrouteSwitchSm::QorBfdStatus final : public Bfd::BfdPeerStatus::Notifiee,
                                                public AsyncMrouteSwitchSmReactor {
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
