// The common part of the two platforms of the simulated chip: the chip, the injected faults, the
// found groups and entries, and the calls of hooks. A platform derives from the hook class of its
// path and from this class, and starts every hook with called().
//
// A wrong call, for example the deletion of a group that is not allocated, does nothing and is kept
// as a violation, which audit() of the platform reports.
//
// The groups and entries on the chip at the construction of the platform are found: a crashed agent
// left them (platform/sim/Found.h). The platform adopts them for matching requests.
#pragma once

#include <array>
#include <functional>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Qor/Clock.h"
#include "hooks/HookQuestion.h"
#include "platform/IdPool.h"
#include "platform/sim/Chip.h"
#include "platform/sim/Found.h"

namespace Sim {

using VelMroute::IdPool;

// `HookEnum` names the platform's `hookCount` hooks, numbered from 0; nameOf() gives their names.
template <class HookEnum, std::size_t hookCount>
class PlatformBase {
 public:
   using Hook = HookEnum;
   static constexpr std::size_t hooks = hookCount;
   static std::string_view hookName(Hook hook) { return nameOf(hook); }  // "doAllocateMroute"

   Qor::Ptr<Chip> const& chip() const { return chip_; }
   Faults& faults() { return faults_; }
   Faults const& faults() const { return faults_; }

   // Each call of a hook first calls the observer with the name of the hook.
   void hookObserverIs(std::function<void(std::string_view)> observer) {
      observer_ = std::move(observer);
   }
   // The number of calls of one hook, and of all hooks.
   Qor::U64 calls(Hook hook) const { return calls_[static_cast<std::size_t>(hook)]; }
   Qor::U64 calls() const { return std::accumulate(calls_.begin(), calls_.end(), Qor::U64{0}); }

   Violations const& violations() const { return violations_; }

   // The found groups and entries that remain.
   Found const& found() const { return found_; }

 protected:
   // `callCost`: the seconds of virtual time that each call of a hook takes; 0 on real time.
   PlatformBase(Qor::Ptr<Chip> chip, Qor::Seconds callCost)
         : chip_(std::move(chip)), found_(foundOn(*chip_)), callCost_(callCost) {}
   ~PlatformBase() = default;

   void called(Hook hook) {
      if (detached_) return;
      if (VelMroute::HookQuestion::underWay())
         return faults_.callBegins(static_cast<Qor::U32>(hook));
      if (observer_) observer_(hookName(hook));
      ++calls_[static_cast<std::size_t>(hook)];
      faults_.callBegins(static_cast<Qor::U32>(hook));
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
   // The violations of this platform, followed by the faults of the chip.
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
   // The agent has crashed, and the platform writes no more. The objects of the agent still call
   // hooks while they are destroyed; these calls take no time and are not counted.
   bool detached_ = false;

 private:
   Qor::Seconds const callCost_;
   std::function<void(std::string_view)> observer_;
   std::array<Qor::U64, hookCount> calls_{};
   Violations violations_;
};

}  // namespace Sim
