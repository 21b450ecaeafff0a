#include "agent/inspect/InspectExplain.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "agent/input/PrintableText.h"
#include "agent/input/RouteFields.h"
#include "agent/inspect/InspectWords.h"
#include "agent/report/RouteStateName.h"
#include "platform/sim/Format.h"

namespace Agent {

using nlohmann::ordered_json;

namespace {

constexpr std::size_t named = 4;  // number of routes that a list names

std::string routeText(RouteId const& id, RouteQuestion const& question) {
   std::string const name = id.key.pretty();
   bool const plain = question.vrf || id.vrf == L3::VrfName("default");
   return plain ? name : name + " in VRF " + id.vrf.name();
}

std::string routeText(RouteView const& route, RouteQuestion const& question) {
   return routeText({route.vrf(), route.key()}, question);
}

// Counts routes and keeps the names of the first ones.
class SomeRoutes {
 public:
   template <class Which>
   void add(Which const& route, RouteQuestion const& question) {
      if (count_++ < named) some_.push_back(routeText(route, question));
   }
   bool empty() const { return count_ == 0; }
   ordered_json json() const { return {{"routes", count_}, {"some", some_}}; }

 private:
   std::size_t count_ = 0;
   ordered_json some_ = ordered_json::array();
};

// The wanted routes whose found entries point at the group, during a recovery. A rewrite of the
// group changes these entries, too.
SomeRoutes foundAt(SimulatedSwitch const& simulated, RouteQuestion const& question,
                   Qor::U32 group) {
   SomeRoutes some;
   if (!simulated.recovering() || Sim::isHardWired(group)) return some;
   Sim::FoundEntries const& found = simulated.path().found().entries;
   for (auto const& [id, wanted] : simulated.wantedRoutes()) {
      auto const vrfId = simulated.vrfId(id.vrf);
      if (wanted.bridge || !vrfId) continue;
      auto const index = found.find(*vrfId, id.key, simulated.vlanOf(wanted));
      if (index && simulated.chip().routes().find(*index)->group == group) some.add(id, question);
   }
   return some;
}

// The routes that hold the group at which a found entry points.
SomeRoutes holdersOf(SimulatedSwitch const& simulated, RouteQuestion const& question,
                     Qor::U32 index) {
   SomeRoutes some;
   if (!simulated.path().found().entries.left().contains(index)) return some;
   Qor::U32 const group = simulated.chip().routes().find(index)->group;
   if (Sim::isHardWired(group)) return some;
   simulated.programmer().forEach([&](RouteView const& route) {
      auto const record = simulated.path().record(route);
      if (record && record->group == group) some.add(route, question);
   });
   return some;
}

ordered_json membersJson(bool toCpu, std::vector<MrouteLib::PortVlan> const& members) {
   ordered_json list = ordered_json::array();
   for (auto const& member : members)
      list.push_back(fmt::format("{} (vlan {})", member.intfId().name(), member.vlanId()));
   if (toCpu) list.push_back("the CPU");
   return list;
}

template <class Map>
std::vector<MrouteLib::PortVlan> pairsOf(Map const& map) {
   std::vector<MrouteLib::PortVlan> pairs;
   for (auto const& [pair, flag] : map)
      pairs.push_back(pair);
   return pairs;
}

ordered_json interfaceJson(Lnet::IntfId intf, Bridging::VlanIdOrNone vlan) {
   if (vlan.isNone()) return "any interface";
   return fmt::format("{} (vlan {})", intf.name(), vlan);
}

// The time as JSON: null for 0, which stands for an unknown time.
ordered_json timeJson(Qor::Seconds time) {
   if (time == 0) return nullptr;
   return time;
}

ordered_json tablesJson(SimulatedSwitch const& simulated) {
   Sim::Chip const& chip = simulated.chip();
   auto const table = [](Qor::U32 used, Qor::U32 size) {
      return ordered_json{{"used", used}, {"size", size}};
   };
   return {{"groups", table(chip.groups(), chip.config().groups)},
           {"zombies", simulated.path().zombies()},
           {"routes", table(chip.routes().size(), chip.routes().capacity())},
           {"boundaries", table(chip.boundaries().size(), chip.boundaries().capacity())}};
}

// Explains one wanted route.
class Explanation {
 public:
   Explanation(SimulatedSwitch const& simulated, RouteQuestion const& question,
               RouteView const& route)
         : simulated_(simulated),
           question_(question),
           route_(route),
           wanted_(route.wanted()),
           set_(route.set()),
           record_(simulated.path().record(route)),
           entry_(simulated.path().entry(route.handle())) {}

