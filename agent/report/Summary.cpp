#include "agent/report/Summary.h"

#include <cstdio>
#include <string>

namespace Agent {

namespace {

using nlohmann::ordered_json;

// Of the routes that are not in hardware, in the text form; the JSON form has them all.
constexpr std::size_t listedRoutes = 20;

std::string fixed(double value, int decimals) {
   char text[64];
   std::snprintf(text, sizeof text, "%.*f", decimals, value);
   return text;
}

// The number at a key, as the text form prints it.
std::string n(ordered_json const& object, char const* key) {
   return std::to_string(object.at(key).get<std::uint64_t>());
}

void printEvents(std::ostream& os, ordered_json const& events) {
   os << "events         " << n(events, "total") << " in "
      << fixed(events.at("captureSeconds").get<double>(), 1) << " s of capture ("
      << n(events, "routes") << " routes, " << n(events, "deletions") << " of them deletions; "
      << n(events, "links") << " links; " << n(events, "snapshots") << " snapshots";
   if (events.at("snapshots") != 0) os << " of " << n(events, "snapshotRoutes") << " routes";
   os << ")\n";
}

void printScenario(std::ostream& os, ordered_json const& scenario) {
   auto const& failures = scenario.at("failures");
   os << "scenario       " << scenario.at("title").get<std::string>() << '\n'
      << "played         " << n(scenario, "lines") << " lines, " << n(scenario, "packets")
      << " packets in " << fixed(scenario.at("seconds").get<double>(), 1) << " s\n"
      << "expectations   " << n(scenario, "expectations") << ", " << failures.size()
      << (failures.size() == 1 ? " failure\n" : " failures\n");
}

}  // namespace

ordered_json summaryJson(RunFigures const& figures, SimulatedSwitch const& simulated,
                         ForwardingCheck const* check) {
   Sim::Chip const& chip = simulated.chip();
   RouteProgrammer const& programmer = simulated.routeProgrammer();
   std::uint64_t inHardware = 0, waiting = 0, failed = 0;
   programmer.forEachRoute([&](RouteProgrammer::Route const& route) {
      switch (route.state()) {
         case RouteProgrammer::State::inHardware:
            ++inHardware;
            break;
         case RouteProgrammer::State::failed:
            ++failed;
            break;
         default:
            ++waiting;
      }
   });
   auto const zombies = simulated.path().zombies();
   Qor::U32 groupsInUse = simulated.path().groupsAllocated();
   for (RecordRow const& zombie : simulated.path().zombieRecords())
      groupsInUse -= !Sim::isHardWired(zombie.group);
   // Each route of a snapshot is as much work as an event.
   std::uint64_t const changes = figures.events - figures.snapshots + figures.snapshotRoutes;
   SimulatedSwitch::Figures const all = simulated.figures();
   auto const& counters = all.programmer;

   ordered_json j;
   j["events"] = {{"total", figures.events},
                  {"routes", figures.routeEvents},
                  {"deletions", figures.deletions},
                  {"links", figures.linkEvents},
                  {"snapshots", figures.snapshots},
                  {"snapshotRoutes", figures.snapshotRoutes},
                  {"lines", figures.lines},
                  {"skippedLines", figures.skippedLines},
                  {"badLines", figures.badLines},
                  {"clockSteps", figures.clockSteps},
                  {"captureSeconds", figures.captureSeconds}};
   j["time"] = {{"seconds", figures.processorSeconds},
                {"microsecondsPerEvent",
                 changes ? figures.processorSeconds * 1e6 / static_cast<double>(changes) : 0.0}};
   j["routes"] = {{"wanted", programmer.routes()},
                  {"inHardware", inHardware},
                  {"waiting", waiting},
                  {"failed", failed},
                  {"unchangedUpdates", counters.unchanged}};
   j["groups"] = {
         {"inUse", groupsInUse},
         {"zombies", zombies},
         {"sharingRatio",
          groupsInUse ? static_cast<double>(inHardware) / static_cast<double>(groupsInUse) : 0.0},
         {"resurrections", counters.resurrections},
         {"purges", counters.purges}};
   j["groupWrites"] = {{"create", chip.writes(Sim::WriteKind::groupCreate)},
                       {"update", chip.writes(Sim::WriteKind::groupUpdate)},
                       {"delete", chip.writes(Sim::WriteKind::groupDelete)}};
   j["routeWrites"] = {{"create", chip.writes(Sim::WriteKind::routeCreate)},
                       {"point", chip.writes(Sim::WriteKind::routePoint)},
                       {"delete", chip.writes(Sim::WriteKind::routeDelete)}};
   j["restarts"] = {{"restarts", all.restarts}, {"adopted", all.adopted}, {"swept", all.swept}};
   j["failedWrites"] = counters.failedWrites;
   j["peak"] = {{"groups", chip.groupsPeak()},
                {"groupCapacity", chip.config().groups},
                {"routes", chip.routes().peak()},
                {"routeCapacity", chip.config().routes}};
   if (check) {
      ordered_json notPlaced = ordered_json::array();
      for (auto const& route : check->notPlaced) {
         notPlaced.push_back({{"route", route.id.toString()}, {"reason", route.reason}});
      }
      j["check"] = {{"passed", check->passed()},
                    {"routes", check->routes},
                    {"differences", check->differences},
                    {"notInHardware", notPlaced}};
   }
   return j;
}

void printSummary(std::ostream& os, ordered_json const& s) {
   auto const& events = s.at("events");
   if (s.contains("scenario")) {
      printScenario(os, s.at("scenario"));
   } else {
      printEvents(os, events);
   }
   if (events.at("badLines") != 0) os << "bad lines      " << n(events, "badLines") << '\n';
   if (events.at("skippedLines") != 0) {
      os << "skipped lines  " << n(events, "skippedLines") << '\n';
   }
   if (events.at("clockSteps") != 0) {
      os << "clock steps    " << n(events, "clockSteps")
         << " times the time stamps went back; taken as no time having passed\n";
   }
   auto const& routes = s.at("routes");
   os << "routes         " << n(routes, "wanted") << " wanted, " << n(routes, "inHardware")
      << " in hardware, " << n(routes, "waiting") << " waiting, " << n(routes, "failed")
      << " failed\n";
   auto const& groups = s.at("groups");
   os << "groups         " << n(groups, "inUse") << " in use, " << n(groups, "zombies")
      << " zombies; sharing ratio " << fixed(groups.at("sharingRatio").get<double>(), 2)
      << " routes a group\n";
   os << "resurrections  " << n(groups, "resurrections") << "; zombies purged for room "
      << n(groups, "purges") << '\n';
   auto const& groupWrites = s.at("groupWrites");
   os << "group writes   " << n(groupWrites, "create") << " create, " << n(groupWrites, "update")
      << " update, " << n(groupWrites, "delete") << " delete\n";
   auto const& routeWrites = s.at("routeWrites");
   os << "route writes   " << n(routeWrites, "create") << " create, " << n(routeWrites, "point")
      << " point, " << n(routeWrites, "delete") << " delete; " << n(routes, "unchangedUpdates")
      << " updates changed nothing\n";
   auto const& restarts = s.at("restarts");
   if (restarts.at("restarts") != 0) {
      os << "restarts       " << n(restarts, "restarts") << ": " << n(restarts, "adopted")
         << " groups and entries taken over from the chip, " << n(restarts, "swept")
         << " removed\n";
   }
   if (s.at("failedWrites") != 0) os << "failed writes  " << n(s, "failedWrites") << '\n';
   auto const& peak = s.at("peak");
   os << "peak use       groups " << n(peak, "groups") << " of " << n(peak, "groupCapacity")
      << ", routes " << n(peak, "routes") << " of " << n(peak, "routeCapacity") << '\n';
   if (!s.contains("scenario")) {
      auto const& time = s.at("time");
      os << "time           " << fixed(time.at("seconds").get<double>(), 3)
         << " s of processor time, " << fixed(time.at("microsecondsPerEvent").get<double>(), 2)
         << " us an event\n";
   }
   if (!s.contains("check")) return;
   auto const& check = s.at("check");
   if (check.at("passed") == true) {
      os << "check          passed: " << n(check, "routes")
         << " routes forward as the capture says\n";
   } else {
      os << "check          FAILED: " << check.at("differences").size() << " differences\n";
   }
   if (!check.at("notInHardware").empty()) {
      os << "not in hardware, and why:\n";
      std::size_t listed = 0;
      for (auto const& route : check.at("notInHardware")) {
         if (listed++ == listedRoutes) {
            os << "   and " << check.at("notInHardware").size() - listedRoutes
               << " more: --show routes lists all\n";
            break;
         }
         os << "   " << route.at("route").get<std::string>() << ": "
            << route.at("reason").get<std::string>() << '\n';
      }
   }
}

}  // namespace Agent
