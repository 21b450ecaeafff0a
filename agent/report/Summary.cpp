#include "agent/report/Summary.h"

#include "agent/report/Shortfalls.h"
#include "agent/switch/GroupName.h"

namespace Agent {

using VelMroute::WriteKind;

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
// allocated group. If the platform does not know, the records in use are counted.
Qor::U32 groupsInUse(Switch const& theSwitch) {
   auto const allocated = theSwitch.view().use(Table::group).allocated;
   if (!allocated) return static_cast<Qor::U32>(theSwitch.path().recordsInUse().size());
   Qor::U32 groups = *allocated;
   for (RecordRow const& zombie : theSwitch.path().zombieRecords())
      groups -= !isHardWired(theSwitch.view(), zombie.group);
   return groups;
}

ordered_json groupsJson(Switch const& theSwitch, RouteCounts const& routes,
                        Programmer::Counters const& counters) {
   Qor::U32 const inUse = groupsInUse(theSwitch);
   return {{"inUse", inUse},
           {"zombies", theSwitch.path().zombies()},
           {"sharingRatio", ratio(static_cast<double>(routes.inHardware), inUse)},
           {"resurrections", counters.resurrections},
           {"purges", counters.purges}};
}

// A figure that the platform does not know is null.
template <class Figure>
ordered_json jsonOf(std::optional<Figure> const& figure) {
   if (figure) return *figure;
   return nullptr;
}

ordered_json groupWritesJson(VelMroute::View const& view) {
   return {{"create", jsonOf(view.writes(WriteKind::groupCreate))},
           {"update", jsonOf(view.writes(WriteKind::groupUpdate))},
           {"delete", jsonOf(view.writes(WriteKind::groupDelete))}};
}

ordered_json routeWritesJson(VelMroute::View const& view) {
   return {{"create", jsonOf(view.writes(WriteKind::routeCreate))},
           {"point", jsonOf(view.writes(WriteKind::routePoint))},
           {"delete", jsonOf(view.writes(WriteKind::routeDelete))}};
}

ordered_json peakJson(VelMroute::View const& view) {
   auto const groups = view.use(Table::group), routes = view.use(Table::entry);
   return {{"groups", jsonOf(groups.peak)},
           {"groupCapacity", jsonOf(groups.size)},
           {"routes", jsonOf(routes.peak)},
           {"routeCapacity", jsonOf(routes.size)}};
}

ordered_json checkJson(ForwardingCheck const& check) {
   if (!check.leftOut.empty()) return {{"leftOut", check.leftOut}};
   ordered_json notPlaced = ordered_json::array();
   for (auto const& route : check.notPlaced)
      notPlaced.push_back({{"route", route.id.toString()}, {"reason", route.reason}});
   return {{"passed", check.passed()},
           {"routes", check.routes},
           {"differences", check.differences},
           {"notInHardware", notPlaced}};
}

}  // namespace

ordered_json summaryJson(RunFigures const& figures, Switch const& theSwitch,
                         ForwardingCheck const* check) {
   VelMroute::View const& view = theSwitch.view();
   RouteCounts const routes(theSwitch.programmer());
   Switch::Figures const all = theSwitch.figures();
   ordered_json summary = {{"events", eventsJson(figures)},
                           {"time", timeJson(figures)},
                           {"routes", routesJson(routes, all.programmer)},
                           {"groups", groupsJson(theSwitch, routes, all.programmer)},
                           {"groupWrites", groupWritesJson(view)},
                           {"routeWrites", routeWritesJson(view)},
                           {"restarts",
                            {{"restarts", all.restarts},
                             {"adopted", all.programmer.adopted},
                             {"swept", all.programmer.swept}}},
                           {"failedWrites", all.programmer.failedWrites},
                           {"peak", peakJson(view)}};
   summary["shortfalls"] = shortfalls(figures.badLines, theSwitch);
   summary["interrupted"] = !figures.interruptedBy.empty();
   if (!figures.interruptedBy.empty()) {
      summary["signal"] = figures.interruptedBy;
      summary["interruptedAt"] = Qor::now();
   }
   if (check) summary["check"] = checkJson(*check);
   return summary;
}

}  // namespace Agent
