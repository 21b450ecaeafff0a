// Linked into each target of the preset coverage only. A process writes its line counters when it
// ends, also with _exit() and with a failed assertion, which end the copies that a test forks. Writing
// the counters takes longer than most copies live. A process therefore writes no counters before a
// fork, and of its copies only the first ten write theirs, and then every twentieth. The shared
// library has counters of its own, which dumpCoverage() writes.
#include <unistd.h>

extern "C" {

void __gcov_dump();
[[noreturn]] void __real_abort();
[[noreturn]] void __wrap_abort();
[[noreturn]] void __real__exit(int code);
[[noreturn]] void __wrap__exit(int code);
pid_t __wrap___gcov_fork();
}

namespace Qor {

[[gnu::visibility("default")]] void dumpCoverage();

}  // namespace Qor

#ifdef VelMroute_EXPORTS

void Qor::dumpCoverage() {
   __gcov_dump();
}

void __wrap_abort() {
   __gcov_dump();
   __real_abort();
}

#else

namespace {

unsigned copies = 0;
bool counts = true;

void dump() {
   if (!counts) return;
   __gcov_dump();
   Qor::dumpCoverage();
}

}  // namespace

void __wrap_abort() {
   dump();
   __real_abort();
}

void __wrap__exit(int code) {
   dump();
   __real__exit(code);
}

pid_t __wrap___gcov_fork() {
   // The compiler replaces a direct call of fork() by the function of its runtime that writes the
   // counters; it does not replace a call through a pointer.
   pid_t (*const volatile plain)() = fork;
   counts = ++copies <= 10 || copies % 20 == 0;
   pid_t const pid = plain();
   counts = counts || pid != 0;
   return pid;
}

#endif
