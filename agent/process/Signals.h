// The signals that end a command in an orderly way: INT, TERM and HUP.
//
// While an object of this class lives, the first of these signals is noted, and the process goes
// on. The command sees the note in interrupted(), or waits for interruptFd() beside its other
// descriptors, and ends with complete outputs. A second signal ends the process at once, as without this class.
// A signal that the process was started to ignore (nohup) stays ignored.
#pragma once

#include <signal.h>  // NOLINT(modernize-deprecated-headers): sigaction() is of POSIX

#include <array>
#include <string>

namespace Agent {

class Signals {
 public:
   static constexpr std::array<int, 3> numbers{SIGINT, SIGTERM, SIGHUP};

   enum class Hangup : unsigned char {
      ends,    // HUP ends the command, as the others
      reloads  // each HUP is kept for takeHangup(), and ends nothing
   };

   // At most one object lives at a time. Raises std::system_error if the system has no descriptor.
   explicit Signals(Hangup hangup = Hangup::ends);
   // Puts the dispositions back that were before.
   ~Signals();
   Signals(Signals const&) = delete;
   Signals& operator=(Signals const&) = delete;

   // Makes interruptFd() wait for the next signal. Returns whether a HUP has arrived since the last
   // call, with Hangup::reloads.
   bool takeHangup();

 private:
   friend void forgetInterrupt();
   void install();
   void drain() const;

   Hangup const hangup_;
   int const fd_;
   std::array<struct sigaction, numbers.size()> before_{};
};

// The noted signal, such as SIGINT; 0 for none. The note outlives the object of Signals.
int interruptSignal();
inline bool interrupted() {
   return interruptSignal() != 0;
}
// "INT", "TERM" or "HUP"; empty without a noted signal.
std::string interruptName();
// A descriptor that is readable once a signal has arrived, and from which nobody reads; -1, which
// poll(2) ignores, while no object of Signals lives.
int interruptFd();
// The command goes on after the noted signal, as a prompt does. The next signal is noted again.
void forgetInterrupt();

}  // namespace Agent
