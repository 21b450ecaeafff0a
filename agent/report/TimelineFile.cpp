#include "agent/report/TimelineFile.h"

#include <utility>
#include <vector>

#include "agent/report/Output.h"

namespace Agent {

TimelineFile::TimelineFile(std::string fileName, Switch& theSwitch, TimelineSink* sink)
      : fileName_(std::move(fileName)), switch_(theSwitch) {
   std::vector<TimelineSink*> sinks;
   if (sink) sinks.push_back(sink);
   if (!fileName_.empty()) {
      out_.open(fileName_);
      sinks.push_back(&writer_.emplace(out_));
   }
   if (sinks.empty()) return;
   timeline_ = std::make_unique<Timeline>(std::move(sinks));
   switch_.timelineIs(timeline_.get());
}

TimelineFile::~TimelineFile() {
   if (timeline_) switch_.timelineIs(nullptr);
}

bool TimelineFile::finish() {
   if (!timeline_) return true;
   timeline_->finish();
   return !writer_ || outputWritten(out_, fileName_);
}

}  // namespace Agent
