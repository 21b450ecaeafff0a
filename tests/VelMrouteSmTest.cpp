// The agent-wide reactor of the synchronous path, on a platform that records the hooks called.
#include <functional>
#include <map>

#include "Interruption.h"
#include "Journal.h"
#include "Qor/Generic.h"
#include "TestSupport.h"
#include "Vel/VelMrouteSmReactors.h"

namespace {

using Routing::Multicast::Fib::CounterMode;
using Routing::Multicast::Fib::IpGenRouteKey;
using testSupport::cat;
using testSupport::key;
using Vel::MrouteSm;

constexpr IpGenRouteKey wildcard = Routing::Multicast::Fib::canonicalCatchAllKey();
constexpr Qor::U64 unchanged = MrouteSm::unchangedCounter;

// "5" for key(5), "wildcard".
std::string label(IpGenRouteKey const& k) {
   unsigned n = 0;
   while (n < 10 && k != key(n))
      ++n;
   return k == wildcard ? "wildcard" : std::to_string(n);
}

// Writes down each hook as "<hook> <arguments>", with ", " in between.
class Recorder final : public VelHelper::MrouteSmHelper {
 public:
   Recorder() : MrouteSmHelper("recorder") {}
   std::string take() { return std::exchange(calls_, {}); }

   std::function<void(std::string const&)> onHook;
   std::map<IpGenRouteKey, Qor::U64> traffic;  // the counts that the next reading returns
   bool createRefused = false;

   void mrouteInit(bool start) override { call("mrouteInit", start); }
   void handleMulticastRouting(bool on) override { call("handleMulticastRouting", on); }
   void handleMrouteCounterMode(CounterMode mode) override { call("mode", mode); }
   void verifyMulticastRouting(bool on) override { call("verify", on); }
   Qor::U32 doCreateMrouteCounter(Qor::U16 vrfId, IpGenRouteKey const& k) override {
      call("create", vrfId, ' ', label(k));
      return !createRefused;
   }
   void doDeleteMrouteCounter(IpGenRouteKey const& k) override { call("delete", label(k)); }
   void doClearMrouteCounter(IpGenRouteKey const& k) override { call("clear", label(k)); }
   Qor::U64 doReadMrouteCounter(IpGenRouteKey const& k) override {
      Qor::U64 const read = std::exchange(traffic[k], 0);
      call("read", label(k));
      return read;
   }
   void ageOutHwMcastCounter(IpGenRouteKey const& k) override { call("ageOut", label(k)); }

 private:
   template <class... Args>
   void call(char const* hook, Args const&... args) {
      std::string const line = cat(hook, ' ', args...);
      calls_ += (calls_.empty() ? "" : ", ") + line;
      if (onHook) onHook(line);
   }

   std::string calls_;
};

class OnCounter final : public Routing::Multicast::Fib::CounterStatus::Notifiee {
 public:
   explicit OnCounter(std::function<void(IpGenRouteKey)> call) : call_(std::move(call)) {}
   void onCounter(IpGenRouteKey const& k) override { call_(k); }

 private:
   std::function<void(IpGenRouteKey)> call_;
};

class TopSm : public testSupport::OnVirtualTime {
 protected:
   // Makes the reactor with routing on and both records set, and drops the hook calls of the start.
   void start() {
      enabled_->vrfIs(L3::VrfName("default"));
      hw_->hwRoutingIs(true);
      make();
      sm_->mfibCounterStatusIs(status_);
      sm_->mfibCounterStatusCtlIs(ctl_);
      ctl_->pollingRefCntIs(1);
      hooks_->take();
   }
   void make() {
      sm_ = Vel::MrouteSmIs(acsd_, l3_, config_, hw_, Qor::make<Ip::Status>(), hooks_, enabled_);
   }
   // The counters, those idle for longest first: "1=5 2=0-", where "-" is not active.
   // Checks that the records agree.
   std::string counters() {
      std::string text;
      Qor::U32 active = 0;
      for (auto const& [counter, on] : sm_->counterShadow()) {
         auto const entry = status_->counter(counter.key());
         EXPECT_EQ(entry.active, on);
         EXPECT_EQ(entry.timeStamp, counter.timeStamp());
         active += on;
         text +=
               cat(text.empty() ? "" : " ", label(counter.key()), '=', entry.value, on ? "" : "-");
      }
      EXPECT_EQ(status_->counter().size(), sm_->counterShadow().size());
      EXPECT_EQ(ctl_->currSize(), sm_->counterShadow().size());
      EXPECT_EQ(ctl_->currActive(), active);
      return text;
   }
   void run(Qor::Seconds seconds) { time_->runUntil(time_->now() + seconds); }

