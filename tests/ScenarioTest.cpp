// Scenarios: the parser, and the player on a testbed that records its calls.
#include <gtest/gtest.h>

#include "CaptureTestSupport.h"
#include "Qor/Clock.h"
#include "agent/scenario/ScenarioParser.h"
#include "agent/scenario/ScenarioPlayer.h"

namespace Agent {
namespace {

using Scenario::Count;
using Scenario::Line;

// clang-format off
constexpr std::string_view goodLines[] = {
   R"({"path": "sync", "scenario": {"title": "all", "chip": {"groups": 8, "routes": 16777216, "latency": 0}, "minPollingInterval": 5, "callCost": 0.001}})",
   R"(  # a comment)",
   R"({"at": 0, "route": {"vrf": "blue", "src": "10.0.0.2", "dst": "239.1.1.1", "groups": 1000, "iif": "rtr0", "oifs": ["rtr3", "cpu", "pimreg"], "ownOif": "leaf", "backup": ["rtr5"], "fastdrop": ["rtr2", "rtr4"]}})",
   R"({"route": {"src": "*", "dst": "ff3e::1", "groups": 1000000, "iif": "rtr0", "oifs": []}})",
   R"({"after": 0.5, "withdraw": {"src": "10.0.0.2", "dst": "239.1.1.1", "groups": 3}})",
   R"({"at": 0.5, "link": {"intf": "rtr0", "state": "lowerLayerDown"}})",
   R"({"bfd": {"intf": "rtr0", "ip": "10.0.0.9", "type": "micro", "vrf": "blue", "state": "removed"}})",
   R"({"at": 3, "traffic": {"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "rtr0", "count": 10, "every": 0, "bytes": 9216}})",
   R"({"config": {"activityPollingInterval": 5, "counterMode": "packets", "allCounter": true}})",
   R"({"counter": {"src": "10.0.0.2", "dst": "239.1.1.1", "counted": false}})",
   R"({"fault": {"groupsExhausted": true, "routesExhausted": false, "failNext": {"write": "routePoint", "reason": "parity", "count": 2}, "slowNext": {"nth": 2, "extra": 0.5}, "rate": {"write": "groupCreate", "probability": 0.25}, "seed": 18446744073709551615}})",
   R"({"mark": "here", "path": "async"})",
   R"({"show": ["routes", "chip"]})",
   R"({"expect": {"within": 1, "check": true, "now": {"max": 5}, "wanted": 1, "inHardware": {"min": 1, "max": 2}, "waiting": 0, "failed": 0, "groups": 1, "zombies": 0, "entries": 1, "rerouting": 0}})",
   R"({"expect": {"forward": [{"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "rtr0", "to": []}, {"src": "10.0.0.2", "dst": "239.1.1.1", "groups": 2, "iif": "rtr0", "to": ["cpu"]}]}})",
   R"({"expect": {"route": {"src": "*", "dst": "239.1.1.1", "state": "absent", "reason": "", "lastPollTime": 3, "fastdropLastPollTime": {"rtr2": 0}, "packets": 0, "bytes": {"min": 64}}}})",
   R"({"expect": {"sinceMark": {"writes": 0, "resurrections": {"min": 1}}, "delivered": {"rtr3": 4, "cpu": 0}, "trace": {"text": "x", "level": 2, "seen": false}, "log": {"name": "N", "seen": {"min": 2, "max": 3}}}})",
};

struct BadLine {
   std::string_view line;
   std::string_view reason;
};

#define ROUTE(more) R"({"route": {"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "rtr0", "oifs": ["rtr3"])" more "}}"

