// The longest turns of the programmer: the retry of routes that waited for room, and the replay of
// all routes after a restart of their owner.
#include "ReactorSides.h"
#include "Turns.h"
#include "programmer/AsyncRouteTable.h"
#include "programmer/Programmer.h"
#include "programmer/SyncRouteTable.h"

namespace Bench {

namespace {

struct AsyncChip {
   using Hooks = SlowAsyncHooks;

   std::unique_ptr<VelMroute::RouteTable> table(Qor::Ptr<Hooks> const& hooks,
                                                ReactorInputs const& inputs) const {
      vrfs->newVrfStatus(L3::VrfName("default"), Vel::VrfId(vrfId));
      return std::make_unique<VelMroute::AsyncRouteTable>(
            VelMroute::AsyncRouteTable::Inputs{.hooks = hooks,
                                               .vrfs = vrfs,
                                               .vlans = inputs.intfVlanIdTable,
                                               .published = inputs.mfibHwStatus});
   }

   Qor::Ptr<Routing::Hardware::RouteStatus> const vrfs =
         Qor::make<Routing::Hardware::RouteStatus>();
};

struct SyncChip {
   using Hooks = SlowSyncHooks;

   std::unique_ptr<VelMroute::RouteTable> table(Qor::Ptr<Hooks> const& hooks,
                                                ReactorInputs const& inputs) const {
      l3Status->vrfNameToVrfIdIs("default", Vel::VrfId(vrfId));
      auto const routing = Qor::make<VelMroute::SyncRouting>(VelMroute::SyncRouting::Inputs{
            .hooks = hooks, .l3Status = l3Status, .published = inputs.mfibHwStatus});
      return std::make_unique<VelMroute::SyncRouteTable>(
            VelMroute::SyncRouteTable::Inputs{.routing = routing, .vlans = inputs.intfVlanIdTable});
   }

   Qor::Ptr<Vel::L3Status> const l3Status = Qor::make<Vel::L3Status>();
};

// A programmer, and the wishes of its owner: the routes share a thousand sets.
template <class Chip>
class ProgrammerTurns {
 public:
   explicit ProgrammerTurns(std::size_t routes) : routes_(routes) {
      for (U16 n = 1; n <= 64; ++n) {
         ports_.emplace_back("et" + std::to_string(n));
         inputs_.intfVlanIdTable->intfIdToVlanIdIs(ports_.back(), Bridging::VlanId(U64{n}));
      }
      for (std::size_t n = 0; n < 1000; ++n)
         outputs_.push_back(pool_.get({ports_[n % 64], ports_[(n / 64 + n + 1) % 64]}));
      programmer_ = std::make_unique<VelMroute::Programmer>(
            VelMroute::Programmer::Inputs{.table = chip_.table(hooks_, inputs_)},
            VelMroute::Programmer::Options{.retry = retry});
   }

   CallCost& cost() { return hooks_->cost; }
   double budget() const { return VelMroute::Programmer::Options().passBudget; }

 protected:
   static constexpr Qor::Seconds retry = 0.05;

   void wantAll() {
      for (std::size_t n = 0; n < routes_; ++n)
         programmer_->routeIs(vrf_, keyOf(n),
                              {.iif = inputs_.accepting, .outputs = outputs_[n % 1000]});
   }
   void settle() {
      while (!programmer_->settled())
         turn();
   }
   // Measures the turns until the work is done or the time of a measurement is over. All routes are
   // then removed without a cost.
   double measure() {
      double const longest =
            longestTurn([this] { return programmer_->settled(); }, [this] { turn(); });
      cost() = CallCost();
      for (std::size_t n = 0; n < routes_; ++n)
         programmer_->routeDel(vrf_, keyOf(n));
      settle();
      // Otherwise the zombie clock would purge the sets in the turns of the next measurement.
      while (programmer_->table().zombies() > 0)
         programmer_->table().purgeZombie();
      return longest;
   }
   void turn() { programmer_->runDue(); }

   std::size_t const routes_;
   InjectedTime const time_{InjectedTime::TimeBase::real};
   L3::VrfName const vrf_{"default"};
   ReactorInputs const inputs_;
   Qor::Ptr<typename Chip::Hooks> const hooks_ = Qor::make<typename Chip::Hooks>();
   Chip const chip_;
   VelMroute::OutputsPool pool_;
   std::vector<Lnet::IntfId> ports_;
   std::vector<VelMroute::OutputsPtr> outputs_;
   std::unique_ptr<VelMroute::Programmer> programmer_;
};

// The table of entries had no room for any route, and has room for all now.
template <class Chip>
struct RetryTurns : ProgrammerTurns<Chip> {
   using ProgrammerTurns<Chip>::ProgrammerTurns;

   double longest() {
      CallCost const cost = std::exchange(this->cost(), CallCost());
      this->hooks_->full = true;
      this->wantAll();
      this->settle();
      this->hooks_->full = false;
      this->cost() = cost;
      while (this->programmer_->settled())
         this->turn();
      return this->measure();
   }
};

template <class Chip>
struct ReplayTurns : ProgrammerTurns<Chip> {
   using ProgrammerTurns<Chip>::ProgrammerTurns;

   double longest() {
      this->programmer_->resyncBegin();
      this->wantAll();
      this->programmer_->resyncEnd();
      return this->measure();
   }
};

template <class Chip>
void turnsOf(std::string const& path) {
   std::size_t const routes = effort().quick ? 100'000 : 1'000'000;
   std::string const size = effort().quick ? "100k" : "1000k";
   turns<RetryTurns<Chip>>(path + "/retry of " + size, routes, true);
   turns<ReplayTurns<Chip>>(path + "/replay of " + size, routes, true);
}

}  // namespace

void programmerTurnComparisons() {
   turnsOf<AsyncChip>("async");
   turnsOf<SyncChip>("sync");
}

}  // namespace Bench
