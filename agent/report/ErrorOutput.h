// Errors on standard error, as all commands of the program print them: "velmroute: TEXT", in one
// line each.
#pragma once

#include <string_view>

namespace Agent {

// Prints the line. `text` is without prefix and without line end.
void printError(std::string_view text);

}  // namespace Agent