constexpr BadLine badLines[] = {
   // The line.
   {"[]", "a list where an object is expected"},
   {"{}", "no event"},
   {R"({"mark": "a", "show": ["routes"]})", R"("mark" and "show" in one line)"},
   {R"({"wait": 3})", R"(unknown key "wait" (known: at, after, path, scenario, route, withdraw, link, bfd, traffic, config, counter, fault, restart, mark, show, expect))"},
   {R"({"mark": "a"} {"mark": "b"})", "not valid JSON: column 15: syntax error while parsing value - unexpected '{'; expected end of input"},
   {R"({"at": 6.5, "mark": "a"})", "at: 6.5 is before the time of the line before, 7"},
   {R"({"after": 999999, "mark": "a"})", "after: the time is later than 1000000 s"},
   {R"({"scenario": {"title": "late"}})", "scenario: not the first event of the file"},
   // Routes.
   {R"({"route": {"src": "10.0.0.2"}})", "route.dst: missing"},
   {R"({"route": {"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "a", "oif": []}})", R"(route: unknown key "oif"; did you mean iif or oifs?)"},
   {R"({"route": {"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "a", "oifs": ["abcdefghijklmnop"]}})", R"(route.oifs[0]: interface name "abcdefghijklmnop" is longer than 15 bytes)"},
   {ROUTE(R"(, "groups": 2.0)"), "route.groups: the number 2.0 where a whole number is expected"},
   {R"({"route": {"src": "*", "dst": "239.255.255.0", "groups": 257, "iif": "a", "oifs": []}})", R"(route.groups: 257 groups from "239.255.255.0" on are not all multicast)"},
   {ROUTE(R"(, "groups": 1000, "ownOif": "abcdefghijkl")"), R"(route.ownOif: interface name "abcdefghijkl1000" is longer than 15 bytes)"},
   // Other events.
   {R"({"link": {"intf": "rtr0", "state": "dwn"}})", R"(link.state: unknown link state "dwn"; did you mean down?)"},
   {R"({"traffic": {"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "rtr0", "count": 2}})", "traffic.every: missing"},
   {R"({"config": {"allCounter": 1}})", "config.allCounter: the number 1 where true or false is expected"},
   {R"({"fault": {"seed": -1}})", "fault.seed: -1 is not from 0 to 18446744073709551615"},
   {R"({"show": ["routes", "leaves"]})", R"(show[1]: "leaves" is not a view (known: routes, oifsets, zombies, chip))"},
   // Expectations.
   {R"({"expect": {"zombies": {"min": 3, "max": 2}}})", R"(expect.zombies: "min" is above "max")"},
   {R"({"expect": {"forward": [{"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "rtr0"}]}})", "expect.forward[0].to: missing"},
   {R"({"expect": {"route": {"src": "*", "dst": "239.1.1.1"}}})", "expect.route: no expectation about the route"},
   {R"({"expect": {"check": false}})", "expect.check: must be true"},
};
// clang-format on

TEST(Scenario, EveryKindOfLineIsRead) {
   ScenarioParser parser;
   std::vector<Line> lines;
   for (std::string_view const text : goodLines) {
      Line line;
      auto const result = parser.parse(text, line);
      ASSERT_NE(result, ScenarioParser::Result::malformed) << text << '\n' << parser.reason();
      if (result == ScenarioParser::Result::event) lines.push_back(line);
   }
   ASSERT_EQ(lines.size(), std::size(goodLines) - 1);
   EXPECT_EQ(lines[0].path, PathKind::sync);
   EXPECT_EQ(lines[1].path, std::nullopt);  // the path of a line does not apply to the next line
   EXPECT_EQ(lines[10].path, PathKind::async);

   auto const& route = std::get<Scenario::Route>(lines[1].event);
   EXPECT_EQ(route.routes.toString(), "vrf blue (10.0.0.2, 239.1.1.1) and 999 more");
   EXPECT_EQ(route.routes.key(999).pretty(), "(10.0.0.2, 239.1.4.232)");
   EXPECT_TRUE(route.cpu);
   EXPECT_EQ(route.oifs.size(), 2u);  // "pimreg" is an ordinary interface here
   auto const& v6 = std::get<Scenario::Route>(lines[2].event);
   EXPECT_EQ(v6.routes.key(999999).pretty(), "(*, ff3e::f:4240)");

   std::vector<double> times;
   for (Line const& line : lines)
      times.push_back(line.at);
   EXPECT_EQ(times, (std::vector<double>{0, 0, 0, .5, .5, .5, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3}));
   EXPECT_FALSE(std::get<Scenario::BfdSession>(lines[5].event).state);
   auto const& expect = std::get<Scenario::Expect>(lines.back().event);
   EXPECT_EQ(expect.messages[0].seen.toString(), "0");
   EXPECT_EQ(expect.messages[1].seen.toString(), "2 to 3");
}

