// Text in aligned columns, two blanks apart, without blanks at the ends of lines.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Agent {

// Each line has as many cells as the first one.
void printAligned(std::ostream& os, std::vector<std::vector<std::string>> const& lines);

}  // namespace Agent
