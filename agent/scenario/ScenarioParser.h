// Parses scenarios: JSON Lines with one timed event in each line, as docs/scenarios.md describes
// them. A faulty line is refused as a whole. Faults are an unknown key, a wrong type, a number out
// of range, a missing key and a time that goes back. The reason begins with the path of the key:
// "route.oifs[1]: interface name ... is longer than 15 bytes".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "agent/scenario/Scenario.h"

namespace Agent {

// Parses one line after the other, and keeps the time of the last good line.
class ScenarioParser {
 public:
   enum class Result { event, skipped, malformed };  // skipped: an empty line or a comment

   // Parses `text`, which has no line end. With Result::event, sets the time, path and event of
   // `line`, and leaves `where`. Otherwise `line` and the kept time are unchanged.
   Result parse(std::string_view text, Scenario::Line& line);

   // After Result::malformed.
   std::string const& reason() const { return reason_; }

 private:
   double time_ = 0;
   bool first_ = true;  // no event so far
   std::string reason_;
};

// A whole scenario. All lines are parsed before the first one is played.
struct ScenarioFile {
   Scenario::Settings settings;
   // The only path that plays the scenario, from the line of the settings; absent: both paths do.
   std::optional<PathKind> path;
   std::vector<Scenario::Line> lines;  // without the settings
   std::vector<InputError> errors;     // in the order of the file; faulty lines are not in `lines`

   // "-" is standard input.
   static ScenarioFile read(std::string const& fileName);
};

// Whether a file is a scenario, by its beginning (agent/input/InputKind.h). False for a file that
// cannot be read, and for standard input and pipes, which cannot be read again.
bool isScenarioFile(std::string const& fileName);

}  // namespace Agent
