// Assertions for broken invariants. Assertions are part of the behaviour: they are on in every
// build type, with NDEBUG too, and the text of an assertion is its expression as written in the
// source.
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
