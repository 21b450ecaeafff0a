#include "agent/page/ReportFile.h"

#include <utility>

#include "agent/page/Page.h"

namespace Agent {

ReportFile::ReportFile(std::string fileName, Switch const& theSwitch)
      : fileName_(std::move(fileName)),
        switch_(theSwitch),
        recorder_(fileName_.empty() ? nullptr
                                    : std::make_unique<Recorder>(theSwitch, theSwitch.canRead())) {}

bool ReportFile::finish(ReportHead head) const {
   if (!recorder_) return true;
   ReportDocument document(std::move(head), &switch_, recorder_.get());
   document.addRoutes();
   return writeReport(fileName_, document.json());
}

}  // namespace Agent
