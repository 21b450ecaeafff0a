// The synchronous per-switch reactor on a simulated chip.
#include "Vel/VelSyncMrouteSm.h"
#include "Vel/VelSyncMrouteSmReactors.h"

#include <functional>

#include "Interruption.h"
#include "Journal.h"
#include "Qor/Generic.h"
#include "TestSupport.h"
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

// A switch on a simulated chip with the ports et1 to et8, each in a vlan of its own (1001 to 1008).
// Routes accept from et1, in the VRF "default", which has the number 1. A review asks for hits every
// 60 seconds.
class SyncSm : public OnVirtualTime {
 protected:
   SyncSm() { build(); }

   void build(Qor::Seconds callCost = 0) {
      sm_ = nullptr;
      switch_ = nullptr;
      in_ = Inputs();
      chip_ = Qor::make<Sim::Chip>(Sim::ChipConfig{64, 64, 8, 0});
      for (unsigned i = 1; i <= 8; ++i)
         EXPECT_EQ(chip_->portAdd(intf(i), i, vlan(i)), "");
      platform_ = Qor::make<Sim::SyncPlatform>("platform", chip_, 7,
                                               Sim::SyncPlatformConfig{16, callCost});
      platform_->hookObserverIs([this](std::string_view hook) {
         journal_.add("hook " + std::string(hook));
         if (onHook_.first == hook) std::exchange(onHook_, {}).second();
      });
      in_.mrouteHelper = platform_;
      in_.acsd->verifyDataIs(Qor::make<Vel::VerifyData>());
      in_.l3Status->vrfNameToVrfIdIs("default", Vel::VrfId(1));
      in_.mfibHwStatus->hwRoutingIs(true);
      for (unsigned i = 1; i <= 8; ++i) {
         in_.intfVlanIdTable->intfIdToVlanIdIs(intf(i), Bridging::VlanId(1000u + i));
         in_.ethIntfStatusDir->newIntfStatus(intf(i))->operStatusIs(IntfOperStatus::up);
      }
      freshSwitch();
      sm_ = in_.sm(switch_);
      journal_.take();
   }
   // A switch without a past or a reactor, on the same chip.
   void freshSwitch() {
      sm_ = nullptr;
      switch_ = nullptr;
      switch_ = Vel::mrouteSwitchFactory("switch", 7, in_.acsd, in_.l3Status, platform_, nullptr,
                                         in_.mfibHwStatus);
   }
   static IntfId intf(unsigned i) { return IntfId("et" + std::to_string(i)); }
   static VlanIdOrNone vlan(unsigned i) { return VlanIdOrNone(1000u + i); }
   // A set like no other to `out`, covered by `backup` against a failure of `iif`.
   static OifSetPtr set(unsigned out, unsigned iif = 0, unsigned backup = 0) {
      MrouteLib::PortVlanSet s(Fib::RouteKeyType::routed);
      s.newPortVlan(MrouteLib::PortVlan(intf(out), vlan(out)), true);
      if (backup) s.newPortVlanFrr(MrouteLib::PortVlan(intf(backup), vlan(backup)), true);
      if (iif) s.currentIifIs(intf(iif));
      return Qor::make<MrouteLib::OifSet>(nullptr, s);
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
      return in_.mfibHwStatus->vrfStatusIs(VrfName(vrf))->routeIs(key(n));
   }
   Sim::Forwarded send(unsigned n, unsigned in = 1) {
      return chip_->forward({1, addr("10.0.0.1"), key(n).group().address(), vlan(in)});
   }
   // Where the packets of route n go.
   std::string receivers(unsigned n) {
      std::string all;
      for (auto const& copy : send(n).copies)
         all += copy.intfId().name();
      return all;
   }
   void down(unsigned i, IntfOperStatus status = IntfOperStatus::down) {
      in_.ethIntfStatusDir->intfStatus(intf(i))->operStatusIs(status);
   }
   void requestReview() { in_.l3Status->multicastReviewPendingInc(); }
   Qor::Seconds aging() const { return in_.agingClock->timeMin(); }
   Qor::U64 asked() const { return platform_->calls(SyncHook::mrouteHitBit); }

