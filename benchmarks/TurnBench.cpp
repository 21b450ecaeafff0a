// The longest turn of the activity loop, in real time, beside the stated budget of a slice: the aging
// review, the purge of zombies, and the reroute from the event of the interface on. The chip is slow:
// each call of a hook takes 0, 20 or 100 us.
//
// A measurement ends after some seconds, since the whole work would take minutes with slow hooks. A
// figure is the median of the longest turns of the rounds, so that one interruption by another
// process does not count.
#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Comparison.h"
#include "ReactorSides.h"

namespace Bench {

namespace {

constexpr std::array<U32, 3> callCosts{0, 20, 100};  // us

double realSeconds() {
   return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
         .count();
}

// The time that each call of a hook takes: the processor is busy, as with a slow bus.
class CallCost {
 public:
   void isMicroseconds(U32 cost) { seconds_ = cost * 1e-6; }
   void spend() const {
      if (seconds_ == 0) return;
      for (double const until = realSeconds() + seconds_; realSeconds() < until;) {
      }
   }

 private:
   double seconds_ = 0;
};

// The hooks that the measured turns call.
class SlowAsyncHooks final : public AsyncHooks {
 public:
   void doUpdateMulticastGroupInPlace(MrouteLib::OifSetPtr set, U32 mcastId) override {
      cost.spend();
      AsyncHooks::doUpdateMulticastGroupInPlace(std::move(set), mcastId);
   }
   void doDeleteOifSet(U32 mcastId) override {
      cost.spend();
      AsyncHooks::doDeleteOifSet(mcastId);
   }
   void doScheduleVerify() override { cost.spend(); }
   Qor::Seconds routeLastAccessedTime(MrouteLib::RouteHandle handle) override {
      cost.spend();
      return AsyncHooks::routeLastAccessedTime(handle);
   }

   CallCost cost;
};

class SlowSyncHooks final : public SyncHooks {
 public:
   U32 doAllocateMtableOifSet(U32 chip, U32 index, MrouteLib::OifSetPtr set) override {
      cost.spend();
      return SyncHooks::doAllocateMtableOifSet(chip, index, std::move(set));
   }
   void handleFreeMtableOifSet(U32 chip, Qor::Ptr<Vel::MtableOifSet> record) override {
      cost.spend();
      SyncHooks::handleFreeMtableOifSet(chip, std::move(record));
   }
   bool mtableFull(U32) override {
      cost.spend();
      return false;
   }
   void doCommitMrouteBatch() override { cost.spend(); }
   Qor::U8 mrouteHitBitCacheRefresh(U32 chip) override {
      cost.spend();
      return SyncHooks::mrouteHitBitCacheRefresh(chip);
   }
   void mrouteHitBitCacheClear(U32) override { cost.spend(); }
   bool mrouteHitBit(U32, U16, IpGenRouteKey const&, Bridging::VlanIdOrNone, bool) override {
      cost.spend();
      return false;
   }

   CallCost cost;
};

// The duration of a turn, in seconds.
template <class Turn>
double secondsOf(Turn const& turn) {
   double const begun = realSeconds();
   turn();
   return realSeconds() - begun;
}

// Runs turns until the work is done or the time of a measurement is over. Returns the duration of the
// longest turn.
template <class Done, class Turn>
double longestTurn(Done const& done, Turn const& turn) {
   double const until = realSeconds() + (effort().quick ? 0.5 : 2);
   double longest = 0;
   while (!done() && realSeconds() < until)
      longest = std::max(longest, secondsOf(turn));
   return longest;
}

// The sides with slow hooks, the budgets of their slices in seconds, and the lifetime of zombies.
struct AsyncTurns : AsyncReactorSide {
   static constexpr Qor::Seconds purgeBudget = Vel::Mroute::AsyncMrouteSwitchSm::zombiePassBudget;

   explicit AsyncTurns(Plan const& plan) : AsyncTurns(plan, Qor::make<SlowAsyncHooks>()) {}
   AsyncTurns(Plan const& plan, Qor::Ptr<SlowAsyncHooks> const& slow)
         : AsyncReactorSide(plan, InjectedTime::TimeBase::real, slow), cost(slow->cost) {}

   // A slice of the review has a quota of entries: the budget is the time of as many calls, measured
   // as the turns are.
   double reviewBudget() const {
      return longestTurn([] { return false; },
                         [this] {
                            for (U32 n = 0; n < sm->agingQuota; ++n)
                               hooks->routeLastAccessedTime({});
                         });
   }
   void shortLifetime() {
      for (auto const& [set, named] : sw->inUseOifSet())
         sw->record(set, named)->zombieLifetimeIs(0);
   }

   CallCost& cost;
};

struct SyncTurns : SyncReactorSide {
   static constexpr Qor::Seconds purgeBudget = Vel::MrouteSwitchSm::zombiePassBudget;

