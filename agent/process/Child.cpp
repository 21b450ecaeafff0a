#include "agent/process/Child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <stdexcept>

#include "agent/process/Signals.h"

namespace Agent {

namespace {

[[noreturn]] void runCopy(pid_t parent, std::function<int()> const& work) {
   for (int const number : Signals::numbers)
      std::signal(number, SIG_IGN);
   prctl(PR_SET_PDEATHSIG, SIGKILL);
   // The parent may have ended before the call, which then has no effect.
   if (getppid() != parent) _exit(1);
   _exit(work());
}

}  // namespace

Child::Child(std::function<int()> const& work) {
   int ends[2];
   if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("cannot create a pipe");
   pid_t const parent = getpid();
   pid_ = fork();
   if (pid_ == 0) {
      close(ends[0]);
      runCopy(parent, work);
   }
   close(ends[1]);
   end_ = ends[0];
   if (pid_ > 0) return;
   close(end_);
   throw std::runtime_error("cannot create a process");
}

Child::~Child() {
   if (pid_ > 0) {
      kill(pid_, SIGKILL);
      reap();
   }
   close(end_);
}

std::optional<int> Child::wait(std::function<void()> const& look) {
   constexpr int lookInterval = 100;  // milliseconds
   while (true) {
      pollfd waits[] = {{end_, POLLIN, 0}, {interruptFd(), POLLIN, 0}};
      int const ready = poll(waits, std::size(waits), look ? lookInterval : -1);
      if (ready == 0) look();
      if (ready <= 0) continue;
      if (waits[0].revents != 0) return reap();
      kill(pid_, SIGKILL);
      reap();
      return std::nullopt;
   }
}

int Child::reap() {
   int status = 0;
   while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
   }
   pid_ = -1;
   return status;
}

}  // namespace Agent
