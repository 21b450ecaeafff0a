#include "agent/scenario/SimulatedTestbed.h"

#include <iostream>
#include <set>

#include "agent/report/RouteStateName.h"
#include "agent/report/Views.h"
#include "platform/sim/Format.h"

namespace Agent {

Intf const& SimulatedTestbed::learn(Lnet::IntfId id) {
   try {
      return simulated_.learnIntf(id);
   } catch (InterfaceMapFull const& full) {
      throw TestbedRefusal(full.what());
   }
}

void SimulatedTestbed::note(std::string const& what) {
   if (timeline_) timeline_->instant(what);
}

// ---- Changes of the switch. ----

void SimulatedTestbed::routeIs(Route const& route) {
   WantedRoute wanted;
   learn(route.iif);
   wanted.noRpf = route.noRpf;
   // Without an input check the input has a meaning for the backup alone.
   if (!route.noRpf || !route.backup.empty()) wanted.iif = route.iif;
   if (route.bridge && !simulated_.path().bridges()) {
      throw TestbedRefusal("this path has no bridge entries");
   }
   wanted.bridge = route.bridge;
   std::vector<Lnet::IntfId> ports;
   bool cpu = route.cpu;
   for (Lnet::IntfId const oif : route.oifs) {
      if (learn(oif).cpu) {
         cpu = true;
      } else {
         ports.push_back(oif);
      }
   }
   for (Lnet::IntfId const oif : route.backup) {
      if (learn(oif).cpu) throw TestbedRefusal("the CPU cannot be a backup");
   }
   wanted.outputs = simulated_.outputsPool().get(std::move(ports), cpu, route.backup);
   for (Lnet::IntfId const intf : route.fastdrop) {
      if (intf == route.iif) throw TestbedRefusal(intf.name() + " is the input of the route");
      learn(intf);
   }
   wanted.fastdrop = route.fastdrop;
   simulated_.learnVrf(route.vrf);
   simulated_.routeIs(route.vrf, route.key, std::move(wanted));
}

void SimulatedTestbed::routeDel(L3::VrfName const& vrf, Scenario::RouteKey const& key) {
   simulated_.routeDel(vrf, key);
}

void SimulatedTestbed::linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state) {
   learn(intf);
   note(fmt::format("link {} {}", intf, state));
   simulated_.linkIs(intf, state);
}

void SimulatedTestbed::bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state) {
   Bfd::AppStatus* const sessions = simulated_.path().bfdAppStatus();
   if (!sessions) throw TestbedRefusal("this path has no BFD sessions");
   if (!state) {
      note(fmt::format("bfd {} removed", peer));
      sessions->peerStatusDel(peer);
      return;
   }
   note(fmt::format("bfd {} {}", peer, *state));
   sessions->newPeerStatus(peer)->statusIs(*state);
}

void SimulatedTestbed::configIs(Scenario::Config const& config) {
   auto& mfibConfig = simulated_.mfibConfig();
   if (config.activityPollingInterval) {
      mfibConfig.activityPollingIntervalIs(*config.activityPollingInterval);
   }
   if (config.counterMode) mfibConfig.counterModeIs(*config.counterMode);
   if (config.allCounter) mfibConfig.allCounterIs(*config.allCounter);
}

void SimulatedTestbed::counterRouteIs(L3::VrfName const& vrf, Scenario::RouteKey const& key,
                                      bool counted) {
   auto const config = simulated_.mfibConfig().newConfig(vrf.name());
   if (counted) {
      config->counterRouteIs(key);
   } else {
      config->counterRouteDel(key);
   }
}

void SimulatedTestbed::faultIs(Scenario::Fault const& fault) {
   note("fault");
   Sim::Faults& faults = simulated_.path().faults();
   if (fault.groupsExhausted) faults.groupsExhaustedIs(*fault.groupsExhausted);
   if (fault.boundariesExhausted) faults.boundariesExhaustedIs(*fault.boundariesExhausted);
   if (fault.hitBitsBusy) faults.hitBitsBusyNext(*fault.hitBitsBusy);
   if (fault.routesExhausted) faults.routesExhaustedIs(*fault.routesExhausted);
   if (fault.seed) faults.seedIs(*fault.seed);
   if (auto const& f = fault.failNext) faults.failNext(f->write, f->reason, f->count);
   if (auto const& f = fault.slowNext) faults.slowNext(f->nth, f->extra);
   if (auto const& f = fault.failCall) {
      faults.failCallIs(
            {faults.calls() + f->nth, f->refused, f->writeFails, f->again, f->undoFails});
   }
   if (auto const& f = fault.rate) faults.rateIs(f->write, f->probability);
}

void SimulatedTestbed::restart(Scenario::Restart const& restart) {
   RestartOptions options;
   options.order = restart.order;
   options.seed = restart.seed;
   options.begin = restart.begin;
   options.over = restart.over;
   options.complete = restart.complete;
   options.applied = restart.applied;
   if (restart.replay) {
      auto const wanted = simulated_.wantedRoutes();
      auto& only = options.only.emplace();
      for (Scenario::RouteRun const& run : *restart.replay) {
         for (std::uint32_t i = 0; i < run.groups; ++i) {
            RouteId const id{run.vrf, run.key(i)};
            if (!wanted.contains(id)) throw TestbedRefusal(id.toString() + " is not wanted");
            only.insert(id);
         }
      }
   }
   note("restart");
   simulated_.restart(options);
}

Sim::Packet SimulatedTestbed::onChip(Packet const& packet) {
   simulated_.learnVrf(packet.vrf);
   return {simulated_.vrfId(packet.vrf)->value(), packet.source, packet.group,
           learn(packet.iif).vlan, packet.bytes};
}

