// Functions that the activity loop calls once, after a time.
#pragma once

#include <functional>
#include <map>

#include "Qor/Clock.h"

namespace Agent {

class Later final : private Qor::Clock::Notifiee {
 public:
   Later() { notifierIs(clock_.get()); }

   // A function may add others, and must not destroy this object.
   void in(Qor::Seconds seconds, std::function<void()> function) {
      functions_.emplace(Qor::now() + seconds, std::move(function));
      clock_->timeMinIs(functions_.begin()->first);
   }

 private:
   void onTime() override {
      while (!functions_.empty() && functions_.begin()->first <= Qor::now()) {
         auto const first = functions_.extract(functions_.begin());
         first.mapped()();
      }
      clock_->timeMinIs(functions_.empty() ? Qor::never : functions_.begin()->first);
   }

   Qor::Ptr<Qor::Clock> const clock_ = Qor::make<Qor::Clock>("later");
   std::multimap<Qor::Seconds, std::function<void()>> functions_;
};

}  // namespace Agent
