// The tables as an explainer reads them, the way of a packet through them, and whole answers.
#include "agent/explain/Explainer.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "agent/input/Suggestion.h"
#include "agent/switch/GroupName.h"

namespace Agent {

using VelMroute::EntryTable;
using VelMroute::Forwarded;
using VelMroute::Forwarding;
using VelMroute::View;

namespace {

Lnet::IpGenAddr groupIn(RouteKey const& key) {
   Lnet::IpGenPrefix const& group = key.group();
   if (group.isHost()) return group.address();
   Lnet::IpGenAddr::Bytes bytes = group.address().bytes();
   bool const catchAll = key.kind() == RouteKey::kindCatchAll;
   for (unsigned bit = catchAll ? 20 : group.length(); bit < group.address().bitWidth(); ++bit)
      bytes[bit / 8] = static_cast<std::uint8_t>(bytes[bit / 8] | 0x80 >> bit % 8);
   if (group.address().isV6()) return Lnet::IpGenAddr::v6(bytes);
   return Lnet::IpGenAddr::v4(static_cast<Qor::U32>(bytes[0]) << 24 | bytes[1] << 16 |
                              bytes[2] << 8 | bytes[3]);
}

Lnet::IpGenAddr sourceIn(RouteKey const& key) {
   if (!key.source().isAny()) return key.source().address();
   return key.source().family() == Lnet::IpFamily::v4 ? *Lnet::IpGenAddr::parse("198.51.100.1")
                                                      : *Lnet::IpGenAddr::parse("2001:db8:ff::1");
}

}  // namespace

VelMroute::Probe::Packet samplePacket(RouteKey const& key) {
   return {{}, sourceIn(key), groupIn(key), {}};
}

std::vector<MrouteLib::PortVlan> PacketTrace::copies() const {
   std::vector<MrouteLib::PortVlan> all;
   for (TraceOutput const& output : outputs) {
      if (output.copy) all.push_back(output.to);
   }
   return all;
}

// The entries of a chip or of a shadow, for look-ups. The numbers in the match tables are places in
// the lists of entries.
class Explainer::Tables {
 public:
   explicit Tables(Switch const& theSwitch)
         : switch_(theSwitch),
           shadow_(theSwitch.programmer().table().shadow()),
           abilities_(theSwitch.platform().abilities()) {
      if (theSwitch.canRead() && !isStale()) {
         basis_ = Basis::read;
         theSwitch.view().forEachEntry([this](View::Entry const& entry) {
            auto const& [vrfId, key, vlan, boundary] = entry.route;
            add(vrfId, {key, entry.handle, vlan, boundary, entry.drops, entry.group});
         });
      } else if (shadow_) {
         basis_ = Basis::recorded;
         shadow_->forEachEntry(
               [this](MrouteLib::RouteHandle handle, VelMroute::Shadow::Entry const& entry) {
                  add(Vel::VrfId(entry.vrfId),
                      {entry.key, handle, entry.vlan, entry.boundary, entry.drops, entry.set});
               });
      }
   }

   VelMroute::Shadow const* shadow() const { return shadow_; }

   PacketTrace trace(VelMroute::Probe::Packet packet) const {
      PacketTrace trace;
      if (packet.vlan.isNone() && !packet.in.isNull()) {
         Intf const* const intf = switch_.interfaceMap().find(packet.in);
         if (intf) packet.vlan = intf->vlan;
      }
      trace.packet = packet;
      trace.basis = basis_;
      if (!packet.in.isNull()) trace.inputUp = switch_.linkUp(packet.in);
      auto const otherVlan = abilities_.otherInputPasses ? EntryTable::OtherVlan::passed
                                                         : EntryTable::OtherVlan::ends;
      VelMroute::Packet const p{packet.vrfId.value(), packet.source, packet.group, packet.vlan,
                                packet.bytes};
      Forwarded out = VelMroute::match(routes_.table, boundaries_.table, p, otherVlan);
      if (!out.entry) {
         missed(p, trace, out.result);
         return trace;
      }
      bool const bridged = out.result == Forwarding::bridged;
      trace.entry = (bridged ? boundaries_ : routes_).entries[*out.entry];
      if (!bridged) replicate(*trace.entry, out, trace);
      trace.verdict = out.result;
      trace.toCpu = out.toCpu;
      return trace;
   }

 private:
   struct Matches {
      EntryTable table;
      std::vector<TraceEntry> entries = {};
   };
   struct Members {
      std::vector<MrouteLib::PortVlan> members;
      bool toCpu = false;
   };

   // Whether a hook was called after the tables were read.
   bool isStale() const {
      Qor::Seconds const asOf = switch_.view().asOf();
      if (!shadow_ || switch_.recovering() || asOf >= Qor::now()) return false;
      return shadow_->changedAt() > asOf;
   }
   void add(Vel::VrfId vrfId, TraceEntry entry) {
      VelMroute::TableEntry matching;
      matching.vrfId = vrfId.value();
      matching.key = entry.key;
      matching.acceptingVlan = entry.vlan;
      Matches& to = entry.boundary ? boundaries_ : routes_;
      auto const number = static_cast<Qor::U32>(to.entries.size());
      if (to.table.create(number, matching).empty()) to.entries.push_back(std::move(entry));
   }

