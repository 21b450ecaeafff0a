#include "agent/live/LiveViews.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <span>
#include <sstream>
#include <stdexcept>

#include "agent/input/PrintableText.h"
#include "agent/input/Suggestion.h"
#include "agent/inspect/Inspector.h"
#include "agent/live/LiveCompletion.h"
#include "agent/live/LiveExplain.h"
#include "agent/live/LiveRouteRow.h"
#include "agent/report/TextTable.h"
#include "agent/report/Views.h"

namespace Agent {

using nlohmann::ordered_json;

namespace {

ordered_json countsJson(std::map<std::string, Qor::U64> const& counts) {
   return counts.empty() ? ordered_json::object() : ordered_json(counts);
}

std::string sourceText(Lnet::IpGenAddr const& source) {
   return source.isUnspecified() ? "*" : source.toString();
}

// ---- Text. ----

using Kind = TextTable::Kind;

std::string interfacesText(ordered_json const& json, std::size_t width) {
   TextTable table({{"INTERFACE"},
                    {"PORT"},
                    {"LINK"},
                    {"CPU"},
                    {"VLAN", Kind::number},
                    {"STANDBY"},
                    {"SENDS BY"}});
   for (auto const& interface : json["interfaces"]) {
      table.add({interface["name"], interface["frontPort"], interface["link"], interface["cpuPort"],
                 interface.contains("vlan") ? interface["vlan"].dump() : "",
                 interface.value("standbyPort", ""), interface["sendsBy"]});
   }
   std::string text = table.text(width);
   for (auto const& note : json["notes"])
      text += note.get<std::string>() + '\n';
   return text;
}

// "12 offloaded, 1 trapped", without the counts that are 0.
std::string countsText(ordered_json const& counts) {
   std::string text;
   for (auto const& [name, count] : counts.items()) {
      if (count != 0) text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count.dump(), name);
   }
   return text.empty() ? "none" : text;
}

std::string statusText(ordered_json const& status, std::size_t) {
   static constexpr std::pair<char const*, char const*> labels[] = {
         {"routes", "routes"},
         {"waitsFor", "waiting for"},
         {"trapReasons", "trapped by"},
         {"faults", "faults"},
         {"connections", "connections"},
         {"lostConnections", "lost connections"},
         {"kernelOverruns", "kernel overruns"},
         {"keepAlives", "keep-alives"},
         {"groupMessages", "group messages"},
         {"flowMessages", "flow messages"},
         {"switchErrors", "switch errors"}};
   std::vector<std::vector<std::string>> lines{
         {"switch", status["connected"] == true ? "connected" : status.value("reason", "")}};
   for (auto const& [key, label] : labels) {
      if (!status.contains(key)) continue;
      ordered_json const& value = status[key];
      lines.push_back({label, value.is_object() ? countsText(value) : value.dump()});
   }
   return aligned(lines);
}

LiveAnswer answer(ordered_json const& json, OutputFormat format,
                  std::string (*text)(ordered_json const&, std::size_t)) {
   std::ostringstream out;
   if (format.json) {
      printJson(out, json, format.style);
   } else {
      out << text(json, format.width);
   }
   return {true, std::move(out).str()};
}

LiveAnswer refusal(std::string const& text) {
   return {false, printable(text)};
}

// A command of the inspector, which needs the switch.
LiveAnswer inspected(LiveAgent& agent, std::string_view command, OutputFormat format) {
   if (!agent.hasSwitch()) return refusal(agent.disconnected());
   std::ostringstream text;
   Inspector inspector(agent, text, format, Inspector::Rights::reading);
   if (inspector.evaluate(command) == Inspector::Outcome::failed) return refusal(inspector.error());
   return {true, text.str()};
}

LiveAnswer explain(LiveAgent const& agent, std::string_view route, OutputFormat format) {
   try {
      ordered_json const document = liveExplainJson(agent, routeQuestion(route));
      std::ostringstream text;
      if (format.json) {
         printJson(text, document, format.style);
      } else {
         printLiveExplanation(text, document);
      }
      return {true, std::move(text).str()};
   } catch (QuestionError const& error) {
      return refusal(error.what());
   }
}

LiveAnswer print(View view, ViewContent content, OutputFormat format, std::string const& text) {
   if (!format.json) return {true, text};
   std::ostringstream out;
   printJson(out, viewDocument(view, std::move(content)), format.style);
   return {true, std::move(out).str()};
}

// The words behind "show".
LiveAnswer show(LiveAgent& agent, std::vector<std::string> const& words, OutputFormat format) {
   std::string const view = words.empty() ? "routes" : words.front();
   if (view == "routes") {
      std::span<std::string const> const behind(words);
      RouteFilter const filter(behind.subspan(words.empty() ? 0 : 1));
      ViewContent content = routesContent(routeRows(agent), filter);
      std::string const text = format.json ? "" : kernelRoutesText(content, format.width);
      return print(View::routes, std::move(content), format, text);
   }
   auto const known = std::ranges::find(liveViews, view);
   if (known == std::end(liveViews)) {
      return refusal(inQuotes(view) + " is not a view" + knownNames(view, liveViews));
   }
   if (words.size() > 1) return refusal("the view " + view + " has no filter");
   if (view == "interfaces") return answer(interfacesJson(agent), format, interfacesText);
   if (view == "status") return answer(statusJson(agent), format, statusText);
   if (!agent.hasSwitch()) return refusal(agent.disconnected());
   ViewRequest const request = viewRequest(view);
   ViewContent content = viewContent(request, agent.theSwitch());
   std::string const text = format.json ? "" : viewText(request.view, content, format.width);
   return print(request.view, std::move(content), format, text);
}

}  // namespace

