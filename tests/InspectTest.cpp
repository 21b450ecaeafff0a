// The inspector's commands on a scenario that is played in memory.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "InspectedScenario.h"
#include "JsonSchema.h"
#include "agent/input/RouteFields.h"
#include "agent/inspect/Inspector.h"

namespace Agent {
namespace {

Routing::Multicast::Fib::IpGenRouteKey keyOf(std::string_view group) {
   Routing::Multicast::Fib::IpGenRouteKey key;
   EXPECT_EQ(routeKeyOf("10.0.0.2", group, key), "");
   return key;
}

class Inspect : public testing::TestWithParam<PathKind> {
 protected:
   // The printed text of the command, or its error.
   std::string does(std::string_view command) {
      out_.str("");
      bool const good = inspector_.evaluate(command) != Inspector::Outcome::failed;
      return good ? out_.str() : "error: " + inspector_.error();
   }
   void expect(std::string_view command, std::string const& pattern) {
      std::string const text = does(command);
      EXPECT_TRUE(std::regex_search(text, std::regex(pattern))) << command << '\n' << text;
   }

   InspectedScenario world_{GetParam()};
   std::ostringstream out_;
   Inspector inspector_{world_, out_, false};
};

std::string pathName(testing::TestParamInfo<PathKind> const& path) {
   return std::string(nameOf(path.param));
}
INSTANTIATE_TEST_SUITE_P(, Inspect, testing::Values(PathKind::async, PathKind::sync), pathName);

TEST_P(Inspect, AnswersEachCommandOrNamesTheRightForm) {
   struct {
      char const* command;
      char const* pattern;
   } const table[] = {
         {"run 1.2", "at 1.200000 s"},
         {"ls", "config +1 member|config .*VrfConfig"},
         {"ls /switch", "1 .*MrouteSwitch"},
         {"get /switch/1/switchId", "^[01]\n$"},
         {"ls /hwStatus/vrfStatus/default/route", R"x("\(\*, 239\.1\.1\.9\)" )x"},
         {R"x(get /hwStatus/vrfStatus/default/route/"(*, 239.1.1.9)"/acceptingIntfId)x", "rtr0"},
         // A path may lead in a circle, here from the switch to a record and back.
         {"get /switch/1/inUseOifSet/[1]/mrouteSwitch/switchId", "^[01]\n$"},
         {"get /switch/1/inUseOifSet/[9]", R"(has no member "\[9\]" among its \d+)"},
         {"ls /intfVlanId/intfIdToVlanId", "rtr0 +1006"},
         {"get /swatch", R"(error: / has no "swatch"; did you mean switch\?)"},
         {"get /config/activityPollingInterval/x", "a U8, which has nothing below it"},
         {"set /config/activityPollingInterval 5", "= 5"},
         {"set /config/activityPollingInterval 0", "< 1 or > 255 not allowed"},
         {"set /config/activityPollingInterval abc", "expected .* at position"},
         {"set /hwStatus/routes 7", "is read-only"},
         {"set /config/counterMode packets", "= packets"},
         {"get /config/counterMode", "^packets\n$"},
         {"call /config newConfig red", "red"},
         {"call /config newConfigs", "no operation newConfigs; did you mean newConfig"},
         {"types IntfVlanId::Tabel", R"(did you mean IntfVlanId::Table\?)"},
         {"call /config newConfig", "takes 1 argument, not 0"},
         {"call /config/config/red counterRouteIs", "takes 1 argument"},
         // A call that breaks a precondition of an operation is refused with the failed assertion.
         {"call /switch/1 doDeleteRoute 4711",
          GetParam() == PathKind::sync ? "would end the agent: .*Assertion" : "done"},
         {"types IntfVlanId::Table", "collection +intfIdToVlanId"},
         {"types Nonsense", "there is no type Nonsense$"},
         {"explain 10.0.0.2", "is not a route or a group; a route is given as"},
         {"explain vrf red (10.0.0.2, 239.1.1.5)", "in VRF red: no room in the replication table"},
         {"explain 10.0.0.2,239.1.1.5 iif rtr99", "rtr99 is no interface of the switch"},
         {"get \"/x", "the quote at column 5 is not closed"},
         {"get", "usage: get PATH"},
         {"gte /x", R"(is not a command; did you mean get\?)"},
         {"run backwards", "is not a number of seconds"},
         {"help run", "^run \\[SECONDS\\] +lets time pass"},
   };
   for (auto const& [command, pattern] : table)
      expect(command, pattern);
   struct {
      char const* line;
      std::vector<std::string> words;
   } const completions[] = {
         {"get /hwStatus/vrfS", {"/hwStatus/vrfStatus/"}},
         {"unw", {"unwatch "}},
         {"explain 10", {"10.0.0.2,"}},
         {"explain 239.1.1.9", {"239.1.1.9 "}},
         {"explain 10.0.0.2,",
          {"10.0.0.2,239.1.1.1 ", "10.0.0.2,239.1.1.2 ", "10.0.0.2,239.1.1.5 ",
           "10.0.0.2,239.1.1.6 "}},
         {"explain vrf red 10.0.0.2 ", {"239.1.1.5 ", "239.1.1.6 "}},
         {"explain *,239.1.1.9 vrf ", {"default ", "red "}},
         {"explain *,239.1.1.9 iif rtr", {"rtr0 ", "rtr1 ", "rtr2 ", "rtr3 ", "rtr4 ", "rtr5 "}},
         {"explain 10.0.0.9,", {}},
   };
   for (auto const& [line, words] : completions)
      EXPECT_EQ(inspector_.complete(line).words, words) << line;
   Completion const bounded = inspector_.complete("explain 10.0.0.2,", 1);
   EXPECT_EQ(bounded.words.size(), 1u);
   EXPECT_EQ(bounded.more, 3u);
   EXPECT_EQ(bounded.common, "10.0.0.2,239.1.1.");
}

TEST_P(Inspect, ShowsRoutesInTheirOrderAndByAFilter) {
   does("run 1.6");
   struct {
      char const* filter;
      char const* groups;  // the last digits of the groups that remain
   } const table[] = {
         {"", "12956"},
         {" group 239.1.1.0/30", "12"},
         {" group 239.1.1.9", "9"},
         {" group ff00::/8", ""},
         {" source 10.0.0.0/8", "1256"},
         {" source *", "9"},
         {" interface rtr0", "129"},
         {" interface cpu state offloaded", "12"},
         {" vrf red", "56"},
         {" table 253", "129"},
         {" state waiting", "56"},
         {" state trapped", ""},
   };
   for (auto const& [filter, groups] : table) {
      std::string const text = does(std::string("show routes") + filter);
      std::string found;
      std::regex const row(R"(\n(?:default|red) +\S+ +239\.1\.1\.(\d))");
      for (std::sregex_iterator at(text.begin(), text.end(), row), end; at != end; ++at)
         found += (*at)[1];
      EXPECT_EQ(found, groups) << text;
      bool const counted = text.ends_with(std::to_string(found.size()) + " of 5 routes\n");
      EXPECT_EQ(counted, *filter != 0) << text;
   }
   struct {
      char const* request;
      char const* error;
   } const wrong[] = {
         {"nothing", R"("nothing" is not a view \(known: routes, oifsets, zombies, chip\))"},
         {"chip state waiting", "the view chip has no filter"},
         {"routes color red", R"("color" is not a filter of routes \(known: group, source, inter)"},
         {"routes group", R"("group" needs a value)"},
         {"routes group 10.0.0", R"("10.0.0" is neither an address nor a prefix)"},
         {"routes state up", R"("up" is not a state \(known: offloaded, pending, waiting, failed)"},
         {"routes table x", R"("x" is not the number of a table)"},
         {"routes vrf a vrf b", R"("vrf" stands twice)"},
   };
   for (auto const& [request, error] : wrong)
      expect(std::string("show ") + request, std::string("^error: ") + error);
}

TEST_P(Inspect, PrintsJsonThatFitsTheSchema) {
   Inspector json(world_, out_, true);
   for (char const* const command : {"watch /config/activityPollingInterval",
                                     "watch /switch/1/zombieOifSet",
                                     "watch /switch/1/inUseOifSet/[1]",
                                     "watch",
                                     "run 1.6",
                                     "ls",
                                     "ls /switch/1/inUseOifSet",
                                     "get /config",
                                     "get /config/allCounter",
                                     "get /hwStatus/vrfStatus",
                                     "set /config/activityPollingInterval 9",
                                     "call /config newConfig red",
                                     "types",
                                     "types IntfVlanId::Table",
                                     "trace off",
                                     "help",
                                     "help run",
                                     "show routes state offloaded",
                                     "show oifsets",
                                     "show chip",
                                     "explain 10.0.0.2,239.1.1.1",
                                     "gte",
                                     "get /x",
                                     "step",
                                     "show zombies",
                                     "run 20",
                                     "show zombies",
                                     "unwatch"}) {
      out_.str("");
      json.evaluate(command);
      EXPECT_EQ(testSupport::schemaFaultOfLines("inspect", out_.str()), "") << command;
      EXPECT_FALSE(out_.str().empty());
   }
   Inspector pretty(world_, out_, OutputFormat(JsonStyle::pretty));
   out_.str("");
   pretty.evaluate("get /config/allCounter");
   EXPECT_EQ(out_.str(),
             "{\n  \"command\": \"get /config/allCounter\",\n  \"result\": {\n"
             "    \"path\": \"/config/allCounter\",\n    \"type\": \"bool\",\n"
             "    \"value\": false\n  }\n}\n");
}

// The record becomes a zombie, is resurrected, and is freed. The watch does not keep it alive.
TEST_P(Inspect, WatchesARecordUntilTheRecordIsFreed) {
   does("run 1");
   // The record that the withdrawn routes share is the first.
   expect("watch /switch/1/inUseOifSet/[1]", "^$");
   expect("watch /switch/1/zombieOifSet", "^$");
   expect("watch /config/activityPollingInterval", "^$");
   expect("watch /switch/1/zombieOifSet", "is watched already");
   expect("watch /switch/1/switchId", "notifies no reactors");
   expect("run 1.5", R"(at 2\.\d+ s: /switch/1/inUseOifSet/OifSet#\d+ zombie = .*[\s\S]*)"
                     R"(at 2\.\d+ s: /switch/1/zombieOifSet\[.*\] = )");
   expect("run 1", R"(at 3\.\d+ s: /switch/1/zombieOifSet\[.*\] is deleted)");
   expect("set /config/activityPollingInterval 9",
          R"(at 3.5\d+ s: /config/activityPollingInterval = 9 \(was 60\)\n)");
   expect("watch", "inUseOifSet/OifSet#\\d+\n/switch/1/zombieOifSet\n");
   world_.theSwitch().programmer().routeDel(L3::VrfName("default"), keyOf("239.1.1.1"));
   world_.theSwitch().programmer().routeDel(L3::VrfName("default"), keyOf("239.1.1.2"));
   expect("run 20", R"(inUseOifSet/OifSet#\d+ is deleted, and the watch ends)");
   expect("watch", "^/switch/1/zombieOifSet\n/config/");
   expect("unwatch /switch/1/zombieOifSet", "^$");
   expect("unwatch /switch/1/zombieOifSet", "is not watched");
}

}  // namespace
}  // namespace Agent
