#include "agent/scenario/ScenarioWatch.h"

#include <algorithm>
#include <iostream>

#include "Vel/VelCommon.h"

namespace Agent {

ScenarioWatch::ScenarioWatch(std::vector<Scenario::Line> const& lines)
      : handle_(Vel::velTrace()),
        levelsBefore_(handle_.levels()),
        traceBefore_(Qor::traceSinkIs(this)),
        logBefore_(Qor::logSinkIs(this)) {
   unsigned levels = levelsBefore_;
   for (Scenario::Line const& line : lines) {
      auto const* expect = std::get_if<Scenario::Expect>(&line.event);
      if (!expect) continue;
      for (Scenario::Said const& said : expect->said) {
         (said.log ? logs_ : traces_).push_back({&said});
         if (!said.log) levels |= (2u << said.level) - 1;
      }
   }
   handle_.levelsIs(static_cast<Qor::U16>(levels));
}

ScenarioWatch::~ScenarioWatch() {
   handle_.levelsIs(levelsBefore_);
   Qor::traceSinkIs(traceBefore_);
   Qor::logSinkIs(logBefore_);
}

std::uint64_t ScenarioWatch::seen(Scenario::Said const& said) const {
   for (Counted const& counted : said.log ? logs_ : traces_) {
      if (counted.said == &said) return counted.seen;
   }
   return 0;
}

void ScenarioWatch::mark() {
   for (auto* const list : {&traces_, &logs_}) {
      for (Counted& counted : *list)
         counted.seen = 0;
   }
}

void ScenarioWatch::trace(Qor::TraceRecord const& record) {
   if (record.handle == handle_.name()) {
      for (Counted& counted : traces_) {
         Scenario::Said const& said = *counted.said;
         if (record.level > said.level) continue;
         if (record.message.find(said.text) != std::string_view::npos) ++counted.seen;
      }
      if (!((levelsBefore_ >> record.level) & 1u)) return;  // on for the scenario alone
   }
   if (traceBefore_) {
      traceBefore_->trace(record);
   } else {
      std::cerr << Qor::traceLine(record) << '\n';
   }
}

void ScenarioWatch::log(Qor::LogMessage const& message, Qor::String const& text) {
   for (Counted& counted : logs_) {
      Scenario::Said const& said = *counted.said;
      if (!said.name.empty() && said.name != message.name) continue;
      if (text.find(said.text) != std::string::npos) ++counted.seen;
   }
   if (logBefore_) {
      logBefore_->log(message, text);
   } else {
      std::cerr << '%' << message.severity << '-' << message.name << ": " << text << '\n';
   }
}

}  // namespace Agent
