// Log messages for operators: declared once, each under a name an operator can look up, and raised
// with arguments.
#pragma once

#include <initializer_list>

#include "Qor/Export.h"
#include "Qor/Types.h"

namespace Qor {

// The recommended action of a message that asks for none.
inline constexpr char const* noActionRequired = "No action is required.";

struct QOR_PUBLIC LogMessage {
   char const* name;
   unsigned severity;  // 0 emergency ... 7 debug, as in RFC 5424; 4 is a warning
   char const* explanation;
   char const* format;  // each %d takes one argument, printed as a whole number
   char const* recommendedAction;
   Seconds rateLimitInterval;  // least time between two of this message; 0.0 is unlimited
   double rateLimitBurst;      // messages let through at once within the interval

   // The format with its arguments, truncated towards zero.
   String text(std::initializer_list<double> arguments) const;
};

class QOR_PUBLIC LogSink {
 public:
   virtual ~LogSink();
   virtual void log(LogMessage const& message, String const& text) = 0;
};

// Raises the message. The standard sink writes "%<severity>-<name>: <text>" to standard error.
QOR_PUBLIC void log(LogMessage const& message, std::initializer_list<double> arguments);

// Replaces the sink and returns the one before; null stands for the standard sink. The caller keeps
// ownership.
QOR_PUBLIC LogSink* logSinkIs(LogSink* sink);

}  // namespace Qor
