// The route programmer's work over time: which routes a pass looks at, the change of a route that is
// under way, and those who wait for room.
#include <algorithm>
#include <utility>

#include "agent/programmer/RouteProgrammer.h"

namespace Agent {

// ---- Passes. ----

void RouteProgrammer::mark(Route& route) {
   if (route.marked_) return;
   route.marked_ = true;
   work_.push_back(&route);
   schedulePass();
}

void RouteProgrammer::schedulePass() {
   if (clock_->timeMin() > Qor::now()) clock_->timeMinIs(Qor::now());
}

void RouteProgrammer::roomIs(Table table) {
   if (queue(table).empty()) return;
   queue(table).roomIs(true);
   schedulePass();
}

void RouteProgrammer::tryAgain() {
   for (Table const table : {Table::group, Table::entry, Table::boundary})
      roomIs(table);
}

// One pass: what is marked first, since it may give room; then those who wait for room.
void RouteProgrammer::runPass() {
   Qor::U32 budget = routesPerPass;
   for (; budget > 0 && !work_.empty(); --budget) {
      RoutePtr const route = std::move(work_.front());
      work_.pop_front();
      process(*route);
   }
   if (!recovery_) {
      for (WaitingQueue& queue : waiting_)
         budget = wake(queue, budget);
   }
   if (std::exchange(wrote_, false)) commit();
   clock_->timeMinIs(!work_.empty() || someMayTry() ? Qor::now() : Qor::never);
}

// During a recovery those who wait do so until its end.
bool RouteProgrammer::someMayTry() const {
   return !recovery_ && std::ranges::any_of(waiting_, [](WaitingQueue const& queue) {
      return queue.room() && !queue.empty();
   });
}

// Lets waiting routes try, first come first served, until one is refused again.
Qor::U32 RouteProgrammer::wake(WaitingQueue& queue, Qor::U32 budget) {
   for (; queue.room() && budget > 0 && !queue.empty(); --budget) {
      RoutePtr const route = queue.first();
      if (route->wanted_ && mustStandBack(*route)) {
         waitNoMore(*route);
         stateIs(*route, State::marked);
      } else if (route->wanted_) {
         route->target_ = route->wanted_;
         placeAnew(*route);
         if (route->waitingIn_ == &queue) queue.roomIs(false);
      } else {
         waitNoMore(*route);
      }
   }
   if (queue.empty()) queue.roomIs(false);
   return budget;
}

void RouteProgrammer::process(Route& route) {
   route.marked_ = false;
   if (!route.wanted_) {
      remove(route);
      return;
   }
   if (route.state_ == State::programming) {
      checkChange(route);
      if (route.state_ != State::inHardware) return;
   }
   place(route);
}

void RouteProgrammer::remove(Route& route) {
   release(route);
   waitNoMore(route);
   stateIs(route, State::marked);
   if (route.wanted_) return;  // again, in the meantime
   vrfs_[route.vrf_].take({route.key_, route.fastdropVlan_});
}

// ---- The change under way. ----

void RouteProgrammer::changeDone(Route& route) {
   leaveRecord(route.previous_);
   route.confirmed_ = true;
   route.attempts_ = 0;
   stateIs(route, State::inHardware);
}

Qor::U32 RouteProgrammer::countFailure(Route& route) {
   ++counters_.failedWrites;
   if (route.placed_ == route.wanted_) ++route.attempts_;  // else it is wanted differently by now
   dropChange(route);
   return route.attempts_;
}

void RouteProgrammer::placeAgain(Route& route) {
   if (route.confirmed_ && route.previous_) {
      route.record_ = std::exchange(route.previous_, nullptr);
      auto const placed = std::make_shared<WantedRoute>(*route.placed_);
      placed->set = route.record_->oifSet()->portVlanSet();
      route.placed_ = placed;
   } else {
      release(route);
   }
   stateIs(route, State::marked);
   mark(route);
}

void RouteProgrammer::giveUp(Route& route) {
   release(route);
   stateIs(route, State::failed);
}

// ---- Waiting. ----

void RouteProgrammer::wait(Route& route, State state) {
   withdraw(route);
   stateIs(route, state);
   WaitingQueue* queue = nullptr;
   for (std::size_t i = 0; i < tables; ++i) {
      if (state == stateFor(static_cast<Table>(i))) queue = &waiting_[i];
   }
   Qor::U64 const place = route.waitingIn_ == queue ? route.arrival_ : 0;
   waitNoMore(route);  // the set it waits for may be another one now
   if (!queue) return;
   if (!place) ++counters_.refusals;
   queue->add(route, place);
   if (retry_->timeMin() == Qor::never) retry_->timeMinIs(Qor::now() + retryInterval);
}

void RouteProgrammer::waitNoMore(Route& route) {
   if (route.waitingIn_) route.waitingIn_->remove(route);
}

void RouteProgrammer::handleRetry() {
   tryAgain();
   retry_->timeMinIs(waiting() > 0 ? Qor::now() + retryInterval : Qor::never);
}

// Routes that wait for a group of this set need none any more.
void RouteProgrammer::markThoseWhoShare(MrouteLib::PortVlanSet const& set) {
   queue(Table::group).forEachWith(set, [this](Route& route) { mark(route); });
}

}  // namespace Agent
