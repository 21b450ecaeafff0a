// The timeline of a run in a file, as `--timeline FILE` asks for it.
#pragma once

#include <fstream>
#include <memory>
#include <string>

#include "agent/switch/SimulatedSwitch.h"
#include "agent/timeline/Timeline.h"

namespace Agent {

class TimelineFile {
 public:
   // Nothing is opened, and timeline() is null, for an empty name. A file that cannot be opened
   // shows in finish().
   TimelineFile(std::string fileName, SimulatedSwitch& simulated);
   ~TimelineFile();
   TimelineFile(TimelineFile const&) = delete;
   TimelineFile& operator=(TimelineFile const&) = delete;

   Timeline* timeline() { return timeline_.get(); }
   // An instant, if there is a timeline.
   void note(std::string const& text) {
      if (timeline_) timeline_->instant(text);
   }
   // Completes the file. False, and said on standard error, when it could not be written.
   bool finish();

 private:
   std::string const fileName_;
   SimulatedSwitch& simulated_;
   std::ofstream out_;
   std::unique_ptr<Timeline> timeline_;
};

}  // namespace Agent
