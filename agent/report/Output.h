// Tests whether output has reached its file. A full disk prevents that, and so does a reader of a
// pipe that has ended.
#pragma once

#include <ostream>
#include <string_view>

namespace Agent {

// Flushes the stream and returns whether all output was written. If not, reports on standard error
// that the file with this name cannot be written, with the system's reason.
bool outputWritten(std::ostream& out, std::string_view name);
// The same for standard output, but reports nothing if the reader of a pipe has ended.
bool outputWritten();

}  // namespace Agent
