// The common part of the gates in front of the hooks of a platform. A gate is a hook object that
// passes each call on to the platform's hooks. It can be shut, so that objects which die do not
// reach the chip, and it names the hook that threw an error.
#pragma once

#include <type_traits>
#include <utility>

#include "hooks/HookErrors.h"

namespace VelMroute {

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

   // Makes the call, or returns `shut`. An error passes through, with the name of its hook noted.
   template <class Call>
   std::invoke_result_t<Call> pass(char const* hook, std::invoke_result_t<Call> shut,
                                   Call const& call) const {
      if (!open_) return shut;
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
      if (!open_) return;
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
         note(hook);
         ++errors_.swallowed;
      }
   }

 private:
   void note(char const* hook) const {
      ++errors_.thrown;
      errors_.hook = hook;
   }

   bool open_ = true;
   mutable HookErrors errors_;
};

}  // namespace VelMroute
