// Counts the messages that a scenario expects: traces of the handle VelMroute and log messages for
// operators. Other messages are not kept, so a long run takes no memory for them.
//
// While the counter lives it is the process's trace and log sink, and turns the trace on as far as
// the scenario needs it. The sinks before it still get each message that they would have got
// without the counter.
#pragma once

#include <cstdint>
#include <vector>

#include "Qor/Log.h"
#include "Qor/Trace.h"
#include "agent/scenario/Scenario.h"

namespace Agent {

class MessageCounter final : private Qor::TraceSink, private Qor::LogSink {
 public:
   // Counts for each MessageExpectation in the lines, which outlive the counter.
   explicit MessageCounter(std::vector<Scenario::Line> const& lines);
   ~MessageCounter() override;
   MessageCounter(MessageCounter const&) = delete;
   MessageCounter& operator=(MessageCounter const&) = delete;

   // The number of messages that match `expected` since the last mark, or since the start.
   // `expected` must be one of the expectations in the lines.
   std::uint64_t seen(Scenario::MessageExpectation const& expected) const;
   void mark();

 private:
   struct Counted {
      Scenario::MessageExpectation const* expected;
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
