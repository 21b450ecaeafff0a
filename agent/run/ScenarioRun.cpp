#include "agent/run/ScenarioRun.h"

#include "agent/process/Signals.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"
#include "agent/report/RunReport.h"
#include "agent/report/Shortfalls.h"
#include "agent/report/Summary.h"
#include "agent/report/TimelineFile.h"
#include "agent/scenario/ScenarioParser.h"
#include "agent/scenario/ScenarioPlayer.h"
#include "agent/scenario/SwitchTestbed.h"

namespace Agent {

namespace {

using nlohmann::ordered_json;

ordered_json scenarioJson(ScenarioFile const& file, ScenarioPlayer const& player) {
   ordered_json failures = ordered_json::array();
   for (auto const& failure : player.failures())
      failures.push_back(failure.toString());
   return {{"title", file.settings.title},
           {"lines", player.played()},
           {"expectations", player.expectations()},
           {"packets", player.packets()},
           {"seconds", Qor::now()},
           {"failures", failures}};
}

// A scenario under the commands of the inspector. The expectations up to the present time count.
class InspectedScenario final : public InspectedRun {
 public:
   InspectedScenario(Switch& theSwitch, ScenarioPlayer& player)
         : switch_(theSwitch), player_(player) {}

   Switch& theSwitch() override { return switch_; }
   bool runUntil(Qor::Seconds time) override {
      player_.playUntil(time);
      return true;
   }
   bool runToEnd() override {
      player_.play();
      return true;
   }
   Qor::Seconds nextInput() override { return player_.nextDue(); }
   bool inMemory() const override { return true; }

 private:
   Switch& switch_;
   ScenarioPlayer& player_;
};

void printInputErrors(std::vector<InputError> const& found) {
   ErrorLimit errors;
   for (InputError const& error : found)
      errors.print(ErrorLimit::kindOf(error.reason), error.toString());
}

// The first word of a failure names the expectation: "zombies: ...", "forward ...".
void printFailures(ScenarioPlayer const& player) {
   ErrorLimit errors;
   for (auto const& failure : player.failures())
      errors.print(
            "expectation of \"" + failure.text.substr(0, failure.text.find_first_of(": ")) + '"',
            failure.toString());
   errors.finish("; -j lists all");
}

}  // namespace

int runScenario(RunOptions const& options) {
   ScenarioFile file = ScenarioFile::read(options.files.front());
   printInputErrors(file.errors);
   if (!file.errors.empty() && !options.keepGoing) return exitFailed;
   PathKind const path = options.path.value_or(file.path.value_or(PathKind::async));
   if (file.path.value_or(path) != path) {
      std::string const only(nameOf(*file.path));
      printError(options.files.front() + ": the scenario is for the path " + only +
                 " alone: use --path " + only);
      return exitUsage;
   }
   std::erase_if(file.lines,
                 [&](Scenario::Line const& line) { return line.path.value_or(path) != path; });
   InterfaceMap intfMap;
   if (!options.mapFile.empty()) {
      if (auto const error = intfMap.load(options.mapFile)) {
         printError(error->toString());
         return exitFailed;
      }
   }
   Switch theSwitch(options.platform(path, file.settings.platformOptions()), std::move(intfMap));
   TimelineFile timeline(options.timelineFile, theSwitch);
   SwitchTestbed testbed(theSwitch, timeline.timeline(), options.json);
   ScenarioPlayer player(testbed, file.lines);
   if (options.until) {
      player.playUntil(*options.until);
   } else {
      player.play();
      if (interrupted() && !options.inspects()) player.finish();
   }
   if (options.inspects()) {
      InspectedScenario run(theSwitch, player);
      InspectResult const looked = inspect(run, options.inspected());
      printFailures(player);
      bool const good = printHookFaults(theSwitch) && timeline.finish() && looked.good &&
                        player.failures().empty() &&
                        passesStrict(options.strict, shortfalls(file.errors.size(), theSwitch));
      return exitAfter(looked, exitCode(good, looked.interrupted));
   }

   RunFigures figures;
   figures.badLines = file.errors.size();
   figures.interruptedBy = interruptName();
   ordered_json summary = summaryJson(figures, theSwitch, nullptr);
   summary["scenario"] = scenarioJson(file, player);
   printRunReport(options.show, options.json, theSwitch, std::move(summary));
   printFailures(player);
   bool const good = printHookFaults(theSwitch) && player.failures().empty() &&
                     passesStrict(options.strict, shortfalls(figures.badLines, theSwitch));
   bool const written = outputWritten();
   return exitCode(timeline.finish() && written && good, !figures.interruptedBy.empty());
}

}  // namespace Agent
