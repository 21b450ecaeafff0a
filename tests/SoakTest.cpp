// Short soaks of both paths, the reproducers of earlier findings, and a fault that a soak must
// find.
#include <gtest/gtest.h>

#include <cstdlib>

#include "KeptChip.h"
#include "agent/scenario/ScenarioParser.h"
#include "agent/scenario/ScenarioWriter.h"
#include "agent/scenario/SwitchTestbed.h"
#include "agent/soak/SoakRun.h"

namespace Agent {
namespace {

class Soak : public testing::TestWithParam<PathKind> {
   void TearDown() override { Qor::activityManagerIs(nullptr); }
};
INSTANTIATE_TEST_SUITE_P(Paths, Soak, testing::Values(PathKind::async, PathKind::sync));

TEST_P(Soak, FindsNoFaultInShortEpisodes) {
   SoakFigures done;
   for (std::uint64_t seed = 1; seed <= 8; ++seed) {
      SoakOutcome const outcome = playSoak(soakEpisode(seed, GetParam(), 1000));
      ASSERT_EQ(outcome.found, std::vector<std::string>()) << "seed " << seed;
      done += outcome.figures;
   }
   EXPECT_GT(done.routeChecks, 10'000u);
   for (std::uint64_t const count : {done.fullChecks, done.reroutes, done.faults, done.refusals,
                                     done.resurrections, done.purges, done.unchanged})
      EXPECT_GT(count, 20u);
   EXPECT_GT(done.restarts, 5u);
}

// The number behind a scenario limits its plays, which are spread over the calls of its hooks.
TEST_P(Soak, FindsNoFaultWhenEachHookCallFailsOnce) {
   auto const path = GetParam() == PathKind::async ? "async" : "sync";
   std::pair<char const*, int> const scenarios[] = {{"table-full", 150},
                                                    {"make-before-break", 150},
                                                    {"resurrection", 150},
                                                    {"fastdrop", 150},
                                                    {"restart-rerouted", 25}};
   for (auto const& [name, times] : scenarios) {
      std::string const command = std::string("'") + VELMROUTE_PROGRAM + "' soak --sweep --ops " +
                                  std::to_string(times) + " --path " + path + " '" +
                                  VELMROUTE_EXAMPLES + "/scenarios/" + name + ".jsonl' >/dev/null";
      EXPECT_EQ(std::system(command.c_str()), 0) << command;
   }
}

TEST_P(Soak, WritesTheLinesOfEpisodesSoThatTheyParseUnchanged) {
   for (std::uint64_t seed = 1; seed <= 5; ++seed) {
      SoakEpisode const episode = soakEpisode(seed, GetParam(), 500);
      ScenarioParser parser;
      Scenario::Line read;
      for (Scenario::Line const& line : episode.lines) {
         std::string const text = scenarioLine(line);
         ASSERT_EQ(parser.parse(text, read), ScenarioParser::Result::event) << parser.reason();
         EXPECT_EQ(scenarioLine(read), text);
         EXPECT_EQ(read.at, line.at);
      }
   }
}

// The shortest reproducers of the faults that soaks have found.
TEST_P(Soak, FindsNoFaultInTheReproducersOfEarlierFindings) {
   struct Life {
      std::vector<std::string> lines;
      Qor::U32 groups = 8192;
      std::optional<PathKind> only = std::nullopt;
   };
   Life const lives[] = {
         // Two interfaces exchange their roles as input and fastdrop interface, at rest and during
         // a change.
         {{R"({"at": 0, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["x"], "fastdrop": ["b"]}})",
           R"({"at": 1, "route": {"src": "*", "dst": "239.1.1.1", "iif": "b", "oifs": ["x"], "fastdrop": ["a"]}})",
           R"({"at": 1.0005, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["y"], "fastdrop": ["b"]}})",
           R"({"at": 1.001, "route": {"src": "*", "dst": "239.1.1.1", "iif": "b", "oifs": ["y"]}})"}},
         // The input fails while the set's record is a zombie, and again after its resurrection.
         {{R"({"at": 0, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["x"], "backup": ["z"]}})",
           R"({"at": 1, "withdraw": {"src": "*", "dst": "239.1.1.1"}})",
           R"({"at": 2, "link": {"intf": "a", "state": "down"}})",
           R"({"at": 2.1, "link": {"intf": "a", "state": "up"}})",
           R"({"at": 2.5, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["x"], "backup": ["z"]}})",
           R"({"at": 3, "link": {"intf": "a", "state": "down"}})"}},
         // Before the restart, the group of the first route was rewritten with its backup. During
         // the replay the first route therefore adopts the group of the second, and its input fails
         // again before the second route is replayed.
         {{R"({"at": 0, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["x"], "backup": ["z"]}})",
           R"({"at": 0, "route": {"src": "*", "dst": "239.1.1.2", "iif": "b", "oifs": ["x"]}})",
           R"({"at": 1, "link": {"intf": "a", "state": "down"}})",
           R"({"at": 2, "restart": {"over": 1}})",
           R"({"at": 2.2, "link": {"intf": "a", "state": "up"}})",
           R"({"at": 2.5, "link": {"intf": "a", "state": "down"}})"}},
         // A slow write advances the clock during the pass that places the waiting routes.
         {{R"({"at": 0, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["x"]}})",
           R"({"at": 1, "fault": {"routesExhausted": true}})",
           R"({"at": 1, "route": {"src": "*", "dst": "239.1.2.1", "groups": 600, "iif": "a", "oifs": ["x"]}})",
           R"({"at": 2, "fault": {"routesExhausted": false, "slowNext": {"nth": 3, "extra": 0.7}}})",
           R"({"at": 2.001, "route": {"src": "*", "dst": "239.1.1.1", "iif": "b", "oifs": ["x"]}})"}},
         // A route is withdrawn, its input fails, and the route is announced again, all at one
         // time.
         {{R"({"at": 0, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["x"], "backup": ["z"]}})",
           R"({"at": 1, "withdraw": {"src": "*", "dst": "239.1.1.1"}})",
           R"({"at": 1, "link": {"intf": "a", "state": "down"}})",
           R"({"at": 1, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["x"], "backup": ["z"]}})"}},
         // A rerouted route is changed to other outputs, which fails, and then returns to its old
         // outputs. It has kept its rewritten group.
         {{R"({"at": 0, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["x"], "backup": ["z"]}})",
           R"({"at": 1, "link": {"intf": "a", "state": "down"}})",
           R"({"at": 2, "fault": {"failNext": {"write": "routePoint", "reason": "parity error"}}})",
           R"({"at": 2, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["y"], "backup": ["z"]}})",
           R"({"at": 2.0005, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["x"], "backup": ["z"]}})"}},
         // A no-RPF route that was given up gets another input, which does not change the route.
         {{R"({"at": 0, "fault": {"failNext": {"write": "routeCreate", "reason": "parity error", "count": 3}}})",
           R"({"at": 1, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["x"], "noRpf": true}})",
           R"({"at": 2, "route": {"src": "*", "dst": "239.1.1.1", "iif": "b", "oifs": ["x"], "noRpf": true}})"}},
         // The platform has room again shortly after a regular retry of the waiting route. The
         // oracle must permit the wait until the next retry.
         {{R"({"at": 0, "fault": {"boundariesExhausted": true}})",
           R"({"at": 1, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["x"], "bridge": true}})",
           R"({"at": 12, "fault": {"boundariesExhausted": false}})",
           R"({"at": 16, "mark": "a pause"})"},
          8192,
          PathKind::sync},
         // On a full chip a replayed route shares the group of a route that is not replayed yet.
         // The group is rewritten with the replayed route's backup, and then the agent crashes once
         // more.
         {{R"({"at": 0, "route": {"src": "*", "dst": "239.1.1.1", "iif": "a", "oifs": ["x"], "backup": ["p"]}})",
           R"({"at": 0, "route": {"src": "*", "dst": "239.1.1.2", "groups": 2, "iif": "b", "oifs": ["y"], "backup": ["q"]}})",
           R"({"at": 1, "restart": {"begin": 2}})",
           R"({"at": 1.5, "route": {"src": "*", "dst": "239.1.1.2", "iif": "b", "oifs": ["x"], "backup": ["q"]}})",
           R"({"at": 2, "link": {"intf": "b", "state": "down"}})",
           R"({"at": 2.5, "restart": {"begin": 1}})"},
          2}};
   for (Life const& life : lives) {
      if (life.only.value_or(GetParam()) != GetParam()) continue;
      SoakEpisode episode;
      episode.path = GetParam();
      episode.settings.chip.groups = life.groups;
      ScenarioParser parser;
      for (std::string const& text : life.lines) {
         episode.lines.emplace_back();
         ASSERT_EQ(parser.parse(text, episode.lines.back()), ScenarioParser::Result::event)
               << parser.reason();
      }
      SoakHow how;
      how.looksPerFullCheck = 1;
      EXPECT_EQ(playSoak(episode, how).found, std::vector<std::string>()) << life.lines.front();
   }
}

// The options of a named platform follow those of the episode, and so do the times that the oracle
// expects.
TEST_P(Soak, ExpectsTheTimesOfTheNamedPlatform) {
   bool const sync = GetParam() == PathKind::sync;
   SoakHow how;
   how.platforms = namedPlatform(sync ? "sim-sync:callCost=0.001" : "sim:callCost=0.001").source;
   EXPECT_EQ(playSoak(soakEpisode(1, GetParam(), 1000), how).found, std::vector<std::string>());
}

// A memory error makes a route entry point at another group. The calls asked for the right one, so
// the platform is named beside the route that forwards wrongly.
TEST_P(Soak, ReportsARouteThatForwardsToTheWrongOutputsAndNamesThePlatform) {
   KeptChip const chip(GetParam());
   PlatformChoice choice = chip.choice();
   choice.checksHooks = true;
   Switch theSwitch(choice);
   SwitchTestbed testbed(theSwitch, nullptr, true);
   SoakOracle oracle(theSwitch, {});
   for (unsigned i = 0; i < 2; ++i) {
      Testbed::Route route;
      route.vrf = L3::VrfName("default");
      route.key = Scenario::RouteKey::fromAddresses(Lnet::IpGenAddr::v4(0x0A000001),
                                                    Lnet::IpGenAddr::v4(0xEF010100 + i));
      route.iif = Lnet::IntfId("rtr0");
      route.oifs = {Lnet::IntfId("rtr" + std::to_string(i + 1))};
      testbed.routeIs(route);
      oracle.routeIs(route);
   }
   testbed.settle();
   oracle.look();
   oracle.lookAtAll();
   ASSERT_EQ(oracle.found(), std::vector<std::string>());
   chip->softError(0, chip->routes().find(1)->group);
   oracle.lookAtAll();
   std::string const text =
         "vrf default (10.0.0.1, 239.1.1.0): expected rtr1, its entry points at rtr2";
   auto const& found = oracle.found();
   EXPECT_NE(std::find(found.begin(), found.end(), text), found.end());
   std::string const named = found.front().substr(0, found.front().find(':'));
   EXPECT_EQ(named, "the platform");
   EXPECT_NE(found.front().find("the last call that touched it: "), std::string::npos);
}

TEST_P(Soak, ReducesAnEpisodeToTheLinesThatCauseItsFinding) {
   SoakEpisode const episode = soakEpisode(3, GetParam(), 400);
   auto const matters = [&](Scenario::Line const& line) {
      return line.where.line == episode.lines[70].where.line ||
             line.where.line == episode.lines[311].where.line;
   };
   SoakEpisode const shortest = reducedSoak(episode, [&](SoakEpisode const& candidate) {
      SoakOutcome outcome;
      outcome.lines = candidate.lines.size();
      if (std::count_if(candidate.lines.begin(), candidate.lines.end(), matters) == 2) {
         outcome.found = {"both"};
      }
      return outcome;
   });
   ASSERT_EQ(shortest.lines.size(), 2u);
   EXPECT_TRUE(std::all_of(shortest.lines.begin(), shortest.lines.end(), matters));
}

}  // namespace
}  // namespace Agent
