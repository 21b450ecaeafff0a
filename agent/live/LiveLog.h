// The log of a live agent: lines with levels on a descriptor, with limits.
//
// In each period the log prints `lines` lines with the same key. At the end of the period it prints
// the number of the others in one line. A line is one line of printable ASCII, however hostile the
// text, and has at most longestText bytes. A reader that does not read costs lines and no time: a
// line that would block is left out and counted.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "agent/live/Timer.h"

namespace Agent {

enum class LogLevel { error, warning, notice, info, debug };

// The level with this name, or nothing.
std::optional<LogLevel> logLevelNamed(std::string_view name);
std::string_view nameOf(LogLevel level);

class LiveLog {
 public:
   struct Limits {
      Qor::U32 lines = 10;
      Qor::Seconds period = 60;
      std::size_t keys = 256;  // further keys of a period share one
   };
   static constexpr std::size_t longestText = 1000;

   enum class Form {
      journal,  // "<4>text", for the journal of the service manager
      terminal  // "2026-01-31 23:59:59 warning: text", in local time
   };
   // The journal's form if standard error is a stream of the journal (JOURNAL_STREAM).
   static Form formOfStandardError();

   explicit LiveLog(int fd = 2, Form form = formOfStandardError());
   LiveLog(int fd, Form form, Limits limits);
   // Prints the pending numbers.
   ~LiveLog();
   LiveLog(LiveLog const&) = delete;
   LiveLog& operator=(LiveLog const&) = delete;

   LogLevel level() const { return level_; }
   void levelIs(LogLevel level) { level_ = level; }
   // Whether lines of this level are printed, for a caller whose text is costly.
   bool prints(LogLevel level) const { return level <= level_; }

   // Prints the text, within the limits of its key. Texts about the same thing have the same key;
   // without a key the text itself is the key.
   void log(LogLevel level, std::string_view key, std::string_view text);
   void log(LogLevel level, std::string_view text) { log(level, text, text); }
   void error(std::string_view text) { log(LogLevel::error, text); }
   void warning(std::string_view text) { log(LogLevel::warning, text); }
   void notice(std::string_view text) { log(LogLevel::notice, text); }
   void info(std::string_view text) { log(LogLevel::info, text); }
   void debug(std::string_view text) { log(LogLevel::debug, text); }

   // The lines that were not printed so far, by a limit or for want of a reader.
   Qor::U64 suppressed() const { return suppressed_; }

 private:
   struct Repeated {
      LogLevel level = LogLevel::error;
      std::string text;       // of the last line
      Qor::Seconds ends = 0;  // the end of the period
      Qor::U32 printed = 0;
      Qor::U64 more = 0;
   };

   void print(LogLevel level, std::string_view text);
   void periodEnds();
   void summarize(Repeated const& repeated);

   int const fd_;
   Form const form_;
   Limits const limits_;
   LogLevel level_ = LogLevel::notice;
   std::map<std::string, Repeated, std::less<>> repeated_;  // by key
   Qor::U64 suppressed_ = 0;
   Timer timer_;
};

}  // namespace Agent
