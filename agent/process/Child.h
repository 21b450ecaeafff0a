// A copy of this process that does some work and ends.
//
// The copy never outlives this process: the kernel kills the copy if this process is killed. INT,
// TERM and HUP have no effect on the copy, because a terminal sends them to this process as well,
// which then ends the copy.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>

namespace Agent {

class Child {
 public:
   // Runs `work` in the copy, which ends with the exit code that `work` returns. `work` throws no
   // error. Raises std::runtime_error if no process can be made.
   explicit Child(std::function<int()> const& work);
   // Kills the copy, unless it has ended.
   ~Child();
   Child(Child const&) = delete;
   Child& operator=(Child const&) = delete;

   // Waits until the copy has ended, and returns its status as waitpid(2) does. If this process is
   // interrupted (agent/process/Signals.h), kills the copy and returns nothing. Calls `look` ten
   // times a second.
   std::optional<int> wait(std::function<void()> const& look = nullptr);

 private:
   int reap();

   pid_t pid_ = -1;
   int end_ = -1;  // the read end of a pipe, which the kernel closes at the end of the copy
};

}  // namespace Agent
