#include "agent/run/Interrupt.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

namespace Agent {

namespace {

volatile sig_atomic_t interruptNoted = 0;
volatile sig_atomic_t interruptFd = -1;

}  // namespace

InterruptEndsInput::InterruptEndsInput() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
   interruptFd = fd_;
   struct sigaction action {};
   action.sa_handler = [](int) {
      int const error = errno;
      interruptNoted = 1;
      eventfd_write(interruptFd, 1);
      errno = error;
   };
   action.sa_flags = static_cast<int>(SA_RESETHAND);  // no SA_RESTART: a waiting open returns
   sigaction(SIGINT, &action, &before_);
}

InterruptEndsInput::~InterruptEndsInput() {
   sigaction(SIGINT, &before_, nullptr);
   close(fd_);
}

bool interrupted() {
   return interruptNoted != 0;
}

}  // namespace Agent
