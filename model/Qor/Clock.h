// Clocks on an injected time base, and the activity manager that fires them.
//
// Time is real (monotonic, for an agent) or virtual (starts at 0 and jumps to the next deadline,
// for tests, simulation and replay). The library never sleeps and reads no other clock.
//
// The contract of a clock, on which every timer of the library relies:
//  - each assignment of timeMin arms the clock, also with the value it has; infinity disarms it;
//  - a due clock fires in the next turn of the loop, never inside the mutator and never twice in
//    one turn; clocks due in one turn fire in the order of (timeMin, order of arming);
//  - firing leaves timeMin as it is, so a fired clock still reads as armed;
//  - if no handler assigned timeMin during the firing, the clock fires again after retryGap,
//    counted from the end of its handlers, until a caller arms or disarms it. A handler that could
//    not finish its work is therefore called again without a busy loop, and so is a handler that
//    raised an error. A handler whose work is complete disarms the clock;
//  - a clock that fires more than maxFiringsAtOneInstant times at one instant is a programming
//    error, and fails an assertion that names the clock.
#pragma once

#include <map>
#include <utility>

#include "Qor/Entity.h"
#include "Qor/Export.h"

namespace Qor {

class ActivityManager;

// The activity manager of the process. It is a manager of real time until a caller replaces it.
// After a replacement by null, the next activityManager() makes a new manager of real time. A clock
// stays with the manager it was made for.
QOR_PUBLIC Ptr<ActivityManager> activityManager();
QOR_PUBLIC void activityManagerIs(Ptr<ActivityManager> manager);

// The present time of the current activity manager, in seconds since an arbitrary point in time.
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

   // Makes a disarmed clock of `manager`, which must not be null. The clock holds the manager.
   explicit Clock(Name name = "clock", Ptr<ActivityManager> manager = activityManager());

   // The absolute time at which the clock fires, on the Qor::now() time base; `never` when
   // disarmed.
   Seconds timeMin() const { return timeMin_; }
   // Arms or disarms the clock. The setting is not part of the clock's value, so a const clock can
   // be armed. A time that is not a number fails an assertion.
   void timeMinIs(Seconds time) const;

 private:
   friend class ActivityManager;
   ~Clock() override;
   void fire() const;

   Ptr<ActivityManager> const manager_;
   mutable Seconds timeMin_ = never;
   mutable std::pair<Seconds, U64> deadline_{never, 0};  // key in the queue; {never, 0}: none
   mutable bool assigned_ = false;                       // timeMin, since this firing began
   mutable Seconds firedAt_ = -never;
   mutable U32 firingsAtInstant_ = 0;
};

class QOR_PUBLIC ActivityManager final : public RefCounted {
 public:
   enum class TimeBase { real, virtualTime };

   // Makes clocks for reactors that need a clock of their own.
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

   // The earliest time at which a clock fires; `never` if no clock is armed. A host with an event
   // loop of its own waits until then and calls runDue().
   Seconds nextDeadline() const;

   // Runs one turn: fires each clock that is due at the present time once, then sweeps the zombie
   // reactors (Qor/Notifier.h). A clock armed during the turn fires in a later turn, however early
   // its time. Returns the number of clocks fired.
   U32 runDue();

   // Virtual time only. Runs all turns up to and including time `until`, jumping from deadline to
   // deadline. Afterwards now() is `until`, or later if a handler let time pass beyond it. With an
   // infinite `until` the turns end when no clock is armed, and now() stays at the last firing.
   void runUntil(Seconds until);

   // Virtual time only. Lets `cost` seconds (0 or more) pass, as lengthy work would; fires no
   // clock.
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
   std::map<std::pair<Seconds, U64>, Clock const*> queue_;  // by (deadline, order of arming)
};

}  // namespace Qor
