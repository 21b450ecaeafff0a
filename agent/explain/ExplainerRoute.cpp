// The trace of one route: its facts, their comparison with the chip, and the causes of mistakes.
#include <fmt/format.h>

#include <algorithm>

#include "agent/explain/Explainer.h"
#include "agent/explain/TraceWords.h"
#include "agent/switch/GroupName.h"
#include "platform/Format.h"

namespace Agent {

using MrouteLib::PortVlan;
using VelMroute::Forwarding;
using VelMroute::Shadow;
using VelMroute::View;

namespace {

template <class Map>
std::vector<PortVlan> pairsOf(Map const& map) {
   std::vector<PortVlan> pairs;
   for (auto const& [pair, flag] : map)
      pairs.push_back(pair);
   return pairs;
}

bool isPending(Hux::XactPtr const& write) {
   return write && write->pending();
}

bool hasFailed(Hux::XactPtr const& write) {
   return write && write->state() == Hux::Xact::State::failed;
}

bool contains(std::vector<PortVlan> const& list, PortVlan const& member) {
   return std::find(list.begin(), list.end(), member) != list.end();
}

// The members of `all` that are not in `others`.
std::vector<Lnet::IntfId> missingIn(std::vector<PortVlan> const& others,
                                    std::vector<PortVlan> const& all) {
   std::vector<Lnet::IntfId> missing;
   for (PortVlan const& member : all) {
      if (!contains(others, member)) missing.push_back(member.intfId());
   }
   return missing;
}

}  // namespace

class Explainer::Tracing {
 public:
   Tracing(Explainer const& explainer, RouteView const& route, Detail detail)
         : explainer_(explainer),
           switch_(explainer.switch_),
           view_(explainer.switch_.view()),
           route_(route) {
      trace_.id = {route.vrf(), route.key()};
      trace_.wanted = route.wanted();
      trace_.vlan = route.vlan();
      trace_.state = route.state();
      trace_.since = route.since();
      if (!trace_.inHardware()) trace_.reason = route.reason();
      if (detail == Detail::full) trace_.place = route.place();
      if (auto const* const set = route.set()) {
         trace_.expected = pairsOf(set->portVlan());
         trace_.expectedCpu = set->toCpu();
      }
      trace_.handle = route.handle();
      trace_.record = switch_.path().record(route);
      if (auto const* const shadow = explainer.shadow()) {
         entry_ = shadow->entry(trace_.handle);
         if (trace_.record) set_ = shadow->set(trace_.record->index);
      }
   }

   RouteTrace trace(std::optional<Lnet::IntfId> iif) {
      addSharing();
      addUse();
      addReroute();
      addPacket(iif);
      if (trace_.inHardware()) compare();
      addHookFaults();
      addCauses();
      return std::move(trace_);
   }

 private:
   void addSharing() {
      if (!trace_.record) return;
      trace_.group = trace_.record->group ? groupName(view_, trace_.record->group)
                                          : std::to_string(trace_.record->index);
      auto const share = explainer_.shares_.find(route_.record().get());
      if (share != explainer_.shares_.end()) {
         trace_.sharedWith = share->second.routes;
         --trace_.sharedWith.count;
         auto& some = trace_.sharedWith.some;
         bool const named = std::erase(some, trace_.id) > 0;
         if (named && share->second.next) some.push_back(*share->second.next);
      }
      auto const group = trace_.record->group;
      if (!group || isHardWired(view_, group)) return;
      auto const found = explainer_.foundAt_.find(*group);
      if (found != explainer_.foundAt_.end()) trace_.sharedWithFound = found->second;
   }

