// An interrupt (SIGINT) that ends the input of a run as end of file does.
#pragma once

#include <signal.h>

namespace Agent {

// While it lives, an interrupt is noted instead of ending the process, and is readable at fd(), so
// that a read that waits is woken. A second interrupt ends the process as usual.
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
