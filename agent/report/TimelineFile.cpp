#include "agent/report/TimelineFile.h"

#include <utility>

#include "agent/report/Output.h"

namespace Agent {

TimelineFile::TimelineFile(std::string fileName, Switch& theSwitch)
      : fileName_(std::move(fileName)), switch_(theSwitch) {
   if (fileName_.empty()) return;
   out_.open(fileName_);
   timeline_ = std::make_unique<Timeline>(out_);
   switch_.timelineIs(timeline_.get());
}

TimelineFile::~TimelineFile() {
   if (timeline_) switch_.timelineIs(nullptr);
}

bool TimelineFile::finish() {
   if (!timeline_) return true;
   timeline_->finish();
   return outputWritten(out_, fileName_);
}

}  // namespace Agent
