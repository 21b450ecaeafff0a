// Errors that the hooks of a platform threw, as a gate in front of the hooks has seen them.
#pragma once

#include "Qor/Types.h"

namespace VelMroute {

struct HookErrors {
   Qor::U64 thrown = 0;     // all of them
   Qor::U64 swallowed = 0;  // of these, from hooks that the library calls inside a destructor
   Qor::String hook;        // the name of the hook that threw last; empty if none has
};

}  // namespace VelMroute