   void addUse() {
      auto const vrfStatus = switch_.mfibHwStatus().vrfStatus(route_.vrf());
      auto const status = vrfStatus ? vrfStatus->route(route_.key()) : nullptr;
      if (status) trace_.lastHit = status->lastPollTime();
      if (auto const entry = view_.entry(trace_.handle)) {
         trace_.packets = entry->packets;
         trace_.bytes = entry->bytes;
      }
      trace_.counter = switch_.path().counter(route_.key());
      for (Lnet::IntfId const intf : trace_.wanted.fastdrop) {
         RouteTrace::Fastdrop drop{intf, switch_.intf(intf).vlan, false, std::nullopt};
         auto const* const time =
               status ? status->fastdropLastPollTime().find(intf.name()) : nullptr;
         drop.inHardware = time != nullptr;
         if (time) drop.lastHit = time->second;
         trace_.fastdrops.push_back(drop);
      }
      if (trace_.inHardware() || !switch_.recovering() || trace_.wanted.bridge) return;
      auto const vrfId = switch_.vrfId(route_.vrf());
      auto const found = vrfId ? explainer_.foundEntry(*vrfId, route_.key(), trace_.vlan)
                               : std::optional<View::Entry>();
      if (!found) return;
      trace_.foundGroup = groupName(view_, found->group);
      trace_.foundGroupOf = explainer_.holdersOf(*found);
   }

   // The set by which the route forwards at present. While a change is under way, that is the set
   // of the record and not the wanted set.
   void addReroute() {
      auto const* const set = trace_.record ? &trace_.record->oifSet->portVlanSet() : route_.set();
      if (!set || set->portVlanFrr().empty() || set->currentIif().isNull()) return;
      RouteTrace::Reroute& reroute = trace_.reroute.emplace();
      reroute.to = pairsOf(set->portVlanFrr());
      reroute.cpu = set->toCpu();
      reroute.whenFails = set->currentIif();
      reroute.linkUp = switch_.linkUp(reroute.whenFails);
      if (trace_.record && trace_.record->rewriteWaits) {
         reroute.state = RouteTrace::RerouteState::waiting;
      } else if (trace_.record && trace_.record->dirty && asWritten() == reroute.to) {
         reroute.state = RouteTrace::RerouteState::rerouted;
      }
   }

   // The members of the group, as the hooks were asked to write them or as the chip has them.
   std::optional<std::vector<PortVlan>> asWritten() const {
      if (set_) return set_->members;
      auto const number = trace_.record ? trace_.record->group : std::nullopt;
      auto group = number ? view_.group(*number) : std::nullopt;
      if (!group) return std::nullopt;
      return std::move(group->members);
   }

   bool rerouted() const {
      return trace_.reroute && trace_.reroute->state == RouteTrace::RerouteState::rerouted;
   }

   void addPacket(std::optional<Lnet::IntfId> iif) {
      auto packet = samplePacket(route_.key());
      packet.in = iif.value_or(trace_.wanted.iif);
      foreign_ = iif && *iif != trace_.wanted.iif && !trace_.wanted.noRpf;
      if (auto const id = switch_.vrfId(route_.vrf())) {
         packet.vrfId = *id;
         trace_.packet = explainer_.packet(packet);
      } else {  // no packet is in the VRF
         trace_.packet.packet = packet;
         trace_.packet.basis = Basis::recorded;
         trace_.packet.toCpu = switch_.platform().abilities().missToCpu;
         trace_.packet.verdict = Forwarding::noRoute;
         trace_.packet.missed = true;
      }
      auto const& entry = trace_.packet.entry;
      trace_.ownEntry = entry && !trace_.packet.missed && !trace_.handle.isNull() &&
                        entry->handle == trace_.handle;
   }

   // ---- The chip, compared with the calls of the hooks. ----

   void differs(std::string text) { trace_.differences.push_back(std::move(text)); }

   // Whether the chip has had the time for the change: the write is complete, and the tables were
   // read after it.
   bool isWritten(Hux::XactPtr const& write, VelMroute::HookCall const& call) const {
      return !isPending(write) && call.time <= view_.asOf();
   }