   Qor::Ptr<Vel::VelCommonSmData> acsd_ = Qor::make<Vel::VelCommonSmData>();
   Qor::Ptr<Vel::L3Status> l3_ = Qor::make<Vel::L3Status>();
   Qor::Ptr<MrouteSm::VrfConfig> config_ = Qor::make<MrouteSm::VrfConfig>();
   Qor::Ptr<MrouteSm::HwStatus> hw_ = Qor::make<MrouteSm::HwStatus>();
   Qor::Ptr<MrouteSm::VrfEnabledStatus> enabled_ = Qor::make<MrouteSm::VrfEnabledStatus>();
   Qor::Ptr<MrouteSm::CounterStatus> status_ = Qor::make<MrouteSm::CounterStatus>();
   Qor::Ptr<MrouteSm::CounterStatusCtl> ctl_ = Qor::make<MrouteSm::CounterStatusCtl>();
   Qor::Ptr<Recorder> hooks_ = Qor::make<Recorder>();
   Qor::Ptr<MrouteSm> sm_;
};

TEST_F(TopSm, RoutesWhileAVrfIsEnabledAndTheHardwareRoutesAndActsOnChangesAlone) {
   config_->allCounterIs(true);
   config_->counterModeIs(CounterMode::bytes);
   std::string const on = "handleMulticastRouting 1, mode bytes, create 0 wildcard";
   for (unsigned row = 0; row < 4; ++row) {
      SCOPED_TRACE(row);
      sm_ = nullptr;
      l3_ = Qor::make<Vel::L3Status>();
      if (row & 1) enabled_->vrfIs(L3::VrfName("a"));
      hw_->hwRoutingIs(row & 2);
      make();
      EXPECT_EQ(hooks_->take(), "mrouteInit 1, " + (row == 3 ? on : "handleMulticastRouting 0"));
      EXPECT_EQ(l3_->multicastRoutingEnabled(), row == 3);
      sm_->handleInitialized();
      if (row != 3) enabled_->vrfDelAll();
   }
   enabled_->vrfIs(L3::VrfName("b"));
   enabled_->vrfDel(L3::VrfName("a"));
   sm_->handleMulticastRouting();
   EXPECT_EQ(hooks_->take(), "");
   enabled_->vrfDelAll();
   enabled_->vrfIs(L3::VrfName("a"));
   EXPECT_EQ(hooks_->take(), "handleMulticastRouting 0, " + on);
   EXPECT_EQ(l3_->numTimesMcastRoutingEnabled(), 2u);
   hw_->hwRoutingIs(false);
   EXPECT_EQ(hooks_->take(), "handleMulticastRouting 0");
   // A hook that turns routing off again prevails.
   hooks_->onHook = [&](std::string const& hook) {
      if (hook == "handleMulticastRouting 1") hw_->hwRoutingIs(false);
   };
   hw_->hwRoutingIs(true);
   EXPECT_TRUE(hooks_->take().ends_with(", handleMulticastRouting 0"));
   EXPECT_FALSE(l3_->multicastRoutingEnabled());
   EXPECT_EQ(sm_->abandonedDecisions(), 0u);
   // A hook that undoes each decision does not make the reactor decide for ever.
   hooks_->onHook = [&](std::string const& hook) {
      if (hook.starts_with("handle")) hw_->hwRoutingIs(hook == "handleMulticastRouting 0");
   };
   testSupport::Journal journal("VelSyncMrouteSm");
   hw_->hwRoutingIs(true);
   EXPECT_TRUE(journal.text().ends_with(
         "0 decideRouting Multicast routing is left disabled, overturned 8 times\n"));
   EXPECT_EQ(sm_->abandonedDecisions(), 1u);
}

TEST_F(TopSm, PollsEachActiveCounterOncePerIntervalWhilePollingIsRequested) {
   start();
   for (unsigned n = 1; n <= 4; ++n)
      sm_->updateMfibCounter(key(n), 10 * n, n != 2);
   run(1);
   ctl_->pollingRefCntIs(0);
   run(2);
   EXPECT_EQ(hooks_->take(), "");
   ctl_->pollingRefCntIs(2);
   hooks_->traffic = {{key(1), 5}, {key(2), 5}, {key(3), 0}, {key(4), unchanged}};
   run(2);
   EXPECT_EQ(hooks_->take(), "read 1, read 3, read 4");
   EXPECT_EQ(counters(), "2=20- 3=30 1=15 4=40");  // 2 and 3 unwritten
   EXPECT_EQ(status_->counter(key(3)).timeStamp, 0);
   sm_->counterPollingIntervalIs(0);
   EXPECT_EQ(sm_->counterPollingInterval(), 0.01);
   EXPECT_THROW(sm_->counterPollingIntervalIs(Qor::never), Qor::RangeException);
   sm_->counterPollingIntervalIs(0.5);
   run(1.1);
   EXPECT_EQ(hooks_->take(), "read 3, read 1, read 4, read 3, read 1, read 4");
   // Counters that come and go while others are read: nothing is read twice, nothing left out.
   ctl_->limitIs(4);
   hooks_->traffic = {{key(1), 1}, {key(3), unchanged - 31}, {key(4), 1}};
   hooks_->onHook = [&](std::string const& hook) {
      if (hook == "read 3") sm_->updateMfibCounter(key(5), unchanged, true);  // ages 2 out
      if (hook == "read 1") sm_->setMfibCounterActive(key(1), false);
   };
   time_->advance(0.4);
   sm_->doCounterPolling();
   EXPECT_EQ(hooks_->take(), "read 3, ageOut 2, read 1, read 4");
   EXPECT_EQ(counters(), "1=16- 3=" + std::to_string(unchanged - 1) + " 4=41 5=0");
   hooks_->traffic[key(3)] = 7;
   run(0.5);
   EXPECT_EQ(status_->counter(key(3)).value, unchanged - 1);  // the sum sticks
   EXPECT_EQ(hooks_->take(), "read 3, read 4, read 5");
}

TEST_F(TopSm, AFullTableLetsTheLongestIdleCounterGoAndRefusesWhenThereIsNone) {
   start();
   ctl_->limitIs(2);
   for (unsigned n : {1, 2, 1, 3}) {
      sm_->updateMfibCounter(key(n), n, true);
      run(0.1);
   }
   EXPECT_EQ(counters(), "1=1 3=3");
   EXPECT_EQ(hooks_->take(), "ageOut 2");
   sm_->updateMfibCounter(key(1), unchanged, false);
   EXPECT_EQ(counters(), "3=3 1=1-");
   // Above a lowered limit, each new counter replaces one.
   ctl_->limitIs(1);
   sm_->updateMfibCounter(key(4), 4, true);
   EXPECT_EQ(counters(), "1=1- 4=4");
   EXPECT_EQ(hooks_->take(), "ageOut 3");
   // A listener that puts a replaced counter back keeps the counter's place.
   OnCounter keeper([&](IpGenRouteKey const& k) {
      if (!status_->counter().find(k) && k == key(1)) sm_->updateMfibCounter(k, 9, true);
   });
   keeper.notifierIs(status_.get());
   ctl_->limitIs(2);
   sm_->updateMfibCounter(key(5), 5, true);
   EXPECT_EQ(counters(), "1=9 4=4");
   EXPECT_EQ(hooks_->take(), "ageOut 1");
   keeper.notifierIs(nullptr);
   sm_->removeMfibCounter(key(1));
   sm_->removeMfibCounter(key(4));
   ctl_->limitIs(0);
   config_->allCounterIs(true);
   EXPECT_EQ(hooks_->take(), "create 0 wildcard, delete wildcard");
   sm_->setMfibCounterActive(key(4), true);
   EXPECT_EQ(counters(), "");
}

// A counter's value is that of its published entry, also when another owner wrote the entry.
TEST_F(TopSm, APublishedEntryWithATimeStampIsTheStoredValue) {
   start();
   run(0.1);
   status_->counterIs(key(1), {70, 0.05, false});
   status_->counterIs(key(2), {80, 0, false});
   ctl_->currSizeInc();
   ctl_->limitIs(1);
   sm_->updateMfibCounter(key(1), unchanged, true);  // listed already: no room is made for it
   ctl_->limitIs(9);
   ctl_->currSizeDec();
   sm_->updateMfibCounter(key(2), unchanged, true);
   EXPECT_EQ(counters(), "1=70 2=0");
   status_->counterIs(key(2), {500, 0.1, true});
   hooks_->traffic = {{key(2), 3}};
   run(2);
   EXPECT_EQ(counters(), "1=70 2=503");
}

TEST_F(TopSm, AWildcardCounterThatIsRefusedAtTheStartIsAskedForOnce) {
   config_->allCounterIs(true);
   hooks_->createRefused = true;
   enabled_->vrfIs(L3::VrfName("default"));
   hw_->hwRoutingIs(true);
   make();
   EXPECT_EQ(hooks_->take(),
             "mrouteInit 1, handleMulticastRouting 1, mode disabled, create 0 wildcard");
   // A change during the request repeats the request.
   bool changed = false;
   hooks_->onHook = [&](std::string const& hook) {
      if (!hook.starts_with("create") || std::exchange(changed, true)) return;
      config_->allCounterIs(false);
      config_->allCounterIs(true);
   };
   sm_ = nullptr;
   make();
   EXPECT_TRUE(hooks_->take().ends_with("create 0 wildcard, create 0 wildcard"));
}

TEST_F(TopSm, CountersFollowTheConfigurationInAnyOrderOfItsChanges) {
   l3_->vrfNameToVrfIdIs("a", Vel::VrfId(7));
   l3_->vrfNameToVrfIdIs("b", Vel::VrfId(8));
   config_->newConfig("a")->counterRouteIs(key(1));
   start();
   auto const a = config_->config("a");
   a->counterRouteIs(key(2));
   EXPECT_EQ(hooks_->take(), "");  // allCounter is not set
   config_->allCounterIs(true);
   EXPECT_EQ(hooks_->take(), "create 0 wildcard, create 7 1, create 7 2");
   auto const b = config_->newConfig("b");
   b->counterRouteIs(key(2));
   b->counterRouteIs(key(3));
   a->counterRouteNotify(key(1));
   a->counterRouteDel(key(2));
   EXPECT_EQ(hooks_->take(), "create 8 3");
   a->counterRouteDelAll();
   EXPECT_EQ(hooks_->take(), "delete 1");
   config_->configDel("b");
   EXPECT_EQ(hooks_->take(), "delete 2, delete 3");
   EXPECT_EQ(counters(), "wildcard=0");
   EXPECT_EQ(sm_->mfibConfigVrfs(), 1u);
   config_->configIs(b);
   hw_->hwRoutingIs(false);
   hooks_->take();
   config_->configDelAll();
   EXPECT_EQ(sm_->mfibConfigVrfs(), 0u);
   config_->configIs(b);
   config_->allCounterIs(false);
   EXPECT_EQ(hooks_->take(),
             "delete 2, delete 3, create 8 2, create 8 3, delete wildcard, delete 2, delete 3");
   config_->allCounterIs(true);  // routing is off: no wildcard counter
   EXPECT_EQ(counters(), "2=0 3=0");
   hooks_->take();
   hooks_->createRefused = true;
   b->counterRouteIs(key(4));
   b->counterRouteDel(key(4));
   EXPECT_EQ(hooks_->take(), "create 8 4");
   sm_->mfibVrfConfigDel();
   EXPECT_EQ(counters(), "");
   EXPECT_FALSE(config_->hasNotifiees() || b->hasNotifiees());
   hw_->hwRoutingIs(true);
   hooks_->createRefused = false;
   hooks_->take();
   config_->counterModeIs(CounterMode::bytes);
   sm_->mfibVrfConfigIs(config_);
   EXPECT_EQ(
         hooks_->take(),
         "create 8 2, create 8 3, mode bytes, clear wildcard, clear 2, clear 3, create 0 wildcard");
   hw_->hwRoutingIs(false);
   hooks_->createRefused = true;
   hw_->hwRoutingIs(true);
   EXPECT_EQ(counters(), "2=0 3=0");  // the wildcard counter has been lost
   hooks_->createRefused = false;
   hooks_->take();
   hooks_->onHook = [&](std::string const& hook) {
      if (hook == "create 8 5") b->counterRouteDel(key(5));
   };
   b->counterRouteIs(key(5));
   EXPECT_EQ(hooks_->take(), "create 8 5, delete 5");
}

TEST_F(TopSm, ClearingKeepsTheFlagAndAChangeOfModeClearsAll) {
   config_->allCounterIs(true);
   start();
   sm_->updateMfibCounter(key(1), 5, false);
   sm_->updateMfibCounter(key(2), 6, true);
   auto const vrf = config_->newConfig("a");
   vrf->clearCounterRouteInc(key(1));
   vrf->clearCounterRouteDel(key(1));
   vrf->clearCounterRouteInc(key(9));
   sm_->setMfibCounterActive(key(9), true);
   EXPECT_EQ(hooks_->take(), "clear 1, clear 9");
   EXPECT_EQ(counters(), "wildcard=0 1=0- 2=6");
   sm_->updateMfibCounter(wildcard, 7, true);
   config_->counterModeIs(CounterMode::packets);
   EXPECT_EQ(hooks_->take(), "mode packets, clear wildcard, clear 1, clear 2");
   EXPECT_EQ(counters(), "wildcard=0 1=0- 2=0");
   hw_->hwRoutingIs(false);
   hooks_->take();
   config_->counterModeIs(CounterMode::bytes);
   EXPECT_TRUE(hooks_->take().starts_with("clear wildcard"));  // the mode is handed on with routing
}

TEST_F(TopSm, VerificationIsRequestedWithEachDecisionAndRunOnDemand) {
   auto const verify = Qor::make<Vel::VerifyData>();
   start();
   acsd_->verifyDataIs(verify);
   hw_->hwRoutingIs(false);
   EXPECT_FALSE(verify->reverify());
   verify->verifyRequiredIs(true);
   for (bool on : {true, false}) {
      verify->reverifyIs(false);
      hw_->hwRoutingIs(on);
      EXPECT_TRUE(verify->reverify() && verify->verifyRequired());
      hooks_->take();
      verify->verifyIs(verify->verify() + 1);
      EXPECT_EQ(hooks_->take(), cat("verify ", on));
   }
   sm_->disableVerifyIs(true);
   verify->verifyIs(9);
   acsd_->verifyDataIs(nullptr);
   EXPECT_EQ(hooks_->take(), "");
   EXPECT_FALSE(verify->hasNotifiees());
}

TEST_F(TopSm, RecordsMayBeReplacedAndAreLeftEmpty) {
   start();
   sm_->updateMfibCounter(key(1), 5, true);
   sm_->updateMfibCounter(key(2), 6, false);
   auto const status = std::exchange(status_, Qor::make<MrouteSm::CounterStatus>());
   auto const ctl = std::exchange(ctl_, Qor::make<MrouteSm::CounterStatusCtl>());
   sm_->mfibCounterStatusIs(status_);
   sm_->mfibCounterStatusCtlIs(ctl_);
   EXPECT_EQ(counters(), "1=5 2=6-");
   EXPECT_EQ(status->counter().size() + ctl->currSize() + ctl->currActive(), 0u);
   // The handler of a counter may remove the counter and destroy the reactor.
   OnCounter remover([&](IpGenRouteKey const& k) {
      if (!sm_ || !status_->counter().find(k)) return;
      sm_->removeMfibCounter(k);
      sm_ = nullptr;
   });
   remover.notifierIs(status_.get());
   sm_->updateMfibCounter(key(3), 1, true);
   EXPECT_EQ(sm_, nullptr);
   EXPECT_EQ(hooks_->mrouteSm(), nullptr);
   EXPECT_EQ(status_->counter().size() + ctl_->currSize() + ctl_->currActive(), 0u);
   EXPECT_EQ(time_->nextDeadline(), Qor::never);
}

TEST_F(TopSm, TracesItsDecisions) {
   start();
   testSupport::Journal journal("VelSyncMrouteSm");
   sm_->handleMulticastRouting();
   hw_->hwRoutingIs(false);
   config_->newConfig("a")->counterRouteIs(wildcard);
   sm_->updateMfibCounter(wildcard, 7, true);
   ctl_->limitIs(1);
   sm_->updateMfibCounter(key(2), 7, false);
   run(2);
   std::string const k = wildcard.pretty();
   EXPECT_EQ(journal.text(), R"(
2 isMulticastEnabled Multicast routing is enabled
2 Nothing to do, multicast status unchanged
2 isMulticastEnabled Multicast routing is disabled
2 doEnableMulticastRouting
2 Disabling Multicast Routing


2  wildcard mode not enabled )" + k +
                                   R"(
2 updateMfibCounter , Key: )" + k + R"(, value: 7, active: 1
2  counterStatus size=1 currActive=1
2 updateMfibCounter , Key: (10.0.0.1, 239.0.0.2), value: 7, active: 0
2  Aging out counter )" + k + R"(
2 removeMfibCounter size=0 activeSize=0
2  counterStatus size=1 currActive=0
2 doCounterPolling  Polling 1 counters
)");
}

