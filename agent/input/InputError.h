// A place in the input, and what is wrong there. Every complaint about an input (a capture, a
// snapshot, an interface map) is one InputError and is printed in one form, so that editors and
// people find the line.
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
   std::string reason;  // never empty
   // The rest of the file cannot be read either: it is missing, unreadable or corrupt. Going on
   // means going on with the next file.
   bool fatal = false;

   // Cuts `offending` to the limit.
   void textIs(std::string_view offending);

   // "FILE:LINE: REASON", and when there is a text a second line of four blanks and the text.
   // Bytes that are not printable ASCII show as \xNN, so that a damaged file cannot upset a
   // terminal.
   std::string toString() const;
};

}  // namespace Agent
