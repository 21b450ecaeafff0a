// A clock that calls a function once, when it is due.
#pragma once

#include <functional>
#include <utility>

#include "Qor/Clock.h"

namespace Agent {

class Timer final : private Qor::Clock::Notifiee {
 public:
   // The function may set the timer, and must not destroy it.
   Timer(Qor::Name name, std::function<void()> due)
         : clock_(Qor::make<Qor::Clock>(std::move(name))), due_(std::move(due)) {
      notifierIs(clock_.get());
   }
   ~Timer() override { off(); }

   // Sets the timer to a time on the Qor::now() time base; the time set before no longer counts.
   void at(Qor::Seconds time) { clock_->timeMinIs(time); }
   void in(Qor::Seconds seconds) { at(Qor::now() + seconds); }
   void off() { clock_->timeMinIs(Qor::never); }
   // The time that is set; Qor::never when off.
   Qor::Seconds time() const { return clock_->timeMin(); }

 private:
   void onTime() override {
      off();
      due_();
   }

   Qor::Ptr<Qor::Clock> const clock_;
   std::function<void()> const due_;
};

}  // namespace Agent
