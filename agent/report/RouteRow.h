// A route as the tables and documents of all commands have it. The routes of a simulated switch and
// those of a live agent are rows of one shape.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "agent/report/ReportedState.h"
#include "agent/switch/Switch.h"

namespace Agent {

// A copy of each packet: the interface and its vlan, if it has one. The name "cpu" stands for a copy
// to the CPU.
struct RouteOutput {
   std::string oif;
   std::optional<Qor::U32> vlan = {};
};

// The replication group of a route or of a record.
struct GroupNumber {
   std::optional<Qor::U32> number = {};  // none for a hard-wired group
   std::string hardWired = {};           // "drop" or "cpu": a group outside the replication table
};

struct RouteRow {
   std::optional<std::string> vrf = {};  // none if it is not known
   std::optional<Qor::U32> table = {};   // the kernel's table
   RouteKey key = {};
   std::string iif = {};               // empty: any interface, or none
   std::optional<Qor::U32> vlan = {};  // of the input
   std::vector<RouteOutput> outputs = {};
   bool bridged = false;  // packets are bridged in the vlan of the input
   ReportedState state = ReportedState::pending;
   std::string waitsFor = {};    // of a waiting route
   std::string trapReason = {};  // of a trapped route: a fixed word
   std::string reason = {};      // why the route is not in hardware, or held there; for people
   std::string fault = {};       // a fault of a route in hardware; for people
   // Of a route with an entry or a record.
   std::optional<Qor::U64> handle = {};
   GroupNumber group = {};
   std::optional<Qor::U64> oifSet = {};  // the serial number of the record's oif set
   std::optional<Qor::U64> packets = {}, bytes = {};
   std::optional<Qor::U64> counter = {};          // the route's own counter
   std::optional<Qor::Seconds> lastHitAt = {};    // time of the last known use
   std::optional<Qor::Seconds> idleSeconds = {};  // without a known use
};

// The order of the tables: by VRF, the VRF "default" first; then by group, IPv4 before IPv6; then by
// source, the (*,G) route first. Addresses have the order of their numbers.
bool operator<(RouteRow const& a, RouteRow const& b);

// The number of the kernel's table that is this VRF (vrfOf() of agent/input/RouteFields.h): 253 or
// 254 for "default", and the number for a name that is one. Nothing for other names.
std::optional<Qor::U32> kernelTable(L3::VrfName const& vrf, Lnet::IpFamily family);

RouteRow routeRow(Switch const& theSwitch, RouteView const& route);

// Parts of documents; docs/json.md describes them. An unknown value has no key.
nlohmann::ordered_json routeJson(RouteRow const& row);
std::vector<RouteOutput> outputsOf(MrouteLib::PortVlanSet const& set);
nlohmann::ordered_json outputsJson(std::vector<RouteOutput> const& outputs);
GroupNumber groupNumber(VelMroute::View const& view, std::optional<Qor::U32> group);
// Adds the key "group" or "hardWired", if there is a group.
void addGroup(nlohmann::ordered_json& row, GroupNumber const& group);
// "*", an address, or a prefix.
std::string prefixText(Lnet::IpGenPrefix const& prefix);

}  // namespace Agent