   // A second switch, which the reactor does not have.
   Qor::Ptr<MrouteSwitch> otherSwitch() {
      return Vel::mrouteSwitchFactory("other", 7, in_.acsd, in_.l3Status, platform_, nullptr,
                                      in_.mfibHwStatus);
   }

   Journal journal_{"VelSyncMrouteSm"};
   // A hook's name, and the action at its next call.
   std::pair<std::string, std::function<void()>> onHook_;
   Qor::Ptr<Sim::Chip> chip_;
   Qor::Ptr<Sim::SyncPlatform> platform_;
   Inputs in_;
   Qor::Ptr<MrouteSwitch> switch_;
   Qor::Ptr<MrouteSwitchSm> sm_;
};

// ---- Life ----

TEST_F(SyncSm, TakesOverExistingRoutesAndZombiesAndReleasesItsClocks) {
   EXPECT_EQ(in_.zombieClock->timeMin(), Qor::never);
   EXPECT_EQ(aging(), Qor::never);
   freshSwitch();
   program(1, set(2));
   switch_->doDeleteRoute(program(2, set(3)));
   sm_ = in_.sm(switch_);
   EXPECT_EQ(in_.zombieClock->timeMin(), 4);
   EXPECT_EQ(aging(), 60);
   sm_ = nullptr;
   EXPECT_EQ(in_.zombieClock->timeMin(), Qor::never);
   EXPECT_EQ(aging(), Qor::never);
   EXPECT_TRUE(switch_->deleted());
   EXPECT_EQ(chip_->groups(), 1u);
}

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
   bound(sm_->newAcsd(in_.acsd), in_.acsd);
   bound(sm_->newL3Status(in_.l3Status), in_.l3Status);
   bound(sm_->newMfibConfig(in_.mfibConfig), in_.mfibConfig);
   bound(sm_->newZombieClock(in_.zombieClock), in_.zombieClock);
   bound(sm_->newAgingClock(in_.agingClock), in_.agingClock);
   bound(sm_->newEthIntfStatusDir(in_.ethIntfStatusDir), in_.ethIntfStatusDir);
   bound(sm_->newMrouteSwitch(switch_), switch_);
   auto const clock = Qor::make<Qor::Clock>("frr");
   bound(sm_->newClock(clock), clock);
   program(1, set(2));
   EXPECT_EQ(aging(), 60);
}

TEST_F(SyncSm, AnInterfaceHasAReactorWhileItHasAStatus) {
   Lnet::IntfId const intf("et9");
   Qor::U32 const before = sm_->ethIntfStatuses();
   in_.ethIntfStatusDir->newIntfStatus(intf);
   EXPECT_EQ(sm_->ethIntfStatuses(), before + 1);
   EXPECT_NE(sm_->ethIntfStatus(intf), nullptr);
   in_.ethIntfStatusDir->intfStatusDel(intf);
   EXPECT_EQ(sm_->ethIntfStatus(intf), nullptr);
   EXPECT_EQ(sm_->ethIntfStatuses(), before);
}

TEST_F(SyncSm, EachInputButTheSwitchMayBeNull) {
   for (int missing = 0; missing <= 9; ++missing) {  // at 9 all of them
      SCOPED_TRACE(missing);
      freshSwitch();
      Inputs in = in_;
      int number = 0;
      auto const drop = [&](auto&... inputs) {
         ((missing == number++ || missing == 9 ? inputs = nullptr : nullptr), ...);
      };
      drop(in.acsd, in.l3Status, in.intfVlanIdTable, in.mfibConfig, in.mfibHwStatus,
           in.mrouteHelper, in.zombieClock, in.agingClock, in.ethIntfStatusDir);
      sm_ = in.sm(switch_);
      program(1, set(2, 1, 3));
      switch_->doDeleteRoute(program(2, set(4)));
      sm_->handleVerify();
      sm_->doRouteAgingReview();
      time_->runUntil(time_->now() + 61);
      EXPECT_EQ(switch_->zombieOifSet().empty(), in.zombieClock != nullptr);
      down(1);
      EXPECT_EQ(receivers(1), in.ethIntfStatusDir && in.mrouteHelper ? "et3" : "et2");
      down(1, IntfOperStatus::up);
   }
   EXPECT_EQ(platform_->audit(), Lines());
   EXPECT_THROW(in_.sm(nullptr), Qor::RangeException);
}

