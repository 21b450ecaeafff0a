// The interfaces of the live agent: their ports on the bridge, their links, and the CPU ports that
// follow the front ports.
#include <algorithm>
#include <utility>

#include "agent/live/LiveAgent.h"

namespace Agent {

using Interface::IntfOperStatus;
using Lnet::IntfId;

namespace {

constexpr Qor::Seconds withoutProtection = 1;  // of routes that return to a restored interface
constexpr Qor::Seconds rerouteTime = 0.5;      // within which groups are rewritten
constexpr Qor::Seconds standbyLook = 1;        // between looks at the standby of a failed port

}  // namespace

std::optional<IntfId> LiveAgent::mapped(Qor::U32 ifindex) const {
   Kernel::Link const* const link = monitor_->link(ifindex);
   if (!link) return std::nullopt;
   LiveInterface const* const interface = configuration_.interface(IntfId(link->name));
   if (!interface) return std::nullopt;
   return interface->intf;
}

std::string LiveAgent::interfaceName(Qor::U32 ifindex) const {
   Kernel::Link const* const link = monitor_->link(ifindex);
   return link ? link->name : "interface " + std::to_string(ifindex);
}

std::optional<L3::VrfName> LiveAgent::vrfOf(Qor::U32 ifindex) const {
   Kernel::Link const* const link = monitor_->link(ifindex);
   if (!link) return std::nullopt;
   return vrfOf(*link);
}

L3::VrfName LiveAgent::vrfOf(Kernel::Link const& link) const {
   Kernel::Link const* const master = link.master == 0 ? nullptr : monitor_->link(link.master);
   return L3::VrfName(master && master->kind == "vrf" ? master->name : "default");
}

// The number of a VRF follows from the order of the interfaces in the file, so that a new agent gives
// the same numbers.
void LiveAgent::interfaceToBridge(LiveInterface const& interface) {
   Kernel::Link const* const link = monitor_->link(interface.intf.name());
   if (!link || !bridge_) return;
   L3::VrfName const vrf = vrfOf(*link);
   auto place = std::ranges::find(vrfs_, vrf);
   if (place == vrfs_.end()) {
      place = vrfs_.insert(place, vrf);
      if (switch_) switch_->learnVrf(vrf);
   }
   vrfOf_[interface.intf] = vrf;
   routes_.vrfsAre(vrfOf_);
   OpenFlow::Port port{.intf = interface.intf,
                       .front = interface.port,
                       .cpu = interface.cpu,
                       .vlan = interface.vlan,
                       .mac = link->mac,
                       .standby = interface.standby,
                       .vrfId = static_cast<Qor::U32>(place - vrfs_.begin())};
   if (!bridge_->interfaceIs(port)) {
      log_.error(interface.intf.name() + " has no group of the bridge left, and forwards nothing");
   }
}

// The states of links change often, and no decision on a route depends on them.
void LiveAgent::linkIs(Kernel::Link const& link) {
   if (LiveInterface const* const interface = configuration_.interface(IntfId(link.name)))
      interfaceToBridge(*interface);
   LinkPlace const place{link.name, link.master};
   auto const [known, isNew] = places_.try_emplace(link.index, place);
   if (!isNew && std::exchange(known->second, place) == place) return;
   decideLater();
}

void LiveAgent::linkDel(Qor::U32 index) {
   places_.erase(index);
   decideLater();
}

// Several links change at a time, and each change concerns all routes.
void LiveAgent::decideLater() {
   if (std::exchange(deciding_, true)) return;
   later_.in(0, [this] {
      deciding_ = false;
      routes_.decideAll();
   });
}

void LiveAgent::linkStateIs(IntfId intf, bool up) {
   LiveInterface const* const interface = configuration_.interface(intf);
   if (!interface) return;
   auto const [link, first] = frontLinks_.try_emplace(intf);
   if (!first && link->second.up == up) return;
   link->second = {up, Qor::now()};
   if (!first || !up) {
      log_.notice("port " + interface->port + " of " + intf.name() + (up ? " is up" : " is down"));
   }
   if (!interface->standby.empty()) {
      // The bridge sends by the standby port.
      if (watched_.insert(intf).second) watchStandby(intf);
      return;
   }
   if (!up && configuration_.reroutes.contains(intf)) ++numbers_.reroutes;
   if (switch_) switch_->linkIs(intf, up ? IntfOperStatus::up : IntfOperStatus::down);
   if (!up) routes_.failed(intf);
   if (configuration_.reroutes.contains(intf)) {
      // The kernel takes tens of milliseconds to disable a port, and the rewrites of the groups come
      // first.
      later_.in(rerouteTime, [this, intf] { cpuPortFollows(intf); });
   } else {
      cpuPortFollows(intf);
   }
   if (first || !up || !configuration_.reroutes.contains(intf)) return;
   later_.in(configuration_.standbyHold, [this, intf, since = link->second.since] {
      auto const now = frontLinks_.find(intf);
      if (now != frontLinks_.end() && now->second.up && now->second.since == since)
         restore(intf, false);
   });
}

void LiveAgent::restore(IntfId intf, bool again) {
   routes_.restore(intf, again);
   if (again) return;
   log_.notice("the routes to " + intf.name() + " return to it");
   later_.in(withoutProtection, [this, intf] { restore(intf, true); });
}

// The daemon sees the link of its interface, whose other end is the CPU port.
void LiveAgent::cpuPortFollows(IntfId intf) {
   LiveInterface const* const interface = configuration_.interface(intf);
   auto const front = frontLinks_.find(intf);
   if (!interface || front == frontLinks_.end()) return;
   std::string const& standby = interface->standby;
   cpuPortIs(*interface,
             front->second.up || (!standby.empty() && bridge_->portUp(standby).value_or(false)));
}

// The bridge does not notify the link of a standby port, so the agent looks at it as long as the
// front port is down.
void LiveAgent::watchStandby(IntfId intf) {
   cpuPortFollows(intf);
   auto const front = frontLinks_.find(intf);
   if (front == frontLinks_.end() || front->second.up) {
      watched_.erase(intf);
   } else {
      later_.in(standbyLook, [this, intf] { watchStandby(intf); });
   }
}

void LiveAgent::cpuPortIs(LiveInterface const& interface, bool up) {
   if (up != disabled_.contains(interface.cpu)) return;
   Kernel::Link const* const link = monitor_->link(interface.cpu);
   if (!link) return;
   std::string const refusal = linkControl_(link->index, up);
   if (!refusal.empty()) {
      log_.warning("CPU port " + interface.cpu + " does not follow its front port: " + refusal);
   } else if (up) {
      disabled_.erase(interface.cpu);
   } else {
      disabled_.insert(interface.cpu);
   }
}

std::vector<std::string> LiveAgent::interfaceNotes() const {
   std::vector<std::string> notes;
   std::set<std::string> named{"lo"};
   for (LiveInterface const& interface : configuration_.interfaces) {
      std::string const& name = interface.intf.name();
      named.insert({name, interface.port, interface.cpu, interface.standby});
      Kernel::Link const* const link = monitor_->link(name);
      if (!link) notes.push_back(name + ": the kernel has no such interface");
      for (std::string const& port : {interface.port, interface.cpu, interface.standby}) {
         if (port.empty() || !isConnected() || bridge_->portUp(port)) continue;
         notes.push_back(name + ": the bridge has no port " + port);
      }
      Kernel::Link const* const front = monitor_->link(interface.port);
      if (front && (front->hasIpv4 || front->hasIpv6)) {
         notes.push_back(name + ": front port " + interface.port + " has addresses of its own (" +
                         (front->hasIpv4 ? front->hasIpv6 ? "IPv4, IPv6" : "IPv4" : "IPv6") + ')');
      }
   }
   monitor_->forEachLink([&](Kernel::Link const& link) {
      if (named.contains(link.name) || !carriesTraffic(link.status)) return;
      notes.push_back(link.name + ": no port in the configuration");
   });
   return notes;
}

}  // namespace Agent