Testbed::Copies SimulatedTestbed::copiesOf(Sim::Forwarded const& forwarded) {
   Copies copies;
   copies.result = fmt::format("{}", forwarded.result);
   for (auto const& copy : forwarded.copies)
      ++copies.at[copy.intfId().name()];
   if (forwarded.toCpu) ++copies.at["cpu"];
   return copies;
}

// ---- State of the switch. ----

Testbed::RouteFacts SimulatedTestbed::route(L3::VrfName const& vrf,
                                            Scenario::RouteKey const& key) const {
   RouteFacts facts;
   auto const route = std::as_const(simulated_).programmer().view(vrf, key);
   if (!route) return facts;
   facts.state = nameOf(route->state());
   facts.reason = route->reason();
   auto const vrfStatus = simulated_.mfibHwStatus().vrfStatus(vrf);
   if (auto const status = vrfStatus ? vrfStatus->route(key) : nullptr) {
      facts.lastPollTime = status->lastPollTime();
      for (auto const& [name, time] : status->fastdropLastPollTime()) {
         facts.fastdropLastPollTime[name] = time;
      }
   }
   facts.counter = simulated_.path().counter(key);
   if (auto const* entry = simulated_.path().entry(route->handle())) {
      facts.packets = entry->packets;
      facts.bytes = entry->bytes;
   }
   return facts;
}

std::uint64_t SimulatedTestbed::value(Scenario::State state) const {
   Programmer const& programmer = std::as_const(simulated_).programmer();
   std::uint64_t inHardware = 0, failed = 0;
   programmer.forEach([&](RouteView const& route) {
      inHardware += route.state() == VelMroute::RouteState::inHardware;
      failed += route.state() == VelMroute::RouteState::failed;
   });
   switch (state) {
      case Scenario::State::wanted:
         return programmer.routes();
      case Scenario::State::inHardware:
         return inHardware;
      case Scenario::State::waiting:
         return programmer.routes() - inHardware - failed;
      case Scenario::State::failed:
         return failed;
      case Scenario::State::groups:
         return simulated_.chip().groups();
      case Scenario::State::zombies:
         return simulated_.path().zombies();
      case Scenario::State::entries:
         return simulated_.chip().routes().size();
      case Scenario::State::rerouting:
         return simulated_.path().rerouting();
   }
   return 0;
}

std::uint64_t SimulatedTestbed::value(Scenario::Count count) const {
   auto const figures = simulated_.figures();
   auto const& counters = figures.programmer;
   Sim::Chip const& chip = simulated_.chip();
   switch (count) {
      case Scenario::Count::groupCreate:
         return chip.writes(Sim::WriteKind::groupCreate);
      case Scenario::Count::groupUpdate:
         return chip.writes(Sim::WriteKind::groupUpdate);
      case Scenario::Count::groupDelete:
         return chip.writes(Sim::WriteKind::groupDelete);
      case Scenario::Count::routeCreate:
         return chip.writes(Sim::WriteKind::routeCreate);
      case Scenario::Count::routePoint:
         return chip.writes(Sim::WriteKind::routePoint);
      case Scenario::Count::routeDelete:
         return chip.writes(Sim::WriteKind::routeDelete);
      case Scenario::Count::boundaryCreate:
         return chip.writes(Sim::WriteKind::boundaryCreate);
      case Scenario::Count::boundaryDelete:
         return chip.writes(Sim::WriteKind::boundaryDelete);
      case Scenario::Count::resurrections:
         return counters.resurrections;
      case Scenario::Count::purges:
         return counters.purges;
      case Scenario::Count::failedWrites:
         return counters.failedWrites;
      case Scenario::Count::unchanged:
         return counters.unchanged;
      case Scenario::Count::refusals:
         return counters.refusals;
      case Scenario::Count::adopted:
         return counters.adopted;
      case Scenario::Count::swept:
         return counters.swept;
      default:
         return 0;  // the counts of the player
   }
}

// Reads the chip's tables and sends no packet, because packets would count as activity. A rewritten
// record forwards to the backup of its set.
std::vector<std::string> SimulatedTestbed::forwardingFaults() {
   std::vector<std::string> wrong;
   auto const& programmer = std::as_const(simulated_).programmer();
   programmer.forEach([&](RouteView const& route) {
      if (route.state() != VelMroute::RouteState::inHardware) return;
      auto const record = simulated_.path().record(route);
      auto const* entry = simulated_.path().entry(route.handle());
      if (entry && route.wanted().bridge) return;
      auto const* group = entry ? simulated_.chip().group(entry->group) : nullptr;
      MrouteLib::PortVlanSet const& set = *route.set();  // a route in hardware has its vlans
      std::set<MrouteLib::PortVlan> expected, backup, found;
      for (auto const& [member, flag] : set.portVlan())
         expected.insert(member);
      for (auto const& [member, flag] : set.portVlanFrr())
         backup.insert(member);
      if (group) found.insert(group->members.begin(), group->members.end());
      bool const rerouted = record && record->dirty && !backup.empty() && found == backup;
      if (group && group->toCpu == set.toCpu() && (found == expected || rerouted)) return;
      wrong.push_back(
            fmt::format("{} {}: wanted {}{}", route.vrf(), route.key(), set.pretty(),
                        group ? ", the chip has other members" : ", the chip has no group"));
   });
   return wrong;
}

void SimulatedTestbed::show(std::vector<std::string> const& views) {
   if (quiet_) return;
   for (std::string const& name : views) {
      View const view = *viewNamed(name);
      printView(std::cout, view, viewJson(view, simulated_));
      std::cout << '\n';
   }
}

}  // namespace Agent
