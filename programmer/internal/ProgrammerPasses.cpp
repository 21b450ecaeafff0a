// The work over time: passes and their budget, errors of hooks, the lines for room, and the look at
// all routes after a change of vlans or VRFs.
#include <algorithm>
#include <utility>

#include "programmer/internal/ProgrammerWork.h"

namespace VelMroute {

// ---- Notifications. ----

void ProgrammerWork::mark(ProgrammedRoute& route) {
   if (route.marked) return;
   route.marked = true;
   marked_.emplace_back(&route);
   schedulePass();
}

void ProgrammerWork::schedulePass() {
   if (passClock_->timeMin() > Qor::now()) passClock_->timeMinIs(Qor::now());
}

void ProgrammerWork::roomIs(Table table) {
   if (line(table).empty()) return;
   line(table).roomIs(true);
   schedulePass();
}

void ProgrammerWork::roomAnywhere() {
   tryAgain();
}

void ProgrammerWork::tryAgain() {
   for (Table const table : allTables)
      roomIs(table);
}

void ProgrammerWork::vrfChanged() {
   ++vrfEpoch_;
   lookAtAll();
}

void ProgrammerWork::vlanChanged() {
   wishes_.vlansChanged();
   lookAtAll();
}

// ---- Passes. ----

// One pass: marked routes first, since they may give room; then the lines; then slices of longer
// work.
void ProgrammerWork::runPass() {
   QOR_ASSERT(Qor::activityManager() == loop_);
   Budget budget(*loop_, options_);
   while (RoutePtr const route = nextMarked(budget)) {
      guarded(*route, [&] { process(*route); });
      budget.take();
   }
   if (!recovering_ && end_ == Ending::no) {
      for (WaitingLine& line : lines_)
         serveLine(line, budget);
   }
   look(budget);
   goOnWithResync(budget);
   goOnWithEnd(budget);
   if (end_ == Ending::ended) return;
   commitPass();
   // A route that is held waits for the end of a change, which marks its route.
   bool const stalled = marked_.empty() && !held_.empty() && !mayBegin();
   bool const goesOn = !noneMarked() || resync_ == Resync::placing;
   bool const more = (goesOn && !stalled) || someMayTry() || looking_ || lookAgain_ ||
                     resync_ == Resync::dropping || resync_ == Resync::rerouting || mayEnd();
   passClock_->timeMinIs(more ? Qor::now() : Qor::never);
}

// The route of the next step; null if there is none, or the budget is spent.
RoutePtr ProgrammerWork::nextMarked(Budget& budget) {
   auto const pop = [](std::deque<RoutePtr>& queue) {
      RoutePtr route = std::move(queue.front());
      queue.pop_front();
      return route;
   };
   bool const begins = mayBegin();
   if (budget.spent()) return nullptr;
   if (begins && !held_.empty()) return pop(held_);
   while (!marked_.empty()) {
      RoutePtr route = pop(marked_);
      if (begins || route->state == RouteState::programming) return route;
      held_.push_back(std::move(route));
      budget.take();
      if (budget.spent()) break;
   }
   return nullptr;
}

template <class Step>
void ProgrammerWork::guarded(ProgrammedRoute& route, Step const& step) {
   Qor::U64 const before = table_->hookErrors().thrown;
   auto const who = [&] {
      HookErrors const& errors = table_->hookErrors();
      return errors.thrown > before ? "the hook " + errors.hook + " threw" : "a listener threw";
   };
   try {
      step();
   } catch (EntryStays const&) {
      fail(route, who() + ", and its entry could not be deleted", true);
   } catch (std::exception const& error) {
      fail(route, who() + ": " + error.what(), false);
   } catch (...) {
      fail(route, who(), false);
   }
}

// Undoes the change that the route had begun, and tries it again later.
void ProgrammerWork::fail(ProgrammedRoute& route, Qor::String trouble, bool entryStays) {
   if (!entryStays) {
      ++counters_.thrown;
      table_->clearResults();
      try {
         release(route);
      } catch (EntryStays const&) {  // counted, and tried again with the route
      } catch (...) {
         ++counters_.thrown;
      }
   }
   waitNoMore(route);
   failed(route, std::move(trouble), presentPlacement(route));
   if (!route.retried) retried_.emplace_back(&route);
   route.retried = true;
   armRetry();
}

void ProgrammerWork::armRetry() {
   if (retryClock_->timeMin() == Qor::never) retryClock_->timeMinIs(Qor::now() + options_.retry);
}

void ProgrammerWork::handleRetry() {
   for (RoutePtr const& route : std::exchange(retried_, {})) {
      route->retried = false;
      mark(*route);
   }
   for (Leaving const& stray : std::exchange(strays_, {}))
      leaveEntry(stray);
   tryAgain();
   if (wrote_ || mayEnd()) schedulePass();  // a commit threw, or the last stray has gone
   retryClock_->timeMinIs(waiting() > 0 || !strays_.empty() ? Qor::now() + options_.retry
                                                            : Qor::never);
}

void ProgrammerWork::commitPass() {
   if (!std::exchange(wrote_, false)) return;
   try {
      table_->commit();
   } catch (...) {
      ++counters_.thrown;
      wrote_ = true;  // the next pass commits
      armRetry();
   }
}

void ProgrammerWork::process(ProgrammedRoute& route) {
   route.marked = false;
   if (end_ == Ending::leave) {  // no further write: a failed change stays as it is on the chip
      if (route.state != RouteState::programming) return;
      RouteChange* const change = route.change();
      if (!change || !watchPending(route, change->writes)) stateIs(route, RouteState::queued);
      return;
   }
   if (!route.wish) {
      remove(route);
      return;
   }
   if (route.state == RouteState::programming) {
      RouteWrites none;
      RouteChange* const change = route.change();
      checkChange(route, change ? change->writes : none);
      if (route.state != RouteState::inHardware) return;
   }
   place(route);
}

void ProgrammerWork::remove(ProgrammedRoute& route) {
   release(route);
   waitNoMore(route);
   stateIs(route, RouteState::queued);
   if (route.wish) return;  // wanted again, by a listener of these changes
   forget(route);
}

// Removes a route that nobody wants from the tables, once its fastdrop entries are gone.
void ProgrammerWork::forget(ProgrammedRoute& route) {
   RoutePtr const held(&route);
   if (ProgrammedRoute* const own = route.owner()) {
      records_ -= std::erase(own->work().fastdrops, held);
      if (!own->wish && own->handle.isNull() && !own->marked && !own->retried) forget(*own);
      return;
   }
   if (!route.fastdrops().empty()) return;
   // A record that is tried again may have left its key to a later one.
   if (!route.vrf.routes.remove(route)) return;
   --records_;
   changed(route);
}

// ---- The lines for room. ----

// Lets waiting routes try, first come first served, until one is refused.
void ProgrammerWork::serveLine(WaitingLine& line, Budget& budget) {
   for (; line.room() && !budget.spent() && !line.empty(); budget.take()) {
      RoutePtr const route = line.first();
      guarded(*route, [&] { placeWaiting(*route, line); });
   }
   if (line.empty()) line.roomIs(false);
}

// While recovering, routes in a line wait for the end.
bool ProgrammerWork::someMayTry() const {
   return !recovering_ && end_ == Ending::no &&
          std::ranges::any_of(lines_, [](WaitingLine const& l) { return l.room() && !l.empty(); });
}

// ---- The look at all routes. ----

void ProgrammerWork::lookAtAll() {
   lookAgain_ = true;
   schedulePass();
}

// Goes on with the look at all routes. A change in the middle of it begins it again at its end.
void ProgrammerWork::look(Budget& budget) {
   if (!looking_ && std::exchange(lookAgain_, false)) {
      looking_ = true;
      lookVrf_ = vrfs_.begin();
      lookNext_ = 0;
   }
   while (looking_ && !budget.spent()) {
      if (lookVrf_ == vrfs_.end()) {
         looking_ = false;
         return;
      }
      auto const& routes = lookVrf_->second.routes;
      auto const at = routes.from(lookNext_);
      if (at == routes.end()) {
         ++lookVrf_;
         lookNext_ = 0;
         continue;
      }
      RoutePtr const route = at->second;
      lookNext_ = at.place() + 1;
      lookAt(*route);
      for (RoutePtr const& drop : route->fastdrops())
         lookAt(*drop);
      budget.take();
   }
}

// Marks a route whose vlans or VRF have changed, and withdraws one that a resync has not named.
void ProgrammerWork::lookAt(ProgrammedRoute& route) {
   bool const unnamed =
         end_ == Ending::clean || (resync_ == Resync::dropping && route.resync != resyncs_);
   if (unnamed) {
      if (!route.owner()) wantNoMore(route);
      return;
   }
   if (!route.wish) return;
   bool const waits =
         route.state == RouteState::waitingVlan || route.state == RouteState::waitingVrf;
   bool const renumbered = route.placed && vrfIdOf(route.vrf) != route.placedVrf;
   bool const refused = route.state == RouteState::failed && route.refused;
   if (waits || renumbered || refused || hasMoved(route)) mark(route);
}

// Whether the wish has other vlans than those with which the route was placed, waits or failed.
bool ProgrammerWork::hasMoved(ProgrammedRoute const& route) const {
   PlacementPtr const present = presentPlacement(route);
   RouteWork const* const work = route.workIfAny();
   if (work && work->at) return present != work->at;
   if (!route.placed) return route.state == RouteState::queued;
   return !present || present->vlan != route.placedVlan ||
          (route.record && !(route.record->oifSet()->portVlanSet() == present->set));
}

}  // namespace VelMroute
