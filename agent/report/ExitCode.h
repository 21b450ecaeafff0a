// Exit codes of the program.
#pragma once

namespace Agent {

inline constexpr int exitDone = 0;
inline constexpr int exitFailed = 1;  // bad input, failed output, a difference or a fault
inline constexpr int exitUsage = 2;

}  // namespace Agent
