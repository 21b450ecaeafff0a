// The beginning and the end: construction, resyncs, the restart of an agent, and the two ends.
#include <sstream>
#include <utility>

#include "Qor/Exception.h"
#include "Vel/VelMrouteRecoverySm.h"
#include "programmer/internal/ProgrammerWork.h"

namespace VelMroute {

class ProgrammerWork::QorClock final : public Qor::Clock::Notifiee {
 public:
   QorClock(ProgrammerWork& owner, void (ProgrammerWork::*due)(), Qor::Clock* clock)
         : owner_(owner), due_(due) {
      notifierIs(clock);
   }
   void onTime() override { (owner_.*due_)(); }

 private:
   ProgrammerWork& owner_;
   void (ProgrammerWork::*const due_)();
};

class ProgrammerWork::VlanWatch final : public IntfVlanId::Table::Notifiee {
 public:
   VlanWatch(ProgrammerWork& owner, IntfVlanId::Table const* vlans) : owner_(owner) {
      notifierIs(vlans);
   }
   void onIntfIdToVlanId(Lnet::IntfId) override { owner_.vlanChanged(); }
   void onIntfIdToVlanIdImmediate() override { owner_.vlanChanged(); }

 private:
   ProgrammerWork& owner_;
};

namespace {

Programmer::Inputs checked(Programmer::Inputs inputs) {
   auto const need = [](bool there, char const* name) {
      if (!there) {
         Qor::throwRange(Qor::String("VelMroute::Programmer::") + name + " null not allowed");
      }
   };
   need(inputs.table != nullptr, "table");
   auto const take = [&](auto& input, auto const& ofTable, char const* name) {
      if (!input) input = ofTable;
      need(bool(input), name);
      if (ofTable && ofTable != input) {
         Qor::throwRange(Qor::String("VelMroute::Programmer::") + name +
                         " other than that of the table not allowed");
      }
   };
   take(inputs.vlans, inputs.table->vlans(), "vlans");
   take(inputs.published, inputs.table->published(), "published");
   return inputs;
}

Programmer::Options checked(Programmer::Options const& options) {
   auto const range = [](bool good, char const* name, double value) {
      if (good) return;
      std::ostringstream text;
      text << "VelMroute::Programmer::" << name << ' ' << value << " not allowed";
      Qor::throwRange(text.str());
   };
   range(options.routesPerPass > 0, "routesPerPass", options.routesPerPass);
   range(options.passBudget >= 0, "passBudget", options.passBudget);
   range(options.retry > 0, "retry", options.retry);
   return options;
}

}  // namespace

ProgrammerWork::ProgrammerWork(Programmer::Inputs given, Programmer::Options options)
      : ProgrammerWork(checked(std::move(given)), checked(options), Checked{}) {}

ProgrammerWork::ProgrammerWork(Programmer::Inputs inputs, Programmer::Options options, Checked)
      : table_(std::move(inputs.table)),
        options_(options),
        restart_(inputs.restart),
        published_(PublishedRoutes::of(inputs.published)),
        loop_(Qor::activityManager()),
        tableColl_(Qor::make<MrouteLib::MrouteTableColl>()),
        wishes_(inputs.vlans),
        vlanWatch_(std::make_unique<VlanWatch>(*this, inputs.vlans.get())),
        passClock_(Qor::make<Qor::Clock>("programmerPass")),
        retryClock_(Qor::make<Qor::Clock>("programmerRetry")),
        sweepClock_(Qor::make<Qor::Clock>("programmerSweep")),
        clockReactors_{
              std::make_unique<QorClock>(*this, &ProgrammerWork::runPass, passClock_.get()),
              std::make_unique<QorClock>(*this, &ProgrammerWork::handleRetry, retryClock_.get()),
              std::make_unique<QorClock>(*this, &ProgrammerWork::handleSweep, sweepClock_.get())} {
   table_->listenerIs(this);
   if (restart_) recover();
}

// Errors of listeners are dropped here: a destructor reports none.
ProgrammerWork::~ProgrammerWork() {
   table_->listenerIs(nullptr);
   table_->gateIs(false);
   auto const quietly = [this](auto const& change) {
      try {
         change();
      } catch (...) {
         ++counters_.thrown;
      }
   };
   for (auto const& id : recovered_)
      quietly([&] { published_->remove(id.first, id.second); });
   for (auto& [name, vrf] : vrfs_) {
      for (auto const& entry : vrf.routes) {
         RoutePtr const& route = entry.second;
         for (RoutePtr const& drop : route->fastdrops())
            quietly([&] { withdraw(*drop); });
         quietly([&] { withdraw(*route); });
      }
   }
}

// ---- Restart. ----

// Publishes the found routes as they were, and keeps the free room for routes that were not found.
void ProgrammerWork::recover() {
   auto const l3Status = Qor::make<Vel::L3Status>();
   auto const enabled = Qor::make<Routing::Multicast::Fib::VrfEnabledStatus>();
   for (auto const& [vrf, id] : table_->vrfs()) {
      l3Status->vrfNameToVrfIdIs(vrf.name(), id);
      enabled->vrfIs(vrf);
   }
   auto const recovery =
         Vel::Mroute::recoverySmFactory(l3Status, wishes_.vlans(), enabled, published_->status());
   recovery->doAddMfibHwVrfStatus();
   std::set<std::pair<L3::VrfName, RouteKey>> seen;
   for (Restart::Route const& route : restart_->found()) {
      Qor::Name const name = l3Status->vrfIdToVrfName(route.vrfId);
      if (name.empty()) continue;
      L3::VrfName const vrf(name);
      if (seen.emplace(vrf, route.key).second) {
         published_->add(vrf, route.key);
         recovered_.emplace_back(vrf, route.key);
      }
      recovery->doAddMfibHwStatusEntry(route.vrfId, route.key, route.vlan);
   }
   for (Table const table : allTables)
      free_[static_cast<std::size_t>(table)] = restart_->free(table).value_or(0);
   recovering_ = true;
   resyncBegin();
}

// All routes are named, and placed as far as there is room for them: found groups and entries are
// kept for nobody any longer.
void ProgrammerWork::endRecovery() {
   if (std::exchange(recovering_, false)) tryAgain();
   for (auto const& [vrf, key] : std::exchange(recovered_, {}))
      published_->remove(vrf, key);
}

// ---- Resync. ----

void ProgrammerWork::resyncBegin() {
   if (end_ != Ending::no) return;
   ++resyncs_;
   resync_ = Resync::naming;
   sweepClock_->timeMinIs(Qor::never);
}

void ProgrammerWork::resyncEnd() {
   if (resync_ != Resync::naming) return;
   resync_ = Resync::dropping;
   lookAtAll();
}

void ProgrammerWork::goOnWithResync(Budget& budget) {
   if (resync_ == Resync::dropping && !looking_ && !lookAgain_) resync_ = Resync::placing;
   if (resync_ == Resync::placing && noneMarked() && !budget.spent()) {
      endRecovery();
      resync_ = Resync::rerouting;
      rerouted_ = {};
   }
   if (resync_ != Resync::rerouting) return;
   // A reroute is a step, and takes up to the budget of a reroute (Vel::frrPassBudget).
   std::set<Lnet::IntfId> const failed = table_->failedInterfaces();
   for (auto next = failed.upper_bound(rerouted_); next != failed.end(); ++next, budget.take()) {
      if (budget.spent()) return;
      rerouted_ = *next;
      if (rerouting_) rerouting_(rerouted_);
      try {
         table_->reroute(rerouted_);
      } catch (...) {  // the reactor goes on with its own clock
         ++counters_.thrown;
      }
      if (resync_ != Resync::rerouting) return;  // by a listener
   }
   resync_ = Resync::sweeping;
   handleSweep();
}

// Removes found groups and entries without a route. The platform may need time for it.
void ProgrammerWork::handleSweep() {
   bool all = !restart_;
   if (restart_) {
      try {
         all = restart_->sweep();
         table_->swept();
      } catch (...) {
         ++counters_.thrown;
      }
      tryAgain();
   }
   if (all) resync_ = Resync::none;
   if (mayEnd()) schedulePass();
   sweepClock_->timeMinIs(all ? Qor::never : Qor::now() + Qor::Clock::retryGap);
}

// ---- End. ----

void ProgrammerWork::end(Programmer::End how) {
   if (end_ != Ending::no) return;
   end_ = how == Programmer::End::clean ? Ending::clean : Ending::leave;
   endRecovery();
   // A clean end removes also the found groups and entries that no route has taken.
   bool const found = restart_ && resync_ != Resync::none && end_ == Ending::clean;
   resync_ = found ? Resync::sweeping : Resync::none;
   sweepClock_->timeMinIs(found ? Qor::now() : Qor::never);
   if (end_ == Ending::clean) lookAtAll();
   schedulePass();
}

// Whether a clean end has only zombies left to remove.
bool ProgrammerWork::mayEnd() const {
   return end_ == Ending::clean && !looking_ && !lookAgain_ && records_ == 0 && strays_.empty() &&
          resync_ == Resync::none;
}

void ProgrammerWork::goOnWithEnd(Budget& budget) {
   if (end_ == Ending::clean) {
      if (!mayEnd()) return;
      for (; table_->zombies() > 0; budget.take()) {
         if (budget.spent()) return;
         table_->purgeZombie();
         wrote_ = true;
      }
      commitPass();
      table_->listenerIs(nullptr);
      table_->endService();
   } else if (end_ == Ending::leave) {
      if (programming_ > 0 || !noneMarked()) return;
      table_->listenerIs(nullptr);
      table_->gateIs(false);
   } else {
      return;
   }
   end_ = Ending::ended;
   passClock_->timeMinIs(Qor::never);
   retryClock_->timeMinIs(Qor::never);
}

}  // namespace VelMroute
