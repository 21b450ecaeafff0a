#include "agent/run/ScenarioRun.h"

#include <iostream>

#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"
#include "agent/report/RunReport.h"
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
   return {{"title", file.settings.title},          {"lines", player.played()},
           {"expectations", player.expectations()}, {"packets", player.packets()},
           {"durationSeconds", Qor::now()},         {"failures", failures}};
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

void printFailures(ScenarioPlayer const& player) {
   for (auto const& failure : player.failures())
      std::cerr << failure.toString() << '\n';
}

}  // namespace

int runScenario(RunOptions const& options) {
   ScenarioFile file = ScenarioFile::read(options.files.front());
   for (InputError const& error : file.errors)
      std::cerr << error.toString() << '\n';
   if (!file.errors.empty() && !options.keepGoing) return exitFailed;
   PathKind const path = options.path.value_or(file.path.value_or(PathKind::async));
   if (file.path.value_or(path) != path) {
      std::cerr << options.files.front() << ": the scenario is for the path " << nameOf(*file.path)
                << " alone: use --path " << nameOf(*file.path) << '\n';
      return exitUsage;
   }
   std::erase_if(file.lines,
                 [&](Scenario::Line const& line) { return line.path.value_or(path) != path; });
   InterfaceMap intfMap;
   if (!options.mapFile.empty()) {
      if (auto const error = intfMap.load(options.mapFile)) {
         std::cerr << error->toString() << '\n';
         return exitFailed;
      }
   }
   Switch theSwitch(options.platform(path, file.settings.platformOptions()), std::move(intfMap));
   TimelineFile timeline(options.timelineFile, theSwitch);
   SwitchTestbed testbed(theSwitch, timeline.timeline(), options.format.json);
   ScenarioPlayer player(testbed, file.lines);
   if (options.until) {
      player.playUntil(*options.until);
   } else {
      player.play();
   }
   if (options.inspects()) {
      InspectedScenario run(theSwitch, player);
      InspectResult const looked = inspect(run, options.inspected());
      printFailures(player);
      bool const good = printHookFaults(theSwitch) && timeline.finish() && looked.good &&
                        player.failures().empty();
      return exitAfter(looked, good ? exitDone : exitFailed);
   }

   RunFigures figures;
   figures.badLines = file.errors.size();
   ordered_json summary = summaryJson(figures, theSwitch, nullptr);
   summary["scenario"] = scenarioJson(file, player);
   printRunReport(options.show, options.format, theSwitch, std::move(summary));
   printFailures(player);
   bool const good = printHookFaults(theSwitch) && player.failures().empty();
   return outputWritten() && timeline.finish() && good ? exitDone : exitFailed;
}

}  // namespace Agent
