#include "Vel/VelCommon.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "Qor/Assert.h"
#include "Qor/Describe.h"

namespace Vel {

Qor::TraceHandle& velTrace() {
   return Qor::traceHandle("VelMroute");
}

Qor::U16 velTraceLevels = 0;

namespace {

// From the start of the process: levels that are set later reach the variable.
[[maybe_unused]] bool const traceRegistered = [] {
   velTrace().levelsAreIn(velTraceLevels);
   return true;
}();

}  // namespace

bool noopAgent() {
   return std::getenv("VEL_NOOP_AGENT") != nullptr;
}

VelBaseHelper::VelBaseHelper(Qor::Name name) : NamedEntity(std::move(name)) {}

VelBaseHelper::~VelBaseHelper() = default;

void VelBaseHelper::velAssert(Qor::String message) const {
   std::fprintf(stderr, "%s\n", message.c_str());
   // The place is fixed, so that what operators search for stays the same across releases.
   Qor::assertionFailed("0", "Vel/VelCommon", 25,
                        "void Vel::VelBaseHelper::velAssert(Qor::String) const");
}

void VelBaseHelper::hookNotImplemented() const {
   if (!noopAgent()) velAssert(mustBeImplemented);
}

namespace {

Qor::Type describeVelBaseHelper() {
   Qor::Describe<VelBaseHelper> type("VelCommon");
   return type;
}
Qor::TypeRegistration const velBaseHelperRegistered(describeVelBaseHelper);

}  // namespace

}  // namespace Vel
