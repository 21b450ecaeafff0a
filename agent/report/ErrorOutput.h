// Errors on standard error, as all commands of the program print them: "velmroute: TEXT", in one
// line each.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace Agent {

// Prints the line. `text` is without prefix and without line end.
void printError(std::string_view text);
// Prints a text of several lines without a prefix, such as a scenario that a caller keeps.
void printErrorText(std::string_view text);

// Errors with a limit: the first `most` of each kind are printed at once, and the number of the
// others at the end: "and 312 more errors of this kind: KIND".
class ErrorLimit {
 public:
   static constexpr std::uint64_t most = 10;
   static constexpr std::size_t kinds = 50;  // further kinds share one

   ErrorLimit() = default;
   // Calls finish().
   ~ErrorLimit() { finish(); }
   ErrorLimit(ErrorLimit const&) = delete;
   ErrorLimit& operator=(ErrorLimit const&) = delete;

   void print(std::string_view kind, std::string_view text);
   // Prints the numbers, and forgets all errors. `hint` follows each kind.
   void finish(std::string_view hint = {});

   // The kind of an error that has no name for it: the text with "..." in place of each quoted part
   // and N in place of each number, and without a column at the end.
   static std::string kindOf(std::string_view text);

 private:
   std::map<std::string, std::uint64_t, std::less<>> counts_;
};

}  // namespace Agent
