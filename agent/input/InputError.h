// A fault of an input, with its place. All faults of captures, snapshots, interface maps and
// scenarios are printed in this one form, in which editors and people find the line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Agent {

struct InputPosition {
   std::string file;        // as the user named it; "<stdin>" for standard input
   std::uint64_t line = 0;  // from 1; 0: the file as a whole

   // "FILE:LINE", or "FILE" when the line is 0.
   std::string toString() const;
};

struct InputError {
   static constexpr std::size_t textLimit = 200;

   InputPosition position;
   std::string text;    // the offending text, at most textLimit bytes of it and "..." when cut
   std::string reason;  // never empty; may end with " (column N)"
   // The rest of the file cannot be read either, because the file is missing, unreadable or
   // corrupt. A caller that goes on reads the next file.
   bool fatal = false;

   // Cuts `offending` to the limit.
   void textIs(std::string_view offending);

   // "FILE:LINE:COLUMN: REASON: TEXT" in one line. The column and the text may be missing. Bytes
   // that are not printable ASCII become \xNN, so that a damaged file has no effect on a terminal.
   std::string toString() const;
};

}  // namespace Agent
