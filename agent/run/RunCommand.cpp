#include "agent/run/RunCommand.h"

#include <algorithm>

#include "agent/input/InputKind.h"
#include "agent/process/Signals.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/run/CaptureRun.h"
#include "agent/run/ScenarioRun.h"
#include "agent/scenario/ScenarioParser.h"

namespace Agent {

namespace {

// Prints a note on a capture that can be replayed but has probably been recorded by mistake.
void printNote(std::string const& file) {
   auto const kind = kindOfFile(file);
   if (kind == InputKind::empty) printError(file + ": note: the file has no events");
   if (kind == InputKind::unstamped) {
      printError(file +
                 ": note: the lines have no time stamps, so they happen at one time; record with "
                 "`ip -ts -o monitor mroute link` or `ip -j mroute show`");
   }
}

}  // namespace

int runFiles(RunOptions const& options) {
   Signals const signals;
   bool const standardInput =
         std::find(options.files.begin(), options.files.end(), "-") != options.files.end();
   if (options.inspect && standardInput) {
      printError("commands and a capture cannot both come from standard input");
      return exitUsage;
   }
   auto const scenario = std::ranges::find_if(options.files, isScenarioFile);
   if (scenario == options.files.end()) {
      std::ranges::for_each(options.files, printNote);
      return runCaptures(options);
   }
   if (options.files.size() == 1) return runScenario(options);
   printError(*scenario + ": this is a scenario, which is played alone, without other files");
   return exitUsage;
}

}  // namespace Agent
