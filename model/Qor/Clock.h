// Clocks on an injected time base, and the activity manager that fires them.
//
// Time is real (monotonic, for an agent) or virtual (starts at 0 and jumps to the next deadline;
// for tests, simulation and replay). Nothing in the library sleeps or reads another clock.
//
// The clock's contract, which every timer of the library leans on:
//  - every assignment of timeMin arms the clock, an equal value included; infinity disarms it;
//  - a due clock fires in the next turn of the loop, never inside the mutator and never twice in
//    one turn; clocks due together fire in the order of (timeMin, time of arming);
//  - firing leaves timeMin as it is, so a fired clock still reads as armed;
//  - if nobody assigned timeMin while it fired, it is delivered again after retryGap, counted from
//    the end of its handlers, and so on until someone arms or disarms it: a handler that could not
//    do its work is asked again, without a busy loop. A handler that throws counts as one of
//    these. Work that is complete disarms its clock;
//  - a clock that fires more than maxFiringsAtOneInstant times while the time stands still is a
//    programming error: an assertion that names the clock.
#pragma once

#include <map>
#include <utility>

#include "Qor/Entity.h"
#include "Qor/Export.h"

namespace Qor {

class ActivityManager;

// The manager of this process: of real time, unless another one has been put in its place. Null
// puts a new one of real time there, when it is next asked for. Clocks stay with the manager they
// were made for.
QOR_PUBLIC Ptr<ActivityManager> activityManager();
QOR_PUBLIC void activityManagerIs(Ptr<ActivityManager> manager);

// The present time of the current activity manager, in seconds. Its zero means nothing.
QOR_PUBLIC Seconds now();

class QOR_PUBLIC Clock final : public Entity<Clock, NamedEntity> {
 public:
   class QOR_PUBLIC Notifiee : public NotifieeOf<Clock> {
    public:
      ~Notifiee() override;
      virtual void onTime() {}
   };

   static constexpr Seconds retryGap = 0.01;
   static constexpr U32 maxFiringsAtOneInstant = 10000;

   // A disarmed clock of this activity manager, which it keeps alive.
   explicit Clock(Name name = "clock", Ptr<ActivityManager> manager = activityManager());

   // The absolute time at which the clock fires, on the Qor::now() time base; `never` when
   // disarmed.
   Seconds timeMin() const { return timeMin_; }
   // Arms or disarms. A clock's setting is not part of anybody's value: holders of a const clock
   // may arm it. Not a number is an assertion.
   void timeMinIs(Seconds time) const;

 private:
   friend class ActivityManager;
   ~Clock() override;
   void fire() const;

   Ptr<ActivityManager> const manager_;
   mutable Seconds timeMin_ = never;
   mutable std::pair<Seconds, U64> deadline_{never, 0};  // its place in the manager's queue
   mutable bool assigned_ = false;                       // since the present firing began
   mutable Seconds firedAt_ = -never;
   mutable U32 firingsAtInstant_ = 0;
};

class QOR_PUBLIC ActivityManager final : public RefCounted {
 public:
   enum class TimeBase { real, virtualTime };

   // What a reactor that needs a clock of its own asks.
   class QOR_PUBLIC Config {
    public:
      // A new, disarmed clock of this manager.
      Ptr<Clock> clock() const;

    private:
      friend class ActivityManager;
      explicit Config(ActivityManager* manager) : manager_(manager) {}

      ActivityManager* const manager_;
   };

   explicit ActivityManager(TimeBase timeBase);

   Config const* config() const { return &config_; }
   Seconds now() const;

   // The earliest time at which a clock wants to fire; `never` when none does. A host with an event
   // loop of its own waits until then, and calls runDue().
   Seconds nextDeadline() const;

   // One turn: fires, once each, the clocks due at the present time, and then sweeps zombie
   // reactors. A clock armed during the turn waits for the next, however early its time. Returns
   // how many fired.
   U32 runDue();

   // Virtual time only. Runs all turns up to and including time `until`, jumping from deadline to
   // deadline, and leaves now() at `until` (or later, when handlers took longer). With an infinite
   // `until` it runs until no clock is armed, and stays at the last firing.
   void runUntil(Seconds until);

   // Virtual time only. Lets `cost` seconds pass, as work does, and fires nothing.
   void advance(Seconds cost);

 private:
   friend class Clock;
   ~ActivityManager() override;
   void schedule(Clock const& clock, Seconds time);
   void unschedule(Clock const& clock);

   TimeBase const timeBase_;
   Config const config_;
   Seconds virtualNow_ = 0;
   Seconds realStart_ = 0;
   U64 nextSequence_ = 1;
   std::map<std::pair<Seconds, U64>, Clock const*> queue_;  // (deadline, order of arming)
};

}  // namespace Qor