TEST(Scenario, ABadLineIsRefusedWithThePathOfTheKeyAndHasNoEffect) {
   ScenarioParser parser;
   Line line;
   ASSERT_EQ(parser.parse(R"({"at": 7, "mark": "before"})", line), ScenarioParser::Result::event);
   for (BadLine const& bad : badLines) {
      EXPECT_EQ(parser.parse(bad.line, line), ScenarioParser::Result::malformed) << bad.line;
      EXPECT_EQ(parser.reason(), bad.reason) << bad.line;
      EXPECT_EQ(std::get<Scenario::Mark>(line.event).text, "before");
   }
   // The times of the bad lines have no effect either.
   ASSERT_EQ(parser.parse(R"({"after": 1, "mark": "next"})", line), ScenarioParser::Result::event);
   EXPECT_EQ(line.at, 8);
}

TEST(Scenario, AWholeFileIsReadAndEveryBadLineIsReported) {
   TempDir const dir;
   std::string const path =
         dir.file("s.jsonl", gzip("# title\n{\"scenario\": {\"title\": \"t\"}}\n"
                                  "{\"at\": 1, \"mark\": \"a\"}\nnonsense\n"
                                  "{\"at\": 0, \"mark\": \"b\"}\r\n\n" +
                                  std::string(70000, ' ') + "\n{\"after\": 1, \"mark\": \"c\"}"));
   EXPECT_TRUE(isScenarioFile(path));
   ScenarioFile const file = ScenarioFile::read(path);
   EXPECT_EQ(file.settings.title, "t");
   ASSERT_EQ(file.lines.size(), 2u);
   EXPECT_EQ(file.lines[1].where.toString(), path + ":8");
   EXPECT_EQ(file.lines[1].at, 2);
   ASSERT_EQ(file.errors.size(), 3u);
   EXPECT_EQ(file.errors[0].toString(),
             path + ":4: not valid JSON: column 2: syntax error while parsing value - invalid "
                    "literal; last read: 'no': nonsense");
   EXPECT_EQ(file.errors[1].toString(), path + ":5: at: 0 is before the time of the line before, 1"
                                               ": {\"at\": 0, \"mark\": \"b\"}");
   EXPECT_EQ(file.errors[2].position.line, 7u);
   EXPECT_EQ(ScenarioFile::read(dir.path("none")).errors.at(0).toString(),
             dir.path("none") + ": cannot open: No such file or directory");
   EXPECT_FALSE(isScenarioFile(dir.path("none")));
   EXPECT_FALSE(isScenarioFile(dir.file("capture", "# c\n[{\"src\": 1}]\n{\n")));
}

// Records its calls with their times. Packets are forwarded to the interfaces in `to`.
class NotedTestbed final : public Testbed {
 public:
   NotedTestbed()
         : time_(Qor::make<Qor::ActivityManager>(Qor::ActivityManager::TimeBase::virtualTime)) {
      Qor::activityManagerIs(time_);
   }
   ~NotedTestbed() override { Qor::activityManagerIs(nullptr); }

   double nextDeadline() const override { return time_->nextDeadline(); }
   void runUntil(double time) override { time_->runUntil(time); }
   void settle() override { note("settle"); }
   void routeIs(Route const& r) override {
      std::string text = "route " + r.key.pretty() + " iif " + r.iif.name() + " oifs";
      for (auto const oif : r.oifs)
         text += ' ' + oif.name();
      note(text);
   }
   void routeDel(L3::VrfName const&, Scenario::RouteKey const& key) override {
      throw TestbedRefusal("no " + key.pretty());
   }
   void linkIs(Lnet::IntfId intf, Interface::IntfOperStatus) override {
      note("link " + intf.name());
   }
   void bfdIs(Bfd::Peer const&, std::optional<Bfd::OperState>) override { note("bfd"); }
   void configIs(Scenario::Config const&) override { note("config"); }
   void counterRouteIs(L3::VrfName const&, Scenario::RouteKey const&, bool) override {}
   void faultIs(Scenario::Fault const&) override { note("fault"); }
   void restart(Scenario::Restart const&) override { note("restart"); }
   Copies send(Packet const& packet) override {
      note("packet " + packet.group.toString());
      return {to, to.empty() ? "noRoute" : "forwarded"};
   }
   RouteFacts route(L3::VrfName const&, Scenario::RouteKey const&) const override { return facts; }
   std::uint64_t value(Scenario::State state) const override {
      return state == Scenario::State::zombies ? zombies : 7;
   }
   std::uint64_t value(Count count) const override { return count == Count::purges ? purges : 0; }
   std::vector<std::string> forwardingFaults() override {
      return std::vector<std::string>(12, "bad");
   }
   std::vector<std::string> audit() const override { return {"a leak"}; }
   void show(std::vector<std::string> const&) override { note("show"); }

