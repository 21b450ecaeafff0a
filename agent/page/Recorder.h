// A bounded record of a run, for its report: the use of the tables over time, the ends of zombies,
// reroutes with their durations, events, and outages of receivers.
//
// The recorder is a sink of the timeline, and reads the switch when a turn of the loop ends. It
// observes alone. Its memory does not grow with the length of the run.
//
// A reroute begins with the event before it, such as the failure of a link, and ends when the last
// of its groups has other members on the chip. If the platform cannot read its tables at any time,
// the reroute ends when the last group is passed to the platform.
#pragma once

#include <cstdint>
#include <deque>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "agent/page/Outages.h"
#include "agent/page/Series.h"
#include "agent/switch/Switch.h"
#include "agent/timeline/TimelineSink.h"

namespace Agent {

class Recorder final : public TimelineSink {
 public:
   static constexpr std::size_t maxEvents = 500;    // the latest ones are kept
   static constexpr std::size_t maxReroutes = 500;  // the latest ones are kept

   // The switch outlives the recorder. `readsAtOnce`: its view is up to date at any time.
   Recorder(Switch const& theSwitch, bool readsAtOnce);

   bool detailed() const override { return false; }
   void event(TimelineEvent const& event) override;
   void turnEnds() override;
   void finish() override;

   // A packet of a scenario's traffic, as Outages::packet().
   Outages& outages() { return outages_; }

   // The members "series", "zombies", "reroutes", "events" and "outages" of a report.
   void addTo(nlohmann::ordered_json& report) const;

 private:
   enum Sampled : unsigned {
      groups,
      zombies,
      entries,
      boundaries,
      routes,
      waiting,
      rerouting,
      resurrections,
      purges,
      sampled
   };
   struct Event {
      double time;
      std::string text;
   };
   struct Reroute {
      double at;  // the time of the cause
      std::string cause;
      std::uint64_t sets = 0;
      std::uint64_t open = 0;  // sets and groups that are not rewritten so far
      double end = 0;
   };
   // The rewrite of a group, from the beginning of the wait until the chip has it.
   struct Rewrite {
      std::uint64_t reroute;  // its number
      std::optional<Qor::U32> group;
      std::optional<VelMroute::View::Group> before;
      double passed = 0;  // the time at which the platform got it
   };

   void instant(TimelineEvent const& event);
   void rerouteBegins(TimelineEvent const& event);
   void rerouteEnds(TimelineEvent const& event);
   void rewritten(std::uint64_t reroute, double time);
   std::optional<VelMroute::View::Group> groupOf(Rewrite const& rewrite) const;
   void sample();
   nlohmann::ordered_json seriesJson() const;

   Switch const& switch_;
   bool const readsAtOnce_;
   Series series_[sampled];
   std::map<std::string, std::uint64_t> zombieEnds_;  // by outcome, of which there are six
   std::uint64_t zombies_ = 0;
   Event cause_{0, "start"};
   bool causeUsed_ = false;
   std::deque<Event> events_;
   std::uint64_t droppedEvents_ = 0;
   std::deque<Reroute> reroutes_;
   std::uint64_t droppedReroutes_ = 0;         // also the number of reroutes_.front()
   std::map<std::uint64_t, Rewrite> waiting_;  // by span; not passed to the platform so far
   std::deque<Rewrite> rewrites_;              // under way in the platform
   Outages outages_;
};

}  // namespace Agent
