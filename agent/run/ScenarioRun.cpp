#include "agent/run/ScenarioRun.h"

#include <iostream>
#include <utility>

#include "agent/page/ReportFile.h"
#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"
#include "agent/report/RunReport.h"
#include "agent/report/Summary.h"
#include "agent/report/TimelineFile.h"
#include "agent/run/RunQueries.h"
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

bool writePage(ReportFile const& page, ScenarioFile const& file, std::string const& fileName,
               ScenarioPlayer const& player, bool good, ordered_json summary) {
   ReportHead head{.kind = "scenario",
                   .title = file.settings.title,
                   .inputs = {fileName},
                   .result = good ? "passed" : "failed",
                   .notes = {},
                   .summary = std::move(summary)};
   for (auto const& failure : player.failures())
      head.notes.push_back(failure.toString());
   return page.finish(std::move(head));
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
   ReportFile page(options.reportFile, theSwitch);
   TimelineFile timeline(options.timelineFile, theSwitch, page.recorder());
   SwitchTestbed testbed(theSwitch, timeline.timeline(), options.format.json, page.outages());
   ScenarioPlayer player(testbed, file.lines);
   if (options.until) {
      player.playUntil(*options.until);
   } else {
      player.play();
   }
   if (options.inspects()) {
      InspectedScenario run(theSwitch, player);
      InspectResult const looked = query(run, options);
      printFailures(player);
      bool const good = printHookFaults(theSwitch) && timeline.finish() && looked.good &&
                        player.failures().empty();
      bool const written = writePage(page, file, options.files.front(), player, good, nullptr);
      return exitAfter(looked, good && written ? exitDone : exitFailed);
   }

   RunFigures figures;
   figures.badLines = file.errors.size();
   ordered_json summary = summaryJson(figures, theSwitch, nullptr);
   summary["scenario"] = scenarioJson(file, player);
   printRunReport(options.show, options.format, theSwitch, summary);
   printFailures(player);
   bool const good = printHookFaults(theSwitch) && player.failures().empty();
   bool const closed = timeline.finish();
   bool const written =
         writePage(page, file, options.files.front(), player, good, std::move(summary));
   return outputWritten() && closed && written && good ? exitDone : exitFailed;
}

}  // namespace Agent
