#include "agent/scenario/MessageCounter.h"

#include <algorithm>
#include <iostream>

namespace Agent {

MessageCounter::MessageCounter(std::vector<Scenario::Line> const& lines)
      : handle_(Qor::traceHandle("VelMroute")),
        levelsBefore_(handle_.levels()),
        traceBefore_(Qor::traceSinkIs(this)),
        logBefore_(Qor::logSinkIs(this)) {
   unsigned levels = levelsBefore_;
   for (Scenario::Line const& line : lines) {
      auto const* expect = std::get_if<Scenario::Expect>(&line.event);
      if (!expect) continue;
      for (Scenario::MessageExpectation const& expected : expect->messages) {
         (expected.log ? logs_ : traces_).push_back({&expected});
         if (!expected.log) levels |= (2u << expected.level) - 1;
      }
   }
   handle_.levelsIs(static_cast<Qor::U16>(levels));
}

MessageCounter::~MessageCounter() {
   handle_.levelsIs(levelsBefore_);
   Qor::traceSinkIs(traceBefore_);
   Qor::logSinkIs(logBefore_);
}

std::uint64_t MessageCounter::seen(Scenario::MessageExpectation const& expected) const {
   for (Counted const& counted : expected.log ? logs_ : traces_) {
      if (counted.expected == &expected) return counted.seen;
   }
   return 0;
}

void MessageCounter::mark() {
   for (auto* const list : {&traces_, &logs_}) {
      for (Counted& counted : *list)
         counted.seen = 0;
   }
}

void MessageCounter::trace(Qor::TraceRecord const& record) {
   if (record.handle == handle_.name()) {
      for (Counted& counted : traces_) {
         Scenario::MessageExpectation const& expected = *counted.expected;
         if (record.level > expected.level) continue;
         if (record.message.find(expected.text) != std::string_view::npos) ++counted.seen;
      }
      if (!((levelsBefore_ >> record.level) & 1u)) return;  // the counter has turned this level on
   }
   if (traceBefore_) {
      traceBefore_->trace(record);
   } else {
      std::cerr << Qor::traceLine(record) << '\n';
   }
}

void MessageCounter::log(Qor::LogMessage const& message, Qor::String const& text) {
   for (Counted& counted : logs_) {
      Scenario::MessageExpectation const& expected = *counted.expected;
      if (!expected.name.empty() && expected.name != message.name) continue;
      if (text.find(expected.text) != std::string::npos) ++counted.seen;
   }
   if (logBefore_) {
      logBefore_->log(message, text);
   } else {
      std::cerr << '%' << message.severity << '-' << message.name << ": " << text << '\n';
   }
}

}  // namespace Agent
