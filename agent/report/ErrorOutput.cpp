#include "agent/report/ErrorOutput.h"

#include <fmt/format.h>

#include <iostream>

#include "agent/report/Progress.h"

namespace Agent {

void printError(std::string_view text) {
   // One write for each line, so that lines of a forked child do not mix with others.
   printErrorText("velmroute: " + std::string(text) + '\n');
}

void printErrorText(std::string_view text) {
   Progress::clearPresent();
   std::cerr << text;
}

void ErrorLimit::print(std::string_view kind, std::string_view text) {
   if (counts_.size() >= kinds && !counts_.contains(kind)) kind = "another kind";
   if (++counts_[std::string(kind)] <= most) printError(text);
}

void ErrorLimit::finish(std::string_view hint) {
   for (auto const& [kind, count] : counts_) {
      if (count <= most) continue;
      printError(fmt::format("and {} more {} of this kind: {}{}", count - most,
                             count - most == 1 ? "error" : "errors", kind, hint));
   }
   counts_.clear();
}

std::string ErrorLimit::kindOf(std::string_view text) {
   static constexpr std::string_view columnWord = " (column ";
   if (text.ends_with(')')) text = text.substr(0, text.rfind(columnWord));
   auto const digit = [](char c) { return c >= '0' && c <= '9'; };
   std::string kind;
   for (std::size_t i = 0; i < text.size(); ++i) {
      std::size_t const quote = text[i] == '"' ? text.find('"', i + 1) : std::string_view::npos;
      if (quote != std::string_view::npos) {
         kind += "\"...\"";
         i = quote;
      } else if (!digit(text[i])) {
         kind += text[i];
      } else if (i == 0 || !digit(text[i - 1])) {
         kind += 'N';
      }
   }
   return kind;
}

}  // namespace Agent
