// Notices to the service manager that started the agent: readiness, state, and the keep-alives of
// its watchdog. Without a service manager (NOTIFY_SOCKET) nothing happens.
#pragma once

#include <string>

#include "agent/live/Timer.h"

namespace Agent {

class ServiceNotice {
 public:
   // Sends keep-alives from now on if the manager has a watchdog (WATCHDOG_USEC): they stop when the
   // loop of the agent stands still.
   ServiceNotice();

   // The agent serves: after its start, and after reloading().
   void ready();
   // A line for the operator.
   void status(std::string const& line);
   void reloading();
   void stopping();

 private:
   void keepAlive();

   Qor::Seconds period_ = Qor::never;
   Timer timer_;
};

}  // namespace Agent
