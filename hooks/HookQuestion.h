// A call of a hook that only reads, which the checks make beside the calls of the caller. While such
// a question is under way, a simulated platform counts no call, charges no time and injects no
// fault, so that a run is the same with and without checks.
#pragma once

#include <utility>

#include "Qor/Standard.h"

namespace VelMroute {

class HookQuestion {
 public:
   HookQuestion() : outer_(std::exchange(underWay_, true)) {}
   ~HookQuestion() { underWay_ = outer_; }
   HookQuestion(HookQuestion const&) = delete;
   HookQuestion& operator=(HookQuestion const&) = delete;

   static bool underWay() { return underWay_; }
   // The answer of the hook.
   template <class Call>
   static auto ask(Call const& call) {
      HookQuestion const question;
      return call();
   }

 private:
   static inline thread_local bool underWay_ = false;

   bool const outer_;
};

}  // namespace VelMroute
