// The operations that the oracle records. They say how the switch must forward from then on, and
// which differences are permitted.
#include <algorithm>

#include "agent/soak/SoakOracle.h"

namespace Agent {

namespace {

template <class PairMap>
std::set<Lnet::IntfId> interfacesOf(PairMap const& pairs) {
   std::set<Lnet::IntfId> interfaces;
   for (auto const& [pair, flag] : pairs)
      interfaces.insert(pair.intfId());
   return interfaces;
}

}  // namespace

void SoakOracle::unverified(RouteId const& id) {
   unverified_.push_back(id);
}

void SoakOracle::routeIs(Route const& route) {
   RouteId const id{route.vrf, route.key};
   vrfNames_.try_emplace(*switch_.vrfId(route.vrf), route.vrf);
   Known* const there = model_.find(id);
   bool const fresh = !there || !there->wanted;
   if (!fresh && there->wanted->asks(route)) return;
   // Whether input and table stay the same, and the chip has room for the old and the new group.
   bool calm = false;
   if (!fresh && !there->unverified) {
      Route const& old = *there->wanted;
      auto const placed = programmer().view(id.vrf, id.key);
      calm = placed && placed->state() == State::inHardware && old.iif == route.iif &&
             old.noRpf == route.noRpf && old.bridge == route.bridge && !excuses_[0].denied &&
             groupsAllocated() + unverified_.size() + 2 <= *view().use(Table::group).size;
   }
   if (!there) everWanted_.push_back(id);
   Known& known = model_.wantedIs(route, failuresAtRest_);
   known.uninterrupted = calm;
   unverified(id);
   figures_.routesPeak = std::max<std::uint64_t>(figures_.routesPeak, programmer().routes());
}

std::optional<std::uint64_t> SoakOracle::writesIfUnchanged(Route const& route) {
   Known const* const known = model_.find({route.vrf, route.key});
   bool const same = known && known->wanted && known->wanted->asks(route);
   if (!same || callsTakeTime_ || !atRest()) return std::nullopt;
   return writes();
}

void SoakOracle::unchanged(Route const& route, std::uint64_t writesBefore) {
   if (atRest() && writes() == writesBefore) return;
   wrong({route.vrf, route.key}, "was announced without a change, and the chip was written");
}

void SoakOracle::routeDel(RouteId const& id) {
   if (model_.wantedDel(id, failuresAtRest_)) unverified(id);
}

void SoakOracle::linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state) {
   noteRecovered();
   if (model_.linkIs(intf, state)) rerouted(intf);
}

void SoakOracle::bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state) {
   noteRecovered();
   if (model_.bfdIs(peer, state)) rerouted(peer.intfId());
}

// During a replay a set may need a second group beside its found group. If few groups are free,
// some routes have to wait until the end of the replay.
bool SoakOracle::roomToSpare() const {
   return 2 * groupsAllocated() + 50 < *view().use(Table::group).size;
}

bool SoakOracle::staysOverCrash(RouteId const& id, Known const& known, bool rest) const {
   if (!known.wanted || !known.rerouted.empty() || !roomToSpare()) return false;
   bool const denied = std::any_of(excuses_.begin(), excuses_.end(),
                                   [](Excuse const& excuse) { return excuse.denied; });
   if (denied || failedLately()) return false;
   if (known.unverified) return replay_.underWay && known.uninterrupted && known.before.empty();
   auto const route = programmer().view(id.vrf, id.key);
   return rest && route && route->state() == State::inHardware;
}

void SoakOracle::crash(Scenario::Restart const& restart) {
   bool const rest = atRest();
   if (restart.replay) {
      std::set<RouteId> told;
      for (Scenario::RouteRun const& run : *restart.replay) {
         for (std::uint32_t i = 0; i < run.groups; ++i)
            told.insert({run.vrf, run.key(i)});
      }
      std::vector<RouteId> forgotten;
      for (auto const& [id, known] : model_.routes()) {
         if (known.wanted && !told.contains(id)) forgotten.push_back(id);
      }
      for (RouteId const& id : forgotten)
         routeDel(id);
   }
   model_.restart(failuresAtRest_, [&](RouteId const& id, Known const& known) {
      return staysOverCrash(id, known, rest);
   });
   for (auto& [id, activity] : activities_) {
      activity.status = nullptr;
      activity.lastPollTime = 0;
      activity.foundHit = activity.anyHit;
   }
   unverified_.clear();
   for (auto const& [id, known] : model_.routes())
      unverified(id);
   counters_.restart();
   Replay const before = std::exchange(replay_, {});
   replay_.underWay = true;
   if (switch_.recovering()) replay_.rewrites = before.rewrites;
   zombies_.clear();
   inUse_.clear();
   zombiesAt_ = Qor::now();
   purgesAtZombies_ = 0;
}

void SoakOracle::rerouting(Lnet::IntfId failed) {
   if (!model_.failed(failed)) wrong(failed.name() + " is rerouted, and has not failed");
   rerouted(failed);
}