TEST_F(SyncSm, ALateOrReplacedOrChangedConfigurationSetsThePollingInterval) {
   auto const config = std::exchange(in_.mfibConfig, nullptr);
   freshSwitch();
   sm_ = in_.sm(switch_);
   program(1, set(2));
   EXPECT_EQ(aging(), Qor::never);
   config->activityPollingIntervalIs(5);
   sm_->mfibConfigIs(config);
   EXPECT_EQ(aging(), 5);
   EXPECT_EQ(in_.mfibHwStatus->pollingInterval(), 5);
   time_->runUntil(1);
   auto const next = Qor::make<Fib::VrfConfig>();
   next->activityPollingIntervalIs(9);
   sm_->mfibConfigIs(next);
   EXPECT_EQ(aging(), 1);
   EXPECT_EQ(in_.mfibHwStatus->pollingInterval(), 9);
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
   program(1, set(2, 1, 3));
   program(2, set(4));
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
   EXPECT_EQ(in_.zombieClock->timeMin(), 4);
}

TEST_F(SyncSm, ClocksAndTheCommonDataMayBeSetLateOrReplaced) {
   sm_->zombieClockDel();
   sm_->agingClockDel();
   program(1, set(2));
   switch_->doDeleteRoute(program(2, set(3)));
   sm_->zombieClockIs(in_.zombieClock);
   sm_->agingClockIs(in_.agingClock);
   EXPECT_EQ(in_.zombieClock->timeMin(), 4);
   EXPECT_EQ(aging(), 60);
   auto const data = Qor::make<Vel::VelCommonSmData>();
   data->verifyDataIs(Qor::make<Vel::VerifyData>());
   sm_->acsdIs(data);
   EXPECT_EQ(sm_->verifyData(), data->verifyData());
   sm_->acsdDel();
   EXPECT_EQ(sm_->verifyData(), nullptr);
}

TEST_F(SyncSm, TheReactorAndTheSwitchMayGoInAnyHookAndAnyNotification) {
   Interruption life;
   while (life.next()) {
      SCOPED_TRACE(life.lives());
      build();
      program(1, set(2, 1, 3));
      program(2, set(4, 1, 5));
      switch_->doDeleteRoute(program(3, set(6)));
      switch_->mrouteTcamFreeIs(false);
      auto const data = in_.acsd->verifyData();
      life.act = [&] { sm_ = nullptr, switch_ = nullptr; };
      life.follow(sm_, switch_, in_.mfibHwStatus, status(1), in_.l3Status, data);
      platform_->hookObserverIs([&](std::string_view) { life.moment(); });
      auto const perform = [&](auto const& operation) {
         if (sm_) operation(*sm_);
      };
      data->verifyRequiredIs(true);
      data->verifyIs(1);
      requestReview();
      send(1);
      down(1);
      time_->runUntil(time_->now() + 61);
      in_.mfibConfig->activityPollingIntervalIs(5);
      perform([](auto& sm) { sm.clockIs(Qor::make<Qor::Clock>("frr")); });
      perform([&](auto& sm) { sm.mfibConfigIs(Qor::make<Fib::VrfConfig>()); });
      perform([](auto& sm) { sm.agingClockIs(Qor::make<Qor::Clock>()); });
      perform([](auto& sm) { sm.zombieClockIs(Qor::make<Qor::Clock>()); });
      perform([](auto& sm) { sm.ethIntfStatusDirDel(); });
      perform([&](auto& sm) { sm.ethIntfStatusDirIs(in_.ethIntfStatusDir); });
      perform([](auto& sm) { sm.ethIntfStatusDelAll(); });
      perform([](auto& sm) { sm.acsdDel(); });
      perform([&](auto& sm) { sm.acsdIs(in_.acsd); });
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
      EXPECT_FALSE(in_.mfibConfig->hasNotifiees() || in_.ethIntfStatusDir->hasNotifiees() ||
                   in_.acsd->hasNotifiees() || data->hasNotifiees());
      in_.mfibHwStatus->vrfStatusDelAll();
   }
   EXPECT_GT(life.lives(), 60);
}