   std::vector<std::string> notes;
   std::map<std::string, unsigned> to{{"rtr3", 1}};
   RouteFacts facts;
   std::uint64_t zombies = 0;
   std::uint64_t purges = 3;

 private:
   void note(std::string const& text) {
      notes.push_back(Scenario::numberText(Qor::now()) + ' ' + text);
   }

   Qor::Ptr<Qor::ActivityManager> const time_;
};

// Calls a function at a time, on the clock of the switch.
class At final : public Qor::Clock::Notifiee {
 public:
   At(double time, std::function<void()> call)
         : clock_(Qor::make<Qor::Clock>()), call_(std::move(call)) {
      notifierIs(clock_.get());
      clock_->timeMinIs(time);
   }
   void onTime() override {
      clock_->timeMinIs(Qor::never);
      call_();
   }

 private:
   Qor::Ptr<Qor::Clock> const clock_;
   std::function<void()> call_;
};

std::vector<Line> linesOf(std::string const& text) {
   TempDir const dir;
   ScenarioFile const file = ScenarioFile::read(dir.file("s", text));
   for (InputError const& error : file.errors)
      ADD_FAILURE() << error.toString();
   std::vector<Line> lines = file.lines;
   for (Line& line : lines)
      line.where.file = "s";
   return lines;
}

std::vector<std::string> failuresOf(ScenarioPlayer const& player) {
   std::vector<std::string> out;
   for (auto const& failure : player.failures())
      out.push_back(failure.toString());
   return out;
}

TEST(ScenarioPlayer, PacketsAreSentAtTheirTimesBetweenTheLines) {
   NotedTestbed testbed;
   auto const lines = linesOf(
         R"({"at": 1, "traffic": {"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "rtr0", "count": 4, "every": 0.5}}
{"at": 1, "link": {"intf": "rtr1", "state": "down"}}
{"at": 1.5, "traffic": {"src": "10.0.0.2", "dst": "239.1.1.8", "groups": 2, "iif": "rtr0", "count": 2, "every": 0.5}}
{"at": 1.7, "route": {"src": "*", "dst": "239.1.1.255", "groups": 2, "iif": "rtr0", "oifs": ["rtr3"], "ownOif": "l"}}
{"at": 2, "link": {"intf": "rtr2", "state": "down"}}
)");
   ScenarioPlayer player(testbed, lines);
   At const due(2, [&] { testbed.show({}); });  // clocks of the switch fire before packets
   player.play();
   EXPECT_EQ(testbed.notes, (std::vector<std::string>{
                                  "1 packet 239.1.1.1", "1 link rtr1", "1.5 packet 239.1.1.1",
                                  "1.5 packet 239.1.1.8", "1.5 packet 239.1.1.9",
                                  "1.7 route (*, 239.1.1.255) iif rtr0 oifs rtr3 l1",
                                  "1.7 route (*, 239.1.2.0) iif rtr0 oifs rtr3 l2", "2 show",
                                  "2 packet 239.1.1.1", "2 packet 239.1.1.8", "2 packet 239.1.1.9",
                                  "2 link rtr2", "2.5 packet 239.1.1.1", "2.5 settle"}));
   EXPECT_EQ(player.packets(), 8u);
   EXPECT_EQ(failuresOf(player),
             std::vector<std::string>{"s:5: at 2.500000 s: in the end: a leak"});
}