   // Nothing: the entry points at no set.
   std::optional<Members> membersOf(TraceEntry const& entry) const {
      if (entry.drops) return Members{};
      if (!entry.group) return std::nullopt;
      if (basis_ == Basis::read) {
         auto group = switch_.view().group(*entry.group);
         if (!group) return std::nullopt;
         return Members{std::move(group->members), group->cpu};
      }
      if (auto const* const set = shadow_->set(*entry.group)) {
         return Members{set->members, set->toCpu};
      }
      // On the synchronous path the index 0 stands for "no set".
      return *entry.group == 0 ? std::optional<Members>(Members{}) : std::nullopt;
   }

   void replicate(TraceEntry const& entry, Forwarded& out, PacketTrace& trace) const {
      auto const members = membersOf(entry);
      if (!members) return;
      auto const isUp = [&](MrouteLib::PortVlan const& member) {
         auto const up = switch_.sends(member.intfId());
         bool const copy = up.value_or(false);
         trace.outputs.push_back({member, copy, up});
         return copy;
      };
      VelMroute::replicate(*members, isUp, out);
   }

   void missed(VelMroute::Packet const& p, PacketTrace& trace, Forwarding verdict) const {
      trace.verdict = verdict;
      trace.missed = true;
      trace.toCpu = abilities_.missToCpu && basis_;
      auto const found =
            routes_.table.lookup(p.vrfId, p.source, p.group, p.vlan, EntryTable::OtherVlan::ends);
      if (!found.keyFound || found.index) return;
      RouteKey const key{{p.source.masked(found.sourceLength), found.sourceLength},
                         {p.group.masked(found.groupLength), found.groupLength}};
      // The route's own entry, if it has fastdrop entries beside it.
      routes_.table.forEachOf(p.vrfId, key, [&](Qor::U32 number, VelMroute::TableEntry const&) {
         TraceEntry const& entry = routes_.entries[number];
         if (!trace.entry || trace.entry->drops) trace.entry = entry;
      });
   }

