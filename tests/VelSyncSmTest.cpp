// The synchronous per-switch reactor on a simulated chip.
#include "Vel/VelSyncMrouteSm.h"
#include "Vel/VelSyncMrouteSmReactors.h"

#include <functional>

#include "Interruption.h"
#include "Journal.h"
#include "Qor/Generic.h"
#include "SimTestSupport.h"
#include "platform/sim/SyncPlatform.h"

namespace {

using namespace testSupport;
using Bridging::VlanIdOrNone;
using Interface::IntfOperStatus;
using L3::VrfName;
using Lnet::IntfId;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Sim::SyncHook;
using Vel::MrouteSwitch;
using Vel::MrouteSwitchSm;
namespace Fib = Routing::Multicast::Fib;

struct Inputs {
   Qor::Ptr<Vel::VelCommonSmData> acsd = Qor::make<Vel::VelCommonSmData>();
   Qor::Ptr<Vel::L3Status> l3Status = Qor::make<Vel::L3Status>();
   Qor::Ptr<IntfVlanId::Table> intfVlanIdTable = Qor::make<IntfVlanId::Table>();
   Qor::Ptr<Fib::VrfConfig> mfibConfig = Qor::make<Fib::VrfConfig>();
   Qor::Ptr<Fib::Hardware::Status> mfibHwStatus = Qor::make<Fib::Hardware::Status>();
   Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper;
   Qor::Ptr<Qor::Clock> zombieClock = Qor::make<Qor::Clock>("zombieClock");
   Qor::Ptr<Qor::Clock> agingClock = Qor::make<Qor::Clock>("agingClock");
   Qor::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir =
         Qor::make<Interface::EthIntfStatusDir>();

   Qor::Ptr<MrouteSwitchSm> sm(Qor::Ptr<MrouteSwitch> const& chip) {
      return Vel::MrouteSwitchSmIs(7, acsd, l3Status, chip, intfVlanIdTable, mfibConfig,
                                   mfibHwStatus, mrouteHelper, zombieClock, agingClock,
                                   ethIntfStatusDir, nullptr, nullptr);
   }
};

// A review asks for hits every 60 seconds.
class SyncSm : public OnSwitchWithReactor<Inputs> {
 protected:
   SyncSm() { build(); }

   void build(Qor::Seconds callCost = 0) {
      sm_ = nullptr;
      switch_ = nullptr;
      buildPorts({64, 64, 8, 0});
      platform_ = Qor::make<Sim::SyncPlatform>("platform", chip_, 7,
                                               Sim::SyncPlatformConfig{16, callCost});
      platform_->hookObserverIs([this](std::string_view hook) {
         journal_.add("hook " + std::string(hook));
         if (onHook_.first == hook) std::exchange(onHook_, {}).second();
      });
      inputs_.mrouteHelper = platform_;
      inputs_.acsd->verifyDataIs(Qor::make<Vel::VerifyData>());
      inputs_.l3Status->vrfNameToVrfIdIs("default", Vel::VrfId(1));
      inputs_.mfibHwStatus->hwRoutingIs(true);
      freshSwitch();
      sm_ = inputs_.sm(switch_);
      journal_.take();
   }
   // A switch without a past or a reactor, on the same chip.
   void freshSwitch() {
      sm_ = nullptr;
      switch_ = nullptr;
      switch_ = Vel::mrouteSwitchFactory("switch", 7, inputs_.acsd, inputs_.l3Status, platform_,
                                         nullptr, inputs_.mfibHwStatus);
   }
   RouteHandle program(unsigned n, OifSetPtr const& s) {
      switch_->doAllocateMtableOifSet(s);
      auto const record = switch_->takeMtableOifSet();
      switch_->doAllocateRoute(key(n), vlan(1), false, record, false, false, {},
                               VrfName("default"));
      RouteHandle const handle = switch_->routeHandle();
      switch_->doSetMtableOifSet(handle, record);
      status(n)->acceptingIntfIdIs(intf(1));
      return handle;
   }
   Qor::Ptr<Fib::Hardware::RouteStatus> status(unsigned n, char const* vrf = "default") {
      return inputs_.mfibHwStatus->vrfStatusIs(VrfName(vrf))->routeIs(key(n));
   }
   void requestReview() { inputs_.l3Status->multicastReviewPendingInc(); }
   Qor::Seconds aging() const { return inputs_.agingClock->timeMin(); }
   Qor::U64 asked() const { return platform_->calls(SyncHook::mrouteHitBit); }

