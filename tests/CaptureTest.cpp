// Whole inputs: the bundled captures compared with the snapshots that were taken during the
// recording, snapshots, mixed files, times, and the positions of errors.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "CaptureTestSupport.h"

namespace Agent {
namespace {

namespace fs = std::filesystem;

std::string example(std::string const& name) {
   std::string const plain = std::string(VELMROUTE_EXAMPLES) + "/captures/" + name;
   return fs::exists(plain) ? plain : plain + ".gz";
}

// Applies the events of the reader up to line `lines`. No line may be malformed.
void replay(CaptureReader& reader, CaptureState& state, std::uint64_t lines) {
   CaptureEvent event;
   while (reader.lines() < lines) {
      auto const got = reader.next(event);
      if (got == CaptureReader::Result::end) return;
      ASSERT_EQ(got, CaptureReader::Result::event) << reader.error().toString();
      state.apply(event);
   }
}

struct Mark {
   std::string name;
   std::uint64_t lines = 0;
};

std::vector<Mark> marksOf(std::string const& capture) {
   std::ifstream in(example(capture + "/marks.txt"));
   std::vector<Mark> marks;
   std::string date;
   std::string seconds;
   for (Mark m; in >> m.name >> date >> seconds >> m.lines;)
      marks.push_back(m);
   return marks;
}

struct CaptureCase {
   char const* name;
   char const* family;               // the address family of the routes, "4" or "6"
   std::vector<std::size_t> routes;  // the number of routes at each mark
   std::uint64_t lines;
   char const* links;  // the links at the end
   double seconds;
};

TEST(Capture, AReplayUpToAMarkGivesTheTableOfTheSnapshotThere) {
   CaptureCase const cases[] = {
         {"churn", "4", {1178, 1147}, 14564, "pimreg up; rtr1 up; rtr5 up; ", 78.283122},
         {"ssm-scale", "4", {2400, 2131, 2400}, 18503, "pimreg up; ", 75.510456},
         {"static-v6", "6", {512, 512, 407}, 1578, "", 51.00075},
   };
   for (auto const& c : cases) {
      SCOPED_TRACE(c.name);
      CaptureReader events({example(c.name + std::string("/events.txt"))});
      CaptureState state;
      auto const marks = marksOf(c.name);
      ASSERT_EQ(marks.size(), c.routes.size());
      for (std::size_t i = 0; i < marks.size(); ++i) {
         SCOPED_TRACE(marks[i].name);
         replay(events, state, marks[i].lines);
         CaptureState table;
         CaptureReader snapshot(
               {example(c.name + ("/" + marks[i].name) + "-mroute" + c.family + ".json")});
         replay(snapshot, table, ~std::uint64_t{0});
         EXPECT_EQ(table.routes().size(), c.routes[i]);
         auto const found = differences(table.routes(), state.routes());
         EXPECT_TRUE(found.empty()) << found.size() << ": " << found.front().toString();
      }
      EXPECT_EQ(events.lines(), c.lines);
      EXPECT_EQ(events.skipped() + events.clockSteps(), 0u);
      std::ostringstream links;
      for (auto const& [intf, link] : state.links())
         links << intf << ' ' << link.status << "; ";
      EXPECT_EQ(links.str(), c.links);
      EXPECT_DOUBLE_EQ(events.time(), c.seconds);
   }
}

std::vector<std::string> read(std::vector<std::string> const& files) {
   CaptureReader reader(files);
   return readAll(reader);
}

using Texts = std::vector<std::string>;

TEST(Snapshot, EveryFormOfATableIsRead) {
   TempDir const dir;
   auto const table = [&dir](std::string_view text) { return read({dir.file("table", text)}); };
   EXPECT_EQ(table("[]\n"), Texts{"0 snapshot"});
   EXPECT_EQ(
         table(R"([{"src":"10.0.0.2","dst":"239.1.1.2","iif":"tapA","multipath":[{"oif":)"
               R"("pimreg"},{"oif":"tapB","ttl":5}],"state":"resolved","packets":5,"bytes":560,)"
               R"("wrong_if":9,"expires":2.28,"table":"default"},{"src":"0.0.0.0","dst":)"
               R"("239.1.1.3","iif":"unresolved","state":"unresolved","table":"10"}])"),
         Texts{"0 snapshot v4 default v4 10; set default (10.0.0.2, 239.1.1.2) iif=tapA "
               "oifs=pimreg,tapB; set 10 (*, 239.1.1.3) unresolved iif= oifs="});
   // Pretty printed, with sorted keys, and with keys and values that are ignored.
   EXPECT_EQ(
         table("[\n  {\n  \"dst\": \"ff3e::1\",\n  \"flags\": [{\"oif\": [null]}, 1.5, true],\n"
               "  \"multipath\": [],\n  \"src\": \"::\",\n  \"table\": 254\n  },\n"
               "  {\"src\":\"2001:db8::1\",\"dst\":\"ff3e::1\",\"iif\":\"a\",\"table\":\"main\"}"
               "\n]\n\n"),
         Texts{"0 snapshot v6 default; set default (*, ff3e::1) iif= oifs=; set default "
               "(2001:db8::1, ff3e::1) iif=a oifs="});
}

TEST(Snapshot, ABadTableIsRefusedAsAWholeWithLineAndReason) {
   TempDir const dir;
   std::string const good = R"({"src":"::","dst":"ff3e::1"})";
   std::tuple<std::string, int, std::string, std::string> const cases[] = {
         {"[\n" + good + ",\n {\"dst\":\"ff3e::1\"}]", 3, "route 2: no \"src\"",
          "{\"dst\":\"ff3e::1\"}"},
         {"[{\"src\":\"::\",\"dst\":\"ff3e::1\",\"state\":\"up\"}]", 1,
          "route 1: unknown state \"up\"", "{\"src\":\"::\",\"dst\":\"ff3e::1\",\"state\":\"up\"}"},
         {"[" + good + ",\n\n[]]", 3, "a list in the list where a route is expected", "[]]"},
         {"[" + good + "]]", 1, "text behind the end of a snapshot", "]"},
   };
   for (auto const& [text, line, reason, excerpt] : cases) {
      std::string const file = dir.file("table", text + "\n");
      EXPECT_EQ(read({file}), Texts{"error " + file + ":" + std::to_string(line) + ": " + reason +
                                    ": " + excerpt});
   }
}

TEST(Snapshot, ASnapshotReplacesTheTablesThatItContainsAndNoOthers) {
   CaptureState state;
   auto const apply = [&](std::string_view text) {
      SnapshotParser parser;
      SnapshotEvent event;
      ASSERT_TRUE(parser.parse(text, event)) << parser.reason();
      state.apply(CaptureEvent(event));
   };
   apply(R"([{"src":"::","dst":"ff3e::1","multipath":[{"oif":"b"},{"oif":"a"},{"oif":"b"}]}])");
   apply(R"([{"src":"10.0.0.2","dst":"239.1.1.1","iif":"a"},)"
         R"({"src":"10.0.0.2","dst":"239.1.1.2","table":"blue"}])");
   apply("[]");
   // A route that the next snapshot does not list is removed. The later entry of one route counts.
   apply(R"([{"src":"10.0.0.2","dst":"239.1.1.3","state":"unresolved"},)"
         R"({"src":"10.0.0.2","dst":"239.1.1.3","iif":"a"}])");
   std::string table;
   for (auto const& [id, route] : state.routes())
      table += id.toString() + " " + route.toString() + "\n";
   EXPECT_EQ(table,
             "vrf blue (10.0.0.2, 239.1.1.2) iif none, oifs none\n"
             "vrf default (10.0.0.2, 239.1.1.3) iif a, oifs none\n"
             "vrf default (*, ff3e::1) iif none, oifs a b\n");
}

constexpr char route1[] = "(10.0.0.2,239.1.1.1) Iif: a Oifs: b State: resolved";
constexpr char set1[] = "set default (10.0.0.2, 239.1.1.1) iif=a oifs=b";

TEST(CaptureReader, TimeAdvancesByTheDifferencesOfTheStampsAcrossFiles) {
   TempDir const dir;
   auto const at = [](char const* clock) {
      return "[2026-11-21T" + std::string(clock) + "] " + route1 + "\n";
   };
   std::string const first =
         dir.file("first", std::string(route1) + "\n" + at("03:00:00.000000") +
                                 at("03:00:01.500000") + "[]\n" + at("02:00:00.000000") + "junk\n" +
                                 at("02:00:00.250000") + route1 + "\n");
   std::string const second = dir.file("second", at("00:00:00.000000") + at("00:00:10.000001"));
   CaptureReader reader({first, second});
   Texts times;
   for (std::string const& text : readAll(reader))
      times.push_back(text.substr(0, text.find(' ')));
   EXPECT_EQ(times,
             (Texts{"0", "0", "1.5", "1.5", "1.5", "error", "1.75", "1.75", "1.75", "11.75"}));
   EXPECT_EQ(reader.clockSteps(), 1u);
   EXPECT_DOUBLE_EQ(reader.time(), 11.750001);
}

TEST(CaptureReader, AnErrorIsReportedInItsPlaceAndReadingContinues) {
   TempDir const dir;
   std::string const route(route1);
   std::string const file = dir.file(
         "mixture", "# recorded by hand\n" + route + "\r\n" + "nonsense \x1b[1m\n" +
                          std::string("nul\0byte\n", 9) + std::string(70000, 'x') + "\n" +
                          "[{\"src\":\"::\",\n" +  // truncated: the next line is of a monitor
                          route + "\n" + "[{\"src\":\"::\",\"dst\":\"ff3e::1\"}]\n" + route);
   std::string const missing = dir.path("missing");
   std::string const packed = dir.file("packed", gzip(route + "\n").substr(0, 40));
   CaptureReader reader({file, missing, packed, file});
   Texts const got = readAll(reader);
   ASSERT_EQ(got.size(), 18u);
   Texts const expected = {
         std::string("0 ") + set1,
         "error " + file +
               ":3:1: unknown word \"nonsense\" where a multicast route or a link is expected"
               ": nonsense \\x1b[1m",
         "error " + file + ":4:4: the line has a NUL byte: nul\\x00byte",
         "error " + file + ":5: the line is longer than 65536 bytes: " + std::string(200, 'x') +
               "...",
         got[4],  // has a text of the JSON library; see below
         std::string("0 ") + set1,
         "0 snapshot v6 default; set default (*, ff3e::1) iif= oifs=",
         std::string("0 ") + set1,
         "error " + missing + ": cannot open: No such file or directory",
         "error " + packed + ":1: the gzip data end too early: truncated",
         std::string("0 ") + set1};
   EXPECT_TRUE(std::equal(expected.begin(), expected.end(), got.begin()))
         << ::testing::PrintToString(got);
   EXPECT_TRUE(got[4].starts_with("error " + file + ":7: not valid JSON: ")) << got[4];
   EXPECT_EQ(reader.lines(), 18u);
   auto const unreadable = CaptureReader::unreadable({file, missing, "-", dir.path("")});
   ASSERT_EQ(unreadable.size(), 2u);
   EXPECT_EQ(unreadable[1].toString(), dir.path("") + ": cannot read: Is a directory");
}

}  // namespace
}  // namespace Agent
