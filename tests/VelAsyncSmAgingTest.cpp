// Activity polling of the asynchronous per-switch reactor.
#include <cmath>

#include "VelAsyncSmTestSupport.h"

namespace velAsync {
namespace {

// A platform that knows when each handle was hit, and which intervals it can keep.
class Hooks final : public VelHelper::AsyncMrouteHelper {
 public:
   Hooks() : AsyncMrouteHelper("hooks", nullptr, nullptr) {}

   Qor::Seconds routeLastAccessedTime(RouteHandle handle) override {
      ++asked[handle.value()];
      if (onAsk) onAsk(handle);
      auto const entry = hit.find(handle.value());
      return entry == hit.end() ? everyHit : entry->second;
   }
   double doGetAdjustedPollingInterval(double const& interval) override {
      return polling.value_or(interval);
   }
   double doGetAdjustedActivityPollInterval(double const& interval) override {
      return activity.value_or(interval);
   }

   std::map<Qor::U32, unsigned> asked;
   std::map<Qor::U32, Qor::Seconds> hit;
   std::function<void(RouteHandle)> onAsk;
   Qor::Seconds everyHit = 0;
   std::optional<double> polling;
   std::optional<double> activity;
};

// Calls back when the route has been seen in use.
class OnPolled final : public Fib::Hardware::RouteStatus::Notifiee {
 public:
   std::function<void()> call;
   void onLastPollTime() override { call(); }
};

class AsyncSmAging : public AsyncSm {
 protected:
   AsyncSmAging() {
      inputs_.mrouteHelper = hooks_;
      vrfs_->newVrfStatus(VrfName("blue"), Vel::VrfId(2));
      vrfs_->newVrfStatus(VrfName("green"), Vel::VrfId(3));
      fresh();
   }

   // A switch and a reactor without a past.
   void fresh() {
      sm_ = nullptr;
      hw().vrfStatusDelAll();
      switch_ = Qor::make<AsyncMrouteSwitch>("switch", vrfs_, hooks_);
      forgetPosition();
      sm_ = inputs_.sm(switch_);
   }
   Fib::Hardware::Status& hw() { return *inputs_.mfibHwStatus; }
   auto vrf(std::string const& name = "default") { return hw().vrfStatusIs(VrfName(name)); }
   auto status(unsigned n) { return vrf()->route(key(n)); }
   // The routes n, first <= n < last, each under the handle n.
   void add(unsigned first, unsigned last, std::string const& vrfName = "default") {
      for (unsigned n = first; n < last; ++n) {
         vrf(vrfName)->routeIs(key(n))->acceptingIntfIdIs(intf(1));
         use(n, key(n), vlan(1), vrfName);
      }
   }
   void remove(unsigned first, unsigned last) {
      for (unsigned n = first; n < last; ++n)
         vrf()->routeDel(key(n));
   }
   void removeVrf(char const* name) { hw().vrfStatusDel(VrfName(name)); }
   void use(Qor::U32 handle, IpGenRouteKey const& k, VlanIdOrNone v,
            std::string const& vrfName = "default") {
      Vel::VrfId const vrfId = vrfs_->vrfStatus(VrfName(vrfName))->vrfId();
      switch_->inUseRouteHandleIs(InUseRouteHandleKey(k, v, vrfId), RouteHandle(handle));
   }
   // Fastdrops of route n on et2, et3, ..., under the handles from `handle` on.
   void fastdrops(unsigned n, unsigned count, Qor::U32 handle) {
      for (unsigned i = 2; i < 2 + count; ++i) {
         status(n)->fastdropLastPollTimeIs(intf(i).name(), 0);
         use(handle + i - 2, key(n), vlan(i));
      }
   }
   // One pass; how many handles were asked for.
   std::size_t pass() {
      hooks_->asked.clear();
      sm_->doRouteAgingReview();
      return hooks_->asked.size();
   }
   Qor::Seconds timer() const { return inputs_.agingClock->timeMin(); }