   // A second switch, which the reactor does not have.
   Qor::Ptr<MrouteSwitch> otherSwitch() {
      return Vel::mrouteSwitchFactory("other", 7, inputs_.acsd, inputs_.l3Status, platform_,
                                      nullptr, inputs_.mfibHwStatus);
   }

   Journal journal_{"VelSyncMrouteSm"};
   // A hook's name, and the action at its next call.
   std::pair<std::string, std::function<void()>> onHook_;
   Qor::Ptr<Sim::SyncPlatform> platform_;
   Qor::Ptr<MrouteSwitch> switch_;
   Qor::Ptr<MrouteSwitchSm> sm_;
};

// ---- Life ----

TEST_F(SyncSm, AnInputThatIsTakenAwayAndGivenAgainGetsAReactorThatIsHandedOut) {
   auto const bound = [](auto const* reactor, auto const& input) {
      ASSERT_NE(reactor, nullptr);
      EXPECT_EQ(reactor->notifier(), input.get());
   };
   sm_->acsdDel();
   sm_->l3StatusDel();
   sm_->mfibConfigDel();
   sm_->zombieClockDel();
   sm_->agingClockDel();
   sm_->ethIntfStatusDirDel();
   sm_->clockDel();
   EXPECT_EQ(sm_->agingClock(), nullptr);
   bound(sm_->newAcsd(inputs_.acsd), inputs_.acsd);
   bound(sm_->newL3Status(inputs_.l3Status), inputs_.l3Status);
   bound(sm_->newMfibConfig(inputs_.mfibConfig), inputs_.mfibConfig);
   bound(sm_->newZombieClock(inputs_.zombieClock), inputs_.zombieClock);
   bound(sm_->newAgingClock(inputs_.agingClock), inputs_.agingClock);
   bound(sm_->newEthIntfStatusDir(inputs_.ethIntfStatusDir), inputs_.ethIntfStatusDir);
   bound(sm_->newMrouteSwitch(switch_), switch_);
   auto const clock = Qor::make<Qor::Clock>("frr");
   bound(sm_->newClock(clock), clock);
   program(1, set({2}));
   EXPECT_EQ(aging(), 60);
}

TEST_F(SyncSm, AnInterfaceHasAReactorWhileItHasAStatus) {
   Lnet::IntfId const intf("et9");
   Qor::U32 const before = sm_->ethIntfStatuses();
   inputs_.ethIntfStatusDir->newIntfStatus(intf);
   EXPECT_EQ(sm_->ethIntfStatuses(), before + 1);
   EXPECT_NE(sm_->ethIntfStatus(intf), nullptr);
   inputs_.ethIntfStatusDir->intfStatusDel(intf);
   EXPECT_EQ(sm_->ethIntfStatus(intf), nullptr);
   EXPECT_EQ(sm_->ethIntfStatuses(), before);
}

TEST_F(SyncSm, EachInputButTheSwitchMayBeNull) {
   for (int missing = 0; missing <= 9; ++missing) {  // at 9 all of them
      SCOPED_TRACE(missing);
      freshSwitch();
      Inputs in = inputs_;
      int number = 0;
      auto const drop = [&](auto&... inputs) {
         ((missing == number++ || missing == 9 ? inputs = nullptr : nullptr), ...);
      };
      drop(in.acsd, in.l3Status, in.intfVlanIdTable, in.mfibConfig, in.mfibHwStatus,
           in.mrouteHelper, in.zombieClock, in.agingClock, in.ethIntfStatusDir);
      sm_ = in.sm(switch_);
      program(1, set({2}, 1, {3}));
      switch_->doDeleteRoute(program(2, set({4})));
      sm_->handleVerify();
      sm_->doRouteAgingReview();
      time_->runUntil(time_->now() + 61);
      EXPECT_EQ(switch_->zombieOifSet().empty(), in.zombieClock != nullptr);
      down(1);
      EXPECT_EQ(receivers(1), in.ethIntfStatusDir && in.mrouteHelper ? "et3" : "et2");
      down(1, IntfOperStatus::up);
   }
   EXPECT_EQ(platform_->audit(), Lines());
   EXPECT_THROW(inputs_.sm(nullptr), Qor::RangeException);
}

TEST_F(SyncSm, ALateOrReplacedOrChangedConfigurationSetsThePollingInterval) {
   auto const config = std::exchange(inputs_.mfibConfig, nullptr);
   freshSwitch();
   sm_ = inputs_.sm(switch_);
   program(1, set({2}));
   EXPECT_EQ(aging(), Qor::never);
   config->activityPollingIntervalIs(5);
   sm_->mfibConfigIs(config);
   EXPECT_EQ(aging(), 5);
   EXPECT_EQ(inputs_.mfibHwStatus->pollingInterval(), 5);
   time_->runUntil(1);
   auto const next = Qor::make<Fib::VrfConfig>();
   next->activityPollingIntervalIs(9);
   sm_->mfibConfigIs(next);
   EXPECT_EQ(aging(), 1);
   EXPECT_EQ(inputs_.mfibHwStatus->pollingInterval(), 9);
   time_->runUntil(2);
   next->activityPollingIntervalIs(7);
   EXPECT_EQ(aging(), 2);
   // Without a route there is no review to restart.
   switch_->doDeleteRoute(switch_->route().begin()->first);
   next->activityPollingIntervalIs(8);
   EXPECT_EQ(aging(), Qor::never);
}

TEST_F(SyncSm, AnotherSwitchIsTakenUpAsItIs) {
   auto const first = switch_;
   switch_ = otherSwitch();
   program(1, set({2}, 1, {3}));
   program(2, set({4}));
   OifSetPtr const waiting = switch_->frrMtableOifSet().begin()->first;
   switch_->inUseRecord(waiting)->dirtyIs(true);
   switch_->frrProcessingOifSetIs(waiting, switch_->inUseRecord(waiting).get());
   sm_->mrouteSwitchIs(switch_);
   EXPECT_EQ(receivers(1), "et3");
   EXPECT_EQ(aging(), 60);
   sm_->mrouteSwitchIs(first);
   EXPECT_EQ(aging(), Qor::never);
   switch_->doDeleteRoute(switch_->route().begin()->first);
   sm_->mrouteSwitchIs(switch_);
   EXPECT_EQ(inputs_.zombieClock->timeMin(), 4);
}

TEST_F(SyncSm, ClocksAndTheCommonDataMayBeSetLateOrReplaced) {
   sm_->zombieClockDel();
   sm_->agingClockDel();
   program(1, set({2}));
   switch_->doDeleteRoute(program(2, set({3})));
   sm_->zombieClockIs(inputs_.zombieClock);
   sm_->agingClockIs(inputs_.agingClock);
   EXPECT_EQ(inputs_.zombieClock->timeMin(), 4);
   EXPECT_EQ(aging(), 60);
   auto const data = Qor::make<Vel::VelCommonSmData>();
   data->verifyDataIs(Qor::make<Vel::VerifyData>());
   sm_->acsdIs(data);
   EXPECT_EQ(sm_->verifyData(), data->verifyData());
   for (bool const disabled : {false, true}) {
      sm_->disableVerifyIs(disabled);
      data->verifyData()->verifyIs(1 + disabled);
      EXPECT_EQ(platform_->verified(), 1u);
   }
   sm_->acsdDel();
   EXPECT_EQ(sm_->verifyData(), nullptr);
}

TEST_F(SyncSm, TheReactorAndTheSwitchMayGoInAnyHookAndAnyNotification) {
   Interruption life;
   while (life.next()) {
      SCOPED_TRACE(life.lives());
      build();
      program(1, set({2}, 1, {3}));
      program(2, set({4}, 1, {5}));
      switch_->doDeleteRoute(program(3, set({6})));
      switch_->mrouteTcamFreeIs(false);
      auto const data = inputs_.acsd->verifyData();
      life.act = [&] { sm_ = nullptr, switch_ = nullptr; };
      life.follow(sm_, switch_, inputs_.mfibHwStatus, status(1), inputs_.l3Status, data);
      platform_->hookObserverIs([&](std::string_view) { life.moment(); });
      auto const perform = [&](auto const& operation) {
         if (sm_) operation(*sm_);
      };
      data->verifyRequiredIs(true);
      data->verifyIs(1);
      requestReview();
      receivers(1);
      down(1);
      time_->runUntil(time_->now() + 61);
      inputs_.mfibConfig->activityPollingIntervalIs(5);
      perform([](auto& sm) { sm.clockIs(Qor::make<Qor::Clock>("frr")); });
      perform([&](auto& sm) { sm.mfibConfigIs(Qor::make<Fib::VrfConfig>()); });
      perform([](auto& sm) { sm.agingClockIs(Qor::make<Qor::Clock>()); });
      perform([](auto& sm) { sm.zombieClockIs(Qor::make<Qor::Clock>()); });
      perform([](auto& sm) { sm.ethIntfStatusDirDel(); });
      perform([&](auto& sm) { sm.ethIntfStatusDirIs(inputs_.ethIntfStatusDir); });
      perform([](auto& sm) { sm.ethIntfStatusDelAll(); });
      perform([](auto& sm) { sm.acsdDel(); });
      perform([&](auto& sm) { sm.acsdIs(inputs_.acsd); });
      perform([](auto& sm) { sm.l3StatusDel(); });
      perform([](auto& sm) { sm.agingReviewQuotaIs(1); });
      auto other = otherSwitch();
      perform([&](auto& sm) { sm.mrouteSwitchIs(other); });
      perform([](auto& sm) { sm.mrouteSwitchDel(); });
      other = switch_ ? switch_ : other;
      perform([&](auto& sm) { sm.mrouteSwitchIs(other); });
      perform([](auto& sm) { sm.doCleanup(); });
      sm_ = nullptr;
      switch_ = other = nullptr;
      EXPECT_EQ(chip_->groups() + chip_->routes().size(), 0u);
      EXPECT_EQ(time_->nextDeadline(), Qor::never);
      EXPECT_FALSE(inputs_.mfibConfig->hasNotifiees() || inputs_.ethIntfStatusDir->hasNotifiees() ||
                   inputs_.acsd->hasNotifiees() || data->hasNotifiees());
      inputs_.mfibHwStatus->vrfStatusDelAll();
   }
   EXPECT_GT(life.lives(), 60);
}

// The reactor changes nothing of the switch until it has the switch again.
TEST_F(SyncSm, ASwitchThatIsTakenAwayIsLeftAsItIs) {
   program(1, set({2}, 1, {3}));
   switch_->doDeleteRoute(program(2, set({4})));
   sm_->mrouteSwitchDel();
   EXPECT_EQ(sm_->mrouteSwitch(), nullptr);
   EXPECT_FALSE(switch_->deleted() || switch_->hasNotifiees());
   EXPECT_EQ(time_->nextDeadline(), Qor::never);
   for (auto const& operation :
        {&MrouteSwitchSm::handleInitialized, &MrouteSwitchSm::maybeScheduleRoutesReview,
         &MrouteSwitchSm::handleZombie, &MrouteSwitchSm::handleZombieClock,
         &MrouteSwitchSm::handlePollingInterval, &MrouteSwitchSm::doRouteAgingReview,
         &MrouteSwitchSm::handleClock, &MrouteSwitchSm::handleVerify, &MrouteSwitchSm::doCleanup})
      (sm_.get()->*operation)();
   down(1);
   sm_->clockIs(Qor::make<Qor::Clock>());
   sm_->zombieClockIs(Qor::make<Qor::Clock>());
   sm_->agingClockIs(inputs_.agingClock);
   sm_->mfibConfigIs(inputs_.mfibConfig);
   time_->runUntil(100);
   EXPECT_EQ(receivers(1), "et2");
   EXPECT_EQ(switch_->zombieOifSet().size(), 1u);
   sm_->mrouteSwitchIs(switch_);
   EXPECT_EQ(aging(), 160);
   time_->runUntil(100);
   EXPECT_TRUE(switch_->zombieOifSet().empty());
   // In the middle of a review, which ends then.
   receivers(1);
   onHook_ = {"mrouteHitBit", [&] { sm_->mrouteSwitchDel(); }};
   time_->runUntil(160);
   EXPECT_EQ(aging(), Qor::never);
   sm_ = nullptr;
   EXPECT_FALSE(switch_->deleted());
}

// ---- Aging ----

// An entry that is removed while the platform is asked for its hit does not come back.
TEST_F(SyncSm, ARemovedFastdropIsNotStamped) {
   program(1, set({2}));
   switch_->doAllocateRoute(key(1), vlan(3), false, nullptr, true, false, {}, VrfName("default"));
   auto const route = status(1);
   route->acceptingIntfIdIs({});
   route->fastdropLastPollTimeIs("et3", 0);
   receivers(1, 3);
   onHook_ = {"mrouteHitBit", [&] { route->fastdropLastPollTimeDel("et3"); }};
   time_->runUntil(aging());
   EXPECT_TRUE(route->fastdropLastPollTime().empty());
}

TEST_F(SyncSm, AVrfWhoseNumberIsTooLongForTheHooksIsAProgrammingError) {
   program(1, set({2}));
   inputs_.l3Status->vrfNameToVrfIdIs("default", Vel::VrfId(0x10000));
   EXPECT_DEATH(sm_->doRouteAgingReview(), "Assertion `id <= 0xFFFF' failed");
}

TEST_F(SyncSm, AReviewThatLosesItsGroundInAnyHookEndsWithTheClockDisarmed) {
   struct Case {
      std::function<void()> loss;
      unsigned ends;  // of the review, counted because hardware routing is off
   };
   Case const cases[] = {{[&] { sm_->mfibConfigDel(); }, 0},
                         {[&] {
                             while (!switch_->route().empty())
                                switch_->doDeleteRoute(switch_->route().begin()->first);
                          },
                          1}};
   for (Case const& c : cases) {
      for (char const* hook : {"mrouteHitBitCacheRefresh", "mrouteHitBit", "doCommitMrouteBatch",
                               "mrouteHitBitCacheClear"}) {
         SCOPED_TRACE(cat(&c - cases, ' ', hook));
         build();
         inputs_.mfibHwStatus->hwRoutingIs(false);
         program(1, set({2}));
         program(2, set({2}));
         onHook_ = {hook, c.loss};
         time_->runUntil(aging());
         EXPECT_EQ(aging(), Qor::never);
         requestReview();
         EXPECT_EQ(inputs_.l3Status->waitForRoutingDisabledRefCnt(), c.ends);
      }
   }
}

// Each question costs 0.02 s: four fit into a slice of 0.07 s.
TEST_F(SyncSm, TheLengthOfSlicesAndPausesMayBeSet) {
   build(0.02);
   for (unsigned n = 1; n <= 8; ++n)
      program(n, set({2}));
   sm_->agingReviewQuotaIs(0.07);
   sm_->agingReviewIntervalIs(0.5);
   time_->runUntil(aging());
   EXPECT_EQ(asked(), 4u);
   EXPECT_NEAR(aging(), time_->now() + 0.5, 1e-9);
   sm_->agingReviewIntervalIs(0);  // taken as the shortest
   time_->runUntil(aging());
   EXPECT_NEAR(aging(), time_->now() + Qor::Clock::retryGap, 1e-9);
   // The end of the last route ends the review: the next one starts at the first route.
   while (!switch_->route().empty())
      switch_->doDeleteRoute(switch_->route().begin()->first);
   program(9, set({2}));
   journal_.take();
   time_->runUntil(aging());
   EXPECT_EQ(journal_.like("6 Current"), Lines());
   EXPECT_EQ(errorText([&] { sm_->agingReviewQuotaIs(-1); }),
             "MrouteSwitchSm::agingReviewQuota < 0 or not finite not allowed");
   EXPECT_EQ(errorText([&] { sm_->agingReviewIntervalIs(Qor::never); }),
             "MrouteSwitchSm::agingReviewInterval < 0 or not finite not allowed");
}

// ---- Fast reroute ----

TEST_F(SyncSm, AnErrorOfARewriteLeavesNoSetBehind) {
   for (unsigned n = 1; n <= 3; ++n)
      program(n, set({2}, 1, {3}));
   down(1, IntfOperStatus::testing);
   EXPECT_EQ(receivers(1), "et2");  // no failure
   onHook_ = {"doAllocateMtableOifSet", [] { throw std::runtime_error("rewrite"); }};
   EXPECT_THROW(down(1), std::runtime_error);
   EXPECT_EQ(switch_->frrProcessingOifSet().size(), 3u);
   EXPECT_EQ(sm_->clock()->timeMin(), time_->now() + Qor::Clock::retryGap);
   time_->runUntil(time_->now() + Qor::Clock::retryGap);
   EXPECT_EQ(sm_->clock()->timeMin(), Qor::never);
   EXPECT_EQ(receivers(1) + receivers(2) + receivers(3), "et3et3et3");
}

// The walk itself is the last user of a record then, and the end of the record withdraws the next
// set from the walk.
TEST_F(SyncSm, TheLastUserOfARecordMayLeaveWhileItsSetIsTaken) {
   struct Listener final : MrouteSwitch::Notifiee {
      void onFrrProcessingOifSet(OifSetPtr const&) override { unused = nullptr; }
      void onZombieOifSet(Vel::ZombieKey const&) override { chip->frrMtableOifSetDel(next); }
      MrouteLib::MtableOifSetPtr unused;
      OifSetPtr next;
      MrouteSwitch* chip = nullptr;
   } listener;
   switch_->doAllocateMtableOifSet(set({2}, 1, {3}));
   listener.unused = switch_->mtableOifSet();
   listener.next = set({4}, 1, {5});
   program(1, listener.next);
   listener.chip = switch_.get();
   listener.notifierIs(switch_);
   down(1);
   EXPECT_EQ(receivers(1), "et4");
}

// Each rewrite costs 0.03 s: four begin within 0.1 s.
TEST_F(SyncSm, AWaitingSetIsRewrittenByTheNextReactorWhileTheSwitchKnowsIt) {
   build(0.03);
   for (unsigned n = 11; n <= 15; ++n)
      program(n, set({2}, 8, {3}));
   down(8);
   time_->runUntil(time_->now() + 0.2);
   EXPECT_EQ(sm_->clock()->timeMin(), Qor::never);
   OifSetPtr const retaken = set({2}, 1, {3}), forgotten = set({2}, 1, {3});
   for (unsigned n = 1; n <= 4; ++n)
      program(n, set({2}, 1, {3}));
   program(5, retaken);
   program(6, forgotten);
   down(1);
   EXPECT_EQ(switch_->frrProcessingOifSet().size(), 2u);
   EXPECT_EQ(sm_->clock()->timeMin(), time_->now());
   program(7, retaken);
   switch_->inUseOifSetDel(forgotten);
   sm_ = nullptr;
   EXPECT_EQ(time_->nextDeadline(), Qor::never);
   journal_.take();
   sm_ = inputs_.sm(switch_);
   EXPECT_EQ(receivers(5) + receivers(6) + receivers(7), "et3et2et2");
   EXPECT_TRUE(journal_.like("8 ")[0].ends_with(cat("FrrProcessingOifSet: ", OifSetPtr())));
}

}  // namespace
