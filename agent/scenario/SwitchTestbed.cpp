#include "agent/scenario/SwitchTestbed.h"

#include <iostream>
#include <set>

#include "agent/report/OutputFormat.h"
#include "agent/report/Views.h"
#include "agent/scenario/RouteStateName.h"
#include "platform/Format.h"

namespace Agent {

Intf const& SwitchTestbed::learn(Lnet::IntfId id) {
   try {
      return switch_.learnIntf(id);
   } catch (InterfaceMapFull const& full) {
      throw TestbedRefusal(full.what());
   }
}

void SwitchTestbed::note(std::string const& text) {
   if (timeline_) timeline_->instant(text);
}

void SwitchTestbed::note(std::string const& text, Timeline::Args const& args) {
   if (timeline_) timeline_->instant(text, args);
}

// ---- Changes of the switch. ----

void SwitchTestbed::routeIs(Route const& route) {
   WantedRoute wanted;
   learn(route.iif);
   wanted.noRpf = route.noRpf;
   // Without an input check the input has a meaning for the backup alone.
   if (!route.noRpf || !route.backup.empty()) wanted.iif = route.iif;
   if (route.bridge && !switch_.path().bridges()) {
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
   wanted.outputs = switch_.outputsPool().get(std::move(ports), cpu, route.backup);
   for (Lnet::IntfId const intf : route.fastdrop) {
      if (intf == route.iif) throw TestbedRefusal(intf.name() + " is the input of the route");
      learn(intf);
   }
   wanted.fastdrop = route.fastdrop;
   switch_.learnVrf(route.vrf);
   switch_.routeIs(route.vrf, route.key, std::move(wanted));
}

void SwitchTestbed::routeDel(L3::VrfName const& vrf, Scenario::RouteKey const& key) {
   switch_.routeDel(vrf, key);
}

void SwitchTestbed::linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state) {
   learn(intf);
   switch_.linkIs(intf, state);
}

void SwitchTestbed::bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state) {
   Bfd::AppStatus* const sessions = switch_.path().bfdAppStatus();
   if (!sessions) throw TestbedRefusal("this path has no BFD sessions");
   if (!state) {
      note(fmt::format("bfd {} removed", peer), {{"fails", true}});
      sessions->peerStatusDel(peer);
      return;
   }
   note(fmt::format("bfd {} {}", peer, *state), {{"fails", *state != Bfd::OperState::up}});
   sessions->newPeerStatus(peer)->statusIs(*state);
}

void SwitchTestbed::configIs(Scenario::Config const& config) {
   auto& mfibConfig = switch_.mfibConfig();
   if (config.activityPollingInterval) {
      mfibConfig.activityPollingIntervalIs(*config.activityPollingInterval);
   }
   if (config.counterMode) mfibConfig.counterModeIs(*config.counterMode);
   if (config.allCounter) mfibConfig.allCounterIs(*config.allCounter);
}

void SwitchTestbed::counterRouteIs(L3::VrfName const& vrf, Scenario::RouteKey const& key,
                                   bool counted) {
   auto const config = switch_.mfibConfig().newConfig(vrf.name());
   if (counted) {
      config->counterRouteIs(key);
   } else {
      config->counterRouteDel(key);
   }
}

