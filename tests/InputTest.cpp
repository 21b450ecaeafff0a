// Inputs of the wrong kind, tables of FRR, and suggestions for misspelt words.
#include <gtest/gtest.h>

#include <algorithm>

#include "CaptureTestSupport.h"
#include "agent/input/InputKind.h"
#include "agent/input/InterfaceMap.h"
#include "agent/input/Suggestion.h"
#include "agent/live/Configuration.h"
#include "agent/scenario/ScenarioParser.h"

namespace Agent {
namespace {

std::string example(std::string const& name) {
   return std::string(VELMROUTE_EXAMPLES) + "/captures/" + name;
}

// The errors of a file for each of its uses, joined. Empty if the file is read without an error.
std::string errorsOf(std::string const& file, InputUse use) {
   std::string text;
   auto const add = [&](InputError const& error) { text += error.toString() + '\n'; };
   switch (use) {
      case InputUse::capture: {
         CaptureReader reader({file});
         CaptureEvent event;
         for (auto got = reader.next(event); got != CaptureReader::Result::end;
              got = reader.next(event)) {
            if (got == CaptureReader::Result::error) add(reader.error());
         }
         break;
      }
      case InputUse::scenario:
         std::ranges::for_each(ScenarioFile::read(file).errors, add);
         break;
      case InputUse::interfaceMap:
         if (auto const error = InterfaceMap().load(file)) add(*error);
         break;
      case InputUse::configuration: {
         auto const loaded = Configuration::load(file);
         if (auto* const errors = std::get_if<std::vector<InputError>>(&loaded))
            std::ranges::for_each(*errors, add);
      }
   }
   return text;
}

TEST(InputKind, AFileOfAnotherKindIsReportedOnceWithItsKindAndItsCommand) {
   constexpr char route[] = "(10.0.0.2,239.1.1.1) Iif: a  Oifs: b  State: resolved\n";
   std::string const frr = contentOf(example("frr/mroute.json"));
   struct {
      InputKind kind;
      std::string text;
      InputUse use;
      std::string what;  // a part of the error
   } const cases[] = {
         {InputKind::monitor, "# c\n\n[2026-11-21T03:13:27.100001] " + std::string(route),
          InputUse::scenario, "a capture, of `ip -ts -o monitor mroute link`, not a scenario"},
         {InputKind::unstamped, route + std::string(route), InputUse::scenario,
          "without time stamps"},
         {InputKind::unstamped, "7: rtr5@if2: <UP> mtu 1500 \\ link/ether\n", InputUse::scenario,
          "`ip monitor`"},
         {InputKind::ipTable, "[{\"dst\":\"239.1.1.1\"}]", InputUse::interfaceMap,
          "`ip -j mroute show`, not a map of interfaces; `velmroute run FILE`"},
         {InputKind::frrTable, frr, InputUse::scenario, "FRR's `show ip mroute json`"},
         {InputKind::frrTable, frr.substr(frr.find("\"232")).insert(0, "{"), InputUse::scenario,
          "FRR's `show ip mroute json`"},
         {InputKind::frrTable, "{\n  \"default\":{\n  },\n  \"red\":{\n  }\n}\n",
          InputUse::configuration, "FRR's"},
         {InputKind::frrText, contentOf(example("frr/mroute.txt")), InputUse::capture,
          "the text of FRR's `show ip mroute`, not a capture of routes; record `show ip mroute vrf "
          "all json`"},
         {InputKind::frrText, "Source          Group           Proto  Input\n", InputUse::scenario,
          "FRR's `show ip mroute`"},
         {InputKind::otherIpJson, "[{\"ifindex\":1,\"ifname\":\"lo\"}]\n", InputUse::capture,
          "`ip -j link`"},
         {InputKind::scenario, "# s\n{\"at\": 1, \"mark\": \"m\"}\n", InputUse::capture,
          "a scenario, not a capture of routes; `velmroute run FILE` and `velmroute soak FILE`"},
         {InputKind::scenario, "{\"restart\":{\"over\":1}}\n", InputUse::capture, "a scenario"},
         {InputKind::timeline, "{\"displayTimeUnit\":\"ms\",\"traceEvents\":[\n",
          InputUse::scenario, "--timeline"},
         {InputKind::otherJson, "{\n  \"lines\": 3\n}\n", InputUse::scenario, "other JSON"},
         {InputKind::interfaceMap, "rtr0 port=1 vlan=1006\n", InputUse::capture,
          "velmroute run --map FILE"},
         {InputKind::configuration, "switch unix:/s\n", InputUse::interfaceMap,
          "velmroute agent --config FILE"},
         {InputKind::html, "<!DOCTYPE html>\n", InputUse::capture, "a web page"},
         {InputKind::packets, std::string("\xd4\xc3\xb2\xa1\x02\0\x04\0\0\0\0\0\n", 13),
          InputUse::capture, "of packets, not a capture of routes"},
         {InputKind::packets, std::string("\x0a\x0d\x0d\x0a\x1c\0\0\0\n", 9), InputUse::scenario,
          "of packets"},
         {InputKind::compressed, "BZh91AY&SY\n", InputUse::capture, "compressed by another"},
         {InputKind::gzip, gzip(gzip(route)), InputUse::scenario, "compressed by gzip"},
         {InputKind::binary,
          std::string("\x7f"
                      "ELF\0\1\n",
                      7),
          InputUse::scenario, "binary data"},
   };
   TempDir const dir;
   for (auto const& c : cases) {
      SCOPED_TRACE(c.text.substr(0, 60));
      std::string const file = dir.file("file", c.text);
      EXPECT_EQ(kindOfFile(file), c.kind);
      std::string const errors = errorsOf(file, c.use);
      EXPECT_TRUE(errors.starts_with(file + ": this is ")) << errors;
      EXPECT_NE(errors.find(c.what), std::string::npos) << errors;
      EXPECT_EQ(std::ranges::count(errors, '\n'), 1) << errors;
      if (c.kind < InputKind::packets && c.use != InputUse::configuration) {
         EXPECT_EQ(errorsOf(dir.file("file", gzip(c.text)), c.use), errors);
      }
   }
   EXPECT_NE(errorsOf(dir.file("file", gzip("switch unix:/s\n")), InputUse::configuration)
                   .find("compressed by gzip, not a configuration; decompress it"),
             std::string::npos);
   EXPECT_EQ(errorsOf(dir.file("file", ""), InputUse::capture), "");
   EXPECT_EQ(kindOfFile(dir.file("file", "# none\n\n")), InputKind::empty);
   // The parser of the expected kind knows more about a misspelt line.
   EXPECT_TRUE(errorsOf(dir.file("file", "swicth unix:/s\n"), InputUse::configuration)
                     .starts_with(dir.path("file") + ":1: \"swicth\" is not a directive; did you "
                                                     "mean switch?: swicth unix:/s\n"));
}

RouteStates statesOf(std::string const& file) {
   CaptureReader reader({file});
   CaptureState state;
   CaptureEvent event;
   for (auto got = reader.next(event); got != CaptureReader::Result::end;
        got = reader.next(event)) {
      EXPECT_EQ(got, CaptureReader::Result::event) << reader.error().toString();
      state.apply(event);
   }
   return state.routes();
}

// FRR does not list the input of (*,G) among its outputs, where the kernel has it.
TEST(FrrTable, ARecordedTableIsThatOfTheKernelAtThatMoment) {
   RouteStates kernel = statesOf(example("frr/kernel.json"));
   ASSERT_EQ(kernel.size(), 7u);
   for (auto& [id, route] : kernel)
      std::erase(route.oifs, route.iif);
   auto const found = differences(kernel, statesOf(example("frr/mroute.json")));
   EXPECT_TRUE(found.empty()) << found.front().toString();
}

TEST(FrrTable, EveryFormIsReadAndAFaultNamesItsRoute) {
   struct {
      char const* text;
      char const* expected;
   } const cases[] = {
         {R"({"239.1.1.1":{"*":{"iif":"a","oil":{"b":{"ttl":1},"pimreg":{}}}}})",
          "snapshot v4 default; set default (*, 239.1.1.1) iif=a oifs=b,pimreg"},
         {R"({"239.1.1.1":{"10.0.0.2":{"Installed":1,"installed":0,"iif":"a"},"10.0.0.3":)"
          R"({"installed":true,"iif":"<iif?>","oil":{"<oif?>":{"x":[{"oil":{}}]}}}}})",
          "snapshot v4 default; set default (10.0.0.2, 239.1.1.1) unresolved iif=a oifs=; set "
          "default (10.0.0.3, 239.1.1.1) unresolved iif= oifs="},
         {R"({"default":{},"red":{"ff3e::1":{"n":1,"*":{"oil":{"b":{"inboundInterface":"a"}}}}}})",
          "snapshot v6 red v6 default; set red (*, ff3e::1) iif=a oifs=b"},
         {R"({"default":{}})", "snapshot"},
         {R"({"239.1.1.1":{"10.0.0.2":{"iif":"a"},"x":{}}})", "route 2: bad source address \"x\""},
         {R"({"239.1.1.1":{"*":{"oil":[]}}})", "\"oil\" is a list where an object is expected"},
         {R"({"239.1.1.1":{"*":{"oil":{"a b":{}}}}})",
          "route 1: interface name \"a b\" has a byte that no interface name has"},
         {R"({"239.1.1.1":{"*":{"joinState":"Joined","inboundInterface":"a"}}})",
          "route 1: no \"iif\""},
         {R"({"10.0.0.1":{"*":{}}})", "group \"10.0.0.1\" is not a multicast address"},
         {R"({"default":7})", "\"default\" is a number where an object is expected"},
   };
   for (auto const& [text, expected] : cases) {
      SCOPED_TRACE(text);
      SnapshotParser parser;
      SnapshotEvent event;
      bool const good = parser.parse(text, event);
      EXPECT_NE((good ? render(event) : parser.reason()).find(expected), std::string::npos)
            << (good ? render(event) : parser.reason());
   }
}

TEST(Suggestion, NamesTheNearestWordsOrNone) {
   std::vector<std::string> const names = {"run",       "soak",          "show",
                                           "explain",   "routes",        "oifsets",
                                           "interface", "--check-hooks", "--check"};
   struct {
      char const* word;
      char const* text;
   } const cases[] = {
         {"exlpain", "; did you mean explain?"},      // swapped
         {"Route", "; did you mean routes?"},         // the beginning, in another case
         {"oifstes", "; did you mean oifsets?"},      //
         {"interfcae", "; did you mean interface?"},  //
         {"--chekc-hook", "; did you mean --check-hooks?"},
         {"--chek", "; did you mean --check?"},
         {"sho", "; did you mean show?"},
         {"s", ""},
         {"xyz", ""},
         {"explanation", ""},
         {"sow", "; did you mean show?"},
   };
   for (auto const& [word, text] : cases) {
      Suggestion suggestion(word);
      std::ranges::for_each(names, [&](auto& name) { suggestion.offer(name); });
      EXPECT_EQ(suggestion.text(), text) << word;
   }
   EXPECT_EQ(knownNames("xyz", names).substr(0, 19), " (known: run, soak,");
   Suggestion route("10.0.0.2, 239.1.1.11");
   for (char const* const key : {"10.0.0.2, 239.7.1.90", "10.0.0.2, 239.1.1.1",
                                 "10.0.0.3, 239.1.1.11", "10.0.0.4, 239.1.1.11"})
      route.offer(key);
   EXPECT_EQ(route.text(), "; did you mean 10.0.0.2, 239.1.1.1 or 10.0.0.3, 239.1.1.11?");
   EXPECT_EQ(editDistance("abcd", "badc", 2), 2u);
   EXPECT_EQ(editDistance("abc", "xyz", 2), 3u);
}

}  // namespace
}  // namespace Agent
