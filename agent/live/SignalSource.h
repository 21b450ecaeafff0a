// The signals of a live agent as events of its loop: TERM and INT end it, and HUP reads the
// configuration again. A second TERM or INT ends the process at once.
#pragma once

#include <functional>

#include "agent/live/EventLoop.h"
#include "agent/process/Signals.h"

namespace Agent {

class SignalSource final : public EventSource {
 public:
   // `stop` is called once. Raises what Signals raises.
   SignalSource(std::function<void()> stop, std::function<void()> reload)
         : stop_(std::move(stop)), reload_(std::move(reload)) {}

   int fd() const override { return interruptFd(); }
   void ready(bool readable, bool writable) override;

 private:
   Signals signals_{Signals::Hangup::reloads};
   std::function<void()> stop_;
   std::function<void()> const reload_;
};

}  // namespace Agent