// The reactor changes nothing of the switch until it has the switch again.
TEST_F(SyncSm, ASwitchThatIsTakenAwayIsLeftAsItIs) {
   program(1, set(2, 1, 3));
   switch_->doDeleteRoute(program(2, set(4)));
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
   sm_->agingClockIs(in_.agingClock);
   sm_->mfibConfigIs(in_.mfibConfig);
   time_->runUntil(100);
   EXPECT_EQ(receivers(1), "et2");
   EXPECT_EQ(switch_->zombieOifSet().size(), 1u);
   sm_->mrouteSwitchIs(switch_);
   EXPECT_EQ(aging(), 160);
   time_->runUntil(100);
   EXPECT_TRUE(switch_->zombieOifSet().empty());
   // In the middle of a review, which ends then.
   send(1);
   onHook_ = {"mrouteHitBit", [&] { sm_->mrouteSwitchDel(); }};
   time_->runUntil(160);
   EXPECT_EQ(aging(), Qor::never);
   sm_ = nullptr;
   EXPECT_FALSE(switch_->deleted());
}

TEST_F(SyncSm, VerifiesOnRequestUnlessThatIsDisabled) {
   program(1, set(2));
   auto const data = in_.acsd->verifyData();
   data->verifyIs(1);
   EXPECT_EQ(platform_->verified(), 1u);
   sm_->disableVerifyIs(true);
   data->verifyIs(2);
   EXPECT_EQ(platform_->verified(), 1u);
   // A clean-up of zombies requests a verification, too.
   data->verifyRequiredIs(true);
   sm_->handleZombie();
   EXPECT_TRUE(data->reverify());
}

// ---- Room, and the start and the end of the review ----

TEST_F(SyncSm, TheFirstRouteStartsTheReviewAndTheLastEndsIt) {
   RouteHandle const first = program(1, set(2));
   time_->runUntil(10);
   RouteHandle const second = program(2, set(3));
   EXPECT_EQ(aging(), 60);
   switch_->doDeleteRoute(first);
   EXPECT_EQ(aging(), 60);
   switch_->doDeleteRoute(second);
   EXPECT_EQ(aging(), Qor::never);
   EXPECT_EQ(in_.l3Status->waitForRoutingDisabledRefCnt(), 0u);
   in_.mfibHwStatus->hwRoutingIs(false);
   switch_->doDeleteRoute(program(3, set(4)));
   EXPECT_EQ(in_.l3Status->waitForRoutingDisabledRefCnt(), 1u);
}

TEST_F(SyncSm, AReviewRequestFlagsRoomOnlyIfThereIsRoom) {
   switch_->mrouteTcamFreeIs(false);
   platform_->faults().routesExhaustedIs(true);
   requestReview();
   EXPECT_FALSE(switch_->mrouteTcamFree());
   platform_->faults().routesExhaustedIs(false);
   requestReview();
   EXPECT_TRUE(switch_->mrouteTcamFree());
   Qor::U64 const calls = platform_->calls(SyncHook::mrouteFull);
   requestReview();
   EXPECT_EQ(platform_->calls(SyncHook::mrouteFull), calls);
   EXPECT_EQ(switch_->mrouteReviewKick(), 3u);
}

// ---- Zombies ----

TEST_F(SyncSm, TheZombieClockFollowsTheFirstToExpireThoughTheSwitchIsMarked) {
   RouteHandle const early = program(1, set(2)), late = program(2, set(3));
   switch_->doDeleteRoute(early);
   time_->runUntil(1);
   switch_->doDeleteRoute(late);
   EXPECT_EQ(in_.zombieClock->timeMin(), 4);
   time_->runUntil(4);
   EXPECT_EQ(chip_->groups(), 1u);
   EXPECT_EQ(in_.zombieClock->timeMin(), 5);
   // Once the switch is marked, the clock has nothing more to do when it has fired.
   switch_->deletedIs(true);
   journal_.take();
   switch_->zombieOifSetNotify({});
   EXPECT_EQ(in_.zombieClock->timeMin(), 5);
   EXPECT_EQ(journal_.count("6 MrouteSwitch marked for deletion - skipping zombie handling"), 1);
   time_->runUntil(5);
   EXPECT_EQ(chip_->groups(), 0u);
   EXPECT_EQ(in_.zombieClock->timeMin(), Qor::never);
}

