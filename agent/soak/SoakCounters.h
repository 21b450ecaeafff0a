// The expected route counters of the synchronous path. The counter of a key counts the packets or
// bytes that hit the entries of this key, in any VRF, since the counter was created or the mode
// changed. The switch reads the chip every two seconds, so a published counter may be lower than
// the expected one and never exceeds it.
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
   void restart();  // sets all counters to 0

   // The differences between the published counters and the expected ones, one line each. Without
   // `exact`, readings may be late, so a published counter may be missing or too low.
   std::vector<std::string> check(SwitchPath const& path, bool exact) const;

 private:
   static constexpr double twoReadings = 4.5;  // seconds, at most

   struct Counter {
      std::set<L3::VrfName> vrfs;  // the VRFs whose configuration names the key
      std::uint64_t hits = 0;      // packets or bytes, by the present mode
      double changedAt = 0;        // Qor::now() at the last change of `hits`
   };

   // Whether the switch publishes the counters of the named keys.
   bool counts() const { return allCounter_; }

   std::map<RouteKey, Counter> counters_;
   bool allCounter_ = false;
   Routing::Multicast::Fib::CounterMode mode_ = Routing::Multicast::Fib::CounterMode::disabled;
};

}  // namespace Agent
