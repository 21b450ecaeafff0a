// An explanation as text. Lines end with the origin of their facts.
#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <utility>

#include "agent/explain/ExplainJson.h"

namespace Agent {

using nlohmann::ordered_json;

namespace {

std::uint64_t count(ordered_json const& object, char const* key) {
   return object.at(key).get<std::uint64_t>();
}

std::string text(ordered_json const& object, char const* key) {
   return object.at(key).get<std::string>();
}

std::string number(std::uint64_t count, char const* one, char const* many) {
   return fmt::format("{} {}", count, count == 1 ? one : many);
}

std::string seconds(double time) {
   return fmt::format("{:.3f} s", time);
}

std::string keyOf(ordered_json const& route) {
   return fmt::format("({}, {})", text(route, "src"), text(route, "dst"));
}

std::string onVlan(ordered_json const& row, std::string const& name) {
   auto const vlan = row.find("vlan");
   if (vlan == row.end() || vlan->is_null()) return name;
   return fmt::format("{} (vlan {})", name, vlan->get<unsigned>());
}

std::string upText(ordered_json const& up) {
   return up.is_null() ? "link unknown" : up.get<bool>() ? "link up" : "link DOWN";
}

std::string membersText(ordered_json const& members) {
   std::string list;
   for (ordered_json const& member : members) {
      std::string const name = text(member, "oif");
      list += (list.empty() ? "" : ", ") + (name == "cpu" ? "the CPU" : onVlan(member, name));
   }
   return list.empty() ? "no interface" : list;
}

// The names of some routes, and the number of the others.
std::string someOf(ordered_json const& of) {
   std::string names;
   for (ordered_json const& route : of.at("some")) {
      std::string const vrf = text(route, "vrf");
      names +=
            (names.empty() ? "" : ", ") + keyOf(route) + (vrf == "default" ? "" : " in VRF " + vrf);
   }
   std::uint64_t const more = count(of, "routes") - of.at("some").size();
   if (names.empty()) return "none";
   return more > 0 ? fmt::format("{}, and {} more", names, more) : names;
}

class ExplanationText {
 public:
   ExplanationText(std::ostream& os, ordered_json const& all)
         : os_(os), all_(all), now_(all.at("at").get<double>()) {}

   void print() {
      ordered_json const& routes = all_.at("routes");
      if (routes.empty()) printNear();
      if (!all_.at("question").contains("src") && !routes.empty()) {
         for (ordered_json const& route : routes)
            printSource(route);
      } else {
         bool first = true;
         for (ordered_json const& route : routes) {
            if (!std::exchange(first, false)) os_ << '\n';
            printRoute(route);
         }
      }
      printTables();
   }

 private:
   template <class... Args>
   void line(char const* label, fmt::format_string<Args...> format, Args&&... args) {
      os_ << fmt::format("   {:<11}{}\n", label, fmt::format(format, std::forward<Args>(args)...));
   }

   std::string readAt() const {
      ordered_json const& at = all_.at("readAt");
      return at.is_null() ? "" : seconds(at.get<double>());
   }
   std::string originOf(ordered_json const& packet) const {
      ordered_json const& basis = packet.at("basis");
      if (basis.is_null()) return "";
      return basis == "read" ? fmt::format("   [read at {}]", readAt()) : "   [recorded]";
   }
   std::string name(ordered_json const& route) const {
      return fmt::format("{} in VRF {}", keyOf(route), text(route, "vrf"));
   }

   void printSource(ordered_json const& r) {
      std::size_t const causes = r.at("causes").size();
      os_ << fmt::format(
            "{}: {}{}\n", name(r), text(r, "headline"),
            causes > 1 ? fmt::format(" (and {})", number(causes - 1, "more", "more")) : "");
   }

   void printRoute(ordered_json const& r) {
      os_ << fmt::format("{}: {}.\n", name(r), text(r, "headline"));
      for (std::size_t i = 1; i < r.at("causes").size(); ++i)
         line("also", "{}", text(r.at("causes").at(i), "text"));
      printState(r);
      printPacket(r.at("packet"), r);
      if (r.contains("group")) printGroup(r.at("group"));
      if (r.contains("reroute")) printReroute(r.at("reroute"));
      line("last hit", "{}", whenHit(r));
      printCounts(r);
      for (ordered_json const& drop : r.at("fastdrop"))
         printFastdrop(drop);
      printChip(r);
      if (r.contains("events")) printEvents(r);
   }

   void printState(ordered_json const& r) {
      std::string const waits = r.contains("waitsFor") ? " for " + text(r, "waitsFor") : "";
      line("state", "{}{} since {}   [recorded]", text(r, "state"), waits,
           seconds(r.at("stateSince").get<double>()));
      if (!r.contains("reason")) return;
      line("reason", "{}", text(r, "reason"));
      if (r.contains("line")) {
         line("in line", "{} before it, {} in all",
              number(count(r.at("line"), "before"), "route", "routes"),
              number(count(r.at("line"), "waiting"), "route waits", "routes wait"));
         printZombies();
      }
      if (!r.contains("foundEntry")) return;
      ordered_json const& entry = r.at("foundEntry");
      line("until then", "its found entry forwards by group {}{}", text(entry, "group"),
           sharedGroup(entry));
   }

