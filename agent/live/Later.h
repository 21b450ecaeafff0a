// Functions that the activity loop calls once, after a time.
#pragma once

#include <functional>
#include <map>
#include <utility>

#include "agent/live/Timer.h"

namespace Agent {

class Later final {
 public:
   // A function may add others, and must not destroy this object.
   void in(Qor::Seconds seconds, std::function<void()> function) {
      functions_.emplace(Qor::now() + seconds, std::move(function));
      timer_.at(functions_.begin()->first);
   }

 private:
   void due() {
      while (!functions_.empty() && functions_.begin()->first <= Qor::now()) {
         auto const first = functions_.extract(functions_.begin());
         first.mapped()();
      }
      if (!functions_.empty()) timer_.at(functions_.begin()->first);
   }

   std::multimap<Qor::Seconds, std::function<void()>> functions_;
   Timer timer_{"later", [this] { due(); }};
};

}  // namespace Agent
