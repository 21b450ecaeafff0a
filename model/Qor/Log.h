// Log messages for operators. A message is declared once, under a name that an operator can look
// up, and is logged with arguments.
#pragma once

#include <initializer_list>

#include "Qor/Export.h"
#include "Qor/Types.h"

namespace Qor {

// The recommended action of a message that requires none.
inline constexpr char const* noActionRequired = "No action is required.";

struct QOR_PUBLIC LogMessage {
   char const* name;
   unsigned severity;  // 0 emergency ... 7 debug, as in RFC 5424; 4 is a warning
   char const* explanation;
   char const* format;  // each %d takes one argument, printed as a whole number
   char const* recommendedAction;
   Seconds rateLimitInterval;  // after this time one more message passes; 0.0: no limit
   double rateLimitBurst;      // messages that pass at once, and the most that are saved up

   // The format with the arguments in the places of its %d, truncated towards zero. A %d without an
   // argument becomes empty.
   String text(std::initializer_list<double> arguments) const;
};

// The receiver of logged messages.
class QOR_PUBLIC LogSink {
 public:
   virtual ~LogSink();
   virtual void log(LogMessage const& message, String const& text) = 0;
};

// Passes the message to the sink, unless its rate limit holds it back. The standard sink writes
// "%<severity>-<name>: <text>" to the standard error stream.
QOR_PUBLIC void log(LogMessage const& message, std::initializer_list<double> arguments);

// Replaces the sink of the process and returns the former one. Null stands for the standard sink.
// The caller keeps ownership of both.
QOR_PUBLIC LogSink* logSinkIs(LogSink* sink);

}  // namespace Qor
