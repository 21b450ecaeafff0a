#include "agent/run/RunCommand.h"

#include <algorithm>

#include "agent/process/Signals.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/run/CaptureRun.h"
#include "agent/run/ScenarioRun.h"
#include "agent/scenario/ScenarioParser.h"

namespace Agent {

int runFiles(RunOptions const& options) {
   Signals const signals;
   bool const standardInput =
         std::find(options.files.begin(), options.files.end(), "-") != options.files.end();
   if (options.inspect && standardInput) {
      printError("commands and a capture cannot both come from standard input");
      return exitUsage;
   }
   bool const scenario = std::any_of(options.files.begin(), options.files.end(), isScenarioFile);
   if (!scenario) return runCaptures(options);
   if (options.files.size() == 1) return runScenario(options);
   printError("a scenario is played alone, without other files");
   return exitUsage;
}

}  // namespace Agent
