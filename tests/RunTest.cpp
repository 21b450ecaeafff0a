// `velmroute run`: replays of the bundled captures on the simulated switch, the check of the
// forwarding, and the program as a whole.
#include <gtest/gtest.h>
#include <string.h>  // NOLINT(modernize-deprecated-headers): sigabbrev_np() is of glibc
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>

#include "CaptureTestSupport.h"
#include "JsonSchema.h"
#include "KeptChip.h"
#include "agent/report/ForwardingCheck.h"

namespace Agent {
namespace {

namespace fs = std::filesystem;
using nlohmann::ordered_json;
using Strings = std::vector<std::string>;

std::string const captures = std::string(VELMROUTE_EXAMPLES) + "/captures/";

// A link and four routes. The second group has a (*,G) and an (S,G) route, and the route of the
// third group has no outputs.
constexpr char fourRoutes[] =
      "[2026-07-30T10:00:00.000000] 7: rtr9: <UP> mtu 1500 state UP group default \\ link/ether\n"
      "[2026-07-30T10:00:01.000000] (10.0.0.2,239.1.1.1) Iif: rtr0 Oifs: rtr1 rtr2 State: resolved"
      " Table: default\n"
      "[2026-07-30T10:00:02.000000] (0.0.0.0,239.1.1.2) Iif: rtr0 Oifs: rtr3 State: resolved"
      " Table: default\n"
      "[2026-07-30T10:00:03.000000] (10.0.0.2,239.1.1.2) Iif: rtr0 Oifs: rtr3 State: resolved"
      " Table: default\n"
      "[2026-07-30T10:00:04.000000] (10.0.0.2,239.1.1.3) Iif: rtr0 Oifs: State: resolved"
      " Table: default\n";

struct CaptureReplay {
   CaptureReplay(Strings const& files, Sim::ChipConfig const& config,
                 PathKind path = PathKind::async)
         : chip(path, config), theSwitch(chip.choice()) {
      CaptureReader reader(files);
      CaptureEvent event;
      for (auto got = reader.next(event); got != CaptureReader::Result::end;
           got = reader.next(event)) {
         EXPECT_EQ(got, CaptureReader::Result::event) << reader.error().toString();
         theSwitch.apply(event);
         capture.apply(event);
      }
      theSwitch.settle();
   }
   ~CaptureReplay() { Qor::activityManagerIs(nullptr); }