   Switch const& switch_;
   VelMroute::Shadow const* const shadow_;  // null without checks of the hooks
   VelMroute::Abilities const abilities_;
   std::optional<Basis> basis_;
   Matches routes_{EntryTable("route entry", 0xFFFFFFFF)};
   Matches boundaries_{EntryTable("boundary entry", 0xFFFFFFFF)};
};

Explainer::Explainer(Switch const& theSwitch)
      : switch_(theSwitch), tables_(std::make_unique<Tables>(theSwitch)) {
   switch_.programmer().forEach([&](RouteView const& route) {
      if (!route.record()) return;
      Share& share = shares_[route.record().get()];
      bool const fits = share.routes.count < SomeRoutes::named;
      share.routes.add({route.vrf(), route.key()});
      if (!fits && !share.next) share.next = RouteId{route.vrf(), route.key()};
   });
   if (auto const* const faults = switch_.seenHookFaults()) {
      for (VelMroute::HookFault const& fault : faults->list()) {
         auto const& target = fault.call.target;
         std::ostringstream text;
         text << fault;
         hookFaults_[{target.kind, target.number}].push_back(text.str());
      }
   }
   if (switch_.recovering()) readFound();
}

Explainer::~Explainer() = default;

VelMroute::Shadow const* Explainer::shadow() const {
   return tables_->shadow();
}

// The found entries, by their groups, and the holders of these groups.
void Explainer::readFound() {
   for (auto const& [id, wanted] : switch_.wantedRoutes()) {
      auto const vrfId = switch_.vrfId(id.vrf);
      if (wanted.bridge || !vrfId) continue;
      auto const entry = foundEntry(*vrfId, id.key, switch_.vlanOf(wanted));
      if (entry && entry->group) foundAt_[*entry->group].add(id);
   }
   switch_.programmer().forEach([&](RouteView const& route) {
      auto const record = switch_.path().record(route);
      if (record && record->group) holders_[*record->group].add({route.vrf(), route.key()});
   });
}

std::optional<View::Entry> Explainer::foundEntry(Vel::VrfId vrfId, RouteKey const& key,
                                                 Bridging::VlanIdOrNone vlan) const {
   std::optional<View::Entry> found;
   switch_.view().forEachEntryOf(vrfId, key, [&](View::Entry const& entry) {
      if (!entry.route.bridge && entry.route.vlan == vlan && switch_.isFound(entry.route))
         found = entry;
   });
   return found;
}

SomeRoutes Explainer::holdersOf(View::Entry const& found) const {
   if (!found.group || isHardWired(switch_.view(), found.group)) return {};
   auto const holders = holders_.find(*found.group);
   return holders == holders_.end() ? SomeRoutes() : holders->second;
}

PacketTrace Explainer::packet(VelMroute::Probe::Packet const& packet) const {
   return tables_->trace(packet);
}

// ---- Answers. ----

RouteAnswer Explainer::answer(RouteQuestion const& question) const {
   if (question.iif && !switch_.interfaceMap().find(*question.iif)) {
      Suggestion suggestion(question.iif->name());
      for (auto const& intf : switch_.interfaceMap().intfs())
         suggestion.offer(intf->id.name());
      throw QuestionError(question.iif->name() + " is no interface of the switch" +
                          suggestion.text());
   }
   if (question.vrf && !switch_.vrfId(*question.vrf)) {
      Suggestion suggestion(question.vrf->name());
      for (auto const& [id, wanted] : switch_.wantedRoutes())
         suggestion.offer(id.vrf.name());
      if (!suggestion.names().empty())
         throw QuestionError("no VRF " + question.vrf->name() + suggestion.text());
   }
   RouteAnswer answer;
   answer.question = question;
   answer.at = Qor::now();
   if (switch_.canRead()) answer.readAt = switch_.view().asOf();
   std::vector<RouteView> asked;
   switch_.programmer().forEach([&](RouteView const& route) {
      if (question.vrf && route.vrf() != *question.vrf) return;
      bool const same = question.ofGroup ? route.key().group() == question.key.group()
                                         : route.key() == question.key;
      if (same) asked.push_back(route);
   });
   std::ranges::sort(asked, {}, [](RouteView const& route) {
      return std::tuple(route.vrf().name() != "default", route.vrf(), route.key());
   });
   for (RouteView const& route : asked) {
      RouteAnswer::Traced& traced = answer.routes.emplace_back();
      traced.trace = this->route(route, Detail::full, question.iif);
      if (question.ofGroup) continue;
      traced.events = events(traced.trace);
      if (traced.events.size() > RouteAnswer::mostEvents) {
         traced.eventsLeftOut = traced.events.size() - RouteAnswer::mostEvents;
         traced.events.erase(traced.events.begin(), traced.events.end() - RouteAnswer::mostEvents);
      }
   }
   if (asked.empty()) answer.near = near(question);
   SwitchHistory const* const history = switch_.history();
   if (history && history->lost() > 0) answer.historySince = history->since();
   answer.recovering = switch_.recovering();
   for (Table const table : VelMroute::allTables) {
      auto& use = answer.tables[static_cast<std::size_t>(table)];
      if (switch_.canRead()) {
         auto const read = switch_.view().use(table);
         use = {read.used, read.size};
      } else if (auto const* const shadow = tables_->shadow()) {
         use.used = table == Table::group   ? shadow->sets()
                    : table == Table::entry ? shadow->routes()
                                            : shadow->boundaries();
      }
   }
   answer.zombies = switch_.path().zombies();
   auto const zombies = switch_.path().zombieRecords();
   if (!zombies.empty()) answer.nextExpiry = zombies.front().expiryTime;
   return answer;
}

RouteAnswer::Near Explainer::near(RouteQuestion const& question) const {
   RouteAnswer::Near near;
   std::set<L3::VrfName> vrfs = {question.vrf.value_or(L3::VrfName("default"))};
   Suggestion nearest(question.name());
   switch_.programmer().forEach([&](RouteView const& route) {
      bool const asked = !question.vrf || route.vrf() == *question.vrf;
      if (asked) {
         vrfs.insert(route.vrf());
         nearest.offer(question.ofGroup ? route.key().group().toString() : route.key().pretty());
         if (route.key().group() == question.key.group())
            near.sameGroup.add({route.vrf(), route.key()});
      } else if (route.key() == question.key && near.otherVrfs.size() < SomeRoutes::named) {
         near.otherVrfs.push_back(route.vrf());
      }
   });
   near.nearest = nearest.names();
   for (L3::VrfName const& vrf : vrfs) {
      auto const id = switch_.vrfId(vrf);
      if (!id || near.takers.size() == SomeRoutes::named) continue;
      near.takers.push_back(taker(vrf, *id, question));
   }
   return near;
}

// Without a given interface the packet comes in where an entry takes it.
RouteAnswer::Near::Taker Explainer::taker(L3::VrfName const& vrf, Vel::VrfId vrfId,
                                          RouteQuestion const& question) const {
   auto packet = samplePacket(question.key);
   packet.vrfId = vrfId;
   packet.in = question.iif.value_or(Lnet::IntfId());
   RouteAnswer::Near::Taker taker{vrf, this->packet(packet), {}, {}};
   if (!question.iif) {
      for (auto const& intf : switch_.interfaceMap().intfs()) {
         if (!taker.packet.missed) break;
         packet.in = intf->id;
         PacketTrace trace = this->packet(packet);
         if (!trace.missed) taker.packet = std::move(trace);
      }
   }
   auto const& entry = taker.packet.entry;
   if (!entry || entry->boundary) return taker;
   taker.group = switch_.canRead() ? groupName(switch_.view(), entry->group)
                 : entry->group    ? std::to_string(*entry->group)
                                   : "none";
   if (!switch_.recovering()) return taker;
   if (auto const found = foundEntry(vrfId, entry->key, entry->vlan)) {
      taker.groupOf = holdersOf(*found);
   }
   return taker;
}

}  // namespace Agent
