// Explanations of routes: the cause of a mistake comes first, and the fate is that of the packets.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "KeptChip.h"
#include "agent/explain/ExplainJson.h"
#include "agent/scenario/ScenarioParser.h"
#include "agent/scenario/ScenarioPlayer.h"
#include "agent/scenario/SwitchTestbed.h"

namespace Agent {
namespace {

// Two routes share a group of rtr3 and rtr4; the others differ.
constexpr std::string_view lines[] = {
      R"({"at": 0, "route": {"src": "10.0.0.2", "dst": "239.1.1.1", "groups": 2, "iif": "rtr0", "oifs": ["rtr3", "rtr4"]}})",
      R"({"at": 0, "route": {"src": "*", "dst": "239.1.1.9", "iif": "rtr0", "oifs": ["rtr4", "cpu"], "fastdrop": ["rtr2"]}})",
      R"({"at": 0, "route": {"src": "10.0.0.3", "dst": "239.2.1.1", "iif": "rtr1", "oifs": ["rtr3", "rtr4"], "backup": ["rtr5"]}})",
      R"({"at": 0, "route": {"vrf": "red", "src": "2001:db8::2", "dst": "ff3e::1", "iif": "rtr6", "oifs": ["rtr7"]}})",
      R"({"at": 0, "route": {"src": "*", "dst": "239.8.0.0/16", "iif": "rtr0", "oifs": []}})",
      R"({"at": 0.5, "traffic": {"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "rtr0", "count": 3, "every": 0}})",
};

class Explained {
 public:
   explicit Explained(PathKind path) : chip_(path, config(path)), switch_(choice()) {
      for (std::string_view const line : lines)
         play(line);
      settle();
   }
   ~Explained() { Qor::activityManagerIs(nullptr); }

   void play(std::string_view text) {
      ScenarioParser parser;
      Scenario::Line line;
      ASSERT_EQ(parser.parse(text, line), ScenarioParser::Result::event) << text;
      std::vector<Scenario::Line> const one{line};
      ScenarioPlayer(testbed_, one).play();
   }
   void settle() { switch_.runUntil(Qor::now() + 1); }
   void link(char const* intf, bool up) {
      using Interface::IntfOperStatus;
      switch_.linkIs(Lnet::IntfId(intf), up ? IntfOperStatus::up : IntfOperStatus::down);
      settle();
   }
   RouteAnswer answer(std::string_view question) const {
      return Explainer(switch_).answer(routeQuestion(question));
   }
   std::string text(std::string_view question) const {
      std::ostringstream os;
      printExplanation(os, explainJson(answer(question)));
      return os.str();
   }
   VelMroute::View::Entry entry(std::string_view question) const {
      return *switch_.view().entry(answer(question).routes.front().trace.handle);
   }
   Sim::Chip& chip() { return *chip_; }

 private:
   // The groups of the routes above take all room.
   static Sim::ChipConfig config(PathKind path) {
      Sim::ChipConfig config;
      config.groups = path == PathKind::async ? 6 : 4;
      return config;
   }
   PlatformChoice choice() const {
      PlatformChoice choice = chip_.choice();
      choice.explains = true;
      return choice;
   }

   KeptChip const chip_;
   Switch switch_;
   SwitchTestbed testbed_{switch_, nullptr, true};
};

class Explain : public testing::TestWithParam<PathKind> {};
INSTANTIATE_TEST_SUITE_P(, Explain, testing::Values(PathKind::async, PathKind::sync),
                         [](auto const& path) { return std::string(nameOf(path.param)); });

