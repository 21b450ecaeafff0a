#include "agent/ScenarioRun.h"

#include <iostream>

#include "agent/ScenarioParser.h"
#include "agent/ScenarioPlayer.h"
#include "agent/SimulatedTarget.h"
#include "agent/Summary.h"
#include "agent/TimelineFile.h"

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

}  // namespace

int runScenario(RunOptions const& options) {
   ScenarioFile file = ScenarioFile::read(options.files.front());
   for (InputError const& error : file.errors)
      std::cerr << error.toString() << '\n';
   if (!file.errors.empty() && !options.keepGoing) return exitFailed;
   Path const path = options.path.value_or(file.path.value_or(Path::async));
   if (file.path.value_or(path) != path) {
      std::cerr << options.files.front() << ": this scenario is for the path " << nameOf(*file.path)
                << " alone: --path " << nameOf(*file.path) << '\n';
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
   Sim::ChipConfig chip = file.settings.chip;
   if (!options.chipText.empty()) parseChipOption(options.chipText, chip);
   SimulatedSwitch simulated(path, chip, std::move(intfMap),
                             {file.settings.minPollingInterval, file.settings.callCost});
   TimelineFile timeline(options.timelineFile, simulated);
   SimulatedTarget target(simulated, timeline.timeline(), options.json);
   ScenarioPlayer player(target, file.lines);
   player.play();

   RunFigures figures;
   figures.badLines = file.errors.size();
   ordered_json summary = summaryJson(figures, simulated, nullptr);
   summary["scenario"] = scenarioJson(file, player);
   reportTables(options, simulated, summary);
   for (auto const& failure : player.failures())
      std::cerr << failure.toString() << '\n';
   bool const good = player.failures().empty();
   return outputWritten() && timeline.finish() && good ? exitDone : exitFailed;
}

}  // namespace Agent
