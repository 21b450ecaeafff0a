#include "agent/live/LiveExplain.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "agent/explain/ExplainJson.h"
#include "agent/live/LiveRouteRow.h"

namespace Agent {

using nlohmann::ordered_json;

ordered_json liveExplainJson(LiveAgent const& agent, RouteQuestion question) {
   ordered_json kernel = ordered_json::array();
   auto const& asked = question.key;
   for (auto const& [key, known] : agent.routes().routes()) {
      bool const same = key.group == asked.group().address() &&
                        (question.ofGroup || key.source == asked.source().address());
      if (!same) continue;
      kernel.push_back(routeJson(routeRow(agent, key, known)));
      // The packets of a route that the switch does not have come in by the kernel's interface.
      bool const mapped = agent.hasSwitch() && known.route.input && !question.ofGroup;
      if (!mapped || known.wanted || question.iif) continue;
      Lnet::IntfId const input(agent.interfaceName(known.route.input));
      if (agent.theSwitch().interfaceMap().find(input)) question.iif = input;
   }
   ordered_json document{{"kernel", std::move(kernel)}};
   if (agent.hasSwitch()) {
      document.update(explainJson(Explainer(agent.theSwitch()).answer(question)));
   } else {
      document["disconnected"] = agent.disconnected();
   }
   return document;
}

namespace {

// Prints the kernel's routes that stay with the CPU, or the other ones behind a word.
void printKernelRoutes(std::ostream& os, ordered_json const& explanation, bool trapped) {
   for (ordered_json const& route : explanation.at("kernel")) {
      if ((route.at("state") == nameOf(ReportedState::trapped)) != trapped) continue;
      std::string oifs;
      for (ordered_json const& output : route.at("multipath"))
         oifs += (oifs.empty() ? "" : " ") + output.at("oif").get<std::string>();
      os << fmt::format(
            "{}({}, {}) of table {} in {} out {}: {}{}\n", trapped ? "" : "   kernel     ",
            route.at("src").get<std::string>(), route.at("dst").get<std::string>(),
            route.at("table").get<Qor::U32>(), route.value("iif", "-"), oifs.empty() ? "-" : oifs,
            route.at("state").get<std::string>(),
            route.contains("reason") ? ": " + route.at("reason").get<std::string>() : "");
   }
}

}  // namespace

// The reason why a route stays with the CPU is the worst cause, and comes first.
void printLiveExplanation(std::ostream& os, ordered_json const& explanation) {
   printKernelRoutes(os, explanation, true);
   if (explanation.at("kernel").empty()) {
      os << "The kernel has no such route in the tables that the agent follows.\n";
   }
   if (explanation.contains("disconnected")) {
      os << explanation.at("disconnected").get<std::string>() << '\n';
   } else {
      printExplanation(os, explanation);
   }
   printKernelRoutes(os, explanation, false);
}

}  // namespace Agent
