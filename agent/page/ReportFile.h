// The report of a run that `--report FILE` names.
#pragma once

#include <memory>
#include <string>

#include "agent/page/Recorder.h"
#include "agent/page/ReportDocument.h"

namespace Agent {

class ReportFile {
 public:
   // For an empty name nothing is recorded or written. The switch outlives this object.
   ReportFile(std::string fileName, Switch const& theSwitch);

   // Null without a name.
   Recorder* recorder() { return recorder_.get(); }
   Outages* outages() { return recorder_ ? &recorder_->outages() : nullptr; }
   // Writes the report with the present state of the switch. If the file cannot be written, reports
   // that on standard error and returns false.
   bool finish(ReportHead head) const;

 private:
   std::string const fileName_;
   Switch const& switch_;
   std::unique_ptr<Recorder> const recorder_;
};

}  // namespace Agent