// ---- Aging ----

TEST_F(SyncSm, AReviewStampsHitRoutesAndRoutesThatMustNotAge) {
   for (unsigned n : {1, 2, 3})
      program(n, set(n + 1));
   switch_->route(RouteHandle(2))->noAgeIs(true);  // of route 3
   send(1);
   sm_->agingReviewQuotaIs(0);  // which has not passed while the time stands still
   journal_.take();
   time_->runUntil(60);
   EXPECT_EQ(status(1)->lastPollTime(), 60);
   EXPECT_EQ(status(2)->lastPollTime(), 0);
   EXPECT_EQ(status(3)->lastPollTime(), 60);
   EXPECT_EQ(journal_.like("hook "),
             (Lines{"hook mrouteHitBitCacheRefresh", "hook mrouteHitBit", "hook mrouteHitBit",
                    "hook doCommitMrouteBatch", "hook mrouteHitBitCacheClear"}));
   EXPECT_EQ(aging(), 120);
   time_->runUntil(120);
   EXPECT_EQ(status(1)->lastPollTime(), 60);
}

TEST_F(SyncSm, AFastdropEntryIsStampedByItsVlanUnlessItIsRemovedInBetween) {
   for (bool const goes : {false, true}) {
      build();
      program(1, set(2));
      switch_->doAllocateRoute(key(1), vlan(3), false, nullptr, true, false, {},
                               VrfName("default"));
      auto const route = status(1);
      route->acceptingIntfIdIs({});
      route->fastdropLastPollTimeIs("et3", 0);
      if (!goes) route->fastdropLastPollTimeIs("et2", 0);
      send(1, 3);
      onHook_ = {goes ? "mrouteHitBit" : "", [&] { route->fastdropLastPollTimeDel("et3"); }};
      Qor::Seconds const due = aging();
      time_->runUntil(due);
      EXPECT_EQ(route->fastdropLastPollTime().size(), goes ? 0u : 2u);
      EXPECT_EQ(route->fastdropLastPollTime("et2"), 0);
      EXPECT_EQ(route->fastdropLastPollTime("et3"), goes ? 0 : due);
   }
}

TEST_F(SyncSm, AChangedIntervalRestartsARunningReviewOnly) {
   in_.mfibConfig->activityPollingIntervalIs(5);
   EXPECT_EQ(aging(), Qor::never);
   EXPECT_EQ(in_.mfibHwStatus->pollingInterval(), 5);
   program(1, set(2));
   time_->runUntil(1);
   in_.mfibConfig->activityPollingIntervalIs(9);
   EXPECT_EQ(aging(), 1);
   time_->runUntil(1);
   EXPECT_EQ(asked(), 1u);
   EXPECT_EQ(aging(), 10);
}

TEST_F(SyncSm, AVrfWhoseNumberIsTooLongForTheHooksIsAProgrammingError) {
   program(1, set(2));
   in_.l3Status->vrfNameToVrfIdIs("default", Vel::VrfId(0x10000));
   EXPECT_DEATH(sm_->doRouteAgingReview(), "Assertion `id <= 0xFFFF' failed");
}

TEST_F(SyncSm, ABusyHitBitCacheIsAskedAgainThoughNoRouteChanges) {
   program(1, set(2));
   platform_->faults().hitBitsBusyNext(2);
   time_->runUntil(60.015);
   EXPECT_EQ(asked(), 0u);
   time_->runUntil(60.025);
   EXPECT_EQ(asked(), 1u);
   EXPECT_DOUBLE_EQ(aging(), 120.02);
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
         in_.mfibHwStatus->hwRoutingIs(false);
         program(1, set(2));
         program(2, set(2));
         onHook_ = {hook, c.loss};
         time_->runUntil(aging());
         EXPECT_EQ(aging(), Qor::never);
         requestReview();
         EXPECT_EQ(in_.l3Status->waitForRoutingDisabledRefCnt(), c.ends);
      }
   }
}

