// Writes trace events to a stream, in the JSON object format that Perfetto and the common trace
// viewers open. The times are the virtual time of the run in microseconds.
#pragma once

#include <cstdint>
#include <ostream>

#include "agent/timeline/TimelineSink.h"

namespace Agent {

// Events are written at once. finish() closes the JSON, so a run that ends early leaves a complete
// file, too.
class TimelineWriter final : public TimelineSink {
 public:
   // `out` outlives the writer. A failed write sets the stream's state.
   explicit TimelineWriter(std::ostream& out);

   bool detailed() const override { return true; }
   void event(TimelineEvent const& event) override;
   void finish() override;
   std::uint64_t events() const { return events_; }

 private:
   std::ostream& out_;
   std::uint64_t events_ = 0;
};

}  // namespace Agent