// At the end of the replay, the routes of all failed interfaces must have been rerouted.
void SoakOracle::noteRecovered() {
   if (!replay_.underWay || switch_.recovering()) return;
   replay_.underWay = false;
   for (auto const& [id, known] : model_.routes()) {
      if (!known.wanted || known.wanted->backup.empty()) continue;
      if (model_.failed(known.wanted->iif) && !replay_.rerouted.contains(known.wanted->iif)) {
         wrong(id, "comes in over " + known.wanted->iif.name() +
                         ", which is down, and was not rerouted after the restart");
      }
   }
}

// The outputs of a route that is not replayed yet: it follows the rewrites of its found group.
// Another set with the same members may have adopted that group, and a failure of that set's input
// rewrites the group.
std::vector<SoakOracle::Outputs> SoakOracle::followed(Known const& known) const {
   if (!replay_.underWay || replay_.rewrites.empty()) return {};
   std::set<Members> seen;
   std::vector<Members> next;
   auto const add = [&](Members members) {
      if (seen.insert(members).second) next.push_back(std::move(members));
   };
   auto const start = [&](Route const& wish) {
      add({{wish.oifs.begin(), wish.oifs.end()}, wish.cpu});
      add({{wish.backup.begin(), wish.backup.end()}, wish.cpu});
   };
   start(*known.wanted);
   for (Route const& before : known.before)
      start(before);
   std::vector<Outputs> outputs;
   while (!next.empty()) {
      Members const members = std::move(next.back());
      next.pop_back();
      for (auto const& [from, to] : replay_.rewrites) {
         if (from == members) add(to);
      }
      Route group;
      group.oifs.assign(members.first.begin(), members.first.end());
      group.cpu = members.second;
      outputs.push_back(model_.outputs(group, false));
   }
   return outputs;
}

void SoakOracle::nobodyUninterrupted() {
   for (auto& [id, known] : model_.routes())
      known.uninterrupted = false;
}

// A failure of an interface rewrites the groups of all sets with this input and a backup. From now
// on the routes that hold such a group send to the backup.
void SoakOracle::rerouted(Lnet::IntfId failed) {
   if (replay_.underWay && !programmer().recovering()) replay_.rerouted.insert(failed);
   for (RecordRow const& row : std::as_const(switch_).path().recordsInUse()) {
      auto const& set = row.oifSet->portVlanSet();
      if (!model_.reroutes(failed, set)) continue;
      model_.setRewritten(row.oifSet->serial());
      if (!replay_.underWay) continue;
      replay_.rewrites.insert({{interfacesOf(set.portVlan()), set.toCpu()},
                               {interfacesOf(set.portVlanFrr()), set.toCpu()}});
   }
   model_.reroute(failed, programmer(), [this](RouteId const& id, Known const& known) {
      if (!known.unverified) unverified(id);
      ++figures_.reroutes;
   });
}

void SoakOracle::configIs(Scenario::Config const& config) {
   counters_.configIs(config);
   if (config.activityPollingInterval) {
      intervals_.emplace_back(
            Qor::now(),
            std::max<double>(*config.activityPollingInterval,
                             path_ == PathKind::async ? timing_.minPollingInterval : 0));
   }
}

void SoakOracle::faultIs(Scenario::Fault const& fault) {
   auto const set = [&](Table table, std::optional<bool> denied) {
      if (!denied) return;
      Excuse& excuse = excuses_[static_cast<std::size_t>(table)];
      if (excuse.denied || *denied) excuse = {*denied, true, Qor::now(), std::nullopt};
   };
   set(Table::group, fault.groupsExhausted);
   set(Table::entry, fault.routesExhausted);
   set(Table::boundary, fault.boundariesExhausted);
   if (fault.groupsExhausted || fault.routesExhausted || fault.boundariesExhausted)
      nobodyUninterrupted();
   if (fault.slowNext && path_ == PathKind::sync) callsTakeTime_ = true;
   if (fault.hitBitsBusy) busySince_ = Qor::now() + 0.02 * *fault.hitBitsBusy;
}

void SoakOracle::sent(VelMroute::Probe::Packet const& packet, VelMroute::Probe::Seen const& seen) {
   ++figures_.packets;
   if (!seen.entry) return;
   auto const entry = view().entry(*seen.entry);
   auto const vrf = vrfNames_.find(packet.vrfId);
   if (!entry || vrf == vrfNames_.end()) return wrong("a packet hit an entry that is not there");
   RouteId const id{vrf->second, entry->route.key};
   if (!entry->route.bridge) counters_.hit(entry->route.key, packet.bytes);
   if (Known const* const known = model_.find(id)) noteHit(id, *known, *entry);
}

void SoakOracle::noteHit(RouteId const& id, Known const& known, Entry const& entry) {
   Activity& activity = activities_[id];
   activity.anyHit = Qor::now();
   if (replay_.underWay) activity.foundHit = activity.anyHit;
   if (!known.wanted) return;
   Bridging::VlanIdOrNone const vlan = entry.route.vlan;
   if (vlan == vlanOf(*known.wanted)) activity.lastHit = Qor::now();
   for (Lnet::IntfId const intf : known.wanted->fastdrop) {
      if (switch_.intf(intf).vlan == vlan) activity.fastdropHit[intf] = Qor::now();
   }
}

}  // namespace Agent
