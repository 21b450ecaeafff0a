#include "agent/report/TimelineFile.h"

#include <utility>

#include "agent/report/Output.h"

namespace Agent {

TimelineFile::TimelineFile(std::string path, SimulatedSwitch& simulated)
      : path_(std::move(path)), simulated_(simulated) {
   if (path_.empty()) return;
   out_.open(path_);
   timeline_ = std::make_unique<Timeline>(out_);
   simulated_.timelineIs(timeline_.get());
}

TimelineFile::~TimelineFile() {
   if (timeline_) simulated_.timelineIs(nullptr);
}

bool TimelineFile::finish() {
   if (!timeline_) return true;
   timeline_->finish();
   return outputWritten(out_, path_);
}

}  // namespace Agent
