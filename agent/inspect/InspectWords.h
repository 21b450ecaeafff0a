// The words of a command line, and the segments of a path in the entity tree.
//
// Blanks separate words. Texts with blanks, slashes or quotes stand in double quotes, in which a
// backslash makes the next character literal:
//    get /hwStatus/vrfStatus/default/route/"(10.0.0.2, 239.1.1.1)"
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

// A command that failed. what() is the reason, in one line.
class InspectError final : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct Word {
   std::string raw;   // the word as the line has it
   std::string text;  // the word without its quotes
   std::size_t at = 0;

   // Whether the word is a path: it begins with an unquoted slash.
   bool isPath() const { return raw.starts_with('/'); }
};

// Raises InspectError "the quote at column N is not closed".
std::vector<Word> wordsOf(std::string_view line);
// The segments of a path, without their quotes. A slash at the end of the path has no effect.
// Raises InspectError for a path that does not begin with a slash.
std::vector<std::string> segmentsOf(std::string_view path);
// The segment as a path has it: in quotes if it needs them.
std::string quotedSegment(std::string_view segment);

}  // namespace Agent
