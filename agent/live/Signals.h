// The signals of a live agent as events of its loop: SIGTERM and SIGINT end it, and SIGHUP reads the
// configuration again.
#pragma once

#include <signal.h>  // NOLINT(modernize-deprecated-headers): sigset_t is of POSIX

#include <functional>

#include "agent/live/EventLoop.h"

namespace Agent {

class Signals final : public EventSource {
 public:
   // Blocks the signals for the life of this object. Raises std::system_error if the system has no
   // descriptor.
   Signals(std::function<void()> stop, std::function<void()> reload);
   ~Signals() override;
   Signals(Signals const&) = delete;
   Signals& operator=(Signals const&) = delete;

   int fd() const override { return fd_; }
   void ready(bool readable, bool writable) override;

 private:
   std::function<void()> const stop_;
   std::function<void()> const reload_;
   sigset_t before_{};
   int fd_ = -1;
};

}  // namespace Agent
