// The base of the two platform hook classes, and the switch of its default hooks.
#pragma once

#include "Qor/Entity.h"
#include "Qor/Export.h"

namespace Vel {

// The assertion text of a required hook that the platform has not overridden.
inline constexpr char const* mustBeImplemented =
      "This function must be implemented by derived class";

// Returns whether the environment variable VEL_NOOP_AGENT is present, with any value: required
// hooks that are not overridden then do nothing. The function reads the environment at each call.
QOR_PUBLIC bool noopAgent();

// The base of the platform hook classes of both paths.
class QOR_PUBLIC VelBaseHelper : public Qor::NamedEntity {
 public:
   // Prints the message and a newline to the standard error stream, and aborts the process through
   // a failed assertion.
   [[noreturn]] void velAssert(Qor::String message) const;

 protected:
   explicit VelBaseHelper(Qor::Name name);
   ~VelBaseHelper() override;

   // The default body of the required hook with this name: returns under VEL_NOOP_AGENT. Otherwise
   // it prints a line that names the hook and this object to the standard error stream, and calls
   // velAssert(mustBeImplemented).
   void hookNotImplemented(char const* hook) const;
};

}  // namespace Vel
