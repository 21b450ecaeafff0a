#include "agent/live/LiveLog.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "agent/input/PrintableText.h"

namespace Agent {

namespace {

constexpr std::array<std::string_view, 5> names = {"error", "warning", "notice", "info", "debug"};
constexpr int journalError = 3;  // of the journal's levels, which continue as ours do

std::size_t indexOf(LogLevel level) {
   return static_cast<std::size_t>(level);
}

std::string timeText() {
   std::time_t const seconds = std::time(nullptr);
   std::tm time{};
   ::localtime_r(&seconds, &time);
   return fmt::format("{:%F %T}", time);
}

}  // namespace

std::optional<LogLevel> logLevelNamed(std::string_view name) {
   auto const found = std::find(names.begin(), names.end(), name);
   if (found == names.end()) return std::nullopt;
   return static_cast<LogLevel>(found - names.begin());
}

std::string_view nameOf(LogLevel level) {
   return names[indexOf(level)];
}

LiveLog::Form LiveLog::formOfStandardError() {
   char const* const stream = std::getenv("JOURNAL_STREAM");
   struct stat file {};
   bool const journal = stream && ::fstat(STDERR_FILENO, &file) == 0 &&
                        fmt::format("{}:{}", file.st_dev, file.st_ino) == stream;
   return journal ? Form::journal : Form::terminal;
}

LiveLog::LiveLog(int fd, Form form) : LiveLog(fd, form, Limits()) {}

LiveLog::LiveLog(int fd, Form form, Limits limits)
      : fd_(fd), form_(form), limits_(limits), timer_("log", [this] { periodEnds(); }) {}

LiveLog::~LiveLog() {
   for (auto const& [key, repeated] : repeated_)
      summarize(repeated);
}

void LiveLog::log(LogLevel level, std::string_view key, std::string_view text) {
   if (!prints(level)) return;
   auto found = repeated_.find(key);
   if (found == repeated_.end()) {
      if (repeated_.size() >= limits_.keys) key = {};
      found = repeated_.try_emplace(std::string(key.substr(0, longestText))).first;
   }
   Repeated& repeated = found->second;
   if (repeated.printed == 0) repeated.ends = Qor::now() + limits_.period;
   if (timer_.time() > repeated.ends) timer_.at(repeated.ends);
   repeated.level = level;
   repeated.text = text.substr(0, longestText);
   if (repeated.printed < limits_.lines) {
      ++repeated.printed;
      print(level, repeated.text);
   } else {
      ++repeated.more;
      ++suppressed_;
   }
}

void LiveLog::periodEnds() {
   Qor::Seconds next = Qor::never;
   for (auto at = repeated_.begin(); at != repeated_.end();) {
      if (at->second.ends <= Qor::now()) {
         summarize(at->second);
         at = repeated_.erase(at);
      } else {
         next = std::min(next, at->second.ends);
         ++at;
      }
   }
   timer_.at(next);
}

void LiveLog::summarize(Repeated const& repeated) {
   if (repeated.more == 0) return;
   print(repeated.level, fmt::format("{} ... and {} more like this", repeated.text, repeated.more));
}

// A pipe or socket that can be written takes a line of this length without blocking.
void LiveLog::print(LogLevel level, std::string_view text) {
   std::string line = form_ == Form::journal
                            ? fmt::format("<{}>", journalError + static_cast<int>(indexOf(level)))
                            : fmt::format("{} {}: ", timeText(), nameOf(level));
   line += printable(text) + '\n';
   pollfd polled{fd_, POLLOUT, 0};
   bool const writable = ::poll(&polled, 1, 0) == 1 && (polled.revents & POLLOUT) != 0;
   if (!writable || ::write(fd_, line.data(), line.size()) < 0) ++suppressed_;
}

}  // namespace Agent
