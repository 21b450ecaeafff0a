// A scenario that is played in memory, for the tests of the commands that inspect a run.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "KeptChip.h"
#include "Qor/Assert.h"
#include "agent/inspect/InspectedRun.h"
#include "agent/scenario/ScenarioParser.h"
#include "agent/scenario/ScenarioPlayer.h"
#include "agent/scenario/SwitchTestbed.h"

namespace Agent {

// Two routes share a group, and a third route has a group and a fastdrop entry. The chip has no
// room for the group of two more routes. The sharing routes are withdrawn at 2 s and return at 3 s.
inline constexpr std::string_view inspectedLines[] = {
      R"({"at": 0, "route": {"src": "10.0.0.2", "dst": "239.1.1.1", "groups": 2, "iif": "rtr0", "oifs": ["rtr3", "cpu"], "backup": ["rtr5"]}})",
      R"({"at": 0, "route": {"src": "*", "dst": "239.1.1.9", "iif": "rtr0", "oifs": ["rtr4"], "fastdrop": ["rtr2"]}})",
      R"({"at": 1, "route": {"vrf": "red", "src": "10.0.0.2", "dst": "239.1.1.5", "groups": 2, "iif": "rtr1", "oifs": ["cpu"], "ownOif": "leaf"}})",
      R"({"at": 1.5, "traffic": {"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "rtr0", "count": 3, "every": 0}})",
      R"({"at": 2, "withdraw": {"vrf": "red", "src": "10.0.0.2", "dst": "239.1.1.5", "groups": 2}})",
      R"({"at": 2, "withdraw": {"src": "10.0.0.2", "dst": "239.1.1.1", "groups": 2}})",
      R"({"at": 3, "route": {"src": "10.0.0.2", "dst": "239.1.1.1", "groups": 2, "iif": "rtr0", "oifs": ["rtr3", "cpu"], "backup": ["rtr5"]}})",
      R"({"at": 4, "link": {"intf": "rtr0", "state": "down"}})",
      R"({"at": 5, "withdraw": {"src": "*", "dst": "239.1.1.9"}})",
};

class InspectedScenario final : public InspectedRun {
 public:
   explicit InspectedScenario(PathKind path)
         : chip_(path, config(path)), switch_(chip_.choice()), testbed_(switch_, nullptr, true) {
      ScenarioParser parser;
      for (std::string_view const text : inspectedLines) {
         lines_.emplace_back();
         QOR_ASSERT(parser.parse(text, lines_.back()) == ScenarioParser::Result::event);
      }
      player_.emplace(testbed_, lines_);
   }

   Sim::Chip& chip() { return *chip_; }
   Switch& theSwitch() override { return switch_; }
   bool runUntil(Qor::Seconds time) override { return player_->playUntil(time), true; }
   bool runToEnd() override { return player_->play(), true; }
   Qor::Seconds nextInput() override { return player_->nextDue(); }
   bool inMemory() const override { return true; }

 private:
   // On the asynchronous path a fastdrop entry takes a group, too.
   static Sim::ChipConfig config(PathKind path) {
      Sim::ChipConfig config;
      config.groups = path == PathKind::async ? 3 : 2;
      return config;
   }

   KeptChip const chip_;
   Switch switch_;
   SwitchTestbed testbed_;
   std::vector<Scenario::Line> lines_;
   std::optional<ScenarioPlayer> player_;
};

}  // namespace Agent
