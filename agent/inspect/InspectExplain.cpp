#include "agent/inspect/InspectExplain.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "agent/input/PrintableText.h"
#include "agent/input/RouteFields.h"
#include "agent/inspect/InspectWords.h"
#include "agent/report/ReportedState.h"
#include "agent/switch/GroupName.h"
#include "platform/Format.h"

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

// The entry of the route table with this VRF, key and vlan that is found and not taken over yet.
std::optional<VelMroute::View::Entry> foundEntry(Switch const& theSwitch, Vel::VrfId vrfId,
                                                 RouteKey const& key, Bridging::VlanIdOrNone vlan) {
   std::optional<VelMroute::View::Entry> found;
   theSwitch.view().forEachEntryOf(vrfId, key, [&](VelMroute::View::Entry const& entry) {
      if (!entry.route.bridge && entry.route.vlan == vlan && theSwitch.isFound(entry.route))
         found = entry;
   });
   return found;
}

// The wanted routes whose found entries point at the group, during a recovery. A rewrite of the
// group changes these entries, too.
SomeRoutes foundAt(Switch const& theSwitch, RouteQuestion const& question,
                   std::optional<Qor::U32> group) {
   SomeRoutes some;
   if (!theSwitch.recovering() || !group || isHardWired(theSwitch.view(), group)) return some;
   for (auto const& [id, wanted] : theSwitch.wantedRoutes()) {
      auto const vrfId = theSwitch.vrfId(id.vrf);
      if (wanted.bridge || !vrfId) continue;
      auto const entry = foundEntry(theSwitch, *vrfId, id.key, theSwitch.vlanOf(wanted));
      if (entry && entry->group == group) some.add(id, question);
   }
   return some;
}