   void compare() {
      if (!switch_.canRead() || !entry_) return;
      trace_.compared = true;
      bool const pointed = entry_->set.has_value() || entry_->boundary;
      if (!pointed || !isWritten(entry_->write, entry_->lastCall)) return;
      auto const there = view_.entry(trace_.handle);
      if (!there)
         return differs(fmt::format("the chip has no entry for handle {}", trace_.handle.value()));
      auto const& [vrf, key, vlan, bridge] = there->route;
      if (key != entry_->key) differs(fmt::format("the entry is the one of {}", key));
      if (vrf.value() != entry_->vrfId)
         differs(fmt::format("the entry is in VRF id {}, not {}", vrf, entry_->vrfId));
      if (vlan != entry_->vlan) {
         differs(fmt::format("the entry accepts from vlan {}, not {}", vlan, entry_->vlan));
      }
      if (!entry_->boundary && set_ && trace_.record) compareGroup(*there);
   }

   void compareGroup(View::Entry const& entry) {
      auto const wanted = trace_.record->group;
      if (entry.group != wanted) {
         differs(fmt::format("the entry points at group {}, not {}", groupName(view_, entry.group),
                             groupName(view_, wanted)));
      }
      if (!isWritten(set_->write, set_->lastCall)) return;
      std::string const name = groupName(view_, wanted);
      auto const group = wanted ? view_.group(*wanted) : std::nullopt;
      if (!group) {
         if (!set_->empty()) differs(fmt::format("the chip has no group {}", name));
         return;
      }
      auto const lacks = missingIn(group->members, set_->members);
      auto const adds = missingIn(set_->members, group->members);
      if (!lacks.empty())
         differs(fmt::format("the chip's group {} lacks {}", name, namesOf(lacks)));
      if (!adds.empty()) {
         differs(fmt::format("the chip's group {} also sends to {}", name, namesOf(adds)));
      }
      if (group->cpu != set_->toCpu) {
         differs(fmt::format("the chip's group {} {} the CPU", name,
                             group->cpu ? "also sends to" : "lacks"));
      }
   }

   void addHookFaults() {
      auto const add = [&](Target const& target) {
         auto const faults = explainer_.hookFaults_.find(target);
         if (faults == explainer_.hookFaults_.end()) return;
         trace_.hookFaults.insert(trace_.hookFaults.end(), faults->second.begin(),
                                  faults->second.end());
      };
      using Kind = VelMroute::HookTarget::Kind;
      if (!trace_.handle.isNull()) add({Kind::entry, trace_.handle.value()});
      if (trace_.record) add({Kind::set, trace_.record->index});
   }

   // ---- Causes, the worst first. ----

   template <class... Args>
   void cause(char const* kind, fmt::format_string<Args...> format, Args&&... args) {
      trace_.causes.push_back({kind, fmt::format(format, std::forward<Args>(args)...)});
   }

   void addCauses() {
      using State = VelMroute::RouteState;
      PacketTrace const& packet = trace_.packet;
      bool const underWay = trace_.state == State::queued || trace_.state == State::programming;
      if (!trace_.inHardware() && !underWay) addWaiting();
      if (packet.inputUp == false) {
         cause("inputDown", "input {} is down: no packet arrives", packet.packet.in.name());
      }
      if (foreign_) addForeign();
      if (trace_.inHardware() && !foreign_ && packet.basis && !trace_.ownEntry) addNotHit();
      addLinks();
      for (std::string const& difference : trace_.differences)
         trace_.causes.push_back({"chipDiffers", difference});
      if (entry_ && hasFailed(entry_->write)) {
         cause("writeFailed", "the latest write of entry {} failed", trace_.handle.value());
      }
      if (set_ && hasFailed(set_->write))
         cause("writeFailed", "the latest write of group {} failed", trace_.group);
      for (std::string const& fault : trace_.hookFaults)
         trace_.causes.push_back({"hookFault", fault});
      if (underWay) {
         cause("pending", "{}",
               trace_.state == State::queued
                     ? "a change waits for the next pass"
                     : "a change is under way: its writes are not complete");
      }
      if (trace_.reroute && trace_.reroute->state == RouteTrace::RerouteState::waiting) {
         cause("rerouteWaits", "group {} waits for its rewrite to the backup", trace_.group);
      }
   }

