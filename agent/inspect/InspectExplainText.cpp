// An explanation as text: a sentence with the answer, and below it a line for each concern.
#include <fmt/ostream.h>

#include <utility>

#include "agent/inspect/InspectExplain.h"

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

std::string list(ordered_json const& items, std::string const& none) {
   if (items.empty()) return none;
   return fmt::format("{}", fmt::join(items.get<std::vector<std::string>>(), ", "));
}

// The routes of SomeRoutes::json(): the names that it has, and the number of the others.
std::string someOf(ordered_json const& of) {
   std::uint64_t const all = count(of, "routes");
   std::size_t const some = of.at("some").size();
   std::string const names = list(of.at("some"), "none");
   return all > some ? fmt::format("{}, and {} more", names, all - some) : names;
}

std::string whenHit(ordered_json const& row, double now) {
   if (!row.contains("lastHit")) return "unknown: there is no hardware status";
   ordered_json const& time = row.at("lastHit");
   if (time.is_null()) return "unknown: no activity poll has seen a packet (0)";
   double const at = time.get<double>();
   return fmt::format("at {}, {} ago, by the activity polls", seconds(at), seconds(now - at));
}

class ExplanationText {
 public:
   ExplanationText(std::ostream& os, ordered_json const& all)
         : os_(os), all_(all), now_(all.at("time").get<double>()) {}

   void print() {
      if (!all_.at("wanted").get<bool>()) printNear();
      bool first = true;
      for (ordered_json const& route : all_.at("routes")) {
         if (!std::exchange(first, false)) os_ << '\n';
         printRoute(route);
      }
      printTables();
   }

 private:
   template <class... Args>
   void line(char const* label, fmt::format_string<Args...> format, Args&&... args) {
      fmt::print(os_, "   {:<11}{}\n", label, fmt::format(format, std::forward<Args>(args)...));
   }

   void printRoute(ordered_json const& r) {
      bool const in = r.at("inHardware").get<bool>();
      fmt::print(os_, "{} in VRF {} is {}in hardware.\n", text(r, "route"), text(r, "vrf"),
                 in ? "" : "not ");
      if (!in) printReason(r);
      if (r.contains("handle")) {
         line("entry", "handle {}, accepts from {}", count(r, "handle"), text(r, "acceptsFrom"));
      } else {
         line("accepts", "from {}", text(r, "acceptsFrom"));
      }
      line("sends to", "{}", list(r.at("sendsTo"), "no interface"));
      if (r.contains("group")) printGroup(r);
      if (in) line("last hit", "{}", whenHit(r, now_));
      if (r.contains("packets")) printCounts(r);
      for (ordered_json const& drop : r.at("fastdrop"))
         printFastdrop(drop);
      if (r.contains("reroute")) printReroute(r.at("reroute"));
      if (r.contains("chipDiffers")) printChip(r.at("chipDiffers"));
   }

   void printCounts(ordered_json const& r) {
      std::string const counter =
            r.contains("counter") ? fmt::format("; route counter {}", count(r, "counter")) : "";
      line("counted", "{}, {} by the chip's entry{}",
           number(count(r, "packets"), "packet", "packets"),
           number(count(r, "bytes"), "byte", "bytes"), counter);
   }

   void printFastdrop(ordered_json const& drop) {
      if (drop.at("inHardware").get<bool>()) {
         line("fastdrop", "packets from {}; last hit {}", text(drop, "from"), whenHit(drop, now_));
      } else {
         line("fastdrop", "packets from {}, but not in hardware", text(drop, "from"));
      }
   }

   void printChip(ordered_json const& differences) {
      if (differences.is_null()) return line("chip", "its tables cannot be read back");
      if (differences.empty()) line("chip", "entry and group agree with the route programmer");
      for (ordered_json const& difference : differences)
         line("chip", "DIFFERS: {}", difference.get<std::string>());
   }

