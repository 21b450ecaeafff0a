// Scenarios: JSON Lines, one timed event a line, as docs/scenarios.md describes them. A line is
// read whole or refused whole: an unknown key, a wrong type, a number out of range, a missing key
// and a time that goes back are errors, each with a reason that names the path of the key:
// "route.oifs[1]: interface name ... is longer than 15 bytes".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "agent/scenario/Scenario.h"

namespace Agent {

// One line after the other; remembers the time of the last good one.
class ScenarioParser {
 public:
   enum class Result { event, skipped, malformed };  // skipped: an empty line, a comment

   // Reads `text`, without its line end. With Result::event, `line` has its time, path and event,
   // and what was in `where` before. Otherwise nothing has changed, the remembered time included.
   Result parse(std::string_view text, Scenario::Line& line);

   // After Result::malformed.
   std::string const& reason() const { return reason_; }

 private:
   double time_ = 0;
   bool first_ = true;  // no event so far
   std::string reason_;
};

// A whole scenario, read before any of it is played.
struct ScenarioFile {
   Scenario::Settings settings;
   std::optional<Path> path;  // the settings' line names: all of it is played on this path alone
   std::vector<Scenario::Line> lines;  // without the settings
   std::vector<InputError> errors;  // in the order of the file; nothing of such lines is in `lines`

   // "-" is standard input.
   static ScenarioFile read(std::string const& fileName);
};

// Whether a line that is neither empty nor a comment is a scenario's: whether it begins with '{'.
bool isScenarioLine(std::string_view text);
// Whether a file is a scenario, by the first line that is neither empty nor a comment; a gzip file
// is looked into. False for standard input and for what is no regular file, since what is read from
// there cannot be read again, and for what cannot be read.
bool isScenarioFile(std::string const& fileName);

}  // namespace Agent
