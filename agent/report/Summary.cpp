#include "agent/report/Summary.h"

#include <array>
#include <nlohmann/json.hpp>

#include "agent/report/RouteRow.h"
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
   return {{"processorSeconds", figures.processorSeconds},
           {"perEventSeconds", ratio(figures.processorSeconds, changes)}};
}

// Routes by their state.
struct RouteCounts {
   explicit RouteCounts(Programmer const& programmer) : wanted(programmer.routes()) {
      programmer.forEach([this](RouteView const& route) { ++of(reportedState(route.state())); });
   }

   std::uint64_t& of(ReportedState state) { return counts[static_cast<std::size_t>(state)]; }
   std::uint64_t of(ReportedState state) const { return counts[static_cast<std::size_t>(state)]; }

   std::uint64_t wanted;
   std::array<std::uint64_t, allReportedStates.size()> counts{};
};

ordered_json routesJson(RouteCounts const& routes, Programmer::Counters const& counters) {
   ordered_json json = {{"wanted", routes.wanted}};
   for (ReportedState const state : allReportedStates) {
      if (state != ReportedState::trapped) json[std::string(nameOf(state))] = routes.of(state);
   }
   json["unchangedUpdates"] = counters.unchanged;
   return json;
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
           {"sharingRatio", ratio(static_cast<double>(routes.of(ReportedState::offloaded)), inUse)},
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
   auto const groups = view.use(Table::group), entries = view.use(Table::entry);
   return {{"groups", jsonOf(groups.peak)},
           {"groupCapacity", jsonOf(groups.size)},
           {"entries", jsonOf(entries.peak)},
           {"entryCapacity", jsonOf(entries.size)}};
}

ordered_json checkJson(ForwardingCheck const& check) {
   if (!check.leftOut.empty()) return {{"leftOut", check.leftOut}};
   ordered_json notOffloaded = ordered_json::array();
   for (auto const& route : check.notPlaced) {
      notOffloaded.push_back({{"vrf", route.id.vrf.name()},
                              {"src", prefixText(route.id.key.source())},
                              {"dst", route.id.key.group().toString()},
                              {"reason", route.reason}});
   }
   return {{"passed", check.passed()},
           {"routeCount", check.routes},
           {"differences", check.differences},
           {"notOffloaded", std::move(notOffloaded)}};
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
                            {{"count", all.restarts},
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
