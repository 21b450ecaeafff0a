// A module with another sanitizer than the program. No code of it may run.
#include <cstdlib>

[[gnu::constructor]] static void run() {
   std::abort();
}

extern "C" [[gnu::visibility("default")]] char const velMrouteModule[256] = {};
