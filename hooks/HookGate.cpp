#include "hooks/HookGate.h"

#include <exception>

#include "hooks/HookChecks.h"

namespace VelMroute {

void HookGate::note(char const* hook, bool swallowed) const {
   ++errors_.thrown;
   errors_.swallowed += swallowed;
   errors_.hook = hook;
   if (!reported_) return;
   try {
      throw;
   } catch (HookFaultError const&) {  // of the checks, which have recorded it
   } catch (std::exception const& error) {
      reported_->threw(hook, error.what(), swallowed);
   } catch (...) {
      reported_->threw(hook, "no std::exception", swallowed);
   }
}

void HookGate::refused(char const* hook) const {
   if (reported_) reported_->calledShut(hook);
}

}  // namespace VelMroute
