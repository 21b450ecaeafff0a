// Tries a thing in a copy of the process, to see whether it would end this one.
#pragma once

#include <functional>
#include <string>

namespace Agent {

// Runs `doIt` in a copy and forgets it there: nothing of this process changes, but for the place
// where open files are read. Returns why it must not be done, as the last line that it wrote to
// standard error; empty when it ended well, by an exception too.
std::string rehearse(std::function<void()> const& doIt);

}  // namespace Agent