   void printZombies() {
      ordered_json const& tables = all_.at("tables");
      auto const zombies = count(tables, "zombies");
      if (zombies == 0) return line("zombies", "no group can be purged for room");
      std::string expiry;
      if (tables.contains("nextExpiryAt")) {
         double const at = tables.at("nextExpiryAt").get<double>();
         expiry =
               fmt::format(", and the next expires at {}, in {}", seconds(at), seconds(at - now_));
      }
      line("zombies", "{} can be purged for room{}", number(zombies, "group", "groups"), expiry);
   }

   // The text behind the group of a found entry: the routes that hold the group, if there are any.
   static std::string sharedGroup(ordered_json const& entry) {
      if (!entry.contains("groupOf") || entry.at("groupOf").at("routes") == 0) return "";
      return ", which is also the group of " + someOf(entry.at("groupOf"));
   }

   static std::string inputOf(ordered_json const& packet) {
      return packet.at("iif").is_null() ? "any interface" : onVlan(packet, text(packet, "iif"));
   }

   void printPacket(ordered_json const& packet, ordered_json const& r) {
      line("packet", "from {} to {} comes in by {}, {}", text(packet, "src"), text(packet, "dst"),
           inputOf(packet), upText(packet.at("iifUp")));
      printMatch(packet, r.at("ownEntry").get<bool>());
      for (ordered_json const& output : packet.at("outputs")) {
         line("output", "{}, {}: {}", onVlan(output, text(output, "oif")), upText(output.at("up")),
              output.at("copy").get<bool>() ? "a copy comes out" : "nothing comes out");
      }
      if (!packet.at("cpu").get<bool>()) return;
      line("CPU", "{}",
           packet.at("cpuReason") == "member" ? "a copy, since the route asks for it"
                                              : "the packet, since no entry takes it");
   }

   void printMatch(ordered_json const& packet, bool own) {
      std::string const verdict = text(packet, "verdict");
      ordered_json const& entry = packet.at("entry");
      std::string const origin = originOf(packet);
      if (packet.at("basis").is_null()) return line("match", "unknown: no tables are known");
      if (entry.is_null()) return line("match", "no entry{}", origin);
      std::string const accepts = entry.at("vlan").is_null()
                                        ? "any vlan"
                                        : fmt::format("vlan {}", entry.at("vlan").get<unsigned>());
      if (verdict == "wrongVlan" || verdict == "noRoute") {
         return line("match", "the entry of {} accepts {} alone{}", keyOf(entry), accepts, origin);
      }
      line("match", "{}entry of {}, handle {}, accepts {}{}",
           own                                ? "its own "
           : entry.at("boundary").get<bool>() ? "the boundary "
           : entry.at("drops").get<bool>()    ? "the fastdrop "
                                              : "the ",
           keyOf(entry), count(entry, "handle"), accepts, origin);
   }

   static std::string hitText(ordered_json const& hit, double now) {
      if (hit.is_null()) return "unknown: no activity poll has seen a packet";
      double const at = hit.get<double>();
      return fmt::format("{}, {} ago", seconds(at), seconds(now - at));
   }
   std::string whenHit(ordered_json const& r) const {
      return hitText(r.at("lastHitAt"), now_) + "   [seen]";
   }

   void printCounts(ordered_json const& r) {
      if (!r.contains("packets")) return;
      std::string const bytes =
            r.contains("bytes") ? ", " + number(count(r, "bytes"), "byte", "bytes") : "";
      std::string const counter =
            r.contains("counter") ? fmt::format("; route counter {}", count(r, "counter")) : "";
      line("counted", "{}{} by the chip's entry{}   [seen]",
           number(count(r, "packets"), "packet", "packets"), bytes, counter);
   }

   void printFastdrop(ordered_json const& drop) {
      std::string const from = onVlan(drop, text(drop, "iif"));
      if (drop.at("inHardware").get<bool>()) {
         line("fastdrop", "packets from {}; last hit {}", from,
              hitText(drop.at("lastHitAt"), now_));
      } else {
         line("fastdrop", "packets from {}, but not in hardware", from);
      }
   }

   void printGroup(ordered_json const& group) {
      ordered_json const& shared = group.at("sharedWith");
      auto const others = count(shared, "routes");
      std::string const name = text(group, "name");
      std::string const index = group.at("index").dump();
      line("group", "{}{}, oif set {}; shared with {}   [recorded]", name,
           name == index ? "" : ", index " + index, count(group, "oifSet"),
           others ? number(others, "other route: ", "other routes: ") + someOf(shared)
                  : "no other route");
      if (!group.contains("sharedWithFound")) return;
      line("restart", "found entries point at this group as well, and a rewrite changes them: {}",
           someOf(group.at("sharedWithFound")));
   }

