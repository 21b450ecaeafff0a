#include "agent/report/Progress.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <iostream>
#include <streambuf>

#include "Qor/Log.h"
#include "Qor/Trace.h"

namespace Agent {

namespace {

Progress* present = nullptr;

std::size_t columns() {
   winsize size{};
   constexpr std::size_t usual = 80;
   return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col ? size.ws_col : usual;
}

// "1,234,567"
std::string grouped(std::uint64_t number) {
   std::string text = std::to_string(number);
   for (std::size_t at = text.size(); at > 3; text.insert(at, ","))
      at -= 3;
   return text;
}

std::string durationText(double seconds) {
   auto const whole = static_cast<std::uint64_t>(std::ceil(seconds));
   constexpr std::uint64_t minute = 60, hour = 60 * minute;
   if (whole < 2 * minute) return fmt::format("{} s", whole);
   if (whole < 2 * hour) return fmt::format("{} min", (whole + minute / 2) / minute);
   return fmt::format("{} h", (whole + hour / 2) / hour);
}

}  // namespace

// The outputs that the line must not mix with, while the line is shown. std::cout flushes the
// stream it is tied to before each output, and that flush clears the line.
class Progress::Outputs final : private std::streambuf,
                                private Qor::TraceSink,
                                private Qor::LogSink {
 public:
   Outputs()
         : stream_(this),
           tieBefore_(std::cout.tie(&stream_)),
           traceBefore_(Qor::traceSinkIs(this)),
           logBefore_(Qor::logSinkIs(this)) {}
   ~Outputs() override {
      std::cout.tie(tieBefore_);
      Qor::traceSinkIs(traceBefore_);
      Qor::logSinkIs(logBefore_);
   }
   Outputs(Outputs const&) = delete;
   Outputs& operator=(Outputs const&) = delete;

 private:
   int sync() override {
      clearPresent();
      return 0;
   }
   void trace(Qor::TraceRecord const& record) override {
      clearPresent();
      if (traceBefore_) return traceBefore_->trace(record);
      std::cerr << Qor::traceLine(record) + '\n';
   }
   void log(Qor::LogMessage const& message, Qor::String const& text) override {
      clearPresent();
      if (logBefore_) return logBefore_->log(message, text);
      std::cerr << fmt::format("%{}-{}: {}\n", message.severity, message.name, text);
   }

   std::ostream stream_;
   std::ostream* const tieBefore_;
   Qor::TraceSink* const traceBefore_;
   Qor::LogSink* const logBefore_;
};

Progress::Progress() : shown_(isatty(STDERR_FILENO) != 0) {
   if (!shown_) return;
   present = this;
   outputs_ = std::make_unique<Outputs>();
}

Progress::~Progress() {
   clear();
   outputs_ = nullptr;
   if (present == this) present = nullptr;
}

void Progress::show(std::function<std::string()> const& text) {
   if (!shown_) return;
   auto const now = SteadyClock::now();
   if (now - last_ < std::chrono::milliseconds(100)) return;
   last_ = now;
   written_ = true;
   fmt::print(stderr, "\r\x1b[K{}", text().substr(0, columns() - 1));
   std::fflush(stderr);
}

void Progress::show(std::uint64_t done, std::uint64_t total, std::string_view unit) {
   show([&] {
      std::chrono::duration<double> const span = SteadyClock::now() - began_;
      return shareText(done, total, unit, span.count());
   });
}

void Progress::clear() {
   if (written_) std::fputs("\r\x1b[K", stderr);
   written_ = false;
}

void Progress::clearPresent() {
   if (present) present->clear();
}

std::string Progress::shareText(std::uint64_t done, std::uint64_t total, std::string_view unit,
                                double seconds) {
   double const share = total ? static_cast<double>(done) / static_cast<double>(total) : 0;
   std::string text = fmt::format("{} of {} {} ({:.0f} %)", grouped(done), grouped(total), unit,
                                  std::floor(100 * share));
   if (share > 0 && seconds >= 1)
      text += ", " + durationText(seconds * (1 - share) / share) + " left";
   return text;
}

}  // namespace Agent
