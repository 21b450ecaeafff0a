// An interrupt (SIGINT) that ends the input of a run, as the end of the file does.
#pragma once

#include <signal.h>  // NOLINT(modernize-deprecated-headers): sigaction() is of POSIX

namespace Agent {

// While this object lives, an interrupt does not end the process. interrupted() is true from then
// on, and fd() is readable, so that an interrupt also wakes a read that waits. A second interrupt
// ends the process as usual.
class InterruptEndsInput {
 public:
   InterruptEndsInput();
   ~InterruptEndsInput();
   InterruptEndsInput(InterruptEndsInput const&) = delete;
   InterruptEndsInput& operator=(InterruptEndsInput const&) = delete;

   int fd() const { return fd_; }

 private:
   int const fd_;
   struct sigaction before_ {};
};

// Whether the process was interrupted at any time.
bool interrupted();

}  // namespace Agent