   KeptChip const chip;
   Switch theSwitch;
   CaptureState capture;
};

TEST(Run, EachBundledCaptureIsForwardedAsRecordedOnChipsOfAllSizes) {
   Sim::ChipConfig const chips[] = {
         {}, {8192, 32768, 0, 0.5}, {8192, 32768, 0, 0}, {40, 32768, 0, 0.001}, {90, 300, 0, 0.02}};
   std::vector<Strings> inputs;
   for (char const* name : {"churn", "ssm-scale", "static-v6"}) {
      std::string const events = captures + name + "/events.txt.gz";
      inputs.push_back({events});
      for (auto const& file : fs::directory_iterator(captures + name)) {
         if (file.path().string().find(".json") == std::string::npos) continue;
         inputs.push_back({file.path()});
         inputs.push_back({events, file.path()});
      }
   }
   for (auto const& input : inputs) {
      for (auto const& chip : chips) {
         bool const eventsAlone = input.back().ends_with("events.txt.gz");
         if (!eventsAlone && chip.latency != 0.001) continue;
         SCOPED_TRACE(input.back() + " groups " + std::to_string(chip.groups));
         CaptureReplay replay(input, chip);
         ForwardingCheck const check = checkForwarding(replay.theSwitch, replay.capture);
         EXPECT_EQ(check.differences, Strings());
         std::set<std::vector<Lnet::IntfId>> sets;
         std::size_t routes = 0;
         for (auto const& [id, route] : replay.capture.routes()) {
            if (!route.resolved || !route.iif) continue;
            ++routes;
            sets.insert(route.oifs);
         }
         EXPECT_EQ(check.routes + check.notPlaced.size(), routes);
         bool const room = sets.size() <= chip.groups && routes <= chip.routes;
         EXPECT_EQ(check.notPlaced.empty(), room);
         auto const zombies = replay.theSwitch.path().zombies();
         EXPECT_TRUE(!room || replay.chip->groups() - zombies == sets.size());
         for (auto const& waiting : check.notPlaced)
            EXPECT_NE(waiting.reason.find("waits for a deletion"), std::string::npos);
      }
      CaptureReplay replay(input, {}, PathKind::sync);
      ForwardingCheck const check = checkForwarding(replay.theSwitch, replay.capture);
      EXPECT_EQ(check.differences, Strings()) << input.back();
      EXPECT_TRUE(check.notPlaced.empty() && replay.theSwitch.audit().empty()) << input.back();
   }
}

TEST(Run, TheCheckReportsEachDifferenceOfTheChip) {
   TempDir const dir;
   std::string const file = dir.file("two", fourRoutes);
   using Plant = Sim::Refusal (*)(Sim::Chip&);
   // The entries 0 to 3 have the order of the capture. Group 0 has rtr1 and rtr2, and group 1 rtr3.
   std::pair<Plant, char const*> const cases[] = {
         {[](Sim::Chip& c) {
             return c.groupUpdate(0, {c.group(0)->members[0], c.group(1)->members[0]}, true);
          },
          "1): expected rtr1 rtr2, chip forwards to cpu rtr1 rtr3 (forwarded)"},
         {[](Sim::Chip& c) { return c.routeDelete(2); },  // the (*,G) entry still forwards
          "2): the chip has no entry for it (forwarded)"},
         {[](Sim::Chip& c) { return c.routeDelete(3); },
          "3): the chip has no entry for it (noRoute)"},
         {[](Sim::Chip& c) {
             Sim::Entry entry = *c.routes().find(0);
             entry.acceptingVlan = Bridging::VlanIdOrNone(Qor::U64{4000});
             entry.group = Sim::noGroup;
             return c.routeCreate(9, entry);
          },
          "1) vlan 4000 belongs to no route of the capture in hardware"},
   };
   for (auto const& [plant, difference] : cases) {
      CaptureReplay replay({file}, {});
      EXPECT_EQ(plant(*replay.chip), "");
      ForwardingCheck const check = checkForwarding(replay.theSwitch, replay.capture);
      std::string const got = check.passed() ? "none" : check.differences.at(0);
      EXPECT_TRUE(got.ends_with(std::string("(10.0.0.2, 239.1.1.") + difference)) << got;
   }
   // A route that is missing in the route programmer, and then the same route before its first
   // pass.
   CaptureReplay replay({file}, {});
   MrouteEvent late;
   late.vrf = L3::VrfName("red");
   late.key = replay.capture.routes().begin()->first.key;
   late.iif = Lnet::IntfId("rtr1");
   late.resolved = true;
   replay.capture.apply(CaptureEvent(late));
   auto const found = [&] { return checkForwarding(replay.theSwitch, replay.capture).differences; };
   ASSERT_EQ(found().size(), 1u);
   EXPECT_TRUE(
         found()[0].ends_with("): the route of the capture is unknown to the route programmer"));
   replay.theSwitch.apply(CaptureEvent(late));
   EXPECT_TRUE(found().at(0).ends_with("): not settled: not looked at yet"));
}

TEST(Run, ALinkGetsAPortOnlyIfARouteUsesItAndARenamedLinkLosesItsOldName) {
   std::string lines;
   auto const link = [&](unsigned index, std::string const& name, char const* state) {
      lines += std::to_string(index) + ": " + name + ": <BROADCAST> mtu 1500 state " + state +
               " group default \\ link/ether\n";
   };
   for (unsigned i = 0; i < 5000; ++i)
      link(100 + i, "veth" + std::to_string(i), "UP");
   link(9, "rtr1", "DOWN");
   lines += fourRoutes;
   link(10, "rtr3", "DOWN");
   TempDir const dir;
   auto const forwards = [&](char const* intf) {
      CaptureReplay replay({dir.file("links", lines)}, {});
      EXPECT_EQ(checkForwarding(replay.theSwitch, replay.capture).differences, Strings());
      EXPECT_EQ(replay.theSwitch.interfaceMap().intfs().size(), 4u);
      return replay.chip->port(Lnet::IntfId(intf))->linkUp;
   };
   EXPECT_FALSE(forwards("rtr1"));
   EXPECT_FALSE(forwards("rtr3"));
   link(9, "renamed", "DOWN");  // rtr1 is now an interface without a link, which counts as up
   EXPECT_TRUE(forwards("rtr1"));
}

// All events are at one instant, at which a clock fires at most 10,000 times.
TEST(Run, ACaptureWithoutTimeStampsMayHaveAnyNumberOfRoutes) {
   constexpr unsigned routes = 12'000;
   std::string lines;
   for (unsigned n = 0; n < routes; ++n) {
      lines += "(10.0.0.2,239.1." + std::to_string(n / 256) + "." + std::to_string(n % 256) +
               ") Iif: rtr0 Oifs: rtr1 State: resolved\n";
   }
   TempDir const dir;
   CaptureReplay replay({dir.file("routes", lines)}, {});
   EXPECT_EQ(checkForwarding(replay.theSwitch, replay.capture).differences, Strings());
   EXPECT_EQ(replay.chip->routes().size(), routes);
}

// ---- The program. ----

struct Ran {
   int code;
   std::string out;
   std::string err;
};

// Runs velmroute with the shell commands `before` in front.
Ran velmroute(std::string const& args, std::string const& before = {}) {
   TempDir const dir;
   std::string const out = dir.path("out"), err = dir.path("err");
   int const status = std::system(("exec >" + out + "; " + before + "exec " VELMROUTE_PROGRAM " " +
                                   args + " </dev/null 2>" + err)
                                        .c_str());
   return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(out), contentOf(err)};
}

TEST(Program, ExitCodesAndMessagesMatchTheResult) {
   TempDir const dir;
   std::string const good = dir.file("good", fourRoutes);
   std::string const bad =
         dir.file("bad", std::string(fourRoutes) + "(10.0.0.2,240.1.1.1) nonsense\n");
   std::string const map = dir.file("map", "rtr0 port=7 vlan=100\n");
   std::string const unresolved =
         dir.file("unresolved", std::string(fourRoutes) +
                                      "[2026-07-30T10:00:05.000000] (10.0.0.2,239.1.1.4) Iif: rtr0"
                                      " Oifs: rtr1 State: unresolved Table: default\n");
   std::string const scenario = dir.file("scenario", R"({"scenario": {"title": "both"}}
{"path": "sync", "expect": {"groups": 7}}
{"path": "async", "expect": {"groups": 0}})");
   std::string const leaves =
         dir.file("leaves", R"({"route": {"src": "*", "dst": "239.1.0.0", "groups": 4094,)"
                            R"( "iif": "rtr0", "oifs": [], "ownOif": "leaf"}})");
   std::string const other = dir.file("other", R"({"path": "sync", "scenario": {"title": "one"}})");
   std::string const badMap = dir.file("badmap", "# none\nrtr0 port=7 vlan=5000\n");
   struct Case {
      std::string args;
      int code;
      std::string out;  // a part of the standard output; empty if there must be no output
      std::string err;  // a part of the standard error, likewise
   };
   Case const cases[] = {
         {"", 2, "", "subcommand is required"},
         {"run --path sync " + good, 0, " routes forward as the capture says\n", ""},
         {"run " + other, 0, "scenario       one\n", ""},
         {"run --path async " + other, 2, "",
          other + ": the scenario is for the path sync alone: use --path sync"},
         {"run " + scenario, 0, "\nexpectations   1, 0 failures\n", ""},
         {"run " + unresolved, 0, "\nroutes         4 wanted, 4 offloaded, ", ""},
         {"run " + leaves, 1, "routes         4093 wanted",
          "s: no internal vlan is left for interface leaf4094: all "},
         {"run --chip groups=-1 " + good, 2, "", "bad value in \"groups=-1\""},
         {"run " + good + ' ' + scenario, 2, "",
          "velmroute: " + scenario + ": this is a scenario, which is played alone"},
         {"explain " + good + " 10.0.0.2", 2, "", "is not a route or a group; a route is given as"},
         // The checks ask hooks, and change no time of the run.
         {"run --check-hooks " + captures + "../scenarios/many-groups-fail.jsonl", 0,
          " 0 failures\n", ""},
         {"soak " + good, 1, "", good + ": this is a capture, of `ip -ts -o monitor mroute link`"},
         {"run --chekc-hook " + good, 2, "",
          "velmroute: \"--chekc-hook\" is not an option of run; did you mean --check-hooks?"},
         {"rnu", 2, "", "\"rnu\" is not a subcommand; did you mean run?"},
         {"run --show rotues " + good, 2, "", "\"rotues\" is not a view; did you mean routes?"},
         {"run " + dir.file("empty", "# none\n"), 0, "events         0", "the file has no events"},
         {"check --only make-befor-break", 2, "", "; did you mean make-before-break?"},
         {"run " + good + " /none", 1, "", "/none: cannot open: No such file"},
         {"run --map " + badMap + ' ' + good, 1, "", badMap + ":2: \"vlan=5000\" is out of range"},
         {"run " + bad, 1, "", ": (10.0.0.2,240.1.1.1) nonsense\n"},
         {"run --keep-going " + bad + ' ' + good, 0, "\nshortfall      1 bad line was left out\n",
          "velmroute: " + bad + ":6:"},
         {"run --keep-going --strict " + bad, 1, "shortfall ",
          "velmroute: 1 bad line was left out\n"},
         {"run --strict " + good, 0, "check          passed", ""},
         {"run --strict --chip groups=0 " + good, 1, "none of 4 routes is in hardware\n",
          "velmroute: none of 4 routes is in hardware\n"},
         {"run --keep-goin " + good, 2, "", "is not an option of run; did you mean --keep-going?"},
         {"run " + good, 0, "check          passed: 4 routes forward as the capture says\n", ""},
         {"run --show chip --map " + map + ' ' + good, 0, "\nrtr0          7   100  up\n", ""},
         {"run --trace '2:Vel*' " + good + ' ' + good, 0, "passed", "Found existing"},
         {"run --show 'routes group 239.1.1.2,oifsets' " + good, 0, "\n2 of 4 routes\n\n", ""},
         {"run --show 'routes up' " + good, 2, "", "\"up\" is not a filter of routes (known: "},
         // A trace that a scenario expects is not printed for that reason alone.
         {"run " + captures + "../scenarios/counters.jsonl", 0, " 0 failures\n", ""},
         {"run --chip routes=3 " + good, 0, "not in hardware, and why:\n   vrf default", ""},
   };
   for (Case const& c : cases) {
      SCOPED_TRACE(c.args);
      Ran const ran = velmroute(c.args);
      EXPECT_EQ(ran.code, c.code);
      for (auto const& [got, expected] : {std::pair(ran.out, c.out), {ran.err, c.err}}) {
         EXPECT_TRUE(expected.empty() ? got.empty() : got.find(expected) != std::string::npos)
               << got;
      }
   }
}

TEST(Program, PrintsDocumentsThatFitTheirSchemas) {
   TempDir const dir;
   std::string const all = "run -j --show routes,oifsets,zombies,chip ";
   std::vector<std::pair<std::string, std::string>> commands = {
         {all + dir.file("good", fourRoutes), "run"},
         {all + "--chip routes=3 " + dir.path("good"), "run"},
         {"run -p --no-check --path sync " + dir.path("good"), "run"},
         {"soak -j --ops 300", "soak"},
         {"check -j --lives 1 --platform sim-sync --only calls,boundaries,blocking-transaction",
          "check"}};
   for (auto const& file : fs::directory_iterator(captures + "../scenarios"))
      commands.emplace_back(all + file.path().string(), "run");
   for (auto const& [command, schema] : commands) {
      Ran const ran = velmroute(command);
      EXPECT_EQ(testSupport::schemaFault(schema, ran.out), "") << command << ran.err;
      bool const waits = command.find("--chip") != std::string::npos;
      EXPECT_TRUE(ran.code == 0 || waits) << command << ran.err;
      bool const pretty = command.find(" -p ") != std::string::npos;
      EXPECT_EQ(std::ranges::count(ran.out, '\n') == 1, !pretty) << command;
   }
   Ran const routes = velmroute("run -j --show 'routes group 239.1.1.2' " + dir.path("good"));
   auto const listed = ordered_json::parse(routes.out)["tables"]["routes"];
   ASSERT_EQ(listed.size(), 2u);
   EXPECT_EQ(listed[0]["src"], "*");  // before the (S,G) routes of the group
   std::string const row =
         R"({"vrf":"default","table":253,"src":"10.0.0.2","dst":"239.1.1.2","iif":"rtr0",)"
         R"("vlan":1006,"multipath":[{"oif":"rtr3","vlan":1009}],"state":"offloaded",)"
         R"("handle":2,"group":1,)";
   EXPECT_EQ(listed[1].dump().substr(0, row.size()), row);
}

TEST(Program, AFailedWriteOfTheOutputIsReportedUnlessTheReaderHasEnded) {
   TempDir const dir;
   std::string const good = dir.file("good", fourRoutes), pipe = dir.path("pipe");
   ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
   for (std::string const& args : {"run " + good, "run -j " + good, std::string("--help")}) {
      Ran const full = velmroute(args, "exec >/dev/full; ");
      EXPECT_EQ(full.code, 1);
      EXPECT_EQ(full.err, "velmroute: <stdout>: cannot write: No space left on device\n");
      Ran const unread = velmroute(args, "exec 3<>" + pipe + " >" + pipe + " 3<&-; ");
      EXPECT_EQ(unread.code, 1);
      EXPECT_EQ(unread.err, "");  // as if the rest were not wanted
   }
}

// A malformed line is reported when it is read, so the report shows that all earlier lines were
// read.
TEST(Program, StandardInputIsReadAsItArrivesUntilItsEndOrAnInterrupt) {
   for (int const interrupt : {0, SIGINT, SIGTERM, SIGHUP}) {
      TempDir const dir;
      std::string const out = dir.path("out"), err = dir.path("err"), pid = dir.path("pid");
      ASSERT_EQ(mkfifo(err.c_str(), 0600), 0);
      FILE* const input =
            popen(("echo $$ >" + pid + "; exec " VELMROUTE_PROGRAM " run --keep-going -j - >" +
                   out + " 2>" + err)
                        .c_str(),
                  "w");
      std::ifstream errors(err);
      auto const writeAndAwait = [&](std::string const& text, std::string const& error) {
         fputs(text.c_str(), input);
         fflush(input);
         for (std::string line; line.find(error) && std::getline(errors, line);) {
         }
      };
      writeAndAwait(std::string(fourRoutes) + "one\n", "velmroute: <stdin>:6:");
      writeAndAwait(
            "[2026-07-30T10:00:09.000000] (10.0.0.2,239.1.1.9) Iif: rtr0 Oifs: rtr1 State: "
            "resolved Table: default\ntwo\n(10.0.0.2,239.1",
            "velmroute: <stdin>:8:");
      if (interrupt) {
         kill(std::stoi(contentOf(pid)), interrupt);
         errors.ignore(std::numeric_limits<std::streamsize>::max());  // until the program ends
      }
      int const status = pclose(input);
      EXPECT_EQ(WEXITSTATUS(status), interrupt ? 3 : 0);
      auto const summary = ordered_json::parse(contentOf(out));
      EXPECT_EQ(summary["interrupted"], interrupt != 0);
      EXPECT_EQ(summary.value("signal", ""), interrupt ? sigabbrev_np(interrupt) : "");
      EXPECT_EQ(summary["routes"]["offloaded"], 5);
      EXPECT_EQ(summary["events"]["total"], 6);
      // An interrupt drops the incomplete last line. At the end of the input that line is
      // malformed.
      EXPECT_EQ(summary["events"]["badLines"], interrupt ? 2 : 3);
      EXPECT_EQ(summary["check"]["passed"], true);
   }
}

}  // namespace
}  // namespace Agent
