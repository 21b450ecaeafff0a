// Text in aligned columns, two blanks apart, without blanks at the ends of lines.
#pragma once

#include <string>
#include <vector>

namespace Agent {

// Each line is a list of cells.
std::string aligned(std::vector<std::vector<std::string>> const& lines);

}  // namespace Agent