TEST(ScenarioPlayer, AFailedExpectationIsReportedWithTheExpectedAndTheFoundValue) {
   NotedTestbed testbed;
   testbed.facts = {"waitingGroup", "no room", 1.5, {{"rtr2", 0.5}}, 3, std::nullopt, std::nullopt};
   auto const lines = linesOf(
         R"({"at": 1, "expect": {"wanted": 7, "zombies": 2, "groups": {"min": 8}}}
{"expect": {"forward": {"src": "10.0.0.2", "dst": "239.1.1.1", "groups": 3, "iif": "rtr0", "to": ["rtr4", "cpu"]}}}
{"expect": {"forward": {"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "rtr0", "to": ["rtr3"]}}}
{"expect": {"route": {"vrf": "blue", "src": "*", "dst": "239.1.1.1", "state": "inHardware", "reason": "no", "lastPollTime": 1.5000001, "fastdropLastPollTime": {"rtr2": {"min": 1}, "rtr9": 0}, "packets": 2, "bytes": 0}}}
{"expect": {"now": {"max": 0.9}, "check": true}}
{"withdraw": {"src": "*", "dst": "239.1.1.1"}}
{"traffic": {"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "rtr0", "count": 2, "every": 0}}
{"expect": {"sinceMark": {"sent": 2, "lost": 1, "duplicated": 0, "purges": 0}, "delivered": {"rtr3": 2, "rtr4": 1}}}
{"mark": "again"}
{"expect": {"sinceMark": {"sent": 0, "writes": 0}, "delivered": {"rtr3": 0}, "trace": {"text": "wake", "level": 9}}}
)");
   ScenarioPlayer player(testbed, lines);
   while (player.step()) {
      if (player.played() == 6) testbed.to = {{"rtr3", 2}};
   }
   EXPECT_EQ(player.expectations(), 7u);
   std::vector<std::string> expected = {
         "s:1: at 1.000000 s: groups: expected at least 8, found 7",
         "s:1: at 1.000000 s: zombies: expected 2, found 0",
         "s:2: at 1.000000 s: forward (10.0.0.2, 239.1.1.1) from rtr0: expected cpu rtr4, found "
         "rtr3 (forwarded); and 2 more groups",
         "s:4: at 1.000000 s: route vrf blue (*, 239.1.1.1) state: expected inHardware, found "
         "waitingGroup (no room); fastdropLastPollTime of rtr2: expected at least 1, found 0.5; "
         "fastdropLastPollTime of rtr9: expected 0, found none; packets: expected 2, found 3; "
         "bytes: expected 0, found none",
         "s:5: at 1.000000 s: now: expected at most 0.9, found 1"};
   expected.insert(expected.end(), 10, "s:5: at 1.000000 s: check: bad");
   expected.insert(expected.end(), {"s:5: at 1.000000 s: check: and 2 more",
                                    "s:6: at 1.000000 s: no (*, 239.1.1.1)",
                                    "s:8: at 1.000000 s: sinceMark lost: expected 1, found 0",
                                    "s:8: at 1.000000 s: sinceMark duplicated: expected 0, found 2",
                                    "s:8: at 1.000000 s: delivered at rtr3: expected 2, found 4",
                                    "s:8: at 1.000000 s: delivered at rtr4: expected 1, found 0",
                                    "s:10: at 1.000000 s: trace \"wake\" of level 0 to 9: "
                                    "expected at least 1, found 0"});
   EXPECT_EQ(failuresOf(player), expected);
}

TEST(ScenarioPlayer, AnExpectationWithATimeLimitWaitsUntilItHoldsOrTheLimitEnds) {
   NotedTestbed testbed;
   At const becomes(1.25, [&] { testbed.zombies = 1; });
   auto const lines = linesOf(R"({"at": 1, "expect": {"within": 0.5, "zombies": 1, "now": 1.25}}
{"at": 1.3, "link": {"intf": "rtr1", "state": "down"}}
{"at": 2, "expect": {"within": 0.5, "zombies": 2}}
{"at": 2.1, "link": {"intf": "rtr2", "state": "down"}}
)");
   ScenarioPlayer player(testbed, lines);
   while (player.step()) {
   }
   EXPECT_EQ(failuresOf(player),
             std::vector<std::string>{"s:3: at 2.500000 s: zombies: expected 2, found 1"});
   EXPECT_EQ(testbed.notes, (std::vector<std::string>{"1.3 link rtr1", "2.5 link rtr2"}));
}

}  // namespace
}  // namespace Agent
