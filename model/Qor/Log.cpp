#include "Qor/Log.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <string_view>

#include "Qor/Clock.h"

namespace Qor {

namespace {

LogSink* currentSink = nullptr;

// A token bucket for each message: a bucket holds up to rateLimitBurst tokens, gains one token in
// each rateLimitInterval, and loses one with each message that passes.
bool withinRate(LogMessage const& message) {
   if (message.rateLimitInterval <= 0) return true;
   struct Bucket {
      double tokens;
      Seconds filledAt;
   };
   // Never destroyed, since objects with static storage may log in their destructors.
   static auto& buckets = *new std::map<LogMessage const*, Bucket>;
   Seconds const present = now();
   Bucket& bucket =
         buckets.try_emplace(&message, Bucket{message.rateLimitBurst, present}).first->second;
   double const gained = (present - bucket.filledAt) / message.rateLimitInterval;
   bucket = {std::min(message.rateLimitBurst, bucket.tokens + std::max(gained, 0.0)), present};
   if (bucket.tokens < 1) return false;
   bucket.tokens -= 1;
   return true;
}

}  // namespace

LogSink::~LogSink() = default;

String LogMessage::text(std::initializer_list<double> arguments) const {
   String out;
   std::string_view rest(format);
   auto argument = arguments.begin();
   for (auto hole = rest.find("%d"); hole != std::string_view::npos; hole = rest.find("%d")) {
      out += rest.substr(0, hole);
      if (argument != arguments.end()) {
         char number[320];  // enough for any double; adding 0.0 turns -0 into 0
         std::snprintf(number, sizeof number, "%.0f", std::trunc(*argument++) + 0.0);
         out += number;
      }
      rest.remove_prefix(hole + 2);
   }
   return out += rest;
}

void log(LogMessage const& message, std::initializer_list<double> arguments) {
   if (!withinRate(message)) return;
   String const text = message.text(arguments);
   if (currentSink) {
      currentSink->log(message, text);
   } else {
      std::fprintf(stderr, "%%%u-%s: %s\n", message.severity, message.name, text.c_str());
   }
}

LogSink* logSinkIs(LogSink* sink) {
   LogSink* const before = currentSink;
   currentSink = sink;
   return before;
}

}  // namespace Qor