void SwitchTestbed::faultIs(Scenario::Fault const& fault) {
   if (!switch_.platform().faults()) throw TestbedRefusal("the platform injects no faults");
   note("fault");
   VelMroute::Faults& faults = *switch_.platform().faults();
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

void SwitchTestbed::restart(Scenario::Restart const& restart) {
   RestartOptions options;
   options.order = restart.order;
   options.seed = restart.seed;
   options.begin = restart.begin;
   options.over = restart.over;
   options.complete = restart.complete;
   options.applied = restart.applied;
   if (restart.replay) {
      auto const wanted = switch_.wantedRoutes();
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
   if (!switch_.restart(options)) throw TestbedRefusal("the platform has no next life");
}

// A stream belongs to its own route, and otherwise to the route of its group.
void SwitchTestbed::sent(Packet const& packet, Scenario::RouteKey const& key,
                         Copies const& copies) {
   if (!outages_) return;
   auto const anySource = Lnet::IpGenPrefix::any(key.group().family());
   WantedRoute const* wanted = switch_.wanted({packet.vrf, key});
   if (!wanted) wanted = switch_.wanted({packet.vrf, {anySource, key.group()}});
   outages_->packet({packet.vrf, key}, wanted ? wanted->outputs : nullptr, copies.at, Qor::now());
}

VelMroute::Probe::Packet SwitchTestbed::onChip(Packet const& packet) {
   if (!switch_.platform().probe()) throw TestbedRefusal("the platform sends no packets");
   switch_.learnVrf(packet.vrf);
   learn(packet.iif);
   return {*switch_.vrfId(packet.vrf), packet.source, packet.group, packet.iif, packet.bytes};
}

Testbed::Copies SwitchTestbed::copiesOf(VelMroute::Probe::Seen const& seen) {
   Copies copies;
   if (seen.verdict) copies.result = fmt::format("{}", *seen.verdict);
   for (auto const& copy : seen.copies)
      ++copies.at[copy.intfId().name()];
   if (seen.cpu) ++copies.at["cpu"];
   return copies;
}

// ---- State of the switch. ----

Testbed::RouteFacts SwitchTestbed::route(L3::VrfName const& vrf,
                                         Scenario::RouteKey const& key) const {
   RouteFacts facts;
   auto const route = std::as_const(switch_).programmer().view(vrf, key);
   if (!route) return facts;
   facts.state = nameOf(route->state());
   facts.reason = route->reason();
   auto const vrfStatus = switch_.mfibHwStatus().vrfStatus(vrf);
   if (auto const status = vrfStatus ? vrfStatus->route(key) : nullptr) {
      facts.lastPollTime = status->lastPollTime();
      for (auto const& [name, time] : status->fastdropLastPollTime()) {
         facts.fastdropLastPollTime[name] = time;
      }
   }
   facts.counter = switch_.path().counter(key);
   if (auto const entry = switch_.view().entry(route->handle())) {
      facts.packets = entry->packets;
      facts.bytes = entry->bytes;
   }
   return facts;
}

std::uint64_t SwitchTestbed::value(Scenario::State state) const {
   Programmer const& programmer = std::as_const(switch_).programmer();
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
         return switch_.view().use(Table::group).used;
      case Scenario::State::zombies:
         return switch_.path().zombies();
      case Scenario::State::entries:
         return switch_.view().use(Table::entry).used;
      case Scenario::State::rerouting:
         return switch_.path().rerouting();
   }
   return 0;
}

std::uint64_t SwitchTestbed::value(Scenario::Count count) const {
   auto const figures = switch_.figures();
   auto const& counters = figures.programmer;
   auto const writes = [&](VelMroute::WriteKind kind) {
      return switch_.view().writes(kind).value_or(0);
   };
   switch (count) {
      case Scenario::Count::groupCreate:
         return writes(VelMroute::WriteKind::groupCreate);
      case Scenario::Count::groupUpdate:
         return writes(VelMroute::WriteKind::groupUpdate);
      case Scenario::Count::groupDelete:
         return writes(VelMroute::WriteKind::groupDelete);
      case Scenario::Count::routeCreate:
         return writes(VelMroute::WriteKind::routeCreate);
      case Scenario::Count::routePoint:
         return writes(VelMroute::WriteKind::routePoint);
      case Scenario::Count::routeDelete:
         return writes(VelMroute::WriteKind::routeDelete);
      case Scenario::Count::boundaryCreate:
         return writes(VelMroute::WriteKind::boundaryCreate);
      case Scenario::Count::boundaryDelete:
         return writes(VelMroute::WriteKind::boundaryDelete);
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
std::vector<std::string> SwitchTestbed::forwardingFaults() {
   std::vector<std::string> wrong;
   switch_.readBack();
   auto const& programmer = std::as_const(switch_).programmer();
   programmer.forEach([&](RouteView const& route) {
      if (route.state() != VelMroute::RouteState::inHardware) return;
      auto const record = switch_.path().record(route);
      auto const entry = switch_.view().entry(route.handle());
      if (entry && route.wanted().bridge) return;
      auto const group = entry && entry->group ? switch_.view().group(*entry->group) : std::nullopt;
      MrouteLib::PortVlanSet const& set = *route.set();  // a route in hardware has its vlans
      std::set<MrouteLib::PortVlan> expected, backup, found;
      for (auto const& [member, flag] : set.portVlan())
         expected.insert(member);
      for (auto const& [member, flag] : set.portVlanFrr())
         backup.insert(member);
      if (group) found.insert(group->members.begin(), group->members.end());
      bool const rerouted = record && record->dirty && !backup.empty() && found == backup;
      if (group && group->cpu == set.toCpu() && (found == expected || rerouted)) return;
      wrong.push_back(
            fmt::format("{} {}: wanted {}{}", route.vrf(), route.key(), set.pretty(),
                        group ? ", the chip has other members" : ", the chip has no group"));
   });
   return wrong;
}

void SwitchTestbed::show(std::vector<std::string> const& views) {
   if (quiet_) return;
   switch_.readBack();
   for (std::string const& text : views) {
      ViewRequest const request = viewRequest(text);
      std::cout << viewText(request.view, viewContent(request, switch_), terminalWidth()) << '\n';
   }
}

}  // namespace Agent
