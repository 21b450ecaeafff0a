// The text of the option --trace and of the command `trace`.
#pragma once

#include <optional>
#include <string>

namespace Agent {

// Parses "LEVEL[:GLOB]" and turns the trace on. Returns the fault of the text, or nothing.
std::optional<std::string> applyTraceOption(std::string const& text);

}  // namespace Agent
