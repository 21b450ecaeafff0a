#include "agent/report/TextTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace Agent {

std::string aligned(std::vector<std::vector<std::string>> const& lines) {
   std::vector<std::size_t> widths;
   for (auto const& line : lines) {
      widths.resize(std::max(widths.size(), line.size()));
      for (std::size_t i = 0; i < line.size(); ++i)
         widths[i] = std::max(widths[i], line[i].size());
   }
   std::string text;
   for (auto const& line : lines) {
      for (std::size_t i = 0; i < line.size(); ++i)
         fmt::format_to(std::back_inserter(text), "{:<{}}  ", line[i], widths[i]);
      text.erase(text.find_last_not_of(' ') + 1);
      text += '\n';
   }
   return text;
}

}  // namespace Agent
