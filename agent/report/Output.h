// Whether output has reached its file, which a full disk or a reader that has gone prevents.
#pragma once

#include <ostream>
#include <string_view>

namespace Agent {

// Flushes the stream. Returns whether everything was written, and otherwise reports on standard
// error that the file of this name cannot be written, and why.
bool outputWritten(std::ostream& out, std::string_view name);
// The same for standard output.
bool outputWritten();

}  // namespace Agent
