// Private header: the trace statements of the library's sources.
//
// A source states its texts with VEL_TRACE and VEL_BLIP. Each statement names its source by the
// constant velTraceSource of the enclosing namespace, one for each path.
#pragma once

#include "Qor/Blip.h"
#include "Qor/Export.h"
#include "Qor/Trace.h"

namespace Vel {

inline constexpr char velTraceSource[] = "VelSyncMrouteSm";

// The library's trace handle, "VelMroute", created on first use, and its levels, one bit for each.
// Every trace statement reads the levels before it uses the handle. Both are exported for the
// benchmark of the statements.
QOR_PUBLIC Qor::TraceHandle& velTrace();
extern QOR_PUBLIC Qor::U16 velTraceLevels;

}  // namespace Vel

namespace Vel::Mroute {

inline constexpr char velTraceSource[] = "VelAsyncMrouteSm";

}  // namespace Vel::Mroute

// VEL_TRACE_IN is for a lambda that has captured the __func__ of the enclosing function. The
// VEL_BLIP statements write to the fast binary trace, at level 1.
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
#define VEL_BLIP_EACH_AT(time, format, span) QOR_BLIP_EACH_AT(time, 1, velTraceSource, format, span)
