// The JSON of `ip -j mroute show` and `ip -6 -j mroute show` to one event; with or without -s, -d,
// -p and `table all`.
//
//    [{"src":"10.0.0.2","dst":"239.1.1.2","iif":"rtr0","multipath":[{"oif":"rtr3","ttl":5}],
//      "state":"resolved","packets":5,"bytes":560,"expires":2.03,"table":"default"}, ...]
//
// A route needs "src" and "dst". "iif" may be missing or "unresolved", "multipath" may be missing
// or empty, "state" is "resolved" unless it says otherwise, "table" is a name or a number. Other
// keys, and "ttl", are counters and flags that do not matter here; their values may have any form.
//
// One malformed route makes the whole snapshot malformed: a table with a hole would be taken for a
// table without that route.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "agent/input/CaptureEvent.h"

namespace Agent {

class SnapshotParser {
 public:
   // Whether a line begins a JSON text rather than a line of a monitor, whose time stamp begins
   // with a bracket, too.
   static bool looksLikeJson(std::string_view line);

   // Reads a whole JSON text. When it returns true, `event` is the snapshot, without a time;
   // otherwise `event` is as it was, and the operations below say what is wrong.
   bool parse(std::string_view text, SnapshotEvent& event);

   // "route 17: no "dst"", or what is wrong with the JSON itself.
   std::string const& reason() const { return reason_; }
   // Where in the text: a byte of it, or its size when it ends too early.
   std::size_t position() const { return position_; }
   // The route that is malformed, or the text shortly before the position.
   std::string_view excerpt() const { return excerpt_; }

 private:
   std::string reason_;
   std::size_t position_ = 0;
   std::string_view excerpt_;
};

// Tells where a JSON text ends, line by line, from its brackets.
class JsonExtent {
 public:
   // Feeds more of the text. Returns true when the outermost bracket has been closed; `rest` is
   // then what follows it.
   bool closed(std::string_view piece, std::string_view& rest);

 private:
   std::size_t depth_ = 0;
   bool inString_ = false;
   bool escaped_ = false;
};

}  // namespace Agent