   void printReason(ordered_json const& r) {
      line("reason", "{}", text(r, "whyNot"));
      if (!r.contains("waitsFor")) return;
      ordered_json const& waits = r.at("waitsFor");
      auto const before = count(waits, "before");
      std::string const place = before ? fmt::format("{} before it in the queue",
                                                     number(before, "route is", "routes are"))
                                       : "it is the first in the queue";
      line("waits for", "room in the {}; {}, {} in all", text(waits, "room"), place,
           number(count(waits, "waiting"), "route waits", "routes wait"));
      printZombies(waits);
      if (!waits.contains("foundEntry")) return;
      ordered_json const& entry = waits.at("foundEntry");
      line("until then", "its found entry forwards by group {}{}", text(entry, "group"),
           sharedGroup(entry));
   }

   void printZombies(ordered_json const& waits) {
      auto const zombies = count(waits, "zombies");
      std::string expiry;
      if (waits.contains("nextExpiry")) {
         double const at = waits.at("nextExpiry").get<double>();
         expiry =
               fmt::format(", and the next expires at {}, in {}", seconds(at), seconds(at - now_));
      }
      if (zombies) {
         line("zombies", "{} can be purged for room{}", number(zombies, "group", "groups"), expiry);
      } else {
         line("zombies", "no group can be purged for room");
      }
   }

   // The text behind the group of a found entry: the routes that hold the group, if there are any.
   static std::string sharedGroup(ordered_json const& entry) {
      ordered_json const& of = entry.at("groupOf");
      if (of.at("routes") == 0) return "";
      return ", which is also the group of " + someOf(of);
   }

   void printGroup(ordered_json const& r) {
      ordered_json const& shared = r.at("sharedWith");
      auto const others = count(shared, "routes");
      std::string const group = text(r, "group");
      std::string const index = r.at("index").dump();
      line("group", "{}{}, oif set {}; shared with {}", group,
           group == index ? "" : ", oif set index " + index, count(r, "oifSet"),
           others ? number(others, "other route: ", "other routes: ") + someOf(shared)
                  : "no other route");
      if (!r.contains("sharedWithFound")) return;
      line("restart", "found entries point at this group as well, and a rewrite changes them: {}",
           someOf(r.at("sharedWithFound")));
   }

   void printReroute(ordered_json const& r) {
      std::string const to = list(r.at("to"), "no interface");
      std::string const state = text(r, "state");
      if (state == "ready")
         return line("reroute", "ready: to {} when {} fails", to, text(r, "whenFails"));
      bool const up = r.at("linkUp").get<bool>();
      line("reroute", "{} {}, since {} failed{}",
           state == "waiting" ? "waits for its rewrite to" : "rerouted to", to,
           text(r, "whenFails"),
           up ? " (its link is up: a BFD session, or it has come back)" : ": its link is down");
   }

   void printNear() {
      fmt::print(os_, "No route {} is wanted in {}.\n", text(all_, "asked"),
                 all_.contains("vrf") ? "VRF " + text(all_, "vrf") : "any VRF");
      ordered_json const& near = all_.at("near");
      if (!near.at("otherVrfs").empty()) {
         line("elsewhere", "it is wanted in VRF {}", list(near.at("otherVrfs"), ""));
      }
      line("same group", "{}", someOf(near.at("sameGroup")));
      if (near.at("takenBy").empty()) {
         line("packets", "no entry of the chip matches them, so they are dropped");
      }
      for (ordered_json const& taker : near.at("takenBy"))
         printTaker(taker);
   }

   void printTaker(ordered_json const& taker) {
      std::string const group = taker.contains("group")
                                      ? fmt::format(" and forwards by group {}{}",
                                                    text(taker, "group"), sharedGroup(taker))
                                      : "";
      line("packets", "match in VRF {} the entry of {}, which accepts from {}{}",
           text(taker, "vrf"), text(taker, "entry"), text(taker, "acceptsFrom"), group);
   }

   void printTables() {
      if (all_.at("recovering").get<bool>()) {
         line("restart", "the agent has restarted, and the replay of its routes is not complete");
      }
      ordered_json const& tables = all_.at("tables");
      auto const of = [&](char const* name) {
         ordered_json const& table = tables.at(name);
         std::string const size = table.at("size").is_null() ? "?" : table.at("size").dump();
         return fmt::format("{} of {}", count(table, "used"), size);
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
