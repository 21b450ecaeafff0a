// The common part of the gates in front of the hooks of a platform. A gate is a hook object that
// passes each call on to the platform's hooks. It can be shut, so that objects which die do not
// reach the chip, and it names the hook that threw an error. On request it checks the calls against
// the contract of the hooks (hooks/HookChecks.h).
#pragma once

#include <type_traits>
#include <utility>

#include "hooks/HookErrors.h"

namespace VelMroute {

class HookChecks;

class HookGate {
 public:
   HookGate(HookGate const&) = delete;
   HookGate& operator=(HookGate const&) = delete;

   // Open at first. While the gate is shut a hook does nothing, and returns the result that means
   // "no room" or "nothing".
   bool open() const { return open_; }
   void openIs(bool open) { open_ = open; }
   HookErrors const& errors() const { return errors_; }

 protected:
   HookGate() = default;
   ~HookGate() = default;

   // Notes errors, and calls while the gate is shut, for the checks; not held.
   void reportTo(HookChecks* checks) { reported_ = checks; }

   // Makes the call, or returns `shut`. An error passes through, with the name of its hook noted.
   template <class Call>
   std::invoke_result_t<Call> pass(char const* hook, std::invoke_result_t<Call> shut,
                                   Call const& call) const {
      if (!open_) {
         refused(hook);
         return shut;
      }
      try {
         return call();
      } catch (...) {
         note(hook);
         throw;
      }
   }
   template <class Call>
   requires std::is_void_v<std::invoke_result_t<Call>>
   void pass(char const* hook, Call const& call) const {
      if (!open_) return refused(hook);
      try {
         call();
      } catch (...) {
         note(hook);
         throw;
      }
   }
   // For hooks that the library calls inside a destructor, where an error ends the process: the
   // error is counted, and goes no further.
   template <class Call>
   void swallow(char const* hook, Call const& call) const {
      if (!open_) return;
      try {
         call();
      } catch (...) {
         note(hook, true);
      }
   }

 private:
   // Called inside a handler of the error.
   void note(char const* hook, bool swallowed = false) const;
   void refused(char const* hook) const;

   bool open_ = true;
   HookChecks* reported_ = nullptr;
   mutable HookErrors errors_;
};

}  // namespace VelMroute
