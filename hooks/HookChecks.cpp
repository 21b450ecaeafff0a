#include "hooks/HookChecks.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "Qor/Assert.h"
#include "Qor/Clock.h"
#include "hooks/internal/Text.h"

namespace VelMroute {

HookChecks::HookChecks(HookPath path, Options options)
      : path_(path), options_(std::move(options)), roomLost_(options_.refusals == 0) {
   if (!options_.faults) options_.faults = Qor::make<HookFaults>();
}

HookChecks::~HookChecks() = default;

void const* HookChecks::thisThread() {
   // No two threads that run at the same time have this variable at the same address.
   thread_local char const variable = 0;
   return &variable;
}

HookCall const& HookChecks::begins(char const* hook) {
   call_ = {hook, options_.faults->nextCall(), Qor::now()};
   if (!onHomeThread()) {
      fault(HookDuty::callerThread, "called on another thread than the first call");
   }
   return call_;
}

HookRule const& HookChecks::rule(HookDuty duty) const {
   auto const rules = hookRules();
   auto const found = std::ranges::find_if(
         rules, [&](HookRule const& r) { return r.duty == duty && r.path == path_; });
   QOR_ASSERT(found != rules.end());
   return *found;
}

void HookChecks::fault(HookDuty duty, HookCall const& call, Qor::String text) {
   options_.faults->add({&rule(duty), call, std::move(text)});
}

void HookChecks::stop(HookDuty duty, Qor::String text) {
   HookFault const found{&rule(duty), call_, std::move(text)};
   options_.faults->add(found);
   roomLost_ = true;
   if (options_.stops) throw HookFaultError(found);
}

// A hook of the synchronous path may throw where it does not run inside a destructor.
void HookChecks::threw(char const* hook, char const* error, bool inDestructor) {
   call_ = {hook, options_.faults->nextCall(), Qor::now()};
   if (inDestructor) {
      roomLost_ = true;
      fault(HookDuty::deletionThrows, text("threw inside a destructor: ", error));
   } else if (path_ == HookPath::async) {
      fault(HookDuty::throws, text("threw: ", error));
   }
}

// An agent that ends shuts its gate and lets go of its objects, which then delete and release.
void HookChecks::calledShut(char const* hook) {
   std::string_view const name = hook;
   bool const changes = name.starts_with("doAllocate") || name.starts_with("doReallocate") ||
                        name.starts_with("doSet") || name.starts_with("doUpdate");
   if (!changes) return;
   begins(hook);
   fault(HookDuty::service, "called while the gate is shut");
}

}  // namespace VelMroute
