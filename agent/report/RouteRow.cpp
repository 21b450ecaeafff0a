#include "agent/report/RouteRow.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <tuple>

#include "agent/input/NumberText.h"
#include "agent/switch/GroupName.h"

namespace Agent {

using nlohmann::ordered_json;

namespace {

constexpr char const* defaultVrf = "default";

std::optional<Qor::U32> numberOf(Bridging::VlanIdOrNone vlan) {
   if (vlan.isNone()) return std::nullopt;
   return vlan.value();
}

// The wanted outputs, for a route of which an interface has no vlan yet.
std::vector<RouteOutput> outputsOf(WantedRoute const& wanted) {
   std::vector<RouteOutput> outputs;
   if (!wanted.outputs) return outputs;
   for (Lnet::IntfId const intf : wanted.outputs->ports())
      outputs.push_back({intf.name()});
   if (wanted.outputs->cpu()) outputs.push_back({"cpu"});
   return outputs;
}

template <class Value>
void add(ordered_json& row, char const* key, std::optional<Value> const& value) {
   if (value) row[key] = *value;
}

void add(ordered_json& row, char const* key, std::string const& text) {
   if (!text.empty()) row[key] = text;
}

}  // namespace

bool operator<(RouteRow const& a, RouteRow const& b) {
   auto const rank = [](RouteRow const& row) {
      bool const isDefault = row.vrf == defaultVrf;
      std::string_view const vrf = row.vrf && !isDefault ? *row.vrf : std::string_view();
      return std::tuple(!isDefault, !row.vrf, vrf, row.key.group(), row.key.source(), row.table);
   };
   return rank(a) < rank(b);
}

std::optional<Qor::U32> kernelTable(L3::VrfName const& vrf, Lnet::IpFamily family) {
   constexpr Qor::U32 ofV4 = 253, ofV6 = 254;
   if (vrf.name() == defaultVrf) return family == Lnet::IpFamily::v4 ? ofV4 : ofV6;
   Qor::U32 number = 0;
   if (!parseNumber(vrf.name(), number)) return std::nullopt;
   return number;
}

std::vector<RouteOutput> outputsOf(MrouteLib::PortVlanSet const& set) {
   std::vector<RouteOutput> outputs;
   for (auto const& [pv, flag] : set.portVlan())
      outputs.push_back({pv.intfId().name(), pv.vlanId().value()});
   if (set.toCpu()) outputs.push_back({"cpu"});
   return outputs;
}

GroupNumber groupNumber(VelMroute::View const& view, std::optional<Qor::U32> group) {
   if (!group) return {};
   if (isHardWired(view, group)) return {{}, groupName(view, group)};
   return {group, {}};
}

std::string prefixText(Lnet::IpGenPrefix const& prefix) {
   return prefix.isAny() ? "*" : prefix.toString();
}

RouteRow routeRow(Switch const& theSwitch, RouteView const& route) {
   WantedRoute const& wanted = route.wanted();
   RouteRow row;
   row.vrf = route.vrf().name();
   row.table = kernelTable(route.vrf(), route.key().group().family());
   row.key = route.key();
   if (!wanted.noRpf) row.iif = wanted.iif.name();
   row.vlan = numberOf(route.vlan());
   row.outputs = route.set() ? outputsOf(*route.set()) : outputsOf(wanted);
   row.bridged = wanted.bridge;
   row.state = reportedState(route.state());
   row.waitsFor = waitsFor(route.state());
   row.reason = route.reason();
   if (auto const record = theSwitch.path().record(route)) {
      row.group = groupNumber(theSwitch.view(), record->group);
      row.oifSet = record->oifSet->serial();
   }
   if (!route.handle().isNull()) {
      row.handle = route.handle().value();
      if (auto const entry = theSwitch.view().entry(route.handle())) {
         row.packets = entry->packets;
         row.bytes = entry->bytes;
      }
   }
   auto const vrfStatus = theSwitch.mfibHwStatus().vrfStatus(route.vrf());
   if (auto const published = vrfStatus ? vrfStatus->route(route.key()) : nullptr) {
      // A poll time of 0 means that no use is known. The agent does not know uses before its
      // start, so idle time counts from the start at the earliest.
      Qor::Seconds const hit = published->lastPollTime();
      if (hit > 0) row.lastHitAt = hit;
      row.idleSeconds = std::max(0.0, Qor::now() - std::max(hit, theSwitch.startedAt()));
   }
   row.counter = theSwitch.path().counter(route.key());
   return row;
}

ordered_json outputsJson(std::vector<RouteOutput> const& outputs) {
   ordered_json list = ordered_json::array();
   for (RouteOutput const& output : outputs) {
      ordered_json member = {{"oif", output.oif}};
      add(member, "vlan", output.vlan);
      list.push_back(std::move(member));
   }
   return list;
}

void addGroup(ordered_json& row, GroupNumber const& group) {
   add(row, "group", group.number);
   add(row, "hardWired", group.hardWired);
}

ordered_json routeJson(RouteRow const& row) {
   ordered_json json = ordered_json::object();
   add(json, "vrf", row.vrf);
   add(json, "table", row.table);
   json["src"] = prefixText(row.key.source());
   json["dst"] = row.key.group().toString();
   add(json, "iif", row.iif);
   add(json, "vlan", row.vlan);
   json["multipath"] = outputsJson(row.outputs);
   if (row.bridged) json["bridged"] = true;
   json["state"] = nameOf(row.state);
   add(json, "waitsFor", row.waitsFor);
   add(json, "trapReason", row.trapReason);
   add(json, "reason", row.reason);
   add(json, "fault", row.fault);
   add(json, "handle", row.handle);
   addGroup(json, row.group);
   add(json, "oifSet", row.oifSet);
   add(json, "packets", row.packets);
   add(json, "bytes", row.bytes);
   add(json, "counter", row.counter);
   add(json, "lastHitAt", row.lastHitAt);
   add(json, "idleSeconds", row.idleSeconds);
   return json;
}

}  // namespace Agent
