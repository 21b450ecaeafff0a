#include "agent/inspect/Rehearsal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <optional>
#include <stdexcept>

#include "agent/process/Child.h"
#include "agent/process/Signals.h"

namespace Agent {

namespace {

// Limit on the copy, in seconds of processor time. Elapsed time would depend on the load of the
// machine.
constexpr unsigned longest = 20;

int runCopy(int errors, std::function<void()> const& doIt) {
   dup2(errors, STDERR_FILENO);
   close(STDOUT_FILENO);
   rlimit const noCore{0, 0};
   setrlimit(RLIMIT_CORE, &noCore);
   rlimit const limit{longest, longest + 5};
   setrlimit(RLIMIT_CPU, &limit);
   try {
      doIt();
   } catch (std::exception const&) {
      // The operation throws again in the calling process, where the exception is reported.
   }
   return 0;
}

// Reads to the end, or to an interrupt.
std::string readAll(int fd) {
   std::string all;
   char buffer[4096];
   for (;;) {
      pollfd waits[] = {{fd, POLLIN, 0}, {interruptFd(), POLLIN, 0}};
      if (poll(waits, std::size(waits), -1) > 0 && waits[0].revents == 0) return all;
      if (waits[0].revents == 0) continue;
      ssize_t const got = read(fd, buffer, sizeof buffer);
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) return all;
      all.append(buffer, static_cast<std::size_t>(got));
      constexpr std::size_t kept = 65536;
      if (all.size() > 2 * kept) all.erase(0, all.size() - kept);
   }
}

std::string lastLine(std::string const& text) {
   auto const end = text.find_last_not_of('\n');
   if (end == std::string::npos) return {};
   auto const begin = text.find_last_of('\n', end);
   return text.substr(begin + 1, end - begin);
}

}  // namespace

std::string rehearse(std::function<void()> const& doIt) {
   int ends[2];
   if (pipe2(ends, O_CLOEXEC) != 0) return "the trial in a copy of the process failed: no pipe";
   std::optional<Child> copy;
   try {
      copy.emplace([&] { return runCopy(ends[1], doIt); });
   } catch (std::runtime_error const& error) {
      close(ends[0]);
      close(ends[1]);
      return std::string("the trial in a copy of the process failed: ") + error.what();
   }
   close(ends[1]);
   std::string const text = lastLine(readAll(ends[0]));
   close(ends[0]);
   std::optional<int> const status = copy->wait();
   if (!status) return "interrupted";
   if (WIFEXITED(*status) && WEXITSTATUS(*status) == 0) return {};
   if (WIFSIGNALED(*status) && WTERMSIG(*status) == SIGXCPU) {
      return "the trial took more than " + std::to_string(longest) + " s of processor time";
   }
   return text.empty() ? "the copy ended without an error text" : text;
}

}  // namespace Agent
