#include "agent/soak/SoakCounters.h"

#include "Qor/Clock.h"

namespace Agent {

using Routing::Multicast::Fib::CounterMode;

void SoakCounters::restart() {
   for (auto& [key, counter] : counters_) {
      counter.hits = 0;
      counter.changedAt = Qor::now();
   }
}

void SoakCounters::configIs(Scenario::Config const& config) {
   bool const modeChanges = config.counterMode && *config.counterMode != mode_;
   bool const allChanges = config.allCounter && *config.allCounter != allCounter_;
   if (config.counterMode) mode_ = *config.counterMode;
   if (config.allCounter) allCounter_ = *config.allCounter;
   if (modeChanges || allChanges) restart();
}

void SoakCounters::countedIs(L3::VrfName const& vrf, RouteKey const& key, bool counted) {
   // The catch-all key belongs to the wildcard counter, which is not compared.
   if (key.kind() == RouteKey::kindCatchAll) return;
   if (!counted) {
      auto const it = counters_.find(key);
      if (it == counters_.end()) return;
      it->second.vrfs.erase(vrf);
      if (it->second.vrfs.empty()) counters_.erase(it);
      return;
   }
   auto const [it, isNew] = counters_.try_emplace(key);
   it->second.vrfs.insert(vrf);
   if (isNew) it->second.changedAt = Qor::now();
}

void SoakCounters::hit(RouteKey const& key, Qor::U32 bytes) {
   auto const it = counters_.find(key);
   if (it == counters_.end() || mode_ == CounterMode::disabled) return;
   it->second.hits += mode_ == CounterMode::bytes ? bytes : 1;
   it->second.changedAt = Qor::now();
}

std::vector<std::string> SoakCounters::check(SwitchPath const& path, bool exact) const {
   std::vector<std::string> wrong;
   for (auto const& [key, counter] : counters_) {
      std::optional<Qor::U64> const shown = path.counter(key);
      if (shown.has_value() != counts()) {
         if (exact) {
            wrong.push_back("counter " + key.pretty() +
                            (shown ? " exists, and counters are off" : " is missing"));
         }
         continue;
      }
      if (!shown) continue;
      bool const read = exact && counter.changedAt + twoReadings < Qor::now();
      if (*shown > counter.hits || (read && *shown != counter.hits)) {
         wrong.push_back("counter " + key.pretty() + " is " + std::to_string(*shown) +
                         ", expected " + std::to_string(counter.hits));
      }
   }
   return wrong;
}

}  // namespace Agent
