// Texts from inputs, as messages show them.
#pragma once

#include <string>
#include <string_view>

namespace Agent {

// Replaces each byte that is not printable ASCII by \xNN, so that the text is valid JSON and has no
// effect on a terminal.
std::string printable(std::string_view text);

// The text in quotation marks, cut after 60 bytes.
std::string inQuotes(std::string_view text);

}  // namespace Agent