   void addWaiting() {
      static constexpr char const* tables[] = {"replication table", "route table",
                                               "boundary table"};
      using State = VelMroute::RouteState;
      auto const fate = fateOf(trace_.packet);
      switch (trace_.state) {
         case State::waitingGroup:
         case State::waitingEntry:
         case State::waitingBoundary: {
            auto const table = static_cast<std::size_t>(trace_.state) -
                               static_cast<std::size_t>(State::waitingGroup);
            std::string line;
            if (trace_.place) {
               auto const before = trace_.place->before;
               line = before == 0 ? ", and it is the next in line"
                                  : fmt::format(": {} before it",
                                                before == 1 ? "1 route is"
                                                            : fmt::format("{} routes are", before));
            }
            return cause("noRoom", "no room in the {}{}; packets {}", tables[table], line, fate);
         }
         case State::waitingVrf:
            return cause("noVrf", "{}; packets {}", trace_.reason, fate);
         case State::waitingVlan:
            return cause("noVlan", "{}; packets {}", trace_.reason, fate);
         default:
            return cause("failed", "failed: {}; packets {}", trace_.reason, fate);
      }
   }

   // The packet comes in by another interface than the input of the route.
   void addForeign() {
      PacketTrace const& packet = trace_.packet;
      std::string const in = packet.packet.in.name();
      auto const& drops = trace_.wanted.fastdrop;
      bool const onPurpose = std::ranges::find(drops, packet.packet.in) != drops.end();
      if (onPurpose && packet.entry && !packet.missed && packet.entry->key == route_.key()) {
         cause("fastdrop", "packets from {} are dropped on purpose, by a fastdrop entry", in);
      } else if (packet.missed || !trace_.ownEntry) {
         cause("otherInput",
               "packets from {} are not accepted: the input of the route is {}; "
               "they {}",
               in, trace_.wanted.iif.name(), fateOf(packet));
      }
   }

   void addNotHit() {
      PacketTrace const& packet = trace_.packet;
      // A wider route does not take the packets of narrower ones.
      if (packet.missed) {
         cause("notHit", "no entry of the chip takes its packets: they {}", fateOf(packet));
      } else {
         cause("notHit", "its packets match the entry of {}: they {}", packet.entry->key,
               fateOf(packet));
      }
   }

   void addLinks() {
      if (!trace_.inHardware() || !trace_.ownEntry || trace_.wanted.bridge) return;
      PacketTrace const& packet = trace_.packet;
      if (packet.verdict == Forwarding::notPointed)
         cause("notPointed", "its entry points at no group: packets are dropped");
      if (packet.verdict == Forwarding::portsDown)
         cause("outputsDown", "no output has a link: nothing comes out");
      for (TraceOutput const& output : packet.outputs) {
         if (output.up == false) {
            cause("outputDown", "output {} is down: nothing comes out there",
                  output.to.intfId().name());
         } else if (!output.up) {
            cause("outputUnknown", "the link of output {} is not known", output.to.intfId().name());
         }
      }
      // The programmer promises the wanted set, but for a rewrite to the backup.
      if (!trace_.expected || !set_ || rerouted()) return;
      auto const lacks = missingIn(set_->members, *trace_.expected);
      if (!lacks.empty())
         cause("notAsWanted", "group {} is written without {}", trace_.group, namesOf(lacks));
   }

   Explainer const& explainer_;
   Switch const& switch_;
   View const& view_;
   RouteView const route_;
   Shadow::Entry const* entry_ = nullptr;  // null without checks of the hooks, and if it is found
   Shadow::Set const* set_ = nullptr;
   bool foreign_ = false;
   RouteTrace trace_;
};

RouteTrace Explainer::route(RouteView const& route, Detail detail,
                            std::optional<Lnet::IntfId> iif) const {
   return Tracing(*this, route, detail).trace(iif);
}

}  // namespace Agent
