#include "agent/live/LiveExplain.h"

#include <fmt/ostream.h>

#include <nlohmann/json.hpp>

#include "agent/explain/ExplainJson.h"

namespace Agent {

using nlohmann::ordered_json;

namespace {

ordered_json kernelJson(LiveAgent const& agent, Kernel::RouteKey const& key,
                        LiveRoutes::Known const& known) {
   auto const text = agent.textOf(key, known);
   ordered_json oifs = ordered_json::array();
   for (Qor::U32 const output : known.route.outputs)
      oifs.push_back(agent.interfaceName(output));
   ordered_json route{{"src", key.source.isUnspecified() ? "*" : key.source.toString()},
                      {"dst", key.group.toString()},
                      {"table", key.table},
                      {"iif", nullptr},
                      {"oifs", std::move(oifs)},
                      {"state", text.state}};
   if (known.route.input) route["iif"] = agent.interfaceName(known.route.input);
   if (!text.reason.empty()) route["reason"] = text.reason;
   if (text.fault) route["fault"] = true;
   return route;
}

}  // namespace

ordered_json liveExplainJson(LiveAgent const& agent, RouteQuestion question) {
   ordered_json kernel = ordered_json::array();
   auto const& asked = question.key;
   for (auto const& [key, known] : agent.routes().routes()) {
      bool const same = key.group == asked.group().address() &&
                        (question.ofGroup || key.source == asked.source().address());
      if (!same) continue;
      kernel.push_back(kernelJson(agent, key, known));
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

void printLiveExplanation(std::ostream& os, ordered_json const& explanation) {
   for (ordered_json const& route : explanation.at("kernel")) {
      std::string oifs;
      for (ordered_json const& oif : route.at("oifs"))
         oifs += (oifs.empty() ? "" : " ") + oif.get<std::string>();
      fmt::print(os, "({}, {}) of table {} in {} out {}: {}{}\n",
                 route.at("src").get<std::string>(), route.at("dst").get<std::string>(),
                 route.at("table").get<Qor::U32>(),
                 route.at("iif").is_null() ? "-" : route.at("iif").get<std::string>(),
                 oifs.empty() ? "-" : oifs, route.at("state").get<std::string>(),
                 route.contains("reason") ? ": " + route.at("reason").get<std::string>() : "");
   }
   if (explanation.at("kernel").empty()) {
      os << "The kernel has no such route in the tables that the agent follows.\n";
   }
   if (explanation.contains("disconnected")) {
      os << explanation.at("disconnected").get<std::string>() << '\n';
   } else {
      printExplanation(os, explanation);
   }
}

}  // namespace Agent