std::string routeName(Kernel::RouteKey const& key) {
   return fmt::format("({}, {})", sourceText(key.source), key.group.toString());
}

ordered_json interfacesJson(LiveAgent const& agent) {
   ordered_json all = ordered_json::array();
   OpenFlow::Bridge const* const bridge = agent.bridge();
   for (LiveInterface const& interface : agent.configuration().interfaces) {
      auto const up = bridge ? bridge->portUp(interface.port) : std::nullopt;
      ordered_json one{{"name", interface.intf.name()},
                       {"frontPort", interface.port},
                       {"link", !up   ? "missing"
                                : *up ? "up"
                                      : "down"},
                       {"cpuPort", interface.cpu}};
      if (interface.vlan) one["vlan"] = *interface.vlan;
      if (!interface.standby.empty()) one["standbyPort"] = interface.standby;
      bool const onStandby = bridge && bridge->onStandby(interface.intf);
      one["sendsBy"] = onStandby ? interface.standby : interface.port;
      all.push_back(std::move(one));
   }
   return {{"interfaces", std::move(all)}, {"notes", agent.interfaceNotes()}};
}

ordered_json statusJson(LiveAgent const& agent) {
   ordered_json states = ordered_json::object();
   for (ReportedState const state : allReportedStates)
      states[std::string(nameOf(state))] = 0;
   std::map<std::string, Qor::U64> waitsFor, trapReasons;
   Qor::U64 faults = 0;
   for (auto const& [key, known] : agent.routes().routes()) {
      auto const state = agent.stateOf(key, known);
      ordered_json& count = states[std::string(nameOf(state.state))];
      count = count.get<Qor::U64>() + 1;
      if (!state.waitsFor.empty()) ++waitsFor[state.waitsFor];
      if (!state.trapReason.empty()) ++trapReasons[state.trapReason];
      faults += !state.fault.empty();
   }
   auto const numbers = agent.numbers();
   ordered_json status{{"connected", agent.isConnected()}};
   if (!agent.isConnected()) status["reason"] = agent.disconnected();
   status["routes"] = std::move(states);
   status["waitsFor"] = countsJson(waitsFor);
   status["trapReasons"] = countsJson(trapReasons);
   status["faults"] = faults;
   status["connections"] = numbers.connections;
   status["lostConnections"] = numbers.lost;
   status["kernelOverruns"] = agent.monitor().counts().overruns;
   status["keepAlives"] = agent.keepAlive().numbers().sent;
   if (OpenFlow::Bridge const* const bridge = agent.bridge()) {
      status["groupMessages"] = bridge->numbers().groupWrites;
      status["flowMessages"] = bridge->numbers().flowWrites;
      status["switchErrors"] = bridge->numbers().errors;
   }
   return status;
}

LiveAnswer answerTo(LiveAgent& agent, std::string_view line, OutputFormat format) {
   auto const word = [&line] {
      line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
      std::string_view const first = line.substr(0, line.find(' '));
      line.remove_prefix(first.size());
      line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
      return first;
   };
   std::string_view const command = word();
   if (command == "show") {
      std::istringstream words{std::string(line)};
      try {
         return show(agent, {std::istream_iterator<std::string>(words), {}}, format);
      } catch (std::invalid_argument const& error) {
         return refusal(error.what());
      }
   }
   if (command == "explain") return explain(agent, line, format);
   if (command == "inspect") return inspected(agent, line, format);
   if (command == "complete") return {true, completionsOf(agent, line)};
   return refusal(inQuotes(command) + " is not a command" + knownNames(command, liveCommands));
}

}  // namespace Agent
