#include "Vel/VelTrace.h"

namespace Vel {

// All levels are on at first, so that the first trace statement creates the handle. The handle then
// keeps its levels here.
Qor::U16 velTraceLevels = 0xFFFF;

Qor::TraceHandle& velTrace() {
   static Qor::TraceHandle& handle = []() -> Qor::TraceHandle& {
      Qor::TraceHandle& created = Qor::traceHandle("VelMroute");
      created.levelsAreIn(velTraceLevels);
      return created;
   }();
   return handle;
}

}  // namespace Vel
