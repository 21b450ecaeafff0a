#include "agent/live/LiveViews.h"

#include <fmt/format.h>

#include <sstream>

#include "agent/input/PrintableText.h"
#include "agent/inspect/InspectExplain.h"
#include "agent/inspect/Inspector.h"
#include "agent/report/RouteRow.h"
#include "agent/report/TextTable.h"
#include "agent/report/Views.h"

namespace Agent {

using nlohmann::ordered_json;

namespace {

std::string sourceText(Lnet::IpGenAddr const& source) {
   return source.isUnspecified() ? "*" : source.toString();
}

RouteRow routeRow(LiveAgent const& agent, Kernel::RouteKey const& key,
                  LiveRoutes::Known const& known) {
   RouteRow row;
   if (auto const view = agent.viewOf(known)) {
      row = routeRow(agent.theSwitch(), *view);
   } else {
      auto const vrf = agent.vrfOf(known.route.input);
      if (vrf) row.vrf = vrf->name();
      row.key = Routing::Multicast::Fib::IpGenRouteKey::fromAddresses(key.source, key.group);
      if (known.route.input) row.iif = agent.interfaceName(known.route.input);
      for (Qor::U32 const output : known.route.outputs)
         row.outputs.push_back({agent.interfaceName(output)});
   }
   row.table = key.table;
   LiveAgent::KnownState state = agent.stateOf(key, known);
   row.state = state.state;
   row.waitsFor = std::move(state.waitsFor);
   row.trapReason = std::move(state.trapReason);
   row.reason = std::move(state.reason);
   row.fault = std::move(state.fault);
   return row;
}

ordered_json routeJson(LiveAgent const& agent, Kernel::RouteKey const& key,
                       LiveRoutes::Known const& known) {
   return routeJson(routeRow(agent, key, known));
}

// ---- Text. ----

std::string joined(ordered_json const& outputs) {
   std::string text;
   for (auto const& output : outputs)
      text += (text.empty() ? "" : " ") + output["oif"].get<std::string>();
   return text.empty() ? "-" : text;
}

std::string routesText(ordered_json const& routes) {
   std::vector<std::vector<std::string>> lines{
         {"SOURCE", "GROUP", "TABLE", "IN", "OUT", "STATE", "REASON"}};
   for (auto const& route : routes) {
      lines.push_back({route["src"], route["dst"], std::to_string(route["table"].get<Qor::U32>()),
                       route.value("iif", "-"), joined(route["multipath"]), route["state"],
                       route.contains("fault") ? "fault: " + route["fault"].get<std::string>()
                                               : route.value("reason", "")});
   }
   return aligned(lines);
}

std::string interfacesText(ordered_json const& json) {
   std::vector<std::vector<std::string>> lines{
         {"INTERFACE", "PORT", "LINK", "CPU", "VLAN", "STANDBY", "SENDS BY"}};
   for (auto const& interface : json["interfaces"]) {
      lines.push_back(
            {interface["name"], interface["port"], interface["link"], interface["cpu"],
             interface.contains("vlan") ? std::to_string(interface["vlan"].get<int>()) : "-",
             interface.value("standby", "-"), interface["sendsBy"]});
   }
   std::string text = aligned(lines);
   for (auto const& note : json["notes"])
      text += note.get<std::string>() + '\n';
   return text;
}

std::string statusText(ordered_json const& status) {
   std::vector<std::vector<std::string>> lines;
   for (auto const& [name, value] : status.items()) {
      if (value.is_object()) {
         std::string text;
         for (auto const& [key, count] : value.items())
            text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count.dump(), key);
         lines.push_back({name, text.empty() ? "none" : text});
      } else {
         lines.push_back({name, value.is_string() ? value.get<std::string>() : value.dump()});
      }
   }
   return aligned(lines);
}

LiveAnswer answer(ordered_json const& json, bool asJson, std::string (*text)(ordered_json const&)) {
   return {true, asJson ? json.dump() + '\n' : text(json)};
}

LiveAnswer refusal(std::string const& text) {
   return {false, printable(text)};
}

// A command of the inspector, which needs the switch.
LiveAnswer inspected(LiveAgent& agent, std::string_view command, bool json) {
   if (!agent.hasSwitch()) return refusal(agent.disconnected());
   std::ostringstream text;
   Inspector inspector(agent, text, json, Inspector::Rights::reading);
   if (inspector.evaluate(command) == Inspector::Outcome::failed) return refusal(inspector.error());
   return {true, text.str()};
}

// Whether the route stays with the CPU, or waits for the bridge: then the programmer does not have
// it, and the agent itself knows the reason.
bool outsideSwitch(LiveAgent const& agent, LiveRoutes::Known const& known) {
   return !known.decision.inHardware() || !agent.hasSwitch();
}

// A route of the kernel that the switch does not have is explained by the agent, and all others by
// the inspector.
LiveAnswer explain(LiveAgent& agent, std::string_view line, std::string_view route, bool json) {
   ordered_json kernel = ordered_json::array();
   std::string text;
   bool inSwitch = false;
   try {
      RouteKey const key = routeQuestion(route).key;
      for (auto const& [known, at] : agent.routes().routes()) {
         bool const same =
               known.source == key.source().address() && known.group == key.group().address();
         if (!same) continue;
         kernel.push_back(routeJson(agent, known, at));
         inSwitch = inSwitch || !outsideSwitch(agent, at);
      }
   } catch (InspectError const& error) {
      return refusal(error.what());
   }
   for (auto const& one : kernel) {
      text += fmt::format("({}, {}) of table {} in {} out {}: {}{}\n",
                          one["src"].get<std::string>(), one["dst"].get<std::string>(),
                          one["table"].get<Qor::U32>(), one.value("iif", "-"),
                          joined(one["multipath"]), one["state"].get<std::string>(),
                          one.contains("reason") ? ": " + one["reason"].get<std::string>() : "");
   }
   if (kernel.empty()) {
      text = "The kernel has no route " + std::string(route) +
             " in the tables that the agent follows, so its packets go to the CPU.\n";
   }
   LiveAnswer rest;
   if (inSwitch) rest = inspected(agent, line, json);
   if (!rest.good) return rest;
   if (!json) return {true, text + rest.text};
   ordered_json all{{"kernel", std::move(kernel)}};
   if (!rest.text.empty()) all["switch"] = ordered_json::parse(rest.text);
   return {true, all.dump() + '\n'};
}

LiveAnswer show(LiveAgent& agent, std::string_view what, bool json) {
   if (what.empty() || what == "routes") return answer(routesJson(agent), json, routesText);
   if (what == "interfaces") return answer(interfacesJson(agent), json, interfacesText);
   if (what == "status") return answer(statusJson(agent), json, statusText);
   auto const view = viewNamed(what);
   if (!view) {
      return refusal(inQuotes(what) +
                     " is not a view (known: routes, interfaces, status, oifsets, zombies, "
                     "chip)");
   }
   if (!agent.hasSwitch()) return refusal(agent.disconnected());
   ordered_json const table = viewJson(*view, agent.theSwitch());
   std::ostringstream text;
   if (json) {
      text << table.dump() << '\n';
   } else {
      printView(text, *view, table);
   }
   return {true, text.str()};
}

}  // namespace

