// Declarations for all of the library: the base of the two platform hook classes, and the trace
// handle.
#pragma once

#include "Qor/Blip.h"
#include "Qor/Entity.h"
#include "Qor/Export.h"
#include "Qor/Trace.h"

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

   // The default body of a required hook: returns under VEL_NOOP_AGENT, and otherwise calls
   // velAssert(mustBeImplemented).
   void hookNotImplemented() const;
};

// The module of the library's types in the type registry (Qor/Type.h).
inline constexpr char typeModule[] = "VelMroute";

// The library's trace handle, "VelMroute", created on first use, and its levels, one bit for each.
// Every trace statement reads the levels before it uses the handle.
QOR_PUBLIC Qor::TraceHandle& velTrace();
extern QOR_PUBLIC Qor::U16 velTraceLevels;

}  // namespace Vel

// The trace statements of a library source, whose constant `velTraceSource` names the source.
// VEL_TRACE_IN is for a lambda that has captured the __func__ of the enclosing function. VEL_BLIP
// and VEL_BLIP_AT write to the fast binary trace, at level 1.
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