   Qor::Ptr<Hooks> hooks_ = Qor::make<Hooks>();
};

TEST_F(AsyncSmAging, ThePassEndsWithTheRouteThatReachesTheQuota) {
   struct Case {
      unsigned routes, fastdropsOfFirst, fastdropsOfLast;
      std::size_t first, second;  // handles asked for in the two passes
   };
   // Fastdrops count, and those of one route stay together.
   for (Case const& c : std::initializer_list<Case>{{256, 0, 0, 256, 0},
                                                    {257, 0, 0, 256, 1},
                                                    {256, 0, 3, 259, 0},
                                                    {255, 0, 3, 258, 0},
                                                    {300, 5, 0, 256, 49}}) {
      SCOPED_TRACE(c.routes);
      fresh();
      add(0, c.routes);
      fastdrops(0, c.fastdropsOfFirst, 1000);
      fastdrops(c.routes - 1, c.fastdropsOfLast, 2000);
      hooks_->everyHit = 5;
      Journal traces;
      EXPECT_EQ(pass(), c.first);
      EXPECT_EQ(timer(), time_->now() + (c.second ? 0.2 : 60));
      EXPECT_EQ(traces.count("2 Review completed"), c.second == 0);
      if (c.second == 0) continue;
      EXPECT_EQ(status(c.routes - 1)->lastPollTime(), 0);
      hooks_->asked.clear();
      time_->runUntil(time_->now() + 0.2);
      EXPECT_EQ(hooks_->asked.size(), c.second);
      EXPECT_EQ(status(c.routes - 1)->lastPollTime(), 5);
      EXPECT_EQ(timer(), time_->now() + 60);
      EXPECT_EQ(traces.take().back(), "2 Review completed");
      EXPECT_EQ(pass(), c.first);  // from the first again
   }
}

TEST_F(AsyncSmAging, ThePositionSurvivesChangesBetweenTwoPasses) {
   struct Case {
      char const* gone;
      std::function<void()> change;
      std::size_t asked;
      Qor::U32 asks;
   };
   for (Case const& c :
        std::vector<Case>{{"nothing", [] {}, 144, 256},
                          {"its route", [&] { remove(256, 257); }, 143, 257},
                          {"all behind it in the VRF", [&] { remove(256, 300); }, 100, 100},
                          {"its VRF", [&] { removeVrf("default"); }, 100, 100},
                          {"all routes but those before it",
                           [&] { removeVrf("default"), removeVrf("green"); }, 0, 0},
                          {"all", [&] { hw().vrfStatusDelAll(); }, 0, 0}}) {
      SCOPED_TRACE(c.gone);
      fresh();
      add(0, 300);
      add(100, 200, "green");
      pass();
      add(2000, 2001, "blue");  // before the position: waits for the next review
      c.change();
      EXPECT_EQ(pass(), c.asked);
      EXPECT_EQ(hooks_->asked.count(c.asks), c.asked ? 1u : 0u);
      bool const reviewed = hw().routes() != 0;
      EXPECT_EQ(timer(), reviewed ? 60 : Qor::never);
      add(2000, 2001, "blue");
      // A pass without routes leaves the position as it is: only a complete review clears it.
      EXPECT_TRUE(reviewed || pass() == 0);
      pass();
      EXPECT_EQ(hooks_->asked.count(2000), 1u);
   }
}

TEST_F(AsyncSmAging, AnotherReactorGoesOnOverItsOwnTables) {
   add(0, 300);
   Inputs other;
   auto const otherHooks = Qor::make<Hooks>();
   other.mrouteHelper = otherHooks;
   auto const otherSwitch = Qor::make<AsyncMrouteSwitch>("other", vrfs_, otherHooks);
   for (unsigned n = 250; n < 260; ++n) {
      other.mfibHwStatus->vrfStatusIs(VrfName("default"))->routeIs(key(n));
      otherSwitch->inUseRouteHandleIs(InUseRouteHandleKey(key(n), {}, Vel::VrfId(1)),
                                      RouteHandle(n));
   }
   auto const otherSm = other.sm(otherSwitch);
   pass();
   otherSm->doRouteAgingReview();
   EXPECT_EQ(otherHooks->asked.size(), 4u);
   EXPECT_EQ(otherHooks->asked.begin()->first, 256u);
   EXPECT_EQ(other.agingClock->timeMin(), 60);
   EXPECT_EQ(pass(), 256u);  // that review was over
   sm_ = nullptr;            // the position outlives its reactor
   otherSm->doRouteAgingReview();
   EXPECT_EQ(otherHooks->asked[250], 0u);
   EXPECT_EQ(otherHooks->asked[259], 2u);
}

// An entry that is removed while the platform looks its time up does not come back.
TEST_F(AsyncSmAging, ARemovedFastdropIsNotStamped) {
   add(2, 3);
   fastdrops(2, 2, 20);
   hooks_->everyHit = 9;
   hooks_->onAsk = [&](RouteHandle handle) {
      if (handle == RouteHandle(20)) status(2)->fastdropLastPollTimeDelAll();
   };
   pass();
   EXPECT_TRUE(status(2)->fastdropLastPollTime().empty());
}

TEST_F(AsyncSmAging, AnIntervalOfThePlatformIsCutToEightBits) {
   auto& config = *inputs_.mfibConfig;
   config.activityPollingIntervalIs(9);
   EXPECT_EQ(timer(), 60);  // an armed clock is left alone
   Journal const said;      // keeps the log lines of the interval
   // Truncated towards zero, and then to eight bits.
   Qor::U64 configured = 10;
   for (auto const& [activity, written] : std::initializer_list<std::pair<double, unsigned>>{
              {300.7, 44}, {-1.5, 255}, {Qor::never, 0}}) {
      hooks_->activity = activity;
      config.activityPollingIntervalIs(++configured);
      EXPECT_EQ(hw().pollingInterval(), written) << activity;
   }
}

// The largest finite time counts as disarmed there, and as armed here.
TEST_F(AsyncSmAging, TheTwoTestsOfAnArmedClockDifferByOneNumber) {
   struct Case {
      Qor::Seconds timer;
      bool pollingSets, reviewSets;
   };
   for (Case const& c :
        std::initializer_list<Case>{{Qor::never, true, true},
                                    {Qor::maxFinite, true, false},
                                    {std::nextafter(Qor::maxFinite, 0.0), false, false}}) {
      SCOPED_TRACE(c.timer);
      fresh();
      add(0, 1);
      inputs_.agingClock->timeMinIs(c.timer);
      sm_->doMaybeScheduleRouteAgingReview();
      EXPECT_EQ(timer(), c.reviewSets ? 60 : c.timer);
      inputs_.agingClock->timeMinIs(c.timer);
      sm_->handlePollingInterval();
      EXPECT_EQ(timer(), c.pollingSets ? 60 : c.timer);
   }
}

}  // namespace
}  // namespace velAsync