TEST_F(TopSm, APlatformMayHoldTheReactorFromTheFirstHookOn) {
   Qor::Ptr<MrouteSm> held;
   hooks_->onHook = [&](std::string const& hook) {
      Qor::Ptr<MrouteSm> const passing(hooks_->mrouteSm());
      if (hook == "mrouteInit 1") held = passing;
   };
   std::string heard;
   Qor::Following const following(Qor::toGeneric(hooks_),
                                  [&](Qor::Change const& c) { heard += c.member; });
   start();
   EXPECT_EQ(heard, "mrouteSm");
   EXPECT_EQ(std::exchange(sm_, nullptr), held);
   hw_->hwRoutingIs(false);
   EXPECT_EQ(hooks_->take(), "handleMulticastRouting 0");
   hooks_->onHook = nullptr;
   held = nullptr;
   EXPECT_EQ(hooks_->mrouteSm(), nullptr);
}

TEST_F(TopSm, TheReactorMayGoInAnyHookAndAnyNotification) {
   config_->newConfig("a")->counterRouteIs(key(1));
   acsd_->verifyDataIs(Qor::make<Vel::VerifyData>());
   acsd_->verifyData()->verifyRequiredIs(true);
   auto const blue = Qor::make<Routing::Multicast::Fib::Config>("blue");
   testSupport::Interruption life;
   while (life.next()) {
      SCOPED_TRACE(life.lives());
      start();
      life.act = [&] { sm_ = nullptr; };
      hooks_->onHook = [&](std::string const&) { life.moment(); };
      life.follow(sm_, l3_, status_, ctl_, acsd_->verifyData());
      auto const perform = [&](auto const& operation) {
         if (sm_) operation(*sm_);
      };
      config_->allCounterIs(true);
      run(2);
      acsd_->verifyData()->verifyIs(acsd_->verifyData()->verify() + 1);
      acsd_->verifyData()->reverifyIs(false);
      hw_->hwRoutingIs(false);
      hw_->hwRoutingIs(true);
      config_->counterModeIs(config_->counterMode() == CounterMode::bytes ? CounterMode::packets
                                                                          : CounterMode::bytes);
      ctl_->limitIs(2);
      perform([](auto& sm) { sm.updateMfibCounter(key(2), 1, true); });
      ctl_->limitIs(99);
      perform([&](auto& sm) { sm.newMfibConfigVrf(blue); });
      if (auto const held = sm_) held->mfibConfigVrfDel(held->mfibConfigVrf().begin());
      perform([](auto& sm) { sm.mfibConfigVrfDelAll(); });
      config_->allCounterIs(false);
      perform([](auto& sm) { sm.acsdDel(); });
      perform([&](auto& sm) { sm.acsdIs(acsd_); });
      perform([](auto& sm) { sm.mfibVrfConfigDel(); });
      perform([](auto& sm) { sm.mfibHwStatusDel(); });
      perform([](auto& sm) { sm.mcastEnabledStatusDel(); });
      perform([](auto& sm) { sm.counterPollingClockIs(Qor::make<Qor::Clock>()); });
      perform([](auto& sm) { sm.mfibCounterStatusIs(nullptr); });
      perform([](auto& sm) { sm.mfibCounterStatusCtlIs(nullptr); });
      sm_ = nullptr;
      EXPECT_EQ(time_->nextDeadline(), Qor::never);
      EXPECT_EQ(status_->counter().size() + ctl_->currSize() + ctl_->currActive(), 0u);
      EXPECT_EQ(hooks_->mrouteSm(), nullptr);
      hooks_->onHook = nullptr;
   }
   EXPECT_GT(life.lives(), 60);
}

