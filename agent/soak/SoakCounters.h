// What route counters should show, on the path that keeps them: what has hit the entries of a key,
// in any VRF, since the counter was made or the mode changed. It is read every two seconds, so what
// is shown may be behind, but never ahead.
#pragma once

#include <map>
#include <set>
#include <string>

#include "agent/scenario/Scenario.h"
#include "agent/switch/SwitchPath.h"

namespace Agent {

class SoakCounters {
 public:
   using RouteKey = Scenario::RouteKey;

   void configIs(Scenario::Config const& config);
   void countedIs(L3::VrfName const& vrf, RouteKey const& key, bool counted);
   void hit(RouteKey const& key, Qor::U32 bytes);
   void restart();  // all count from 0

   // What is wrong with what is shown, a line each. Where `exact`, nothing has made reading late.
   std::vector<std::string> check(SwitchPath const& path, bool exact) const;

 private:
   static constexpr double twoReadings = 4.5;  // seconds

   struct Counter {
      std::set<L3::VrfName> vrfs;  // whose configuration names it
      std::uint64_t hits = 0;      // in the present mode's unit
      double changedAt = 0;
   };

   // There is a counter for each key that is named, while all are on.
   bool counts() const { return allCounter_; }

   std::map<RouteKey, Counter> counters_;
   bool allCounter_ = false;
   Routing::Multicast::Fib::CounterMode mode_ = Routing::Multicast::Fib::CounterMode::disabled;
};

}  // namespace Agent
