// Assertions for broken invariants. They are behaviour: on in every build type, whatever NDEBUG
// says, and their text is the asserted expression exactly as it stands in the source.
//
// A failed assertion writes one line to the standard error stream and aborts the process:
//    <source>:<line>: <function>: Assertion `<expression>' failed.
#pragma once

#include "Qor/Export.h"

namespace Qor {

[[noreturn]] QOR_PUBLIC void assertionFailed(char const* expression, char const* source,
                                             unsigned line, char const* function);

}  // namespace Qor

#define QOR_ASSERT(expression)          \
   ((expression) ? static_cast<void>(0) \
                 : ::Qor::assertionFailed(#expression, __FILE__, __LINE__, __PRETTY_FUNCTION__))