std::string routeName(Kernel::RouteKey const& key) {
   return fmt::format("({}, {})", sourceText(key.source), key.group.toString());
}

ordered_json routesJson(LiveAgent const& agent) {
   ordered_json all = ordered_json::array();
   for (auto const& [key, known] : agent.routes().routes())
      all.push_back(routeJson(agent, key, known));
   return all;
}

ordered_json interfacesJson(LiveAgent const& agent) {
   ordered_json all = ordered_json::array();
   OpenFlow::Bridge const* const bridge = agent.bridge();
   for (LiveInterface const& interface : agent.configuration().interfaces) {
      auto const up = bridge ? bridge->portUp(interface.port) : std::nullopt;
      ordered_json one{{"name", interface.intf.name()},
                       {"port", interface.port},
                       {"link", !up   ? "missing"
                                : *up ? "up"
                                      : "down"},
                       {"cpu", interface.cpu}};
      if (interface.vlan) one["vlan"] = *interface.vlan;
      if (!interface.standby.empty()) one["standby"] = interface.standby;
      bool const onStandby = bridge && bridge->onStandby(interface.intf);
      one["sendsBy"] = onStandby ? interface.standby : interface.port;
      all.push_back(std::move(one));
   }
   return {{"interfaces", std::move(all)}, {"notes", agent.interfaceNotes()}};
}

ordered_json statusJson(LiveAgent const& agent) {
   std::map<std::string, Qor::U64> states, reasons;
   for (auto const& [key, known] : agent.routes().routes()) {
      ++states[std::string(nameOf(agent.stateOf(key, known).state))];
      if (!known.decision.inHardware()) ++reasons[nameOf(known.decision.reason)];
   }
   auto const numbers = agent.numbers();
   auto const kernel = agent.monitor().counts();
   ordered_json status{
         {"switch", agent.isConnected() ? "connected" : agent.disconnected()},
         {"routes", states.empty() ? ordered_json::object() : ordered_json(states)},
         {"withTheCpu", reasons.empty() ? ordered_json::object() : ordered_json(reasons)},
         {"connections", numbers.connections},
         {"lostConnections", numbers.lost},
         {"kernelOverruns", kernel.overruns},
         {"keepAlives", agent.keepAlive().numbers().sent}};
   if (OpenFlow::Bridge const* const bridge = agent.bridge()) {
      status["groupWrites"] = bridge->numbers().groupWrites;
      status["flowWrites"] = bridge->numbers().flowWrites;
      status["errors"] = bridge->numbers().errors;
   }
   return status;
}

LiveAnswer answerTo(LiveAgent& agent, std::string_view line, bool json) {
   auto const word = [&line] {
      line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
      std::string_view const first = line.substr(0, line.find(' '));
      line.remove_prefix(first.size());
      line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
      return first;
   };
   std::string_view const whole = line;
   std::string_view const command = word();
   if (command == "show") return show(agent, word(), json);
   if (command == "explain") return explain(agent, whole, line, json);
   if (command == "inspect") return inspected(agent, line, json);
   return refusal(inQuotes(command) + " is not a command (known: show, explain, inspect, watch)");
}

}  // namespace Agent
