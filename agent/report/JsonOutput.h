// JSON documents on an output stream, as all commands print them: in one line, or indented on
// request (-p, --pretty).
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <ostream>

namespace Agent {

enum class JsonStyle : unsigned char { compact, pretty };

// Prints the document and a line end. Bytes that are no UTF-8 become U+FFFD.
void printJson(std::ostream& os, nlohmann::ordered_json const& document,
               JsonStyle style = JsonStyle::compact);

}  // namespace Agent
