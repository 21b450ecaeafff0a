// Counts what is said during a scenario: traces of the handle VelMroute and messages for operators.
// Only what the scenario asks about is counted, so a long run keeps nothing in memory.
//
// While it lives it is the process's trace and log sink, and turns the trace on as far as the
// scenario needs it; what would have been written without it still is, by the sinks before it.
#pragma once

#include <cstdint>
#include <vector>

#include "Qor/Log.h"
#include "Qor/Trace.h"
#include "agent/scenario/Scenario.h"

namespace Agent {

class ScenarioWatch final : private Qor::TraceSink, private Qor::LogSink {
 public:
   // Counts for each Said in the expectations of the lines, which outlive the watch.
   explicit ScenarioWatch(std::vector<Scenario::Line> const& lines);
   ~ScenarioWatch() override;
   ScenarioWatch(ScenarioWatch const&) = delete;
   ScenarioWatch& operator=(ScenarioWatch const&) = delete;

   // How often it was said since the last mark, or since the start. `said` is one of the lines'.
   std::uint64_t seen(Scenario::Said const& said) const;
   void mark();

 private:
   struct Counted {
      Scenario::Said const* said;
      std::uint64_t seen = 0;
   };

   void trace(Qor::TraceRecord const& record) override;
   void log(Qor::LogMessage const& message, Qor::String const& text) override;

   std::vector<Counted> traces_;
   std::vector<Counted> logs_;
   Qor::TraceHandle& handle_;
   Qor::U16 const levelsBefore_;
   Qor::TraceSink* traceBefore_;
   Qor::LogSink* logBefore_;
};

}  // namespace Agent