TEST_P(Explain, TheCauseComesFirst) {
   struct Case {
      char const* mistake;
      std::function<void(Explained&)> make;
      char const* question;
      std::vector<char const*> patterns;
   };
   auto const nothing = [](Explained&) {};
   auto const line = [](char const* text) {
      return [text](Explained& world) {
         world.play(text);
         world.settle();
      };
   };
   bool const sync = GetParam() == PathKind::sync;
   std::vector<Case> const cases = {
         {"none",
          nothing,
          "10.0.0.2,239.1.1.1",
          {R"(^\(10.0.0.2, 239.1.1.1\) in VRF default: offloaded; packets from rtr0 leave by rtr3, rtr4\.\n)",
           R"(match +its own entry of \(10.0.0.2, 239.1.1.1\), handle \d+, accepts vlan 1006   \[read)",
           R"(shared with 1 other route: \(10.0.0.2, 239.1.1.2\))",
           R"(counted +3 packets, 192 bytes)", R"(chip +entry and group are as the hooks)",
           R"(history +0.000 s  wanted\n.*made [\s\S]* offloaded\n)"}},
         {"the input and an output have no link",
          [](Explained& world) {
             world.link("rtr0", false);
             world.link("rtr3", false);
          },
          "10.0.0.2,239.1.1.1",
          {R"(default: input rtr0 is down: no packet arrives\.\n +also +output rtr3 is down: nothing comes out there\n +state)",
           R"(output +rtr3 \(vlan \d+\), link DOWN: nothing)", R"(output +rtr4 .* link up: a copy)",
           R"(link rtr0 down\n.*link rtr3 down\n)"}},
         {"a route without room",
          line(R"({"at": 0, "route": {"src": "10.0.0.4", "dst": "239.3.1.1", "groups": 2, "iif": "rtr0", "oifs": [], "ownOif": "leaf"}})"),
          "10.0.0.4,239.3.1.2",
          {R"(: no room in the replication table: 1 route is before it; packets are dropped\.\n)",
           R"(state +waiting for group since)", R"(zombies +no group can be purged)",
           R"(match +no entry)"}},
         {"another input",
          nothing,
          "10.0.0.2,239.1.1.1 iif rtr3",
          {R"(: packets from rtr3 are not accepted: the input of the route is rtr0; they are dropped\.\n)"}},
         {"an input that is watched",
          nothing,
          "*,239.1.1.9 iif rtr2",
          {R"(: packets from rtr2 are dropped on purpose, by a fastdrop entry\.\n)"}},
         {"an entry that points elsewhere",
          [](Explained& world) {
             world.chip().softError(world.entry("10.0.0.2,239.1.1.1").number, Sim::dropGroup);
          },
          "10.0.0.2,239.1.1.1",
          {R"(: the entry points at group drop, not \d+\.\n)", R"(DIFFERS: the entry points)"}},
         {"a group that lacks a member",
          [](Explained& world) {
             auto const entry = world.entry("10.0.0.2,239.1.1.1");
             auto members = world.chip().group(*entry.group)->members;
             members.pop_back();
             EXPECT_EQ(world.chip().groupUpdate(*entry.group, members, false), "");
          },
          "10.0.0.2,239.1.1.2",
          {R"(: the chip's group \d+ lacks rtr4\.\n)",
           R"(output +rtr3 .*a copy\D*comes out\n +last|output +rtr3)"}},
         {"a failed input with a backup",
          [](Explained& world) { world.link("rtr1", false); },
          "10.0.0.3,239.2.1.1",
          {R"(: input rtr1 is down: no packet arrives\.\n)", R"(output +rtr5 .*a copy comes out)",
           R"(rerouted to rtr5 .*rtr1 failed: its link is down)",
           R"(link rtr1 down\n.* written again \(do)"}},
         {"IPv6 in a VRF",
          [](Explained& world) { world.link("rtr7", false); },
          "2001:db8::2,ff3e::1",
          {R"(^\(2001:db8::2, ff3e::1\) in VRF red: no output has a link: nothing comes out\.\n)"}},
         {"a withdrawn route",
          line(R"({"at": 0, "withdraw": {"src": "10.0.0.2", "dst": "239.1.1.1"}})"),
          "10.0.0.2,239.1.1.1",
          {R"(^No route \(10.0.0.2, 239.1.1.1\) is wanted in any VRF\.\n)",
           R"(nearest +did you mean \(10.0.0.2, 239.1.1.2\)\?\n)",
           R"(packets +from every interface in VRF default: no entry matches, and they are dropped)"}},
         {"an unknown source",
          nothing,
          "10.0.0.7,239.1.1.9",
          {R"(same group +\(\*, 239.1.1.9\)\n)",
           R"(packets +from rtr0 \(vlan 1006\) in VRF default: they match the entry of \(\*, 239.1.1.9\), and leave by rtr4 and go to the CPU)"}},
         {"a whole group",
          [](Explained& world) { world.link("rtr4", false); },
          "239.1.1.9",
          {R"(^\(\*, 239.1.1.9\) in VRF default: output rtr4 is down: nothing comes out there\n +tables)"}},
         {"a boundary entry",
          line(R"({"at": 0, "route": {"src": "10.0.0.2", "dst": "239.4.1.1", "iif": "rtr0", "oifs": [], "bridge": true}})"),
          sync ? "10.0.0.2,239.4.1.1" : "",
          {R"(: offloaded; packets from rtr0 stay in their vlan\.\n)"}},
   };
   for (Case const& one : cases) {
      if (*one.question == 0) continue;
      SCOPED_TRACE(one.mistake);
      Explained world(GetParam());
      one.make(world);
      std::string const text = world.text(one.question);
      for (char const* const pattern : one.patterns)
         EXPECT_TRUE(std::regex_search(text, std::regex(pattern))) << pattern << '\n' << text;
   }
}

// A write is found by its call while the ring has it, and the ring counts the lost events.
TEST(SwitchHistory, KeepsTheLatestEventsAndCompletesTheirWrites) {
   auto const history = Qor::make<SwitchHistory>(4);
   auto const write = [&](Qor::U64 call) {
      history->wrote({{"hook", call}, VelMroute::HookWrite::Action::makeSet, 7});
      history->pending(call);
   };
   write(1);
   history->link(Lnet::IntfId("rtr0"), false);
   write(5);
   history->restart();
   write(9);
   history->completed(5, false);
   history->completed(1, true);  // no longer known
   std::string seen;
   history->forEach([&](HistoryEvent const& event) {
      seen += std::to_string(static_cast<int>(event.kind)) +
              std::to_string(static_cast<int>(event.outcome)) + ' ';
   });
   EXPECT_EQ(seen, "50 72 60 71 ");
   EXPECT_EQ(history->lost(), 1u);
}

}  // namespace
}  // namespace Agent