   void printReroute(ordered_json const& r) {
      std::string const to = membersText(r.at("to"));
      std::string const state = text(r, "state");
      if (state == "ready")
         return line("reroute", "ready: to {} when {} fails", to, text(r, "whenFails"));
      bool const up = r.at("linkUp") == true;
      line("reroute", "{} {}, since {} failed{}",
           state == "waiting" ? "waits for its rewrite to" : "rerouted to", to,
           text(r, "whenFails"),
           up ? " (its link is up: a BFD session, or it has come back)" : ": its link is down");
   }

   void printChip(ordered_json const& r) {
      ordered_json const& differences = r.at("chipDiffers");
      if (all_.at("readAt").is_null()) {
         line("chip", "its tables cannot be read back");
      } else if (!differences.is_null() && differences.empty()) {
         line("chip", "entry and group are as the hooks were asked   [read at {}]", readAt());
      }
      if (differences.is_null()) return;
      for (ordered_json const& difference : differences)
         line("chip", "DIFFERS: {}   [read at {}]", difference.get<std::string>(), readAt());
   }

   void printEvents(ordered_json const& r) {
      auto const leftOut = count(r, "eventsLeftOut");
      char const* label = "history";
      if (all_.contains("historySince")) {
         line(std::exchange(label, ""), "events before {} are no longer known",
              seconds(all_.at("historySince").get<double>()));
      }
      if (leftOut > 0) {
         line(std::exchange(label, ""), "{} left out",
              number(leftOut, "older event is", "older events are"));
      }
      for (ordered_json const& event : r.at("events")) {
         std::string outcome;
         if (event.contains("outcome")) {
            std::string const word = text(event, "outcome");
            outcome = word == "pending" ? ", under way"
                                        : fmt::format(", {} at {}", word,
                                                      seconds(event.at("doneAt").get<double>()));
         }
         line(std::exchange(label, ""), "{:>12}  {}{}", seconds(event.at("at").get<double>()),
              text(event, "text"), outcome);
      }
   }

   void printNear() {
      ordered_json const& asked = all_.at("question");
      bool const ofGroup = !asked.contains("src");
      os_ << fmt::format("No route {} is wanted in {}.\n",
                         ofGroup ? "of group " + text(asked, "dst") : keyOf(asked),
                         asked.contains("vrf") ? "VRF " + text(asked, "vrf") : "any VRF");
      ordered_json const& near = all_.at("near");
      if (ordered_json const& nearest = near.at("nearest"); !nearest.empty()) {
         std::string names;
         for (ordered_json const& name : nearest)
            names += (names.empty() ? "" : " or ") + name.get<std::string>();
         line("nearest", "did you mean {}?", names);
      }
      if (!near.at("otherVrfs").empty()) {
         std::string vrfs;
         for (ordered_json const& vrf : near.at("otherVrfs"))
            vrfs += (vrfs.empty() ? "" : ", ") + vrf.get<std::string>();
         line("elsewhere", "it is wanted in VRF {}", vrfs);
      }
      if (!ofGroup) line("same group", "{}", someOf(near.at("sameGroup")));
      for (ordered_json const& taker : near.at("takenBy"))
         printTaker(taker);
   }

   void printTaker(ordered_json const& taker) {
      ordered_json const& packet = taker.at("packet");
      std::string const from =
            packet.at("iif").is_null() ? "" : " from " + onVlan(packet, text(packet, "iif"));
      std::string const fate = text(packet, "fate");
      std::string const vrf = text(taker, "vrf");
      ordered_json const& entry = packet.at("entry");
      if (packet.at("verdict") == "noRoute" || entry.is_null()) {
         return line("packets", "{} in VRF {}: no entry matches, and they {}{}",
                     from.empty() ? "from every interface" : from.substr(1), vrf, fate,
                     originOf(packet));
      }
      if (packet.at("verdict") == "wrongVlan") {
         return line("packets", "{} in VRF {}: the entry of {} does not accept them, and they {}{}",
                     from.substr(1), vrf, keyOf(entry), fate, originOf(packet));
      }
      std::string const group = taker.contains("groupOf")
                                      ? fmt::format("; it forwards by group {}{}",
                                                    text(taker, "group"), sharedGroup(taker))
                                      : "";
      line("packets", "{} in VRF {}: they match the entry of {}, and {}{}{}",
           from.empty() ? "from every interface" : from.substr(1), vrf, keyOf(entry), fate, group,
           originOf(packet));
   }

   void printTables() {
      if (all_.at("recovering").get<bool>()) {
         line("restart", "the agent has restarted, and the replay of its routes is not complete");
      }
      ordered_json const& tables = all_.at("tables");
      auto const of = [&](char const* name) {
         ordered_json const& table = tables.at(name);
         auto const number = [](ordered_json const& v) { return v.is_null() ? "?" : v.dump(); };
         return number(table.at("used")) + " of " + number(table.at("size"));
      };
      line("tables", "{} groups (zombies: {}), {} route entries, {} boundary entries", of("groups"),
           count(tables, "zombies"), of("routes"), of("boundaries"));
   }

   std::ostream& os_;
   ordered_json const& all_;
   double const now_;
};

}  // namespace

void printExplanation(std::ostream& os, ordered_json const& explanation) {
   ExplanationText(os, explanation).print();
}

}  // namespace Agent
