#include "agent/report/Views.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

#include "agent/input/PrintableText.h"
#include "agent/input/Suggestion.h"
#include "agent/report/TextTable.h"

namespace Agent {

namespace {

using nlohmann::ordered_json;

// In the order of View.
constexpr std::string_view viewNames[] = {"routes", "oifsets", "zombies", "chip"};

// The number of route entries that point at each group.
std::map<Qor::U32, Qor::U32> routesOfGroups(VelMroute::View const& view) {
   std::map<Qor::U32, Qor::U32> routes;
   view.forEachEntry([&](VelMroute::View::Entry const& entry) {
      if (entry.group && !entry.route.bridge) ++routes[*entry.group];
   });
   return routes;
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

ordered_json rowsOf(ViewRequest const& request, Switch const& theSwitch) {
   switch (request.view) {
      case View::oifsets:
         return recordsJson(theSwitch, theSwitch.path().recordsInUse());
      case View::zombies:
         return recordsJson(theSwitch, theSwitch.path().zombieRecords());
      case View::chip:
         return chipJson(theSwitch);
      default:
         return {};
   }
}

// ---- Text. ----

using Kind = TextTable::Kind;

struct Column {
   char const* title;
   char const* key;
   Kind kind = Kind::word;
   char const* otherwise = nullptr;  // the key to take if there is no `key`
   char const* prefix = "";          // of a value of `key`
};

// The text of a value in a cell of a table.
std::string cell(ordered_json const& value) {
   if (value.is_string()) return value.get<std::string>();
   if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
   if (value.is_number_float()) return fmt::format("{:.3f}", value.get<double>());
   if (!value.is_array()) return value.dump();
   std::string list;
   for (auto const& output : value)
      list += (list.empty() ? "" : " ") + output.at("oif").get<std::string>();
   return list;
}

std::string tableText(ordered_json const& rows, std::vector<Column> const& columns,
                      std::size_t width) {
   std::vector<TextTable::Column> titles;
   for (Column const& column : columns)
      titles.push_back({column.title, column.kind});
   TextTable table(titles);
   for (auto const& row : rows) {
      std::vector<std::string> cells;
      for (Column const& column : columns) {
         auto const at = row.find(column.key);
         if (at != row.end()) {
            cells.push_back(column.prefix + cell(*at));
         } else {
            auto const other = column.otherwise ? row.find(column.otherwise) : row.end();
            cells.push_back(other == row.end() ? "" : cell(*other));
         }
      }
      table.add(std::move(cells));
   }
   return table.text(width);
}

std::string routesText(ViewContent const& content, std::vector<Column> const& columns,
                       std::size_t width) {
   std::string text = tableText(content.rows, columns, width);
   if (content.total) text += fmt::format("{} of {} routes\n", content.rows.size(), *content.total);
   return text;
}

Column const vrf{"VRF", "vrf"}, source{"SOURCE", "src"}, group{"GROUP", "dst"}, iif{"IIF", "iif"},
      oifs{"OIFS", "multipath", Kind::list}, state{"STATE", "state"},
      vlan{"VLAN", "vlan", Kind::number}, packets{"PACKETS", "packets", Kind::number},
      vrfId{"VRFID", "vrfId", Kind::number},
      reason{"REASON", "fault", Kind::sentence, "reason", "fault: "},
      mcastId{"MCASTID", "group", Kind::number, "hardWired"},
      oifSet{"OIFSET", "oifSet", Kind::number}, routes{"ROUTES", "routeCount", Kind::number};

std::string chipText(ordered_json const& chip, std::size_t width) {
   std::string text = tableText(
         chip.at("ports"),
         {{"INTERFACE", "name"}, {"PORT", "port", Kind::number}, vlan, {"LINK", "link"}}, width);
   text += '\n' + tableText(chip.at("groups"), {mcastId, routes, oifs}, width);
   text +=
         '\n' +
         tableText(chip.at("entries"),
                   {{"ENTRY", "entry", Kind::number}, vrfId, source, group, vlan, mcastId, packets},
                   width);
   if (chip.at("boundaries").empty()) return text;
   return text + '\n' +
          tableText(chip.at("boundaries"),
                    {{"BOUNDARY", "entry", Kind::number}, vrfId, source, group, vlan, packets},
                    width);
}

}  // namespace

std::string_view nameOf(View view) {
   return viewNames[static_cast<std::size_t>(view)];
}

ViewRequest viewRequest(std::string_view text) {
   std::istringstream stream{std::string(text)};
   std::vector<std::string> const words(std::istream_iterator<std::string>(stream), {});
   std::string const name = words.empty() ? "" : words.front();
   auto const found = std::ranges::find(viewNames, name);
   if (found == std::end(viewNames)) {
      throw std::invalid_argument(fmt::format("{} is not a view{}", printable(inQuotes(name)),
                                              knownNames(name, viewNames)));
   }
   ViewRequest request{static_cast<View>(found - std::begin(viewNames))};
   if (words.size() == 1) return request;
   if (request.view != View::routes)
      throw std::invalid_argument("the view " + name + " has no filter");
   request.filter = RouteFilter(std::span(words).subspan(1));
   return request;
}

ViewContent routesContent(std::vector<RouteRow> routes, RouteFilter const& filter) {
   ViewContent content{ordered_json::array()};
   if (!filter.empty()) content.total = routes.size();
   std::erase_if(routes, [&](RouteRow const& route) { return !filter.matches(route); });
   std::ranges::sort(routes, std::less());
   for (RouteRow const& route : routes)
      content.rows.push_back(routeJson(route));
   return content;
}

ViewContent viewContent(ViewRequest const& request, Switch const& theSwitch) {
   if (request.view != View::routes) return {rowsOf(request, theSwitch)};
   std::vector<RouteRow> routes;
   theSwitch.programmer().forEach(
         [&](RouteView const& route) { routes.push_back(routeRow(theSwitch, route)); });
   return routesContent(std::move(routes), request.filter);
}

ordered_json viewDocument(View view, ViewContent content) {
   return {{std::string(nameOf(view)), std::move(content.rows)}};
}

std::string viewText(View view, ViewContent const& content, std::size_t width) {
   switch (view) {
      case View::routes:
         return routesText(content,
                           {vrf,
                            source,
                            group,
                            iif,
                            state,
                            {"HANDLE", "handle", Kind::number},
                            mcastId,
                            oifs,
                            reason},
                           width);
      case View::oifsets:
         return tableText(content.rows, {mcastId, oifSet, routes, {"DIRTY", "dirty"}, oifs}, width);
      case View::zombies:
         return tableText(content.rows,
                          {{"EXPIRES", "expiresAt", Kind::number}, mcastId, oifSet, oifs}, width);
      case View::chip:
         return chipText(content.rows, width);
   }
   return {};
}

std::string kernelRoutesText(ViewContent const& content, std::size_t width) {
   return routesText(
         content, {vrf, {"TABLE", "table", Kind::number}, source, group, iif, state, oifs, reason},
         width);
}

}  // namespace Agent
