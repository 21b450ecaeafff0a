// The words of a command line, and the segments of a path in the entity tree.
//
// Words stand apart by blanks. What holds blanks, slashes or quotes stands in double quotes, in
// which a backslash takes the character behind it as it is:
//    get /hwStatus/vrfStatus/default/route/"(10.0.0.2, 239.1.1.1)"
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

// A command that cannot be done; what() is one line that says what is wrong.
class InspectError final : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct Word {
   std::string raw;   // as it stands in the line
   std::string text;  // without its quotes
   std::size_t at = 0;

   // Whether it names an object or another place: it begins with an unquoted slash.
   bool isPath() const { return raw.starts_with('/'); }
};

// InspectError "the quote at column N is not closed".
std::vector<Word> wordsOf(std::string_view line);
// The segments of a path as it stands in a line, without their quotes. A slash at the end says
// nothing. InspectError for a path that does not begin with one.
std::vector<std::string> segmentsOf(std::string_view path);
// The segment as it is written in a path: in quotes where it needs them.
std::string quotedSegment(std::string_view segment);

}  // namespace Agent
