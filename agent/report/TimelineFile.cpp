#include "agent/report/TimelineFile.h"

#include <utility>

#include "agent/report/Output.h"

namespace Agent {

TimelineFile::TimelineFile(std::string fileName, SimulatedSwitch& simulated)
      : fileName_(std::move(fileName)), simulated_(simulated) {
   if (fileName_.empty()) return;
   out_.open(fileName_);
   timeline_ = std::make_unique<Timeline>(out_);
   simulated_.timelineIs(timeline_.get());
}

TimelineFile::~TimelineFile() {
   if (timeline_) simulated_.timelineIs(nullptr);
}

bool TimelineFile::finish() {
   if (!timeline_) return true;
   timeline_->finish();
   return outputWritten(out_, fileName_);
}

}  // namespace Agent
