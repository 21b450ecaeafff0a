#include "Qor/Clock.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>
#include <vector>

#include "Qor/Describe.h"

namespace Qor {

namespace {

Seconds monotonicSeconds() {
   return std::chrono::duration<Seconds>(std::chrono::steady_clock::now().time_since_epoch())
         .count();
}

// The manager of the process, with a reference. The reference is never released at the end, since
// objects with static storage may read the time in their destructors.
ActivityManager* current = nullptr;

ActivityManager& currentManager() {
   if (!current) [[unlikely]] {
      current = make<ActivityManager>(ActivityManager::TimeBase::real).release();
   }
   return *current;
}

}  // namespace

Clock::Notifiee::~Notifiee() = default;

Clock::Clock(Name name, Ptr<ActivityManager> manager)
      : Entity(std::move(name)), manager_(std::move(manager)) {
   QOR_ASSERT(manager_);
}

Clock::~Clock() {
   manager_->unschedule(*this);
}

void Clock::timeMinIs(Seconds time) const {
   QOR_ASSERT(!std::isnan(time));
   timeMin_ = time;
   assigned_ = true;
   manager_->schedule(*this, time);
}

void Clock::fire() const {
   auto const self = hold();  // a handler may drop the last reference
   Seconds const instant = manager_->now();
   firingsAtInstant_ = firedAt_ == instant ? firingsAtInstant_ + 1 : 1;
   firedAt_ = instant;
   // A handler that always arms its clock for the present time would keep the loop at that time.
   if (firingsAtInstant_ > maxFiringsAtOneInstant) {
      String const text = "clock \"" + name() + "\" fires within the bound at one instant";
      assertionFailed(text.c_str(), __FILE__, __LINE__, __PRETTY_FUNCTION__);
   }
   // In a destructor, since a handler that raises an error is called again too.
   struct Retry {
      ~Retry() {
         if (!clock.assigned_) clock.manager_->schedule(clock, clock.manager_->now() + retryGap);
      }
      Clock const& clock;
   };
   assigned_ = false;
   Retry const retry{*this};
   notify<&Notifiee::onTime>();
}

Ptr<Clock> ActivityManager::Config::clock() const {
   return make<Clock>("clock", manager_);
}

ActivityManager::ActivityManager(TimeBase timeBase) : timeBase_(timeBase), config_(this) {
   if (timeBase_ == TimeBase::real) realStart_ = monotonicSeconds();
}

ActivityManager::~ActivityManager() = default;

Seconds ActivityManager::now() const {
   return timeBase_ == TimeBase::real ? monotonicSeconds() - realStart_ : virtualNow_;
}

Seconds ActivityManager::nextDeadline() const {
   if (queue_.empty()) return never;
   return queue_.begin()->first.first;
}

void ActivityManager::schedule(Clock const& clock, Seconds time) {
   // A clock that is not in the queue has no node to move.
   if (time > maxFinite || clock.deadline_.second == 0) {
      unschedule(clock);
      if (time > maxFinite) return;
      clock.deadline_ = {time, nextSequence_++};
      queue_.emplace(clock.deadline_, &clock);
      return;
   }
   // Re-arming moves the clock's node within the queue, and so allocates nothing.
   auto node = queue_.extract(clock.deadline_);
   node.key() = clock.deadline_ = {time, nextSequence_++};
   queue_.insert(std::move(node));
}

void ActivityManager::unschedule(Clock const& clock) {
   if (clock.deadline_.second == 0) return;
   queue_.erase(clock.deadline_);
   clock.deadline_ = {never, 0};
}

U32 ActivityManager::runDue() {
   // The deadlines are copied: a clock that a handler re-arms, disarms or destroys before its own
   // firing is then not in the queue under its old deadline.
   std::vector<std::pair<Seconds, U64>> due;
   Seconds const turn = now();
   for (auto const& [deadline, clock] : queue_) {
      if (deadline.first > turn) break;
      due.push_back(deadline);
   }
   auto const self = hold();  // a handler may drop the last reference
   U32 fired = 0;
   for (auto const& deadline : due) {
      auto const it = queue_.find(deadline);
      if (it == queue_.end()) continue;
      Clock const& clock = *it->second;
      // Removed first, so that a deadline set by a handler stays.
      unschedule(clock);
      clock.fire();
      ++fired;
   }
   sweepZombieReactors();
   return fired;
}

void ActivityManager::runUntil(Seconds until) {
   QOR_ASSERT(timeBase_ == TimeBase::virtualTime);
   auto const self = hold();
   while (!queue_.empty() && nextDeadline() <= until) {
      // Time may be beyond the deadline already, by advance() or with a deadline in the past.
      virtualNow_ = std::max(virtualNow_, nextDeadline());
      runDue();
   }
   if (until <= maxFinite) virtualNow_ = std::max(virtualNow_, until);
}

void ActivityManager::advance(Seconds cost) {
   QOR_ASSERT(timeBase_ == TimeBase::virtualTime);
   QOR_ASSERT(cost >= 0);
   virtualNow_ += cost;
}

Ptr<ActivityManager> activityManager() {
   return &currentManager();
}

void activityManagerIs(Ptr<ActivityManager> manager) {
   ActivityManager* const before = std::exchange(current, manager.release());
   if (before) before->referenceDec();
}

Seconds now() {
   return currentManager().now();
}

namespace {

Type describeClock() {
   Describe<Clock> type("Qor");
   type.attribute<&Clock::timeMin, &Clock::timeMinIs>();
   return type;
}
TypeRegistration const clockRegistered(describeClock);

}  // namespace

}  // namespace Qor
