#include "agent/report/Views.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "agent/report/RouteRow.h"
#include "agent/report/TextTable.h"
#include "platform/Format.h"

namespace Agent {

namespace {

using nlohmann::ordered_json;

constexpr std::pair<View, std::string_view> viewNames[] = {
      {View::routes, "routes"},
      {View::oifsets, "oifsets"},
      {View::zombies, "zombies"},
      {View::chip, "chip"},
};

// The number of route entries that point at each group.
std::map<Qor::U32, Qor::U32> routesOfGroups(VelMroute::View const& view) {
   std::map<Qor::U32, Qor::U32> routes;
   view.forEachEntry([&](VelMroute::View::Entry const& entry) {
      if (entry.group && !entry.route.bridge) ++routes[*entry.group];
   });
   return routes;
}

ordered_json routesJson(Switch const& theSwitch) {
   std::vector<RouteRow> rows;
   theSwitch.programmer().forEach(
         [&](RouteView const& route) { rows.push_back(routeRow(theSwitch, route)); });
   std::ranges::sort(rows, std::less());
   ordered_json json = ordered_json::array();
   for (RouteRow const& row : rows)
      json.push_back(routeJson(row));
   return json;
}

ordered_json recordsJson(Switch const& theSwitch, std::vector<RecordRow> const& records) {
   ordered_json rows = ordered_json::array();
   auto const routes = routesOfGroups(theSwitch.view());
   for (RecordRow const& record : records) {
      auto const pointing = record.group ? routes.find(*record.group) : routes.end();
      ordered_json row = {{"oifSet", record.oifSet->serial()}};
      addGroup(row, groupNumber(theSwitch.view(), record.group));
      row["multipath"] = outputsJson(outputsOf(record.oifSet->portVlanSet()));
      row["routeCount"] = pointing == routes.end() ? 0 : pointing->second;
      if (record.usedInHw) row["usedInHw"] = *record.usedInHw;
      row["dirty"] = record.dirty;
      if (record.expiryTime < Qor::never) row["expiresAt"] = record.expiryTime;
      rows.push_back(std::move(row));
   }
   return rows;
}

ordered_json entriesJson(VelMroute::View const& view, bool boundaries) {
   ordered_json rows = ordered_json::array();
   view.forEachEntry([&](VelMroute::View::Entry const& entry) {
      if (entry.route.bridge != boundaries) return;
      ordered_json row = {{"entry", entry.number},
                          {"vrfId", entry.route.vrfId.value()},
                          {"src", prefixText(entry.route.key.source())},
                          {"dst", entry.route.key.group().toString()}};
      if (!entry.route.vlan.isNone()) row["vlan"] = entry.route.vlan.value();
      addGroup(row, groupNumber(view, entry.group));
      if (entry.packets) row["packets"] = *entry.packets;
      rows.push_back(std::move(row));
   });
   return rows;
}

ordered_json groupsJson(VelMroute::View const& view) {
   ordered_json groups = ordered_json::array();
   auto const routes = routesOfGroups(view);
   view.forEachGroup([&](Qor::U32 number, VelMroute::View::Group const& group) {
      std::vector<RouteOutput> members;
      for (auto const& member : group.members)
         members.push_back({member.intfId().name(), member.vlanId().value()});
      if (group.cpu) members.push_back({"cpu"});
      auto const pointing = routes.find(number);
      groups.push_back({{"group", number},
                        {"multipath", outputsJson(members)},
                        {"routeCount", pointing == routes.end() ? 0 : pointing->second}});
   });
   return groups;
}

ordered_json portsJson(Switch const& theSwitch) {
   ordered_json ports = ordered_json::array();
   for (auto const& intf : theSwitch.interfaceMap().intfs()) {
      ordered_json row = {{"name", intf->id.name()}, {"vlan", intf->vlan.value()}};
      if (intf->port != 0) {  // 0: the CPU
         row["port"] = intf->port;
         if (auto const up = theSwitch.view().linkUp(intf->id)) row["link"] = *up ? "up" : "down";
      }
      ports.push_back(std::move(row));
   }
   return ports;
}

ordered_json chipJson(Switch const& theSwitch) {
   return {{"ports", portsJson(theSwitch)},
           {"groups", groupsJson(theSwitch.view())},
           {"entries", entriesJson(theSwitch.view(), false)},
           {"boundaries", entriesJson(theSwitch.view(), true)}};
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

ordered_json viewJson(View view, Switch const& theSwitch) {
   switch (view) {
      case View::routes:
         return routesJson(theSwitch);
      case View::oifsets:
         return recordsJson(theSwitch, theSwitch.path().recordsInUse());
      case View::zombies:
         return recordsJson(theSwitch, theSwitch.path().zombieRecords());
      case View::chip:
         return chipJson(theSwitch);
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
                     {"HANDLE", "handle"},
                     {"MCASTID", "group"},
                     {"OIFS", "multipath"},
                     {"REASON", "reason"}});
         break;
      case View::oifsets:
         printTable(os, table,
                    {{"MCASTID", "group"},
                     {"OIFSET", "oifSet"},
                     {"ROUTES", "routeCount"},
                     {"DIRTY", "dirty"},
                     {"OIFS", "multipath"}});
         break;
      case View::zombies:
         printTable(os, table,
                    {{"EXPIRES", "expiresAt"},
                     {"MCASTID", "group"},
                     {"OIFSET", "oifSet"},
                     {"OIFS", "multipath"}});
         break;
      case View::chip:
         printTable(os, table.at("ports"),
                    {{"INTERFACE", "name"}, {"PORT", "port"}, {"VLAN", "vlan"}, {"LINK", "link"}});
         os << '\n';
         printTable(os, table.at("groups"),
                    {{"GROUP", "group"}, {"ROUTES", "routeCount"}, {"MEMBERS", "multipath"}});
         os << '\n';
         printTable(os, table.at("entries"),
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
