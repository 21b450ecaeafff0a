// Parses the JSON of `ip -j mroute show` and `ip -6 -j mroute show` into one event. The command may
// have the options -s, -d and -p, and `table all`.
//
//    [{"src":"10.0.0.2","dst":"239.1.1.2","iif":"rtr0","multipath":[{"oif":"rtr3","ttl":5}],
//      "state":"resolved","packets":5,"bytes":560,"expires":2.03,"table":"default"}, ...]
//
// A route needs "src" and "dst". "iif" may be missing or "unresolved". "multipath" may be missing
// or empty. "state" is "resolved" by default, and "table" is a name or a number. The parser ignores
// "ttl" and all other keys, whose values may have any form.
//
// One malformed route makes the whole snapshot malformed, because a snapshot without that route
// would remove the route.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "agent/input/CaptureEvent.h"

namespace Agent {

class SnapshotParser {
 public:
   // Whether a line begins a JSON text. The line of a monitor may begin with a bracket, too, namely
   // that of its time stamp.
   static bool looksLikeJson(std::string_view line);

   // Parses a whole JSON text. Returns true with the snapshot in `event`, without a time. Otherwise
   // `event` is unchanged, and the operations below describe the fault.
   bool parse(std::string_view text, SnapshotEvent& event);

   // "route 17: no "dst"", or the syntax error of the JSON text.
   std::string const& reason() const { return reason_; }
   // The place of the fault: a byte of the text, or its size if the text ends too early.
   std::size_t position() const { return position_; }
   // The route that is malformed, or the text shortly before the position.
   std::string_view excerpt() const { return excerpt_; }

 private:
   std::string reason_;
   std::size_t position_ = 0;
   std::string_view excerpt_;
};

// Finds the end of a JSON text, line by line, by its brackets.
class JsonExtent {
 public:
   // Reads the next piece of the text. Returns true if the piece closes the outermost bracket;
   // `rest` is then the text behind that bracket.
   bool closed(std::string_view piece, std::string_view& rest);

 private:
   std::size_t depth_ = 0;
   bool inString_ = false;
   bool escaped_ = false;
};

}  // namespace Agent