   ordered_json json() {
      out_ = {{"route", route_.key().pretty()},
              {"vrf", route_.vrf().name()},
              {"state", nameOf(route_.state())},
              {"inHardware", inHardware()}};
      if (!inHardware()) addWhyNot();
      out_["acceptsFrom"] = interfaceJson(wanted_.iif, route_.vlan());
      if (wanted_.bridge) {
         out_["sendsTo"] = ordered_json::array({"the vlan in which a packet arrives"});
      } else {
         out_["sendsTo"] =
               set_ ? membersJson(set_->toCpu(), pairsOf(set_->portVlan())) : ordered_json::array();
      }
      addPlace();
      addUse();
      addReroute();
      if (inHardware()) out_["chipDiffers"] = chipDiffers();
      return std::move(out_);
   }

 private:
   bool inHardware() const { return route_.state() == VelMroute::RouteState::inHardware; }

   void addWhyNot() {
      out_["whyNot"] = route_.reason();
      auto const place = route_.place();
      if (!place) return;
      static constexpr char const* names[] = {"replication table", "route table", "boundary table"};
      ordered_json waits = {{"room", names[static_cast<std::size_t>(place->table)]},
                            {"before", place->before},
                            {"waiting", place->waiting},
                            {"zombies", simulated_.path().zombies()}};
      addFoundEntry(waits);
      auto const zombies = simulated_.path().zombieRecords();
      if (!zombies.empty()) waits["nextExpiry"] = zombies.front().expiryTime;
      out_["waitsFor"] = std::move(waits);
   }

   // Until the route gets its room, the found entry forwards its packets.
   void addFoundEntry(ordered_json& waits) const {
      auto const vrfId = simulated_.vrfId(route_.vrf());
      if (!simulated_.recovering() || !vrfId || wanted_.bridge) return;
      auto const index =
            simulated_.path().found().entries.find(*vrfId, route_.key(), route_.vlan());
      if (!index) return;
      waits["foundEntry"] = {
            {"group", Sim::groupName(simulated_.chip().routes().find(*index)->group)},
            {"groupOf", holdersOf(simulated_, question_, *index).json()}};
   }

   void addPlace() {
      if (!route_.handle().isNull()) out_["handle"] = route_.handle().value();
      if (!record_) return;
      out_["group"] = Sim::groupName(record_->group);
      out_["index"] = record_->index;
      out_["oifSet"] = record_->oifSet->serial();
      SomeRoutes others;
      simulated_.programmer().forEach([&](RouteView const& other) {
         if (other == route_ || other.record() != route_.record()) return;
         others.add(other, question_);
      });
      out_["sharedWith"] = others.json();
      SomeRoutes const found = foundAt(simulated_, question_, record_->group);
      if (!found.empty()) out_["sharedWithFound"] = found.json();
   }

   void addUse() {
      auto const vrfStatus = simulated_.mfibHwStatus().vrfStatus(route_.vrf());
      auto const status = vrfStatus ? vrfStatus->route(route_.key()) : nullptr;
      if (status) out_["lastHit"] = timeJson(status->lastPollTime());
      if (entry_) {
         out_["packets"] = entry_->packets;
         out_["bytes"] = entry_->bytes;
      }
      if (auto const counter = simulated_.path().counter(route_.key())) out_["counter"] = *counter;
      ordered_json fastdrops = ordered_json::array();
      for (Lnet::IntfId const intf : wanted_.fastdrop) {
         ordered_json row = {{"from", interfaceJson(intf, simulated_.intf(intf).vlan)}};
         auto const* const time =
               status ? status->fastdropLastPollTime().find(intf.name()) : nullptr;
         row["inHardware"] = time != nullptr;
         if (time) row["lastHit"] = timeJson(time->second);
         fastdrops.push_back(std::move(row));
      }
      out_["fastdrop"] = std::move(fastdrops);
   }

   // The set by which the route forwards at present. While a change is under way, that is the set
   // of the record and not the wanted set. Null without a record and a wanted set.
   MrouteLib::PortVlanSet const* placedSet() const {
      return record_ ? &record_->oifSet->portVlanSet() : set_;
   }