// Each question costs 0.02 s: three fit into a slice of 0.05 s.
class SyncSmSlices : public SyncSm {
 protected:
   SyncSmSlices() { eightRoutes(); }
   void eightRoutes() {
      build(0.02);
      for (unsigned n = 1; n <= 8; ++n)
         program(n, set(2));
      time_->runUntil(time_->now() + 1);
   }
   // The first slice, which refreshes the cache and reviews routes 1 to 3.
   void firstSlice() {
      time_->runUntil(aging());
      EXPECT_EQ(asked(), 3u);
      EXPECT_NEAR(aging(), time_->now() + 0.01, 1e-9);
      journal_.take();
   }
   // The routes reviewed since the journal was taken last.
   Lines reviewed() { return journal_.like("7 Aging review: polling state for route "); }
   static std::string review(unsigned n) {
      return cat("7 Aging review: polling state for route ", key(n));
   }
   Qor::U64 refreshes() const { return platform_->calls(SyncHook::mrouteHitBitCacheRefresh); }
};

TEST_F(SyncSmSlices, EachRouteIsReviewedOnceInSlicesWithinTheirTime) {
   firstSlice();
   time_->runUntil(aging());
   EXPECT_EQ(journal_.like("6 Current"), Lines{cat("6 Current routeIter: ", key(4))});
   EXPECT_EQ(reviewed(), (Lines{review(4), review(5), review(6)}));
   time_->runUntil(aging());
   EXPECT_EQ(asked(), 8u);
   EXPECT_EQ(refreshes(), 1u);
   EXPECT_EQ(journal_.count("6 Review completed"), 1);
}

TEST_F(SyncSmSlices, TheLengthOfSlicesAndPausesMayBeSet) {
   sm_->agingReviewQuotaIs(0.07);
   sm_->agingReviewIntervalIs(0.5);
   time_->runUntil(aging());
   EXPECT_EQ(asked(), 4u);
   EXPECT_NEAR(aging(), time_->now() + 0.5, 1e-9);
   sm_->agingReviewIntervalIs(0);  // taken as the shortest
   time_->runUntil(aging());
   EXPECT_NEAR(aging(), time_->now() + Qor::Clock::retryGap, 1e-9);
   EXPECT_EQ(errorText([&] { sm_->agingReviewQuotaIs(-1); }),
             "MrouteSwitchSm::agingReviewQuota < 0 or not finite not allowed");
   EXPECT_EQ(errorText([&] { sm_->agingReviewIntervalIs(Qor::never); }),
             "MrouteSwitchSm::agingReviewInterval < 0 or not finite not allowed");
}

TEST_F(SyncSmSlices, AReviewGoesOnBehindItsPlaceAfterAnyChange) {
   struct Case {
      std::function<void()> change;
      unsigned next;
      unsigned refreshes;
   };
   auto const vrf = [this] { return in_.mfibHwStatus->vrfStatus(VrfName("default")); };
   Case const cases[] = {
         {[&] { vrf()->routeDel(key(3)), vrf()->routeDel(key(4)); }, 5, 1},
         {[&] { in_.mfibHwStatus->vrfStatusDel(VrfName("default")), status(6, "other"); }, 6, 2},
         {[&] {
             sm_ = nullptr;
             sm_ = in_.sm(switch_);
          },
          1, 2},
         {[&] {
             while (!switch_->route().empty())
                switch_->doDeleteRoute(switch_->route().begin()->first);
             EXPECT_EQ(aging(), Qor::never);
             program(1, set(2));
          },
          1, 2},
   };
   for (Case const& c : cases) {
      SCOPED_TRACE(&c - cases);
      eightRoutes();
      firstSlice();
      c.change();
      journal_.take();
      time_->runUntil(aging());
      Lines const current = journal_.like("6 Current");
      EXPECT_TRUE(current.empty() || current[0] == cat("6 Current routeIter: ", key(c.next)));
      ASSERT_FALSE(reviewed().empty());
      EXPECT_EQ(reviewed().front(), review(c.next));
      EXPECT_EQ(refreshes(), c.refreshes);
   }
}

