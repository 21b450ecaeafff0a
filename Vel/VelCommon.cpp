#include "Vel/VelCommon.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "Qor/Assert.h"

namespace Vel {

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

void VelBaseHelper::hookNotImplemented(char const* hook) const {
   if (noopAgent()) return;
   std::fprintf(stderr, "The hook %s of \"%s\" is required and not overridden\n", hook,
                name().c_str());
   velAssert(mustBeImplemented);
}

}  // namespace Vel
