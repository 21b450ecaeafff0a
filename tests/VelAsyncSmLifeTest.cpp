// Life of the asynchronous per-switch reactor: present and missing inputs, tracked directories,
// registration, clean-up; and the counter settings that the reactor passes to the platform.
#include "Interruption.h"
#include "Qor/Generic.h"
#include "VelAsyncSmTestSupport.h"

namespace velAsync {
namespace {

Bfd::Peer peer(unsigned n, Bfd::SessionType type = Bfd::SessionType::singleHop) {
   return Bfd::Peer(type, IpGenAddr::v4(0x0a000000 + n), IntfId("et" + std::to_string(n)),
                    VrfName("default"));
}

class AsyncSmLife : public AsyncSm {
 protected:
   // The inputs without those of the mask, the first of them at bit 0.
   Inputs without(unsigned mask) const {
      Inputs in = inputs_;
      auto const drop = [&](auto& input) {
         if (mask & 1) input = nullptr;
         mask >>= 1;
      };
      std::apply([&](auto&... input) { (drop(input), ...); }, in.all());
      return in;
   }

   // How many members of each directory have a reactor.
   Lines members() const {
      return {std::to_string(sm_->mfibConfigVrfs()), std::to_string(sm_->ethIntfStatuses()),
              std::to_string(sm_->bfdStatuses())};
   }

