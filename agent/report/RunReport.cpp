#include "agent/report/RunReport.h"

#include <iostream>
#include <utility>

#include "agent/report/Summary.h"

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
   std::cerr << "the hooks break their contract, " << faults->count() << " faults found:\n";
   for (VelMroute::HookFault const& fault : faults->list())
      std::cerr << "   " << fault << '\n';
   if (faults->list().size() < faults->count()) {
      std::cerr << "   and " << faults->count() - faults->list().size() << " more\n";
   }
   return false;
}

}  // namespace Agent
