#include "agent/process/Signals.h"

#include <string.h>  // NOLINT(modernize-deprecated-headers): sigabbrev_np() is of glibc
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>
#include <utility>

namespace Agent {

namespace {

std::atomic<int> notedSignal{0};
std::atomic<bool> notedHangup{false};
std::atomic<int> wakeFd{-1};
Signals* present = nullptr;

void wake() {
   int const error = errno;
   eventfd_write(wakeFd, 1);
   errno = error;
}

extern "C" void noteSignal(int number) {
   int none = 0;
   if (notedSignal.compare_exchange_strong(none, number)) {
      wake();
   } else {
      raise(number);  // SA_RESETHAND has put the default action back
   }
}

extern "C" void noteHangup(int) {
   notedHangup = true;
   wake();
}

int newWakeFd() {
   int const fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
   if (fd < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
   return fd;
}

}  // namespace

Signals::Signals(Hangup hangup) : hangup_(hangup), fd_(newWakeFd()) {
   notedSignal = 0;
   notedHangup = false;
   wakeFd = fd_;
   present = this;
   for (std::size_t i = 0; i < numbers.size(); ++i)
      sigaction(numbers[i], nullptr, &before_[i]);
   install();
}

Signals::~Signals() {
   for (std::size_t i = 0; i < numbers.size(); ++i)
      sigaction(numbers[i], &before_[i], nullptr);
   present = nullptr;
   wakeFd = -1;
   close(fd_);
}

void Signals::install() {
   for (std::size_t i = 0; i < numbers.size(); ++i) {
      bool const reloads = numbers[i] == SIGHUP && hangup_ == Hangup::reloads;
      if (before_[i].sa_handler == SIG_IGN && !reloads) continue;
      struct sigaction action {};
      action.sa_handler = reloads ? noteHangup : noteSignal;
      if (!reloads) action.sa_flags = static_cast<int>(SA_RESETHAND);
      // A command returns from any call that waits. An agent waits for interruptFd() alone.
      if (hangup_ == Hangup::reloads) action.sa_flags |= SA_RESTART;
      sigaction(numbers[i], &action, nullptr);
   }
}

void Signals::drain() const {
   eventfd_t count = 0;
   eventfd_read(fd_, &count);
}

bool Signals::takeHangup() {
   drain();
   return notedHangup.exchange(false);
}

int interruptSignal() {
   return notedSignal;
}

std::string interruptName() {
   int const number = interruptSignal();
   char const* const name = number ? sigabbrev_np(number) : nullptr;
   return name ? name : "";
}

int interruptFd() {
   return wakeFd;
}

void forgetInterrupt() {
   if (!present) return;
   present->drain();
   notedSignal = 0;
   present->install();
}

}  // namespace Agent
