#include "agent/live/Signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace Agent {

Signals::Signals(std::function<void()> stop, std::function<void()> reload)
      : stop_(std::move(stop)), reload_(std::move(reload)) {
   sigset_t ours;
   sigemptyset(&ours);
   for (int const number : {SIGTERM, SIGINT, SIGHUP})
      sigaddset(&ours, number);
   fd_ = ::signalfd(-1, &ours, SFD_CLOEXEC | SFD_NONBLOCK);
   if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
   sigprocmask(SIG_BLOCK, &ours, &before_);
}

Signals::~Signals() {
   ::close(fd_);
   sigprocmask(SIG_SETMASK, &before_, nullptr);
}

void Signals::ready(bool, bool) {
   signalfd_siginfo info{};
   while (::read(fd_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
      if (info.ssi_signo == SIGHUP) {
         reload_();
      } else {
         stop_();
      }
   }
}

}  // namespace Agent
