#include "agent/run/ScenarioRun.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "agent/page/ReportFile.h"
#include "agent/process/Signals.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"
#include "agent/report/RunReport.h"
#include "agent/report/Shortfalls.h"
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

bool writePage(ReportFile const& page, ScenarioFile const& file, std::string const& fileName,
               ScenarioPlayer const& player, bool good, bool cut, ordered_json summary) {
   ReportHead head{.kind = "scenario",
                   .title = file.settings.title,
                   .inputs = {fileName},
                   .result = cut    ? "interrupted"
                             : good ? "passed"
                                    : "failed",
                   .notes = {},
                   .summary = std::move(summary)};
   for (auto const& failure : player.failures())
      head.notes.push_back(failure.toString());
   return page.finish(std::move(head));
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
   ReportFile page(options.reportFile, theSwitch);
   TimelineFile timeline(options.timelineFile, theSwitch, page.recorder());
   SwitchTestbed testbed(theSwitch, timeline.timeline(), options.format.json, page.outages());
   ScenarioPlayer player(testbed, file.lines);
   if (options.until) {
      player.playUntil(*options.until);
   } else {
      player.play();
      if (interrupted() && !options.inspects()) player.finish();
   }
   if (options.inspects()) {
      InspectedScenario run(theSwitch, player);
      InspectResult const looked = query(run, options);
      printFailures(player);
      bool const good = printHookFaults(theSwitch) && timeline.finish() && looked.good &&
                        player.failures().empty() &&
                        passesStrict(options.strict, shortfalls(file.errors.size(), theSwitch));
      bool const written =
            writePage(page, file, options.files.front(), player, good, looked.interrupted, nullptr);
      return exitAfter(looked, exitCode(good && written, looked.interrupted));
   }

   RunFigures figures;
   figures.badLines = file.errors.size();
   figures.interruptedBy = interruptName();
   ordered_json summary = summaryJson(figures, theSwitch, nullptr);
   summary["scenario"] = scenarioJson(file, player);
   printRunReport(options.show, options.format, theSwitch, summary);
   printFailures(player);
   bool const good = printHookFaults(theSwitch) && player.failures().empty() &&
                     passesStrict(options.strict, shortfalls(figures.badLines, theSwitch));
   bool const cut = !figures.interruptedBy.empty();
   bool const closed = timeline.finish();
   bool const written =
         writePage(page, file, options.files.front(), player, good, cut, std::move(summary));
   return exitCode(outputWritten() && closed && written && good, cut);
}

}  // namespace Agent
