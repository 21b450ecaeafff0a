// The summary of a run as lines of text.
#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "agent/report/Summary.h"

namespace Agent {

namespace {

using nlohmann::ordered_json;

// Routes that the text lists with the reason why they are not in hardware; the JSON form has all.
constexpr std::size_t listedRoutes = 20;

std::uint64_t count(ordered_json const& object, char const* key) {
   return object.at(key).get<std::uint64_t>();
}

// The figure as text, for one that the platform may not know.
std::string figure(ordered_json const& object, char const* key) {
   return object.at(key).is_null() ? "?" : std::to_string(count(object, key));
}

double number(ordered_json const& object, char const* key) {
   return object.at(key).get<double>();
}

std::string text(ordered_json const& object, char const* key) {
   return object.at(key).get<std::string>();
}

class SummaryText {
 public:
   SummaryText(std::ostream& os, ordered_json const& summary) : os_(os), summary_(summary) {}

   void print() const {
      bool const scenario = summary_.contains("scenario");
      if (scenario) {
         printScenario(summary_.at("scenario"));
      } else {
         printEvents(summary_.at("events"));
      }
      printInputFaults(summary_.at("events"));
      printGroups(summary_.at("routes"), summary_.at("groups"));
      printWrites(summary_.at("groupWrites"), summary_.at("routeWrites"));
      printRestarts(summary_.at("restarts"));
      if (count(summary_, "failedWrites"))
         line("failed writes", "{}", count(summary_, "failedWrites"));
      printPeak(summary_.at("peak"));
      if (!scenario) printTime(summary_.at("time"));
      if (summary_.contains("check")) printCheck(summary_.at("check"));
      for (auto const& shortfall : summary_.at("shortfalls"))
         line("shortfall", "{}", shortfall.get<std::string>());
      if (summary_.at("interrupted").get<bool>()) {
         line("interrupted", "by {} at {:.3f} s, so that the rest of the input is left out",
              text(summary_, "signal"), number(summary_, "interruptedAt"));
      }
   }

 private:
   template <class... Args>
   void line(std::string_view label, fmt::format_string<Args...> format, Args&&... args) const {
      os_ << fmt::format("{:<15}{}\n", label, fmt::format(format, std::forward<Args>(args)...));
   }

   void printScenario(ordered_json const& scenario) const {
      std::size_t const failures = scenario.at("failures").size();
      line("scenario", "{}", text(scenario, "title"));
      line("played", "{} lines, {} packets in {:.1f} s", count(scenario, "lines"),
           count(scenario, "packets"), number(scenario, "durationSeconds"));
      line("expectations", "{}, {} {}", count(scenario, "expectations"), failures,
           failures == 1 ? "failure" : "failures");
   }

   void printEvents(ordered_json const& events) const {
      std::string snapshots = fmt::format("{} snapshots", count(events, "snapshots"));
      if (count(events, "snapshots"))
         snapshots += fmt::format(" of {} routes", count(events, "snapshotRoutes"));
      line("events", "{} in {:.1f} s of capture ({} routes, {} of them deletions; {} links; {})",
           count(events, "total"), number(events, "captureSeconds"), count(events, "routes"),
           count(events, "deletions"), count(events, "links"), snapshots);
   }

   void printInputFaults(ordered_json const& events) const {
      if (count(events, "skippedLines")) line("skipped lines", "{}", count(events, "skippedLines"));
      if (count(events, "clockSteps")) {
         line("clock steps", "{} times the time stamps went back; taken as no time having passed",
              count(events, "clockSteps"));
      }
   }

   void printGroups(ordered_json const& routes, ordered_json const& groups) const {
      std::string const pending =
            count(routes, "pending") ? fmt::format("{} pending, ", count(routes, "pending")) : "";
      line("routes", "{} wanted, {} offloaded, {}{} waiting, {} failed", count(routes, "wanted"),
           count(routes, "offloaded"), pending, count(routes, "waiting"), count(routes, "failed"));
      line("groups", "{} in use, {} zombies; sharing ratio {:.2f} routes a group",
           count(groups, "inUse"), count(groups, "zombies"), number(groups, "sharingRatio"));
      line("resurrections", "{}; zombies purged for room {}", count(groups, "resurrections"),
           count(groups, "purges"));
   }

   void printWrites(ordered_json const& groups, ordered_json const& routes) const {
      line("group writes", "{} create, {} update, {} delete", figure(groups, "create"),
           figure(groups, "update"), figure(groups, "delete"));
      line("route writes", "{} create, {} point, {} delete; {} updates changed nothing",
           figure(routes, "create"), figure(routes, "point"), figure(routes, "delete"),
           count(summary_.at("routes"), "unchangedUpdates"));
   }

   void printRestarts(ordered_json const& restarts) const {
      if (!count(restarts, "count")) return;
      line("restarts", "{}: {} groups and entries taken over from the chip, {} removed",
           count(restarts, "count"), count(restarts, "adopted"), count(restarts, "swept"));
   }

   void printPeak(ordered_json const& peak) const {
      line("peak use", "groups {} of {}, entries {} of {}", figure(peak, "groups"),
           figure(peak, "groupCapacity"), figure(peak, "entries"), figure(peak, "entryCapacity"));
   }

   void printTime(ordered_json const& time) const {
      line("time", "{:.3f} s of processor time, {:.2f} us an event",
           number(time, "processorSeconds"), number(time, "perEventSeconds") * 1e6);
   }

   void printCheck(ordered_json const& check) const {
      if (check.contains("leftOut")) return line("check", "left out: {}", text(check, "leftOut"));
      if (check.at("passed").get<bool>()) {
         line("check", "passed: {} routes forward as the capture says", count(check, "routeCount"));
      } else {
         line("check", "FAILED: {} differences", check.at("differences").size());
      }
      printNotInHardware(check.at("notOffloaded"));
   }

   void printNotInHardware(ordered_json const& routes) const {
      if (routes.empty()) return;
      os_ << "not in hardware, and why:\n";
      std::size_t listed = 0;
      for (auto const& route : routes) {
         if (listed++ == listedRoutes) {
            os_ << fmt::format("   and {} more: --show routes lists all\n",
                               routes.size() - listedRoutes);
            return;
         }
         os_ << fmt::format("   vrf {} ({}, {}): {}\n", text(route, "vrf"), text(route, "src"),
                            text(route, "dst"), text(route, "reason"));
      }
   }

   std::ostream& os_;
   ordered_json const& summary_;
};

}  // namespace

void printSummary(std::ostream& os, ordered_json const& summary) {
   SummaryText(os, summary).print();
}

}  // namespace Agent