   // Something of everything a reactor reacts to.
   void stir(Inputs const& in, unsigned n) {
      Route rerouted = program(n, set({2}, 1, {3}));
      inputs_.mfibConfig->newConfig("default")->counterRouteIs(key(n));
      inputs_.mfibConfig->activityPollingIntervalIs(1 + n % 2);
      inputs_.mfibConfig->allCounterIs(n % 2);
      inputs_.mfibConfig->configDel("default");
      inputs_.ethIntfStatusDir->newIntfStatus(IntfId("et9"));
      inputs_.ethIntfStatusDir->intfStatusDel(IntfId("et9"));
      auto const session = inputs_.bfdAllPeerStatus->newPeerStatus(peer(1));
      session->statusIs(Bfd::OperState::up);
      session->statusIs(Bfd::OperState::down);
      inputs_.bfdAllPeerStatus->peerStatusDel(peer(1));
      down(1);
      down(1, IntfOperStatus::up);
      time_->runUntil(time_->now() + 2.5);
      EXPECT_EQ(receivers(n),
                in.mrouteHelper && (in.ethIntfStatusDir || in.bfdAllPeerStatus) ? "et3" : "et2");
      withdraw(rerouted);
      time_->runUntil(time_->now() + 4);
      EXPECT_EQ(switch_->zombieOifSet().empty(), bool(in.zombieClock));
      if (!in.zombieClock) sm_->doForcePurgeOneZombie();
      EXPECT_TRUE(switch_->zombieOifSet().empty());
   }
};

TEST_F(AsyncSmLife, EveryCombinationOfMissingInputsLivesCleanly) {
   for (unsigned mask = 0; mask < 1u << 11; ++mask) {
      SCOPED_TRACE(mask);
      freshSwitch();
      Inputs in = without(mask);
      if (in.mfibHwStatus) in.mfibHwStatus->vrfStatusIs(VrfName("default"))->routeIs(key(9));
      for (auto const& clock : {in.zombieClock, in.agingClock}) {
         if (clock) clock->timeMinIs(1e6);  // set before the reactor
      }
      sm_ = in.sm(switch_);
      ASSERT_TRUE(sm_->initialized());
      ASSERT_EQ(sm_->zombieClock() ? sm_->zombieClock()->timeMin() : Qor::never, Qor::never);
      ASSERT_EQ(inputs_.agingClock->timeMin(),
                in.agingClock && in.mfibConfig
                      ? time_->now() + in.mfibConfig->activityPollingInterval()
                      : Qor::never);
      ASSERT_EQ(bool(sm_->bfdVelAsyncMrouteSm()), in.bfdAllPeerStatusDir && in.bfdAllPeerStatus);
      unsigned fired = 0;
      OnTime const aging(inputs_.agingClock, [&] { ++fired; });
      OnTime const zombie(inputs_.zombieClock, [&] { ++fired; });
      if (in.mfibHwStatus) {
         stir(in, mask % 2);  // without, a route that comes into use is a programming error
      } else {
         down(1);
         down(1, IntfOperStatus::up);
         time_->runUntil(time_->now() + 7);
      }
      ASSERT_LE(fired, 20u);  // and none of them in vain, again and again
      sm_ = nullptr;
      ASSERT_EQ(inputs_.zombieClock->timeMin(), Qor::never);
      ASSERT_EQ(inputs_.agingClock->timeMin(), Qor::never);
      ASSERT_EQ(inputs_.bfdAllPeerStatusDir->registration().size(), 0u);
      ASSERT_EQ(inputs_.mfibConfig->hasNotifiees() || inputs_.ethIntfStatusDir->hasNotifiees() ||
                      inputs_.bfdAllPeerStatus->hasNotifiees() || switch_->hasNotifiees(),
                false);
   }
   expectSound();
}

TEST_F(AsyncSmLife, TheSameEntityKeepsItsReactorAndAnotherGetsANewOne) {
   auto const session = inputs_.bfdAllPeerStatus->newPeerStatus(peer(1));
   sm_ = inputs_.sm(switch_);
   session->statusIs(Bfd::OperState::up);
   auto* const reactor = sm_->bfdStatus(peer(1));
   EXPECT_EQ(reactor->peerState(), Bfd::OperState::up);
   sm_->bfdStatusIs(session);
   inputs_.bfdAllPeerStatus->peerStatusNotify(peer(1));
   EXPECT_EQ(sm_->bfdStatus(peer(1)), reactor);
   EXPECT_EQ(reactor->peerState(), Bfd::OperState::up);

   auto const other = Qor::make<Bfd::BfdPeerStatus>(peer(1));
   inputs_.bfdAllPeerStatus->peerStatusIs(other);
   EXPECT_EQ(sm_->bfdStatus(peer(1))->notifier(), other.get());
   EXPECT_EQ(sm_->bfdStatus(peer(1))->peerState(), Bfd::OperState());
   session->statusIs(Bfd::OperState::down);  // without a reactor by now
   EXPECT_EQ(sm_->bfdStatus(peer(1))->peerState(), Bfd::OperState());
}

// Another input moves the reactors, a null input removes them and their members' reactors, and a
// first input makes the members' reactors.
TEST_F(AsyncSmLife, InputsThatAreSetAgainBringTheirMembersInStep) {
   auto const& registered = inputs_.bfdAllPeerStatusDir->registration();
   sm_ = inputs_.sm(switch_);
   sm_->handleInitialized();  // once only
   EXPECT_EQ(registered.size(), 1u);
   Inputs other;
   other.mfibConfig->newConfig("blue");
   other.ethIntfStatusDir->newIntfStatus(intf(1));
   other.bfdAllPeerStatus->newPeerStatus(peer(5));
   for (bool cleared : {false, true}) {
      sm_->mfibConfigIs(other.mfibConfig);
      sm_->ethIntfStatusDirIs(other.ethIntfStatusDir);
      sm_->bfdAllPeerStatusIs(other.bfdAllPeerStatus);
      EXPECT_EQ(members(), (Lines{"1", "1", "1"})) << cleared;
      other.mfibConfig->newConfig("red");
      other.ethIntfStatusDir->newIntfStatus(intf(2));
      other.bfdAllPeerStatus->newPeerStatus(peer(6));
      EXPECT_EQ(members(), (Lines{"2", "2", "2"})) << cleared;
      other.mfibConfig->configDel("red");
      other.ethIntfStatusDir->intfStatusDel(intf(2));
      other.bfdAllPeerStatus->peerStatusDel(peer(6));
      EXPECT_EQ(members(), (Lines{"1", "1", "1"})) << cleared;
      EXPECT_FALSE(inputs_.mfibConfig->hasNotifiees() || inputs_.ethIntfStatusDir->hasNotifiees() ||
                   inputs_.bfdAllPeerStatus->hasNotifiees());
      // The service is asked to fill the status that is watched, and no other.
      ASSERT_EQ(registered.size(), 1u);
      EXPECT_EQ(registered.begin()->second,
                (Bfd::Registration{"", VrfName("default"), other.bfdAllPeerStatus}));
      sm_->mfibConfigDel();
      sm_->ethIntfStatusDirDel();
      sm_->bfdAllPeerStatusDel();
      EXPECT_EQ(members(), (Lines{"0", "0", "0"})) << cleared;
      EXPECT_FALSE(other.mfibConfig->hasNotifiees() || other.ethIntfStatusDir->hasNotifiees() ||
                   other.bfdAllPeerStatus->hasNotifiees());
      EXPECT_EQ(registered.size(), 0u);
   }
}

TEST_F(AsyncSmLife, AClockThatReplacesAnotherTakesItsPlace) {
   sm_ = inputs_.sm(switch_);
   inputs_.mfibHwStatus->vrfStatusIs(VrfName("default"))->routeIs(key(1));
   zombies(1);
   Inputs other;
   time_->advance(1);
   sm_->zombieClockIs(other.zombieClock);
   sm_->agingClockIs(other.agingClock);
   EXPECT_EQ(other.zombieClock->timeMin(), 3.0);
   EXPECT_EQ(other.agingClock->timeMin(), 60.0);
   EXPECT_EQ(inputs_.zombieClock->timeMin(), Qor::never);
   EXPECT_EQ(inputs_.agingClock->timeMin(), Qor::never);
   time_->runUntil(3);
   EXPECT_TRUE(switch_->zombieOifSet().empty());
}

// The service publishes a session that is down when an application registers, and removes the
// session when the application ends.
class BfdService final : public Bfd::StatusPeer::Notifiee {
 public:
   explicit BfdService(Inputs const& in) : app_(in.bfdAllPeerStatus) {
      notifierIs(in.bfdAllPeerStatusDir);
   }
   void onRegistration(Qor::U32 number) override {
      if (notifier()->registration(number).appStatus) {
         app_->newPeerStatus(peer(1))->statusIs(Bfd::OperState::down);
      } else {
         app_->peerStatusDel(peer(1));
      }
   }

