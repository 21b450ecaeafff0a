// Tries an operation in a copy of the process, to learn whether the operation would end the
// process.
#pragma once

#include <functional>
#include <string>

namespace Agent {

// Runs `doIt` in a copy of the process, which then ends. This process does not change, except for
// the read positions of open files. Returns an empty text if `doIt` returned or threw an exception.
// Otherwise returns the last line that the copy wrote to standard error. An interrupt
// (agent/process/Signals.h) ends the copy, and the text is "interrupted".
std::string rehearse(std::function<void()> const& doIt);

}  // namespace Agent
