// An explanation in prose: a sentence that answers, and below it a line for each concern.
#include <cstdio>

#include "agent/inspect/InspectExplain.h"

namespace Agent {

using nlohmann::ordered_json;

namespace {

std::string number(std::uint64_t count, char const* one, char const* many) {
   return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

std::string seconds(double time) {
   char out[40];
   std::snprintf(out, sizeof out, "%.3f s", time);
   return out;
}

std::string list(ordered_json const& items, std::string const& none) {
   std::string out;
   for (auto const& item : items)
      out += (out.empty() ? "" : ", ") + item.get<std::string>();
   return out.empty() ? none : out;
}

// Of so many the ones that are named.
std::string someOf(ordered_json const& of) {
   std::size_t const all = of.at("routes").get<std::size_t>();
   ordered_json const& some = of.at("some");
   std::string out = list(some, "none");
   if (all > some.size()) out += ", and " + std::to_string(all - some.size()) + " more";
   return out;
}

std::string whenHit(ordered_json const& row, double now) {
   if (!row.contains("lastHit")) return "unknown: it is not in the hardware status";
   ordered_json const& time = row.at("lastHit");
   if (time.is_null()) return "unknown: no activity poll has seen a packet of it yet (0)";
   double const at = time.get<double>();
   return "at " + seconds(at) + ", " + seconds(now - at) + " ago, as the activity polls saw it";
}

class Prose {
 public:
   Prose(std::ostream& os, ordered_json const& all)
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
   void line(char const* what, std::string const& says) {
      char label[16];
      std::snprintf(label, sizeof label, "   %-11s", what);
      os_ << label << says << '\n';
   }

   void printRoute(ordered_json const& r) {
      bool const in = r.at("inHardware").get<bool>();
      os_ << r.at("route").get<std::string>() << " in VRF " << r.at("vrf").get<std::string>()
          << (in ? " is in hardware.\n" : " is not in hardware.\n");
      if (!in) printWhyNot(r);
      if (r.contains("handle")) {
         line("entry", "handle " + r.at("handle").dump() + ", accepts from " +
                             r.at("acceptsFrom").get<std::string>());
      } else {
         line("accepts", "from " + r.at("acceptsFrom").get<std::string>());
      }
      line("sends to", list(r.at("sendsTo"), "nobody"));
      if (r.contains("group")) printGroup(r);
      if (in) line("last hit", whenHit(r, now_));
      if (r.contains("packets")) {
         std::string counted = number(r.at("packets").get<std::uint64_t>(), "packet", "packets") +
                               ", " + number(r.at("bytes").get<std::uint64_t>(), "byte", "bytes") +
                               " by the chip's entry";
         if (r.contains("counter")) counted += "; route counter " + r.at("counter").dump();
         line("counted", counted);
      }
      for (ordered_json const& drop : r.at("fastdrop")) {
         std::string const from = "what comes from " + drop.at("from").get<std::string>();
         line("fastdrop", drop.at("inHardware").get<bool>()
                                ? from + "; last hit " + whenHit(drop, now_)
                                : from + ", but not in hardware");
      }
      if (r.contains("reroute")) printReroute(r.at("reroute"));
      if (r.contains("chipDiffers")) {
         ordered_json const& differs = r.at("chipDiffers");
         if (differs.empty()) line("chip", "its entry and its group say the same");
         for (ordered_json const& difference : differs)
            line("chip", "DIFFERS: " + difference.get<std::string>());
      }
   }

   void printWhyNot(ordered_json const& r) {
      line("why not", r.at("whyNot").get<std::string>());
      if (!r.contains("waitsFor")) return;
      ordered_json const& waits = r.at("waitsFor");
      auto const before = waits.at("before").get<std::uint64_t>();
      line("waits for", "room in the " + waits.at("room").get<std::string>() + "; " +
                              (before ? std::to_string(before) + (before == 1 ? " is" : " are") +
                                              " before it in line"
                                      : std::string("it is first in line")) +
                              ", " +
                              number(waits.at("waiting").get<std::uint64_t>(), "waits", "wait") +
                              " in all");
      auto const zombies = waits.at("zombies").get<std::uint64_t>();
      std::string text = zombies ? number(zombies, "group", "groups") + " could be given up"
                                 : "no group is left that could be given up";
      if (waits.contains("nextExpiry")) {
         double const at = waits.at("nextExpiry").get<double>();
         text += ", the next expires at " + seconds(at) + ", in " + seconds(at - now_);
      }
      line("zombies", text);
      if (!waits.contains("foundEntry")) return;
      ordered_json const& entry = waits.at("foundEntry");
      line("until then", "its found entry forwards by group " +
                               entry.at("group").get<std::string>() + sharedGroup(entry));
   }

   // Follows the name of a group at which a found entry points.
   static std::string sharedGroup(ordered_json const& entry) {
      ordered_json const& of = entry.at("groupOf");
      if (of.at("routes") == 0) return "";
      return ", which is also the group of " + someOf(of);
   }

   void printGroup(ordered_json const& r) {
      ordered_json const& shared = r.at("sharedWith");
      auto const others = shared.at("routes").get<std::uint64_t>();
      std::string const index = r.at("index").dump();
      std::string text = r.at("group").get<std::string>();
      if (text != index) text += ", oif set index " + index;
      text += ", oif set " + r.at("oifSet").dump();
      text += others ? "; shared with " + number(others, "other route", "other routes") + ": " +
                             someOf(shared)
                     : "; shared with no other route";
      line("group", text);
      if (!r.contains("sharedWithFound")) return;
      line("restart", "found entries point at this group as well, and a rewrite changes them: " +
                            someOf(r.at("sharedWithFound")));
   }

   void printReroute(ordered_json const& r) {
      std::string const intf = r.at("whenFails").get<std::string>();
      std::string const to = list(r.at("to"), "nobody");
      std::string const state = r.at("state").get<std::string>();
      bool const up = r.at("linkUp").get<bool>();
      std::string const why = up ? " failed (its link is up: a BFD session, or it has come back)"
                                 : " failed: its link is down";
      line("reroute", state == "ready" ? "ready: to " + to + " when " + intf + " fails"
                      : state == "waiting"
                            ? "waits for its rewrite to " + to + ", since " + intf + why
                            : "rerouted to " + to + ", since " + intf + why);
   }

   void printNear() {
      os_ << "No route " << all_.at("asked").get<std::string>() << " is wanted"
          << (all_.contains("vrf") ? " in VRF " + all_.at("vrf").get<std::string>()
                                   : std::string(" in any VRF"))
          << ".\n";
      ordered_json const& near = all_.at("near");
      if (!near.at("otherVrfs").empty()) {
         line("elsewhere", "it is wanted in VRF " + list(near.at("otherVrfs"), ""));
      }
      line("same group", someOf(near.at("sameGroup")));
      if (near.at("takenBy").empty()) {
         line("packets", "no entry of the chip takes them: they are dropped");
      }
      for (ordered_json const& taker : near.at("takenBy")) {
         std::string text = "taken in VRF " + taker.at("vrf").get<std::string>() +
                            " by the entry of " + taker.at("entry").get<std::string>() +
                            ", which accepts from " + taker.at("acceptsFrom").get<std::string>();
         if (taker.contains("group")) {
            text += " and forwards by group " + taker.at("group").get<std::string>() +
                    sharedGroup(taker);
         }
         line("packets", text);
      }
   }

   void printTables() {
      if (all_.at("recovering").get<bool>()) {
         line("restart", "the agent has started anew, and has not been told all its routes yet");
      }
      ordered_json const& tables = all_.at("tables");
      auto const of = [&](char const* name) {
         return tables.at(name).at("used").dump() + " of " + tables.at(name).at("size").dump();
      };
      line("tables", of("groups") + " groups (zombies: " + tables.at("zombies").dump() + "), " +
                           of("routes") + " route entries, " + of("boundaries") +
                           " boundary entries");
   }

   std::ostream& os_;
   ordered_json const& all_;
   double const now_;
};

}  // namespace

void printExplanation(std::ostream& os, ordered_json const& explanation) {
   Prose(os, explanation).print();
}

}  // namespace Agent
