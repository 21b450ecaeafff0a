#include "agent/report/Views.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "agent/report/RouteStateName.h"
#include "agent/report/TextTable.h"
#include "agent/switch/GroupName.h"
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
ordered_json groupJson(VelMroute::View const& view, std::optional<Qor::U32> group) {
   if (!group || isHardWired(view, group)) return groupName(view, group);
   return *group;
}

// The number of route entries that point at each group.
std::map<Qor::U32, Qor::U32> routesOfGroups(VelMroute::View const& view) {
   std::map<Qor::U32, Qor::U32> routes;
   view.forEachEntry([&](VelMroute::View::Entry const& entry) {
      if (entry.group && !entry.route.bridge) ++routes[*entry.group];
   });
   return routes;
}

ordered_json routesJson(Switch const& theSwitch) {
   ordered_json rows = ordered_json::array();
   theSwitch.programmer().forEach([&](RouteView const& route) {
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
      if (auto const record = theSwitch.path().record(route)) {
         row["multicastId"] = groupJson(theSwitch.view(), record->group);
         row["oifSet"] = record->oifSet->serial();
      }
      if (!route.handle().isNull()) {
         row["routeHandle"] = route.handle().value();
         if (auto const entry = theSwitch.view().entry(route.handle())) {
            if (entry->packets) row["packets"] = *entry->packets;
            if (entry->bytes) row["bytes"] = *entry->bytes;
         }
      }
      auto const vrfStatus = theSwitch.mfibHwStatus().vrfStatus(route.vrf());
      if (auto const status = vrfStatus ? vrfStatus->route(route.key()) : nullptr) {
         // A poll time of 0 means that no use is known. The agent does not know uses before its
         // start, so idle time counts from the start at the earliest.
         if (status->lastPollTime() > 0) row["lastPollTime"] = status->lastPollTime();
         row["idleSince"] = std::max(status->lastPollTime(), theSwitch.startedAt());
      }
      if (auto const counter = theSwitch.path().counter(route.key())) row["counter"] = *counter;
      if (!offload) row["reason"] = route.reason();
      rows.push_back(std::move(row));
   });
   return rows;
}

ordered_json recordsJson(Switch const& theSwitch, std::vector<RecordRow> const& records) {
   ordered_json rows = ordered_json::array();
   auto const routes = routesOfGroups(theSwitch.view());
   for (RecordRow const& record : records) {
      auto const pointing = record.group ? routes.find(*record.group) : routes.end();
      ordered_json row = {{"oifSet", record.oifSet->serial()},
                          {"multicastId", groupJson(theSwitch.view(), record.group)},
                          {"multipath", multipath(record.oifSet->portVlanSet())},
                          {"routes", pointing == routes.end() ? 0 : pointing->second}};
      if (record.usedInHw) row["usedInHw"] = *record.usedInHw;
      row["dirty"] = record.dirty;
      if (record.expiryTime < Qor::never) row["expiryTime"] = record.expiryTime;
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
                          {"dst", prefixText(entry.route.key.group())},
                          {"vlan", entry.route.vlan.value()}};
      if (entry.group) row["group"] = groupJson(view, entry.group);
      if (entry.packets) row["packets"] = *entry.packets;
      rows.push_back(std::move(row));
   });
   return rows;
}

ordered_json chipJson(Switch const& theSwitch) {
   VelMroute::View const& view = theSwitch.view();
   ordered_json groups = ordered_json::array();
   auto const routes = routesOfGroups(view);
   view.forEachGroup([&](Qor::U32 number, VelMroute::View::Group const& group) {
      ordered_json members = ordered_json::array();
      if (group.cpu) members.push_back("cpu");
      for (auto const& member : group.members)
         members.push_back(fmt::format("{}", member));
      auto const pointing = routes.find(number);
      groups.push_back({{"group", number},
                        {"members", members},
                        {"routes", pointing == routes.end() ? 0 : pointing->second}});
   });
   ordered_json ports = ordered_json::array();
   for (auto const& intf : theSwitch.interfaceMap().intfs()) {
      ordered_json row = {{"interface", intf->id.name()}, {"vlan", intf->vlan.value()}};
      if (intf->port == 0) {
         row["port"] = "cpu";
      } else {
         row["port"] = intf->port;
         if (auto const up = view.linkUp(intf->id)) row["linkUp"] = *up;
      }
      ports.push_back(std::move(row));
   }
   return {{"ports", ports},
           {"groups", groups},
           {"routes", entriesJson(view, false)},
           {"boundaries", entriesJson(view, true)}};
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
