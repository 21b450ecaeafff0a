// The timeline of a run, for the file that `--timeline FILE` names and for another sink.
#pragma once

#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "agent/switch/Switch.h"
#include "agent/timeline/Timeline.h"
#include "agent/timeline/TimelineWriter.h"

namespace Agent {

class TimelineFile {
 public:
   // For an empty name no file is opened. `sink` may be null, and outlives this object. Without a
   // file and a sink timeline() is null. finish() reports a file that cannot be opened.
   TimelineFile(std::string fileName, Switch& theSwitch, TimelineSink* sink = nullptr);
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
   std::optional<TimelineWriter> writer_;
   std::unique_ptr<Timeline> timeline_;
};

}  // namespace Agent
