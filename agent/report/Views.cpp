#include "agent/report/Views.h"

#include <algorithm>
#include <string>
#include <vector>

#include "agent/report/RouteStateName.h"
#include "agent/report/TextTable.h"
#include "platform/sim/Format.h"

namespace Agent {

namespace {

using nlohmann::ordered_json;

constexpr std::pair<View, std::string_view> viewNames[] = {
      {View::routes, "routes"},
      {View::oifsets, "oifsets"},
      {View::zombies, "zombies"},
      {View::chip, "chip"},
};

// The outputs as `ip` lists them: one object for each interface, with "cpu" for a copy to the CPU.
ordered_json multipath(MrouteLib::PortVlanSet const& set) {
   ordered_json list = ordered_json::array();
   if (set.toCpu()) list.push_back({{"oif", "cpu"}});
   for (auto const& [pv, flag] : set.portVlan()) {
      list.push_back({{"oif", pv.intfId().name()}, {"vlan", pv.vlanId().value()}});
   }
   return list;
}

std::string prefixText(Lnet::IpGenPrefix const& prefix) {
   return prefix.isAny() ? prefix.address().toString() : prefix.toString();
}

// The number of the group, or the name of a hard-wired group.
ordered_json groupJson(Qor::U32 group) {
   if (Sim::isHardWired(group)) return Sim::groupName(group);
   return group;
}

ordered_json routesJson(SimulatedSwitch const& simulated) {
   ordered_json rows = ordered_json::array();
   simulated.programmer().forEach([&](RouteView const& route) {
      WantedRoute const& wanted = route.wanted();
      MrouteLib::PortVlanSet const* const set = route.set();
      bool const offload = route.state() == VelMroute::RouteState::inHardware;
      ordered_json row = {{"vrf", route.vrf().name()},
                          {"src", prefixText(route.key().source())},
                          {"dst", prefixText(route.key().group())},
                          {"iif", wanted.noRpf ? Qor::Name() : wanted.iif.name()},
                          {"vlan", route.vlan().value()},
                          {"multipath", set ? multipath(*set) : ordered_json::array()},
                          {"state", nameOf(route.state())},
                          {"offload", offload}};
      if (auto const record = simulated.path().record(route)) {
         row["multicastId"] = groupJson(record->group);
         row["oifSet"] = record->oifSet->serial();
      }
      if (!route.handle().isNull()) {
         row["routeHandle"] = route.handle().value();
         if (auto const* entry = simulated.path().entry(route.handle())) {
            row["packets"] = entry->packets;
            row["bytes"] = entry->bytes;
         }
      }
      auto const vrfStatus = simulated.mfibHwStatus().vrfStatus(route.vrf());
      if (auto const status = vrfStatus ? vrfStatus->route(route.key()) : nullptr) {
         // A poll time of 0 means that no use is known. The agent does not know uses before its
         // start, so idle time counts from the start at the earliest.
         if (status->lastPollTime() > 0) row["lastPollTime"] = status->lastPollTime();
         row["idleSince"] = std::max(status->lastPollTime(), simulated.startedAt());
      }
      if (auto const counter = simulated.path().counter(route.key())) row["counter"] = *counter;
      if (!offload) row["reason"] = route.reason();
      rows.push_back(std::move(row));
   });
   return rows;
}

ordered_json recordsJson(SimulatedSwitch const& simulated, std::vector<RecordRow> const& records) {
   ordered_json rows = ordered_json::array();
   for (RecordRow const& record : records) {
      Sim::Group const* group = simulated.chip().group(record.group);
      ordered_json row = {{"oifSet", record.oifSet->serial()},
                          {"multicastId", groupJson(record.group)},
                          {"multipath", multipath(record.oifSet->portVlanSet())},
                          {"routes", group ? group->routes : 0}};
      if (record.usedInHw) row["usedInHw"] = *record.usedInHw;
      row["dirty"] = record.dirty;
      if (record.expiryTime < Qor::never) row["expiryTime"] = record.expiryTime;
      rows.push_back(std::move(row));
   }
   return rows;
}

ordered_json entriesJson(Sim::EntryTable const& table) {
   ordered_json rows = ordered_json::array();
   table.forEach([&](Qor::U32 index, Sim::Entry const& entry) {
      ordered_json row = {{"entry", index},
                          {"vrfId", entry.vrfId},
                          {"src", prefixText(entry.key.source())},
                          {"dst", prefixText(entry.key.group())},
                          {"vlan", entry.acceptingVlan.value()}};
      if (entry.group != Sim::noGroup) row["group"] = groupJson(entry.group);
      row["packets"] = entry.packets;
      rows.push_back(std::move(row));
   });
   return rows;
}

ordered_json chipJson(SimulatedSwitch const& simulated) {
   Sim::Chip const& chip = simulated.chip();
   ordered_json groups = ordered_json::array();
   chip.forEachGroup([&](Qor::U32 id, Sim::Group const& group) {
      ordered_json members = ordered_json::array();
      if (group.toCpu) members.push_back("cpu");
      for (auto const& member : group.members)
         members.push_back(fmt::format("{}", member));
      groups.push_back({{"group", id}, {"members", members}, {"routes", group.routes}});
   });
   ordered_json ports = ordered_json::array();
   for (auto const& intf : simulated.interfaceMap().intfs()) {
      Sim::Port const* port = chip.port(intf->id);
      ordered_json row = {{"interface", intf->id.name()}, {"vlan", intf->vlan.value()}};
      if (port) {
         row["port"] = port->number;
         row["linkUp"] = port->linkUp;
      } else {
         row["port"] = "cpu";
      }
      ports.push_back(std::move(row));
   }
   return {{"ports", ports},
           {"groups", groups},
           {"routes", entriesJson(chip.routes())},
           {"boundaries", entriesJson(chip.boundaries())}};
}

// The text of a value in a cell of a table.
std::string cell(ordered_json const& value) {
   if (value.is_string()) return value.get<std::string>();
   if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
   if (value.is_number_float()) return fmt::format("{:.3f}", value.get<double>());
   if (!value.is_array()) return value.dump();
   std::string list;
   for (auto const& item : value) {
      if (!list.empty()) list += ' ';
      list += item.is_object() ? item.at("oif").get<std::string>() : cell(item);
   }
   return list.empty() ? "-" : list;
}

struct Column {
   char const* title;
   char const* key;
};

void printTable(std::ostream& os, ordered_json const& rows, std::vector<Column> const& columns) {
   std::vector<std::vector<std::string>> cells(1);
   for (Column const& column : columns)
      cells[0].push_back(column.title);
   for (auto const& row : rows) {
      auto& line = cells.emplace_back();
      for (Column const& column : columns) {
         line.push_back(row.contains(column.key) ? cell(row.at(column.key)) : "");
      }
   }
   os << aligned(cells);
}

}  // namespace

std::optional<View> viewNamed(std::string_view name) {
   for (auto const& [view, text] : viewNames) {
      if (text == name) return view;
   }
   return std::nullopt;
}

std::string_view nameOf(View view) {
   return viewNames[static_cast<std::size_t>(view)].second;
}

ordered_json viewJson(View view, SimulatedSwitch const& simulated) {
   switch (view) {
      case View::routes:
         return routesJson(simulated);
      case View::oifsets:
         return recordsJson(simulated, simulated.path().recordsInUse());
      case View::zombies:
         return recordsJson(simulated, simulated.path().zombieRecords());
      case View::chip:
         return chipJson(simulated);
   }
   return {};
}

void printView(std::ostream& os, View view, ordered_json const& table) {
   switch (view) {
      case View::routes:
         printTable(os, table,
                    {{"VRF", "vrf"},
                     {"SOURCE", "src"},
                     {"GROUP", "dst"},
                     {"IIF", "iif"},
                     {"STATE", "state"},
                     {"HANDLE", "routeHandle"},
                     {"MCASTID", "multicastId"},
                     {"OIFS", "multipath"},
                     {"REASON", "reason"}});
         break;
      case View::oifsets:
         printTable(os, table,
                    {{"MCASTID", "multicastId"},
                     {"OIFSET", "oifSet"},
                     {"ROUTES", "routes"},
                     {"DIRTY", "dirty"},
                     {"OIFS", "multipath"}});
         break;
      case View::zombies:
         printTable(os, table,
                    {{"EXPIRES", "expiryTime"},
                     {"MCASTID", "multicastId"},
                     {"OIFSET", "oifSet"},
                     {"OIFS", "multipath"}});
         break;
      case View::chip:
         printTable(
               os, table.at("ports"),
               {{"INTERFACE", "interface"}, {"PORT", "port"}, {"VLAN", "vlan"}, {"UP", "linkUp"}});
         os << '\n';
         printTable(os, table.at("groups"),
                    {{"GROUP", "group"}, {"ROUTES", "routes"}, {"MEMBERS", "members"}});
         os << '\n';
         printTable(os, table.at("routes"),
                    {{"ENTRY", "entry"},
                     {"VRFID", "vrfId"},
                     {"SOURCE", "src"},
                     {"GROUP", "dst"},
                     {"VLAN", "vlan"},
                     {"->GROUP", "group"},
                     {"PACKETS", "packets"}});
         if (table.at("boundaries").empty()) break;
         os << '\n';
         printTable(os, table.at("boundaries"),
                    {{"BOUNDARY", "entry"},
                     {"VRFID", "vrfId"},
                     {"SOURCE", "src"},
                     {"GROUP", "dst"},
                     {"VLAN", "vlan"},
                     {"PACKETS", "packets"}});
         break;
   }
}

}  // namespace Agent
