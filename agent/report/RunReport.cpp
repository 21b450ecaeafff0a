#include "agent/report/RunReport.h"

#include <fmt/format.h>

#include <iostream>
#include <nlohmann/json.hpp>
#include <utility>

#include "Qor/TextStream.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/Summary.h"
#include "agent/report/Views.h"

namespace Agent {

using nlohmann::ordered_json;

void printRunReport(std::vector<ViewRequest> const& show, OutputFormat format,
                    Switch const& theSwitch, ordered_json summary) {
   if (format.json && !show.empty()) {
      ordered_json tables = ordered_json::object();
      for (ViewRequest const& request : show)
         tables.update(viewDocument(request.view, viewContent(request, theSwitch)));
      summary["tables"] = std::move(tables);
   }
   if (format.json) return printJson(std::cout, summary, format.style);
   for (ViewRequest const& request : show)
      std::cout << viewText(request.view, viewContent(request, theSwitch), format.width) << '\n';
   printSummary(std::cout, summary);
}

bool printHookFaults(Switch const& theSwitch) {
   VelMroute::HookFaults const* const faults = theSwitch.hookFaults();
   if (!faults || faults->count() == 0) return true;
   printError(fmt::format("the hooks break their contract, {} faults found", faults->count()));
   for (VelMroute::HookFault const& fault : faults->list())
      printError(fmt::format("hooks: {}", Qor::printed(fault)));
   // The list has ten faults of each rule.
   if (faults->list().size() < faults->count()) {
      printError(fmt::format("and {} more faults of these rules",
                             faults->count() - faults->list().size()));
   }
   return false;
}

}  // namespace Agent
