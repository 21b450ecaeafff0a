#include "Vel/VelCommon.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "Qor/Assert.h"

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

bool noopAgent() {
   return std::getenv("VEL_NOOP_AGENT") != nullptr;
}

VelBaseHelper::VelBaseHelper(Qor::Name name) : NamedEntity(std::move(name)) {}

VelBaseHelper::~VelBaseHelper() = default;

void VelBaseHelper::velAssert(Qor::String message) const {
   std::fprintf(stderr, "%s\n", message.c_str());
   // The place is fixed, so that the text that operators search for is the same in each release.
   Qor::assertionFailed("0", "Vel/VelCommon", 25,
                        "void Vel::VelBaseHelper::velAssert(Qor::String) const");
}

void VelBaseHelper::hookNotImplemented() const {
   if (!noopAgent()) velAssert(mustBeImplemented);
}

}  // namespace Vel
