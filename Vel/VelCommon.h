// What all of the library shares: the base of the two platform hook classes, and the trace handle.
#pragma once

#include "Qor/Blip.h"
#include "Qor/Entity.h"
#include "Qor/Export.h"
#include "Qor/Trace.h"

namespace Vel {

// The text of the assertion behind a hook that the platform must override and did not.
inline constexpr char const* mustBeImplemented =
      "This function must be implemented by derived class";

// Whether the environment variable VEL_NOOP_AGENT is present, whatever its value: required hooks
// that are not overridden then do nothing. Read at each call.
QOR_PUBLIC bool noopAgent();

class QOR_PUBLIC VelBaseHelper : public Qor::NamedEntity {
 public:
   // Writes the message and a newline to the standard error stream, and aborts the process through
   // a failed assertion.
   [[noreturn]] void velAssert(Qor::String message) const;

 protected:
   explicit VelBaseHelper(Qor::Name name);
   ~VelBaseHelper() override;

   // The default body of a required hook: returns quietly under VEL_NOOP_AGENT, and otherwise stops
   // the process through velAssert() with mustBeImplemented.
   void hookNotImplemented() const;
};

// Whose types the library's are in the type registry (Qor/Type.h).
inline constexpr char typeModule[] = "VelMroute";

// The library's trace handle, "VelMroute", created on first use, and its levels: every trace
// statement asks them first.
QOR_PUBLIC Qor::TraceHandle& velTrace();
extern QOR_PUBLIC Qor::U16 velTraceLevels;

}  // namespace Vel

// A trace statement of a library source, which names itself by a constant `velTraceSource`; the same
// for a lambda, which has captured the __func__ of the enclosing function; and the same for the fast
// binary trace, at its one level.
#define VEL_TRACE(level, pieces)                                      \
   do {                                                               \
      if (::Vel::velTraceLevels & (1u << (level))) [[unlikely]] {     \
         QOR_TRACE(::Vel::velTrace(), velTraceSource, level, pieces); \
      }                                                               \
   } while (false)
#define VEL_TRACE_IN(function, level, pieces)                                      \
   do {                                                                            \
      if (::Vel::velTraceLevels & (1u << (level))) [[unlikely]] {                  \
         QOR_TRACE_IN(::Vel::velTrace(), velTraceSource, function, level, pieces); \
      }                                                                            \
   } while (false)
#define VEL_BLIP(format, ...) QOR_BLIP(1, velTraceSource, format __VA_OPT__(, ) __VA_ARGS__)
#define VEL_BLIP_AT(time, format, ...) \
   QOR_BLIP_AT(time, 1, velTraceSource, format __VA_OPT__(, ) __VA_ARGS__)