// The last route of all is reviewed when the time is up: that is not the beginning.
TEST_F(SyncSmSlices, ASliceThatEndsWithTheLastRouteIsFollowedByTheEnd) {
   firstSlice();
   for (unsigned n : {7, 8})
      in_.mfibHwStatus->vrfStatus(VrfName("default"))->routeDel(key(n));
   for (long completed : {0, 1}) {
      time_->runUntil(aging());
      EXPECT_EQ(asked(), 6u);
      EXPECT_EQ(journal_.count("6 Review completed"), completed);
   }
   EXPECT_EQ(journal_.count("6 Current routeIter: (invalid)"), 1);  // no route comes next
}

// ---- Fast reroute ----

TEST_F(SyncSm, AFailedInterfaceHasItsSetsRewrittenUnderTheirIndex) {
   OifSetPtr const covered = set(2, 1, 3), other = set(4, 8, 5), bare = set(6, 1);
   program(1, covered);
   program(2, covered);
   program(3, other);
   program(4, bare);
   down(1, IntfOperStatus::up);
   down(1, IntfOperStatus::testing);
   EXPECT_EQ(receivers(1), "et2");
   auto const record = switch_->inUseRecord(covered);
   Qor::U64 const points = chip_->writes(Sim::WriteKind::routePoint);
   down(1, IntfOperStatus::lowerLayerDown);
   EXPECT_EQ(receivers(1) + receivers(2) + receivers(3) + receivers(4), "et3et3et4et6");
   EXPECT_EQ(chip_->writes(Sim::WriteKind::routePoint), points);
   EXPECT_TRUE(record->dirty());
   EXPECT_EQ(switch_->frrMtableOifSet().size(), 2u);
   EXPECT_TRUE(switch_->frrProcessingOifSet().empty());
   down(1, IntfOperStatus::up);
   down(1);
   EXPECT_EQ(chip_->writes(Sim::WriteKind::groupUpdate), 1u);
}

TEST_F(SyncSm, AZombieIsNotReroutedAndARefusedRewriteIsDropped) {
   OifSetPtr const zombie = set(2, 1, 3);
   switch_->doDeleteRoute(program(1, zombie));
   program(2, set(4, 1, 5));
   platform_->faults().failNext(Sim::WriteKind::groupUpdate, "no");
   down(1);
   EXPECT_FALSE(switch_->inUseRecord(zombie)->dirty());
   EXPECT_TRUE(switch_->frrProcessingOifSet().empty());
   EXPECT_EQ(receivers(2), "et4");
   Lines const said = journal_.like("8 : "),
               events = journal_.like("blip MrouteSwitchSm::handleClock");
   std::string const rewrite = " {et5:1005 frr et5:1005 iif et1} to oifSetIndex: 2";
   EXPECT_EQ(said, (Lines{"8 : Overwrite with new pvSet" + rewrite, "8 : HW resource full "}));
   EXPECT_EQ(events, (Lines{"blip MrouteSwitchSm::handleClock Overwrite with pvSet" + rewrite,
                            "blip MrouteSwitchSm::handleClockHW resource full"}));
}

// Keeps one set from being rerouted as soon as another is.
struct Withdrawer final : MrouteSwitch::Notifiee {
   void onFrrProcessingOifSet(OifSetPtr const&) override { sw->frrMtableOifSetDel(withdrawn); }
   MrouteSwitch* sw = nullptr;
   OifSetPtr withdrawn;
};

TEST_F(SyncSm, ListenersMayWithdrawSetsAndHooksMayReplaceTheSwitchDuringAReroute) {
   OifSetPtr const first = set(2, 1, 3), second = set(4, 1, 5), third = set(6, 1, 7);
   program(1, first);
   program(2, second);
   program(3, third);
   Withdrawer withdrawer;
   withdrawer.sw = switch_.get();
   withdrawer.withdrawn = second;
   withdrawer.notifierIs(switch_);
   auto const other = otherSwitch();
   onHook_ = {"doAllocateMtableOifSet", [&] { sm_->mrouteSwitchIs(other); }};
   down(1);
   EXPECT_EQ(receivers(1) + receivers(2) + receivers(3), "et3et4et7");
   EXPECT_EQ(sm_->mrouteSwitch(), other);
}