   // Whether the group has the members of the set's backup.
   bool rewritten() const {
      Sim::Group const* const group = record_ ? simulated_.chip().group(record_->group) : nullptr;
      if (!group || !record_->dirty) return false;
      auto const backup = pairsOf(placedSet()->portVlanFrr());
      return !backup.empty() && group->members == backup;
   }

   void addReroute() {
      MrouteLib::PortVlanSet const* const set = placedSet();
      if (!set || set->portVlanFrr().empty() || set->currentIif().isNull()) return;
      Sim::Port const* const port = simulated_.chip().port(set->currentIif());
      out_["reroute"] = {{"to", membersJson(set->toCpu(), pairsOf(set->portVlanFrr()))},
                         {"whenFails", set->currentIif().name()},
                         {"linkUp", !port || port->linkUp},
                         {"state", record_ && record_->rewriteWaits ? "waiting"
                                   : rewritten()                    ? "rerouted"
                                                                    : "ready"}};
   }

   // The differences between the chip and the programmer, a sentence each.
   ordered_json chipDiffers() const {
      ordered_json out = ordered_json::array();
      if (route_.handle().isNull()) return out;  // the route has no entry to compare
      if (!entry_) {
         out.push_back(fmt::format("the chip has no entry for handle {}", route_.handle().value()));
         return out;
      }
      if (entry_->key != route_.key())
         out.push_back(fmt::format("the entry is the one of {}", entry_->key));
      auto const vrfId = simulated_.vrfId(route_.vrf());
      if (vrfId && entry_->vrfId != vrfId->value()) {
         out.push_back(fmt::format("the entry is in VRF id {}, not {}", entry_->vrfId, *vrfId));
      }
      if (entry_->acceptingVlan != route_.vlan()) {
         out.push_back(fmt::format("the entry accepts from vlan {}, not {}", entry_->acceptingVlan,
                                   route_.vlan()));
      }
      if (record_) compareGroup(out);
      return out;
   }

   void compareGroup(ordered_json& out) const {
      if (entry_->group != record_->group) {
         out.push_back(fmt::format("the entry points at group {}, not {}",
                                   Sim::groupName(entry_->group), Sim::groupName(record_->group)));
      }
      Sim::Group const* const group = simulated_.chip().group(entry_->group);
      if (!group) {
         out.push_back(fmt::format("the chip has no group {}", Sim::groupName(entry_->group)));
         return;
      }
      if (!set_ || rewritten()) return;
      auto const expected = Sim::membersOf(*set_);
      if (group->members == expected && group->toCpu == set_->toCpu()) return;
      std::string found;
      for (auto const& member : membersJson(group->toCpu, group->members))
         found += (found.empty() ? "" : ", ") + member.get<std::string>();
      out.push_back(fmt::format("the group sends to {}", found.empty() ? "no interface" : found));
   }

