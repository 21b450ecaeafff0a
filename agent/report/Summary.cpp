#include "agent/report/Summary.h"

namespace Agent {

namespace {

using nlohmann::ordered_json;

double ratio(double dividend, std::uint64_t divisor) {
   return divisor ? dividend / static_cast<double>(divisor) : 0.0;
}

ordered_json eventsJson(RunFigures const& figures) {
   return {{"total", figures.events},
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
}

ordered_json timeJson(RunFigures const& figures) {
   // A snapshot counts as one event for each of its routes, because each route is as much work as
   // an event.
   std::uint64_t const changes = figures.events - figures.snapshots + figures.snapshotRoutes;
   return {{"seconds", figures.processorSeconds},
           {"microsecondsPerEvent", ratio(figures.processorSeconds * 1e6, changes)}};
}

// Routes by their state. Routes that are neither in hardware nor failed wait, or are under way.
struct RouteCounts {
   explicit RouteCounts(Programmer const& programmer) : wanted(programmer.routes()) {
      programmer.forEach([this](RouteView const& route) {
         inHardware += route.state() == VelMroute::RouteState::inHardware;
         failed += route.state() == VelMroute::RouteState::failed;
      });
   }

   std::uint64_t wanted, inHardware = 0, failed = 0;
};

ordered_json routesJson(RouteCounts const& routes, Programmer::Counters const& counters) {
   return {{"wanted", routes.wanted},
           {"inHardware", routes.inHardware},
           {"waiting", routes.wanted - routes.inHardware - routes.failed},
           {"failed", routes.failed},
           {"unchangedUpdates", counters.unchanged}};
}

// The number of allocated groups without those of zombies. A zombie with a hard-wired group has no
// allocated group.
Qor::U32 groupsInUse(SwitchPath const& path) {
   Qor::U32 groups = path.groupsAllocated();
   for (RecordRow const& zombie : path.zombieRecords())
      groups -= !Sim::isHardWired(zombie.group);
   return groups;
}

ordered_json groupsJson(SwitchPath const& path, RouteCounts const& routes,
                        Programmer::Counters const& counters) {
   Qor::U32 const inUse = groupsInUse(path);
   return {{"inUse", inUse},
           {"zombies", path.zombies()},
           {"sharingRatio", ratio(static_cast<double>(routes.inHardware), inUse)},
           {"resurrections", counters.resurrections},
           {"purges", counters.purges}};
}

ordered_json groupWritesJson(Sim::Chip const& chip) {
   return {{"create", chip.writes(Sim::WriteKind::groupCreate)},
           {"update", chip.writes(Sim::WriteKind::groupUpdate)},
           {"delete", chip.writes(Sim::WriteKind::groupDelete)}};
}

ordered_json routeWritesJson(Sim::Chip const& chip) {
   return {{"create", chip.writes(Sim::WriteKind::routeCreate)},
           {"point", chip.writes(Sim::WriteKind::routePoint)},
           {"delete", chip.writes(Sim::WriteKind::routeDelete)}};
}

ordered_json peakJson(Sim::Chip const& chip) {
   return {{"groups", chip.groupsPeak()},
           {"groupCapacity", chip.config().groups},
           {"routes", chip.routes().peak()},
           {"routeCapacity", chip.config().routes}};
}

ordered_json checkJson(ForwardingCheck const& check) {
   ordered_json notPlaced = ordered_json::array();
   for (auto const& route : check.notPlaced)
      notPlaced.push_back({{"route", route.id.toString()}, {"reason", route.reason}});
   return {{"passed", check.passed()},
           {"routes", check.routes},
           {"differences", check.differences},
           {"notInHardware", notPlaced}};
}

}  // namespace

ordered_json summaryJson(RunFigures const& figures, SimulatedSwitch const& simulated,
                         ForwardingCheck const* check) {
   Sim::Chip const& chip = simulated.chip();
   RouteCounts const routes(simulated.programmer());
   SimulatedSwitch::Figures const all = simulated.figures();
   ordered_json summary = {{"events", eventsJson(figures)},
                           {"time", timeJson(figures)},
                           {"routes", routesJson(routes, all.programmer)},
                           {"groups", groupsJson(simulated.path(), routes, all.programmer)},
                           {"groupWrites", groupWritesJson(chip)},
                           {"routeWrites", routeWritesJson(chip)},
                           {"restarts",
                            {{"restarts", all.restarts},
                             {"adopted", all.programmer.adopted},
                             {"swept", all.programmer.swept}}},
                           {"failedWrites", all.programmer.failedWrites},
                           {"peak", peakJson(chip)}};
   if (check) summary["check"] = checkJson(*check);
   return summary;
}

}  // namespace Agent