// The routes that hold the group at which a found entry points.
SomeRoutes holdersOf(Switch const& theSwitch, RouteQuestion const& question,
                     VelMroute::View::Entry const& found) {
   SomeRoutes some;
   if (!theSwitch.isFound(found.route) || !found.group) return some;
   if (isHardWired(theSwitch.view(), found.group)) return some;
   theSwitch.programmer().forEach([&](RouteView const& route) {
      auto const record = theSwitch.path().record(route);
      if (record && record->group == found.group) some.add(route, question);
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

ordered_json tablesJson(Switch const& theSwitch) {
   auto const table = [&](Table which) {
      auto const use = theSwitch.view().use(which);
      ordered_json json = {{"used", use.used}, {"size", nullptr}};
      if (use.size) json["size"] = *use.size;
      return json;
   };
   return {{"groups", table(Table::group)},
           {"zombies", theSwitch.path().zombies()},
           {"routes", table(Table::entry)},
           {"boundaries", table(Table::boundary)}};
}

// Explains one wanted route.
class Explanation {
 public:
   Explanation(Switch const& theSwitch, RouteQuestion const& question, RouteView const& route)
         : switch_(theSwitch),
           question_(question),
           route_(route),
           wanted_(route.wanted()),
           set_(route.set()),
           record_(theSwitch.path().record(route)),
           entry_(theSwitch.view().entry(route.handle())) {}

   ordered_json json() {
      out_ = {{"route", route_.key().pretty()},
              {"vrf", route_.vrf().name()},
              {"state", Agent::nameOf(reportedState(route_.state()))},
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
   std::string nameOf(std::optional<Qor::U32> group) const {
      return groupName(switch_.view(), group);
   }
   std::optional<VelMroute::View::Group> groupOf(std::optional<Qor::U32> number) const {
      return number ? switch_.view().group(*number) : std::nullopt;
   }

   bool inHardware() const { return route_.state() == VelMroute::RouteState::inHardware; }

   void addWhyNot() {
      out_["whyNot"] = route_.reason();
      auto const place = route_.place();
      if (!place) return;
      static constexpr char const* names[] = {"replication table", "route table", "boundary table"};
      ordered_json waits = {{"room", names[static_cast<std::size_t>(place->table)]},
                            {"before", place->before},
                            {"waiting", place->waiting},
                            {"zombies", switch_.path().zombies()}};
      addFoundEntry(waits);
      auto const zombies = switch_.path().zombieRecords();
      if (!zombies.empty()) waits["nextExpiry"] = zombies.front().expiryTime;
      out_["waitsFor"] = std::move(waits);
   }

   // Until the route gets its room, the found entry forwards its packets.
   void addFoundEntry(ordered_json& waits) const {
      auto const vrfId = switch_.vrfId(route_.vrf());
      if (!switch_.recovering() || !vrfId || wanted_.bridge) return;
      auto const entry = foundEntry(switch_, *vrfId, route_.key(), route_.vlan());
      if (!entry) return;
      waits["foundEntry"] = {{"group", nameOf(entry->group)},
                             {"groupOf", holdersOf(switch_, question_, *entry).json()}};
   }

   void addPlace() {
      if (!route_.handle().isNull()) out_["handle"] = route_.handle().value();
      if (!record_) return;
      out_["group"] = nameOf(record_->group);
      out_["index"] = record_->index;
      out_["oifSet"] = record_->oifSet->serial();
      SomeRoutes others;
      switch_.programmer().forEach([&](RouteView const& other) {
         if (other == route_ || other.record() != route_.record()) return;
         others.add(other, question_);
      });
      out_["sharedWith"] = others.json();
      SomeRoutes const found = foundAt(switch_, question_, record_->group);
      if (!found.empty()) out_["sharedWithFound"] = found.json();
   }

   void addUse() {
      auto const vrfStatus = switch_.mfibHwStatus().vrfStatus(route_.vrf());
      auto const status = vrfStatus ? vrfStatus->route(route_.key()) : nullptr;
      if (status) out_["lastHit"] = timeJson(status->lastPollTime());
      if (entry_) {
         if (entry_->packets) out_["packets"] = *entry_->packets;
         if (entry_->bytes) out_["bytes"] = *entry_->bytes;
      }
      if (auto const counter = switch_.path().counter(route_.key())) out_["counter"] = *counter;
      ordered_json fastdrops = ordered_json::array();
      for (Lnet::IntfId const intf : wanted_.fastdrop) {
         ordered_json row = {{"from", interfaceJson(intf, switch_.intf(intf).vlan)}};
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
      auto const group = record_ ? groupOf(record_->group) : std::nullopt;
      if (!group || !record_->dirty) return false;
      auto const backup = pairsOf(placedSet()->portVlanFrr());
      return !backup.empty() && group->members == backup;
   }

   void addReroute() {
      MrouteLib::PortVlanSet const* const set = placedSet();
      if (!set || set->portVlanFrr().empty() || set->currentIif().isNull()) return;
      out_["reroute"] = {{"to", membersJson(set->toCpu(), pairsOf(set->portVlanFrr()))},
                         {"whenFails", set->currentIif().name()},
                         {"linkUp", switch_.view().linkUp(set->currentIif()).value_or(true)},
                         {"state", record_ && record_->rewriteWaits ? "waiting"
                                   : rewritten()                    ? "rerouted"
                                                                    : "ready"}};
   }

   // The differences between the chip and the programmer, a sentence each. Null if the tables of
   // the chip cannot be read.
   ordered_json chipDiffers() const {
      if (!switch_.canRead()) return nullptr;
      ordered_json out = ordered_json::array();
      if (route_.handle().isNull()) return out;  // the route has no entry to compare
      if (!entry_) {
         out.push_back(fmt::format("the chip has no entry for handle {}", route_.handle().value()));
         return out;
      }
      auto const& [vrf, key, vlan, bridge] = entry_->route;
      if (key != route_.key()) out.push_back(fmt::format("the entry is the one of {}", key));
      auto const vrfId = switch_.vrfId(route_.vrf());
      if (vrfId && vrf != *vrfId)
         out.push_back(fmt::format("the entry is in VRF id {}, not {}", vrf, *vrfId));
      if (vlan != route_.vlan()) {
         out.push_back(fmt::format("the entry accepts from vlan {}, not {}", vlan, route_.vlan()));
      }
      if (record_) compareGroup(out);
      return out;
   }

   void compareGroup(ordered_json& out) const {
      if (entry_->group != record_->group) {
         out.push_back(fmt::format("the entry points at group {}, not {}", nameOf(entry_->group),
                                   nameOf(record_->group)));
      }
      auto const group = groupOf(entry_->group);
      if (!group) {
         out.push_back(fmt::format("the chip has no group {}", nameOf(entry_->group)));
         return;
      }
      if (!set_ || rewritten()) return;
      auto const expected = pairsOf(set_->portVlan());
      if (group->members == expected && group->cpu == set_->toCpu()) return;
      std::string found;
      for (auto const& member : membersJson(group->cpu, group->members))
         found += (found.empty() ? "" : ", ") + member.get<std::string>();
      out.push_back(fmt::format("the group sends to {}", found.empty() ? "no interface" : found));
   }

   Switch const& switch_;
   RouteQuestion const& question_;
   RouteView const route_;
   WantedRoute const& wanted_;
   MrouteLib::PortVlanSet const* const set_;  // null while an interface has no vlan
   std::optional<RecordRow> const record_;
   std::optional<VelMroute::View::Entry> const entry_;
   ordered_json out_;
};

// Whether packets of the key's source and group match the entry.
bool covers(RouteKey const& entry, RouteKey const& key) {
   if (!entry.group().contains(key.group().address())) return false;
   return entry.source().isAny() ||
          (!key.source().isAny() && entry.source().contains(key.source().address()));
}

// The entry that matches the packets of a route that is not wanted: the longest match in the VRF.
ordered_json taker(Switch const& theSwitch, L3::VrfName const& vrf, Vel::VrfId vrfId,
                   RouteQuestion const& question) {
   RouteKey const& key = question.key;
   std::optional<VelMroute::View::Entry> best;
   auto const longer = [](RouteKey const& a, RouteKey const& b) {
      return std::pair(a.group().length(), a.source().length()) >
             std::pair(b.group().length(), b.source().length());
   };
   // Of equally long matches, the boundary entry decides.
   for (bool const boundary : {true, false}) {
      theSwitch.view().forEachEntry([&](VelMroute::View::Entry const& entry) {
         if (entry.route.bridge != boundary || entry.route.vrfId != vrfId) return;
         if (!covers(entry.route.key, key)) return;
         if (!best || longer(entry.route.key, best->route.key)) best = entry;
      });
   }
   if (!best) return nullptr;
   Bridging::VlanIdOrNone const vlan = best->route.vlan;
   Intf const* const intf =
         vlan.isNone() ? nullptr : theSwitch.interfaceMap().byVlan(Bridging::VlanId(vlan.value()));
   ordered_json out = {{"vrf", vrf.name()},
                       {"entry", best->route.key.pretty()},
                       {"acceptsFrom", interfaceJson(intf ? intf->id : Lnet::IntfId(), vlan)}};
   if (best->route.bridge || !theSwitch.recovering()) return out;
   SomeRoutes const holders = holdersOf(theSwitch, question, *best);
   if (!holders.empty()) {
      out["group"] = groupName(theSwitch.view(), best->group);
      out["groupOf"] = holders.json();
   }
   return out;
}

ordered_json nearJson(Switch const& theSwitch, RouteQuestion const& question) {
   SomeRoutes sameGroup;
   ordered_json otherVrfs = ordered_json::array();
   std::set<L3::VrfName> vrfs = {question.vrf.value_or(L3::VrfName("default"))};
   theSwitch.programmer().forEach([&](RouteView const& route) {
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
      auto const id = theSwitch.vrfId(vrf);
      if (!id || takers.size() == named) continue;
      ordered_json found = taker(theSwitch, vrf, *id, question);
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

ordered_json explainRoute(Switch const& theSwitch, RouteQuestion const& question) {
   ordered_json routes = ordered_json::array();
   theSwitch.programmer().forEach([&](RouteView const& route) {
      if (route.key() != question.key || (question.vrf && route.vrf() != *question.vrf)) return;
      routes.push_back(Explanation(theSwitch, question, route).json());
   });
   ordered_json out = {{"asked", question.key.pretty()}};
   if (question.vrf) out["vrf"] = printable(question.vrf->name());
   out["time"] = Qor::now();
   out["wanted"] = !routes.empty();
   if (routes.empty()) out["near"] = nearJson(theSwitch, question);
   out["routes"] = std::move(routes);
   out["recovering"] = theSwitch.recovering();
   out["tables"] = tablesJson(theSwitch);
   return out;
}

}  // namespace Agent
