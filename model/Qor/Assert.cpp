#include "Qor/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Qor {

void assertionFailed(char const* expression, char const* source, unsigned line,
                     char const* function) {
   std::fprintf(stderr, "%s:%u: %s: Assertion `%s' failed.\n", source, line, function, expression);
   std::fflush(stderr);
   std::abort();
}

}  // namespace Qor