TEST_F(TopSm, AVrfWhoseNumberIsTooLongForTheHooksIsAProgrammingError) {
   l3_->vrfNameToVrfIdIs("a", Vel::VrfId(0x10000));
   config_->allCounterIs(true);
   start();
   auto const vrf = config_->newConfig("a");
   EXPECT_DEATH(vrf->counterRouteIs(key(1)), "Assertion `vrfId\\.value\\(\\) <= 0xFFFF' failed");
}

TEST_F(TopSm, AHookThatThrowsInTheConstructorLeavesNoReactor) {
   for (char const* const hook : {"mrouteInit 1", "handleMulticastRouting 1"}) {
      hooks_->onHook = [hook](std::string const& call) {
         if (call == hook) throw std::runtime_error(call);
      };
      EXPECT_THROW(start(), std::runtime_error);
      EXPECT_EQ(hooks_->mrouteSm(), nullptr);
      EXPECT_FALSE(config_->hasNotifiees() || hw_->hasNotifiees() || enabled_->hasNotifiees());
   }
}

TEST_F(TopSm, EveryCombinationOfMissingInputsLivesCleanly) {
   EXPECT_THROW(Vel::MrouteSmIs(acsd_, l3_, config_, hw_, nullptr, nullptr, enabled_),
                Qor::RangeException);
   config_->newConfig("a")->counterRouteIs(key(1));
   acsd_->verifyDataIs(Qor::make<Vel::VerifyData>());
   for (unsigned mask = 0; mask < 1u << 8; ++mask) {
      SCOPED_TRACE(mask);
      auto const have = [mask](unsigned bit, auto const& input) {
         return mask & 1u << bit ? nullptr : input;
      };
      hw_->hwRoutingIs(true);
      enabled_->vrfIs(L3::VrfName("a"));
      sm_ = Vel::MrouteSmIs(have(0, acsd_), have(1, l3_), have(2, config_), have(3, hw_),
                            have(4, Qor::make<Ip::Status>()), hooks_, have(5, enabled_));
      ASSERT_EQ(hooks_->mrouteSm(), sm_.get());
      ASSERT_TRUE(hooks_->take().starts_with(
            cat("mrouteInit 1, handleMulticastRouting ", !(mask & (1u << 3 | 1u << 5)))));
      sm_->mfibCounterStatusIs(have(6, status_));
      sm_->mfibCounterStatusCtlIs(have(7, ctl_));
      config_->allCounterIs(true);
      config_->counterModeIs(mask % 2 ? CounterMode::bytes : CounterMode::packets);
      config_->configNotify("a");
      ASSERT_EQ(sm_->counterShadow().size(),
                mask & 1u << 2 ? 0u : 1u + !(mask & (1u << 1 | 1u << 3 | 1u << 5)));
      acsd_->verifyData()->verifyIs(mask);
      if (sm_->l3Status()) hw_->hwRoutingIs(false);  // without, that is a programming error
      run(4.5);
      config_->allCounterIs(false);
      ASSERT_EQ(sm_->counterShadow().size(), 0u);
      sm_ = nullptr;
      hooks_->take();
      ASSERT_FALSE(acsd_->hasNotifiees() || acsd_->verifyData()->hasNotifiees() ||
                   config_->hasNotifiees() || config_->config("a")->hasNotifiees() ||
                   hw_->hasNotifiees() || enabled_->hasNotifiees() || hooks_->mrouteSm());
      ASSERT_EQ(time_->nextDeadline(), Qor::never);
   }
}

}  // namespace
