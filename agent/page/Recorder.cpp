#include "agent/page/Recorder.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace Agent {

using nlohmann::ordered_json;
using Phase = TimelineEvent::Phase;

namespace {

// The values of two arrays rather than an object for each point, because a report has thousands.
ordered_json pointsJson(Series const& series) {
   ordered_json times = ordered_json::array(), values = ordered_json::array();
   for (Series::Point const& point : series.points()) {
      times.push_back(point.time);
      values.push_back(point.value);
   }
   return {{"times", std::move(times)}, {"values", std::move(values)}};
}

}  // namespace

Recorder::Recorder(Switch const& theSwitch, bool readsAtOnce)
      : switch_(theSwitch), readsAtOnce_(readsAtOnce) {
   sample();
}

void Recorder::event(TimelineEvent const& event) {
   switch (event.phase) {
      case Phase::begin:
         if (event.category == "zombie") ++zombies_;
         if (event.category == "reroute") rerouteBegins(event);
         break;
      case Phase::end:
         if (event.category == "zombie") ++zombieEnds_[event.args.at("outcome")];
         if (event.category == "reroute") rerouteEnds(event);
         break;
      case Phase::instant:
         if (event.track == TimelineEvent::Track::events) instant(event);
         break;
      case Phase::counter:
         // A sample of the time at which the collections changed, between two turns of the loop.
         series_[zombies].add(event.time, event.args.value("zombies", 0.0));
         series_[rerouting].add(event.time, event.args.value("rerouting", 0.0));
         break;
      case Phase::processName:
      case Phase::threadName:
         break;
   }
}

void Recorder::instant(TimelineEvent const& event) {
   Event happened{event.time, std::string(event.name)};
   // A link that comes up causes no reroute.
   if (event.args.is_null() || event.args.value("fails", true)) {
      cause_ = happened;
      causeUsed_ = false;
   }
   events_.push_back(std::move(happened));
   if (events_.size() <= maxEvents) return;
   events_.pop_front();
   ++droppedEvents_;
}

// ---- Reroutes. ----

void Recorder::rerouteBegins(TimelineEvent const& event) {
   if (!causeUsed_ || reroutes_.empty()) {
      reroutes_.push_back({cause_.time, cause_.text});
      causeUsed_ = true;
      if (reroutes_.size() > maxReroutes) {
         reroutes_.pop_front();
         ++droppedReroutes_;
      }
   }
   std::uint64_t const number = droppedReroutes_ + reroutes_.size() - 1;
   ++reroutes_.back().sets;
   ++reroutes_.back().open;
   Rewrite rewrite{number, switch_.view().groupOf(event.args.value("multicastId", 0u)), {}};
   rewrite.before = groupOf(rewrite);
   waiting_[event.id] = std::move(rewrite);
}

void Recorder::rerouteEnds(TimelineEvent const& event) {
   auto node = waiting_.extract(event.id);
   if (node.empty()) return;
   Rewrite& rewrite = node.mapped();
   rewrite.passed = event.time;
   bool const done = event.args.value("outcome", "") == "done";
   if (done && readsAtOnce_ && rewrite.before) {
      rewrites_.push_back(std::move(rewrite));
   } else {
      rewritten(rewrite.reroute, event.time);
   }
}

void Recorder::rewritten(std::uint64_t number, double time) {
   if (number < droppedReroutes_) return;
   Reroute& reroute = reroutes_[number - droppedReroutes_];
   --reroute.open;
   reroute.end = std::max(reroute.end, time);
}

std::optional<VelMroute::View::Group> Recorder::groupOf(Rewrite const& rewrite) const {
   return rewrite.group ? switch_.view().group(*rewrite.group) : std::nullopt;
}

// ---- Samples. ----

void Recorder::turnEnds() {
   // Writes reach the chip in their order, so the first one that is not there ends the search. A
   // group that was deleted instead, or that has no other members, has no time of its own.
   bool const idle = !rewrites_.empty() && !switch_.platform().writesPending();
   while (!rewrites_.empty()) {
      Rewrite const& first = rewrites_.front();
      auto const group = groupOf(first);
      bool const changed = group && group->members != first.before->members;
      if (group && !changed && !idle) break;
      rewritten(first.reroute, changed ? Qor::now() : first.passed);
      rewrites_.pop_front();
   }
   sample();
}

void Recorder::finish() {
   turnEnds();
}

void Recorder::sample() {
   double const now = Qor::now();
   VelMroute::View const& view = switch_.view();
   Programmer const& programmer = switch_.programmer();
   auto const counters = programmer.counters();
   series_[groups].add(now, view.use(Table::group).used);
   series_[zombies].add(now, static_cast<double>(switch_.path().zombies()));
   series_[entries].add(now, view.use(Table::entry).used);
   series_[boundaries].add(now, view.use(Table::boundary).used);
   series_[routes].add(now, programmer.routes());
   series_[waiting].add(now, programmer.waiting());
   series_[rerouting].add(now, static_cast<double>(switch_.path().rerouting()));
   series_[resurrections].add(now, static_cast<double>(counters.resurrections));
   series_[purges].add(now, static_cast<double>(counters.purges));
}

// ---- The report. ----

ordered_json Recorder::seriesJson() const {
   static constexpr char const* names[] = {"groups",     "zombies",       "entries",
                                           "boundaries", "routes",        "waiting",
                                           "rerouting",  "resurrections", "purges"};
   ordered_json out = ordered_json::object();
   for (unsigned i = 0; i < sampled; ++i)
      out[names[i]] = pointsJson(series_[i]);
   for (auto const& [name, table] :
        {std::pair("groups", Table::group), std::pair("entries", Table::entry),
         std::pair("boundaries", Table::boundary)}) {
      if (auto const size = switch_.view().use(table).size) out[name]["size"] = *size;
   }
   return out;
}

void Recorder::addTo(ordered_json& report) const {
   report["series"] = seriesJson();
   ordered_json ends = ordered_json::object();
   for (auto const& [outcome, count] : zombieEnds_)
      ends[outcome] = count;
   report["zombies"] = {{"begun", zombies_}, {"ended", std::move(ends)}};
   ordered_json rows = ordered_json::array();
   for (Reroute const& reroute : reroutes_) {
      ordered_json row = {{"at", reroute.at}, {"cause", reroute.cause}, {"sets", reroute.sets}};
      if (reroute.open == 0) {
         row["seconds"] = reroute.end - reroute.at;
      } else {
         row["open"] = reroute.open;
      }
      rows.push_back(std::move(row));
   }
   report["reroutes"] = {{"rows", std::move(rows)},
                         {"dropped", droppedReroutes_},
                         {"until", readsAtOnce_ ? "hardware" : "written"}};
   ordered_json events = ordered_json::array();
   for (Event const& event : events_)
      events.push_back({{"at", event.time}, {"text", event.text}});
   report["events"] = {{"rows", std::move(events)}, {"dropped", droppedEvents_}};
   report["outages"] = outages_.json();
}

}  // namespace Agent