   explicit SyncTurns(Plan const& plan) : SyncTurns(plan, Qor::make<SlowSyncHooks>()) {}
   SyncTurns(Plan const& plan, Qor::Ptr<SlowSyncHooks> const& slow)
         : SyncReactorSide(plan, InjectedTime::TimeBase::real, slow), cost(slow->cost) {}

   double reviewBudget() const { return sm->agingReviewQuota(); }
   void shortLifetime() { sw->zombieLifetimeIs(0); }

   CallCost& cost;
};

// ---- The work of the turns. Each object holds its tables; longest() is one measurement. ----

template <class Side>
struct ReviewTurns {
   explicit ReviewTurns(std::size_t routes) : plan(routes, 1000), side(plan) {
      side.inputs.publish(plan);
      for (std::size_t n = 0; n < routes; ++n)
         side.add(n);
   }
   double budget() const { return side.reviewBudget(); }
   // The gaps between the slices are left out.
   double longest() {
      return longestTurn([] { return false; },
                         [this] {
                            side.inputs.agingClock->timeMinIs(Qor::now());
                            side.time.manager->runDue();
                         });
   }

   Plan const plan;
   Side side;
};

template <class Side>
struct PurgeTurns {
   explicit PurgeTurns(std::size_t zombies) : plan(0, zombies), side(plan) {}
   double budget() const { return Side::purgeBudget; }
   double longest() {
      CallCost const cost = std::exchange(side.cost, CallCost());
      for (std::size_t n = 0; n < plan.sets.size(); ++n)
         side.hold(n);
      side.shortLifetime();
      side.releaseHeld();
      side.cost = cost;
      auto const purged = [this] { return side.sw->zombieOifSet().empty(); };
      double const longest = longestTurn(purged, [this] { side.time.manager->runDue(); });
      side.cost = CallCost();
      side.purge();
      return longest;
   }

   Plan const plan;
   Side side;
};

template <class Side>
struct RerouteTurns {
   explicit RerouteTurns(std::size_t routes)
         : plan(routes, std::max<std::size_t>(routes / 10, 1), Lnet::IntfId("et1")), side(plan) {
      for (std::size_t n = 0; n < routes; ++n)
         side.add(n);
   }
   double budget() const { return Vel::frrPassBudget; }
   // The event and its first pass are one turn.
   double longest() {
      for (MrouteLib::OifSetPtr const& set : plan.sets)
         side.sw->frrMtableOifSetIs(set, side.sw->inUseRecord(set));
      auto const status = side.inputs.ethIntfStatusDir->newIntfStatus(Lnet::IntfId("et1"));
      double const event =
            secondsOf([&] { status->operStatusIs(Interface::IntfOperStatus::down); });
      auto const rewritten = [this] { return side.sw->frrProcessingOifSet().empty(); };
      double const others = longestTurn(rewritten, [this] { side.time.manager->runDue(); });
      side.cost = CallCost();
      while (!rewritten())
         side.time.manager->runDue();
      status->operStatusIs(Interface::IntfOperStatus::up);
      return std::max(event, others);
   }

   Plan const plan;
   Side side;
};

// ---- The comparisons: the longest turn and the budget, in milliseconds. ----

template <class Work>
void turns(std::string const& name, std::size_t size, bool budgetIsTime) {
   auto const rounds = std::make_shared<JointRounds>(3, [size] {
      auto const work = std::make_shared<Work>(size);
      auto const forEachCost = [work](auto const& measure) {
         std::vector<double> milliseconds;
         for (U32 const cost : callCosts) {
            work->side.cost.isMicroseconds(cost);
            milliseconds.push_back(measure() * 1e3);
         }
         work->side.cost = CallCost();
         return milliseconds;
      };
      return std::pair<JointRounds::OneRound, JointRounds::OneRound>(
            [=] { return forEachCost([&] { return work->longest(); }); },
            [=] { return forEachCost([&] { return work->budget(); }); });
   });
   for (std::size_t n = 0; n < callCosts.size(); ++n) {
      bool const held = budgetIsTime || callCosts[n] > 0;
      comparison(
            "turn/" + name + ", hooks of " + std::to_string(callCosts[n]) + " us",
            held ? Target::ratio(1.2) : Target(), [rounds, n] { return rounds->of(n); }, "ms");
   }
}

template <class Side>
void turnsOf(std::string const& path, bool reviewBudgetIsTime) {
   std::size_t const routes = effort().quick ? 100'000 : 1'000'000;
   std::string const size = effort().quick ? "100k" : "1000k";
   turns<ReviewTurns<Side>>(path + "/review of " + size, routes, reviewBudgetIsTime);
   turns<PurgeTurns<Side>>(path + "/purge of 100k", 100'000, true);
   turns<RerouteTurns<Side>>(path + "/reroute of " + size, routes, true);
}

}  // namespace

void turnComparisons() {
   turnsOf<AsyncTurns>("async", false);
   turnsOf<SyncTurns>("sync", true);
}

}  // namespace Bench
