// The file that `--timeline FILE` names, with the timeline of a run.
#pragma once

#include <fstream>
#include <memory>
#include <string>

#include "agent/switch/Switch.h"
#include "agent/timeline/Timeline.h"

namespace Agent {

class TimelineFile {
 public:
   // For an empty name no file is opened, and timeline() is null. finish() reports a file that
   // cannot be opened.
   TimelineFile(std::string fileName, Switch& theSwitch);
   ~TimelineFile();
   TimelineFile(TimelineFile const&) = delete;
   TimelineFile& operator=(TimelineFile const&) = delete;

   Timeline* timeline() { return timeline_.get(); }
   // Writes an instant, if there is a timeline.
   void note(std::string const& text) {
      if (timeline_) timeline_->instant(text);
   }
   // Completes the file. If it could not be written, reports that on standard error and returns
   // false.
   bool finish();

 private:
   std::string const fileName_;
   Switch& switch_;
   std::ofstream out_;
   std::unique_ptr<Timeline> timeline_;
};

}  // namespace Agent
