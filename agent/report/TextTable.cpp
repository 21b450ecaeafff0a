#include "agent/report/TextTable.h"

#include <algorithm>

namespace Agent {

void printAligned(std::ostream& os, std::vector<std::vector<std::string>> const& lines) {
   if (lines.empty()) return;
   std::vector<std::size_t> widths(lines.front().size(), 0);
   for (auto const& line : lines) {
      for (std::size_t i = 0; i < line.size(); ++i)
         widths[i] = std::max(widths[i], line[i].size());
   }
   for (auto const& line : lines) {
      std::string out;
      for (std::size_t i = 0; i < line.size(); ++i) {
         out += line[i];
         if (i + 1 < line.size()) out.append(widths[i] - line[i].size() + 2, ' ');
      }
      out.erase(out.find_last_not_of(' ') + 1);
      os << out << '\n';
   }
}

}  // namespace Agent
