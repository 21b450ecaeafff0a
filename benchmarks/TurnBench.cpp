// The longest turns of the reactors: the aging review, the purge of zombies, and the reroute from the
// event of the interface on.
#include "ReactorSides.h"
#include "Turns.h"

namespace Bench {

namespace {

// The sides with slow hooks, the budgets of their slices in seconds, and the lifetime of zombies.
struct AsyncTurns : AsyncReactorSide {
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
   explicit SyncTurns(Plan const& plan) : SyncTurns(plan, Qor::make<SlowSyncHooks>()) {}
   SyncTurns(Plan const& plan, Qor::Ptr<SlowSyncHooks> const& slow)
         : SyncReactorSide(plan, InjectedTime::TimeBase::real, slow), cost(slow->cost) {}

   double reviewBudget() const { return sm->agingReviewQuota(); }

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
   CallCost& cost() { return side.cost; }
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

// The synchronous path has no slices of a purge: one turn frees all zombies that are due.
struct PurgeTurns {
   explicit PurgeTurns(std::size_t zombies) : plan(0, zombies), side(plan) {}
   CallCost& cost() { return side.cost; }
   double budget() const { return Vel::Mroute::AsyncMrouteSwitchSm::zombiePassBudget; }
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
   AsyncTurns side;
};

template <class Side>
struct RerouteTurns {
   explicit RerouteTurns(std::size_t sets) : plan(0, sets, Lnet::IntfId("et1")), side(plan) {
      for (std::size_t n = 0; n < sets; ++n)
         side.hold(n);
   }
   CallCost& cost() { return side.cost; }
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

// The number of routes or of zombies.
std::size_t entries() {
   return effort().quick ? 100'000 : 1'000'000;
}
std::string ofEntries() {
   return effort().quick ? " of 100k" : " of 1000k";
}

template <class Side>
void turnsOf(std::string const& path, bool reviewBudgetIsTime) {
   turns<ReviewTurns<Side>>(path + "/review" + ofEntries(), entries(), reviewBudgetIsTime);
   turns<RerouteTurns<Side>>(path + "/reroute of 100k", 100'000, true);
}

}  // namespace

void turnComparisons() {
   turnsOf<AsyncTurns>("async", false);
   turns<PurgeTurns>("async/purge" + ofEntries(), entries(), true);
   turnsOf<SyncTurns>("sync", true);
}

}  // namespace Bench