   SimulatedSwitch const& simulated_;
   RouteQuestion const& question_;
   RouteView const route_;
   WantedRoute const& wanted_;
   MrouteLib::PortVlanSet const* const set_;  // null while an interface has no vlan
   std::optional<RecordRow> const record_;
   Sim::Entry const* const entry_;
   ordered_json out_;
};

// Whether packets of the key's source and group match the entry.
bool covers(RouteKey const& entry, RouteKey const& key) {
   if (!entry.group().contains(key.group().address())) return false;
   return entry.source().isAny() ||
          (!key.source().isAny() && entry.source().contains(key.source().address()));
}

// The entry that matches the packets of a route that is not wanted: the longest match in the VRF.
ordered_json taker(SimulatedSwitch const& simulated, L3::VrfName const& vrf, Qor::U32 vrfId,
                   RouteQuestion const& question) {
   RouteKey const& key = question.key;
   Sim::Entry const* best = nullptr;
   std::optional<Qor::U32> route;
   auto const longer = [](RouteKey const& a, RouteKey const& b) {
      return std::pair(a.group().length(), a.source().length()) >
             std::pair(b.group().length(), b.source().length());
   };
   auto const visit = [&](std::optional<Qor::U32> number, Sim::Entry const& entry) {
      if (entry.vrfId != vrfId || !covers(entry.key, key)) return;
      if (best && !longer(entry.key, best->key)) return;
      best = &entry;
      route = number;
   };
   simulated.chip().boundaries().forEach(
         [&](Qor::U32, Sim::Entry const& entry) { visit(std::nullopt, entry); });
   simulated.chip().routes().forEach(visit);
   if (!best) return nullptr;
   Intf const* const intf =
         best->acceptingVlan.isNone()
               ? nullptr
               : simulated.interfaceMap().byVlan(Bridging::VlanId(best->acceptingVlan.value()));
   ordered_json out = {
         {"vrf", vrf.name()},
         {"entry", best->key.pretty()},
         {"acceptsFrom", interfaceJson(intf ? intf->id : Lnet::IntfId(), best->acceptingVlan)}};
   if (!route || !simulated.recovering()) return out;
   SomeRoutes const holders = holdersOf(simulated, question, *route);
   if (!holders.empty()) {
      out["group"] = Sim::groupName(best->group);
      out["groupOf"] = holders.json();
   }
   return out;
}

ordered_json nearJson(SimulatedSwitch const& simulated, RouteQuestion const& question) {
   SomeRoutes sameGroup;
   ordered_json otherVrfs = ordered_json::array();
   std::set<L3::VrfName> vrfs = {question.vrf.value_or(L3::VrfName("default"))};
   simulated.programmer().forEach([&](RouteView const& route) {
      bool const asked = !question.vrf || route.vrf() == *question.vrf;
      if (asked) {
         vrfs.insert(route.vrf());
         if (route.key().group() == question.key.group()) sameGroup.add(route, question);
      } else if (route.key() == question.key && otherVrfs.size() < named) {
         otherVrfs.push_back(route.vrf().name());
      }
   });
   ordered_json takers = ordered_json::array();
   for (L3::VrfName const& vrf : vrfs) {
      auto const id = simulated.vrfId(vrf);
      if (!id || takers.size() == named) continue;
      ordered_json found = taker(simulated, vrf, id->value(), question);
      if (!found.is_null()) takers.push_back(std::move(found));
   }
   return {{"sameGroup", sameGroup.json()}, {"otherVrfs", otherVrfs}, {"takenBy", takers}};
}

}  // namespace

RouteQuestion routeQuestion(std::string_view asked) {
   constexpr char wanted[] = "; a route is given as 10.0.0.2,239.1.1.1 or *,239.1.1.1";
   std::string plain(asked);
   std::replace_if(
         plain.begin(), plain.end(), [](char c) { return c == ',' || c == '(' || c == ')'; }, ' ');
   std::istringstream in(plain);
   std::vector<std::string> words;
   RouteQuestion question;
   for (std::string word; in >> word;) {
      if (word != "vrf") {
         words.push_back(word);
         continue;
      }
      if (!(in >> word)) throw InspectError("vrf: the name of the VRF is missing");
      try {
         question.vrf = L3::VrfName(word);
      } catch (Qor::RangeException const& error) {
         throw InspectError("vrf " + printable(inQuotes(word)) + ": " + error.message());
      }
   }
   if (words.size() != 2) {
      throw InspectError(printable(inQuotes(asked)) + " is not a route" + wanted);
   }
   if (words[0] == "*") words[0] = words[1].find(':') == std::string::npos ? "0.0.0.0" : "::";
   std::string const wrong = routeKeyOf(words[0], words[1], question.key);
   if (!wrong.empty()) throw InspectError(printable(wrong) + wanted);
   return question;
}

ordered_json explainRoute(SimulatedSwitch const& simulated, RouteQuestion const& question) {
   ordered_json routes = ordered_json::array();
   simulated.programmer().forEach([&](RouteView const& route) {
      if (route.key() != question.key || (question.vrf && route.vrf() != *question.vrf)) return;
      routes.push_back(Explanation(simulated, question, route).json());
   });
   ordered_json out = {{"asked", question.key.pretty()}};
   if (question.vrf) out["vrf"] = printable(question.vrf->name());
   out["time"] = Qor::now();
   out["wanted"] = !routes.empty();
   if (routes.empty()) out["near"] = nearJson(simulated, question);
   out["routes"] = std::move(routes);
   out["recovering"] = simulated.recovering();
   out["tables"] = tablesJson(simulated);
   return out;
}

}  // namespace Agent