 private:
   Qor::Ptr<Bfd::AppStatus> const app_;
};

// The service does both while the reactor is being constructed and destroyed.
TEST_F(AsyncSmLife, TheServiceFillsTheStatusAtRegistrationAndTakesItsSessionsBack) {
   BfdService const service(inputs_);
   Route route = program(1, set({2}, 1, {3}));
   for (bool initialized : {true, false}) {
      sm_ = inputs_.sm(switch_);
      EXPECT_EQ(sm_->bfdStatus(peer(1))->peerState(), Bfd::OperState::down);
      EXPECT_EQ(receivers(1), "et3");
      sm_->initializedIs(initialized);
      sm_ = nullptr;
      EXPECT_TRUE(inputs_.bfdAllPeerStatus->peerStatus().empty());
   }
   withdraw(route);
}

TEST_F(AsyncSmLife, MayEndInAnyHookAndAnyNotification) {
   Interruption life;
   while (life.next()) {
      SCOPED_TRACE(life.lives());
      build();
      sm_ = inputs_.sm(switch_);
      auto const perform = [&](auto const& operation) {
         if (sm_) operation(*sm_);
      };
      perform([](auto& sm) { sm.clockIs(Qor::make<Qor::Clock>("frr")); });
      auto const route = inputs_.mfibHwStatus->vrfStatusIs(VrfName("default"))->routeIs(key(1));
      route->acceptingIntfIdIs(intf(1));
      life.act = [&] { sm_ = nullptr; };
      life.follow(sm_, switch_, inputs_.mfibHwStatus, route);
      onHook_ = [&](std::string_view) { life.moment(); };
      Route rerouted = program(1, set({2}, 1, {3})), other = program(2, set({4}));
      receivers(1);
      inputs_.mfibConfig->activityPollingIntervalIs(2);
      inputs_.mfibConfig->counterModeIs(Fib::CounterMode::packets);
      inputs_.mfibConfig->allCounterIs(true);
      time_->runUntil(time_->now() + 61);
      down(1);
      withdraw(other);
      perform([](auto& sm) { sm.agingClockIs(Qor::make<Qor::Clock>()); });
      perform([](auto& sm) { sm.mfibConfigDel(); });
      perform([&](auto& sm) { sm.mfibConfigIs(inputs_.mfibConfig); });
      perform([](auto& sm) { sm.bfdAllPeerStatusDel(); });
      perform([](auto& sm) { sm.ethIntfStatusDirDel(); });
      perform([&](auto& sm) { sm.ethIntfStatusDirIs(inputs_.ethIntfStatusDir); });
      perform([](auto& sm) { sm.ethIntfStatusDelAll(); });
      perform([](auto& sm) { sm.zombieClockIs(Qor::make<Qor::Clock>()); });
      time_->runUntil(time_->now() + 4);
      zombies(1);
      perform([](auto& sm) { sm.doForcePurgeOneZombie(); });
      zombies(2);
      auto const before = std::exchange(switch_, nullptr);
      freshSwitch();
      perform([&](auto& sm) { sm.mrouteSwitchIs(switch_); });
      perform([&](auto& sm) { sm.mrouteSwitchIs(before); });
      perform([](auto& sm) { sm.doCleanup(); });
      sm_ = nullptr;
      onHook_ = nullptr;
      platform_->hookObserverIs(nullptr);
      time_->runUntil(time_->now() + 1);
      EXPECT_EQ(time_->nextDeadline(), Qor::never);
      EXPECT_FALSE(inputs_.mfibConfig->hasNotifiees() || inputs_.ethIntfStatusDir->hasNotifiees() ||
                   inputs_.bfdAllPeerStatus->hasNotifiees() || before->hasNotifiees());
   }
   EXPECT_GT(life.lives(), 100);
}

// ---- Counters ----

TEST_F(AsyncSmLife, CounterSettingsReachThePlatformFromConstructionOn) {
   Lines hooks;
   onHook_ = [&](std::string_view hook) {
      if (hook.starts_with("handle")) hooks.emplace_back(hook);
   };
   sm_ = inputs_.sm(switch_);
   inputs_.mfibConfig->counterModeIs(Fib::CounterMode::packets);
   inputs_.mfibConfig->allCounterIs(true);
   Lines const both{"handleMrouteCounterMode", "handleWildcardCounter"};
   Lines const twice{both[0], both[1], both[0], both[1]};
   EXPECT_EQ(std::exchange(hooks, {}), twice);
   auto const other = Qor::make<Fib::VrfConfig>();
   for (auto const& config : {inputs_.mfibConfig, other, {}, other})
      sm_->mfibConfigIs(config);
   EXPECT_EQ(hooks, twice);  // for each configuration that takes the place of another or of none
}

using AsyncSmLifeDeathTest = AsyncSmLife;

TEST_F(AsyncSmLifeDeathTest, ARouteComingIntoUseNeedsTheHardwareStatus) {
   inputs_.mfibHwStatus = nullptr;
   sm_ = inputs_.sm(switch_);
   EXPECT_DEATH(program(1, set({2})), "Assertion `mfibHwStatus\\(\\)' failed");
}

}  // namespace
}  // namespace velAsync