// Each rewrite costs 0.03 s: four begin within 0.1 s.
TEST_F(SyncSm, ManySetsAreRewrittenInPassesAndEachOnce) {
   build(0.03);
   std::vector<RouteHandle> routes;
   for (unsigned n = 1; n <= 10; ++n)
      routes.push_back(program(n, set(2, 1, 3)));
   time_->runUntil(time_->now() + 5);
   down(1);
   EXPECT_EQ(switch_->frrProcessingOifSet().size(), 6u);
   ASSERT_TRUE(sm_->clock());
   EXPECT_EQ(sm_->clock()->timeMin(), time_->now());
   sm_->clockDel();
   sm_->clockIs(Qor::make<Qor::Clock>());
   EXPECT_EQ(sm_->clock()->timeMin(), time_->now());
   // Two sets leave before their turn: one becomes a zombie, the other loses its record.
   switch_->doDeleteRoute(routes[6]);
   in_.l3Status->multicastZombiesEnabledIs(false);
   switch_->doDeleteRoute(routes[5]);
   EXPECT_EQ(switch_->frrProcessingOifSet().size(), 5u);
   time_->runUntil(time_->now() + 0.2);
   EXPECT_TRUE(switch_->frrProcessingOifSet().empty());
   EXPECT_EQ(chip_->writes(Sim::WriteKind::groupUpdate), 8u);
   EXPECT_EQ(sm_->clock()->timeMin(), Qor::never);
   for (unsigned n : {1, 5, 8, 10})
      EXPECT_EQ(receivers(n), "et3");
}

TEST_F(SyncSm, AWaitingSetIsRewrittenUnderItsOwnIndexWhileTheSwitchKnowsIt) {
   build(0.03);
   OifSetPtr const retaken = set(2, 1, 3), forgotten = set(2, 1, 3);
   for (unsigned n = 1; n <= 4; ++n)
      program(n, set(2, 1, 3));
   program(5, retaken);
   program(6, forgotten);
   down(1);
   EXPECT_EQ(switch_->frrProcessingOifSet().size(), 2u);
   program(7, retaken);
   switch_->inUseOifSetDel(forgotten);
   time_->runUntil(time_->now() + 0.2);
   EXPECT_EQ(receivers(5) + receivers(6) + receivers(7), "et3et2et2");
}

TEST_F(SyncSm, AnErrorOfARewriteLeavesNoSetBehind) {
   for (unsigned n = 1; n <= 3; ++n)
      program(n, set(2, 1, 3));
   onHook_ = {"doAllocateMtableOifSet", [] { throw std::runtime_error("rewrite"); }};
   EXPECT_THROW(down(1), std::runtime_error);
   EXPECT_EQ(switch_->frrProcessingOifSet().size(), 3u);
   EXPECT_EQ(sm_->clock()->timeMin(), time_->now() + Qor::Clock::retryGap);
   time_->runUntil(time_->now() + Qor::Clock::retryGap);
   EXPECT_EQ(sm_->clock()->timeMin(), Qor::never);
   EXPECT_EQ(receivers(1) + receivers(2) + receivers(3), "et3et3et3");
}

TEST_F(SyncSm, WaitingSetsAreRewrittenByTheNextReactorFromTheBeginning) {
   build(0.03);
   for (unsigned n = 1; n <= 5; ++n)
      program(n, set(2, 1, 3));
   down(1);
   EXPECT_EQ(switch_->frrProcessingOifSet().size(), 1u);
   sm_ = nullptr;
   EXPECT_EQ(time_->nextDeadline(), Qor::never);
   journal_.take();
   sm_ = in_.sm(switch_);
   EXPECT_EQ(receivers(5), "et3");
   EXPECT_TRUE(journal_.like("8 ")[0].ends_with(cat("FrrProcessingOifSet: ", OifSetPtr())));
}

}  // namespace
