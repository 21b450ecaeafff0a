#include "agent/report/RunReport.h"

#include <fmt/ostream.h>

#include <iostream>
#include <utility>

#include "agent/report/ErrorOutput.h"
#include "agent/report/Summary.h"

namespace Agent {

void printRunReport(std::vector<View> const& show, bool json, Switch const& theSwitch,
                    nlohmann::ordered_json summary) {
   nlohmann::ordered_json views = nlohmann::ordered_json::object();
   for (View const view : show)
      views[std::string(nameOf(view))] = viewJson(view, theSwitch);
   if (json) {
      if (!views.empty()) summary["tables"] = std::move(views);
      std::cout << summary.dump(1) << '\n';
      return;
   }
   for (View const view : show) {
      printView(std::cout, view, views.at(std::string(nameOf(view))));
      std::cout << '\n';
   }
   printSummary(std::cout, summary);
}

bool printHookFaults(Switch const& theSwitch) {
   VelMroute::HookFaults const* const faults = theSwitch.hookFaults();
   if (!faults || faults->count() == 0) return true;
   printError(fmt::format("the hooks break their contract, {} faults found", faults->count()));
   for (VelMroute::HookFault const& fault : faults->list())
      printError(fmt::format("hooks: {}", fmt::streamed(fault)));
   // The list has ten faults of each rule.
   if (faults->list().size() < faults->count()) {
      printError(fmt::format("and {} more faults of these rules",
                             faults->count() - faults->list().size()));
   }
   return false;
}

}  // namespace Agent
