// What the platforms of the simulated chip have in common, whichever path they serve: the chip and
// its faults, and calls of hooks that are shown, counted and paid for. A platform derives from its
// path's hook class and from this, and starts every hook with called().
//
// Wrong calls (deleting what is not allocated, pointing at what is not) do nothing and are kept as
// violations, which audit() of the platform reports.
//
// What the chip holds when a platform is made for it is found: it was left by an agent that has
// crashed (platform/sim/Found.h). Asked for a group with the members of one that is found, a
// platform answers with that one and writes nothing, and so it does with entries.
#pragma once

#include <array>
#include <functional>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Qor/Clock.h"
#include "platform/sim/Chip.h"
#include "platform/sim/Faults.h"
#include "platform/sim/Found.h"

namespace Sim {

// `HookEnum` names the platform's `hookCount` hooks, numbered from 0; nameOf() gives their names.
template <class HookEnum, std::size_t hookCount>
class PlatformBase {
 public:
   using Hook = HookEnum;
   static constexpr std::size_t hooks = hookCount;
   static std::string_view hookName(Hook hook) { return nameOf(hook); }  // "doAllocateMroute"

   Qor::Ptr<Chip> const& chip() const { return chip_; }
   Faults& faults() { return faults_; }

   // Told the name of a hook before the call is counted and done.
   void hookObserverIs(std::function<void(std::string_view)> observer) {
      observer_ = std::move(observer);
   }
   Qor::U64 calls(Hook hook) const { return calls_[static_cast<std::size_t>(hook)]; }
   // Of all hooks.
   Qor::U64 calls() const { return std::accumulate(calls_.begin(), calls_.end(), Qor::U64{0}); }

   Violations const& violations() const { return violations_; }

   // What was found, as far as nobody has asked for it yet.
   Found const& found() const { return found_; }
   std::vector<FoundRoute> foundRoutes() const { return found_.listed(*chip_); }

 protected:
   // Each call of a hook costs `callCost` seconds, which are not 0 only on virtual time.
   PlatformBase(Qor::Ptr<Chip> chip, Qor::Seconds callCost)
         : chip_(std::move(chip)), found_(*chip_), callCost_(callCost) {}
   ~PlatformBase() = default;

   void called(Hook hook) {
      if (detached_) return;
      if (observer_) observer_(hookName(hook));
      ++calls_[static_cast<std::size_t>(hook)];
      spend(callCost_);
   }
   void misused(Hook hook, char const* what, Qor::U32 number, char const* how) {
      violations_.add(Qor::String(hookName(hook)) + ": " + what + ' ' + std::to_string(number) +
                      ' ' + how);
   }
   void notAllocated(Hook hook, char const* what, Qor::U32 number) {
      misused(hook, what, number, "is not allocated");
   }
   static void spend(Qor::Seconds seconds) {
      if (seconds > 0) Qor::activityManager()->advance(seconds);
   }
   // The violations, and what is wrong with the chip.
   std::vector<Qor::String> auditChip() const {
      std::vector<Qor::String> faults;
      violations_.audit(faults);
      std::vector<Qor::String> const onChip = chip_->audit();
      faults.insert(faults.end(), onChip.begin(), onChip.end());
      return faults;
   }

   Qor::Ptr<Chip> const chip_;
   Faults faults_;
   Found found_;
   // The agent has crashed: nothing reaches the chip any more. Calls of hooks come from objects on
   // their way out; they take no time and are not counted.
   bool detached_ = false;

 private:
   Qor::Seconds const callCost_;
   std::function<void(std::string_view)> observer_;
   std::array<Qor::U64, hookCount> calls_{};
   Violations violations_;
};

}  // namespace Sim
