#include "agent/report/TimelineFile.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <utility>

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
   errno = 0;
   if (out_.flush().good()) return true;
   std::cerr << path_ << ": cannot write";
   if (errno) std::cerr << ": " << std::strerror(errno);
   std::cerr << '\n';
   return false;
}

}  // namespace Agent
