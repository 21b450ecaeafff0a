#include "agent/input/PrintableText.h"

#include <fmt/format.h>

#include <iterator>

namespace Agent {

std::string printable(std::string_view text) {
   std::string out;
   for (char const c : text) {
      if (c >= ' ' && c <= '~') {
         out += c;
      } else {
         fmt::format_to(std::back_inserter(out), "\\x{:02x}", static_cast<unsigned char>(c));
      }
   }
   return out;
}

std::string inQuotes(std::string_view text) {
   constexpr std::size_t limit = 60;
   return fmt::format("\"{}{}\"", text.substr(0, limit), text.size() > limit ? "..." : "");
}

}  // namespace Agent
