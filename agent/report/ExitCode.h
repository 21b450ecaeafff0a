// Exit codes of the program.
#pragma once

namespace Agent {

inline constexpr int exitDone = 0;
inline constexpr int exitFailed = 1;  // bad input, failed output, a difference or a fault
inline constexpr int exitUsage = 2;
inline constexpr int exitInterrupted = 3;  // ended by a signal, and no failure up to then

// The exit code of a command that has ended with or without a failure.
constexpr int exitCode(bool good, bool interrupted) {
   if (!good) return exitFailed;
   return interrupted ? exitInterrupted : exitDone;
}

}  // namespace Agent
