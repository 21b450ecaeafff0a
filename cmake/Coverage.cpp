// Only where lines are counted. Each process writes its counters where it ends: by _exit too, as the
// copies do in which something is tried, and by a failed assertion. That takes longer than most
// copies live, so nothing is written before a fork, and of a process's copies the first write, and
// then one of many. The library counts for itself.
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
   pid_t (*const volatile plain)() = fork;  // called by name, it would become the one that writes
   counts = ++copies <= 10 || copies % 20 == 0;
   pid_t const pid = plain();
   counts = counts || pid != 0;
   return pid;
}

#endif
