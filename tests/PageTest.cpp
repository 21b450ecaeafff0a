// The report of a run: the series over time, and the document and the page of whole runs.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <random>

#include "CaptureTestSupport.h"
#include "JsonSchema.h"
#include "agent/page/Page.h"
#include "agent/page/Series.h"
#include "agent/run/RunCommand.h"

namespace Agent {
namespace {

using nlohmann::json;

TEST(Series, KeepsTheExtremesOfAnyRunInBoundedMemory) {
   std::mt19937_64 random(1);
   for (double const pace : {1e-7, 1e-3, 40.0}) {
      for (unsigned const count : {1u, 400u, 200'000u}) {
         SCOPED_TRACE(std::to_string(pace) + " s, " + std::to_string(count));
         Series series;
         std::map<double, double> changes;  // the value from each time on
         double time = 0;
         for (unsigned i = 0; i < count; ++i) {
            // Bursts with long rests between them.
            time +=
                  random() % 50 == 0 ? 900 * pace : pace * 1e-3 * static_cast<double>(random() % 9);
            double const value = static_cast<double>(random() % 100'000);
            series.add(time, value);
            changes[time] = value;
         }
         auto const points = series.points();
         ASSERT_FALSE(points.empty());
         EXPECT_LE(points.size(), 4 * Series::maxSlots);
         auto const byValue = [](auto const& a, auto const& b) { return a.value < b.value; };
         auto const [low, high] = std::minmax_element(points.begin(), points.end(), byValue);
         EXPECT_EQ(points.front().time, changes.begin()->first);
         EXPECT_EQ(points.back().value, changes.rbegin()->second);
         double lowest = 1e9, highest = 0;
         for (auto const& [at, value] : changes) {
            lowest = std::min(lowest, value);
            highest = std::max(highest, value);
         }
         EXPECT_LE(low->value, lowest);
         EXPECT_GE(high->value, highest);
         for (std::size_t i = 1; i < points.size(); ++i)
            EXPECT_LE(points[i - 1].time, points[i].time);
      }
   }
}

// The data of a page.
json dataOf(std::string const& page) {
   std::string const begin = R"(id="data">)", end = "</script>";
   std::size_t const at = page.find(begin) + begin.size();
   return json::parse(page.substr(at, page.find(end, at) - at));
}

class PageOfRun : public ::testing::TestWithParam<PathKind> {
 protected:
   // Plays the lines, and returns the page.
   static std::string page(std::string const& lines, int code) {
      TempDir const directory;
      std::string const output = directory.path("report.html");
      RunOptions options;
      options.files = {directory.file("report.jsonl", lines)};
      options.path = GetParam();
      options.reportFile = output;
      options.format = true;
      ::testing::internal::CaptureStdout();
      ::testing::internal::CaptureStderr();
      EXPECT_EQ(runFiles(options), code);
      ::testing::internal::GetCapturedStdout();
      ::testing::internal::GetCapturedStderr();
      std::ifstream in(output);
      return {std::istreambuf_iterator<char>(in), {}};
   }
};

TEST_P(PageOfRun, HasOutagesReroutesAndWaitingRoutes) {
   json const data = dataOf(page(R"(
{"scenario": {"title": "</script><b>", "chip": {"groups": 2, "routes": 64}}}
{"at": 0, "route": {"src": "10.0.0.1", "dst": "232.1.1.1", "iif": "in0", "oifs": ["out1", "out2"], "backup": ["out3"]}}
{"route": {"src": "10.0.0.2", "dst": "232.1.1.1", "iif": "in0", "oifs": ["out2"]}}
{"route": {"src": "10.0.0.3", "dst": "232.1.1.1", "iif": "in0", "oifs": ["out4"]}}
{"at": 1, "traffic": {"src": "10.0.0.1", "dst": "232.1.1.1", "iif": "in0", "count": 200, "every": 0.01}}
{"at": 1.255, "link": {"intf": "out1", "state": "down"}}
{"at": 1.755, "link": {"intf": "out1", "state": "up"}}
{"at": 2.205, "link": {"intf": "in0", "state": "down"}}
{"at": 4, "restart": {"over": 1}}
{"at": 4.5, "traffic": {"src": "10.0.0.9", "dst": "232.1.1.1", "iif": "in0"}}
{"at": 9, "expect": {"wanted": 4}}
)",
                                 1));
   EXPECT_EQ(testSupport::schemaFault("report", data.dump()), "");
   EXPECT_EQ(data.at("title"), "</script><b>");
   EXPECT_EQ(data.at("result"), "failed");
   EXPECT_EQ(data.at("notes").size(), 1u);
   json const& outages = data.at("outages");
   EXPECT_EQ(outages.at("packets"), 201);
   EXPECT_EQ(outages.at("unwanted"), 1);
   for (json const& receiver : outages.at("receivers")) {
      bool const fails = receiver.at("oif") == "out1";
      EXPECT_EQ(receiver.at("packets"), 200) << receiver;
      EXPECT_EQ(receiver.at("lost"), fails ? 50 : 0) << receiver;
      EXPECT_NEAR(receiver.at("longestSeconds"), fails ? 0.5 : 0, 1e-9) << receiver;
      EXPECT_NEAR(receiver.at("longestAt"), fails ? 1.26 : 0, 1e-9) << receiver;
   }
   ASSERT_GE(data.at("reroutes").at("rows").size(), 1u);
   json const& reroute = data.at("reroutes").at("rows").front();
   EXPECT_EQ(reroute.at("cause"), "link in0 down");
   EXPECT_EQ(reroute.at("at"), 2.205);
   // A write takes a millisecond on the asynchronous path, and no time on the other one.
   EXPECT_NEAR(reroute.at("seconds"), GetParam() == PathKind::async ? 0.001 : 0, 1e-9);
   std::map<std::string, int> states;
   json const& routes = data.at("routes");
   for (std::size_t i = 0; i < routes.at("dst").size(); ++i) {
      int const waits = routes.at("waitsFor")[i];
      std::string const state = data.at("strings")[routes.at("state")[i].get<std::size_t>()];
      ++states[state + (waits < 0 ? "" : ' ' + data.at("strings")[waits].get<std::string>())];
   }
   EXPECT_EQ(states, (std::map<std::string, int>{{"offloaded", 2}, {"waiting group", 1}}));
   json const& groups = data.at("series").at("groups");
   EXPECT_EQ(groups.at("size"), 2);
   EXPECT_EQ(*std::max_element(groups.at("values").begin(), groups.at("values").end()), 2);
}

INSTANTIATE_TEST_SUITE_P(Paths, PageOfRun, ::testing::Values(PathKind::async, PathKind::sync),
                         [](auto const& path) { return std::string(nameOf(path.param)); });

// A name cannot end the element of the data, nor begin another one.
TEST(Page, HoldsAnyTextAsData) {
   json const hostile = {"</script><script>", "<!--", "\" onload='x'", "\xff\x01 &lt;",
                         "\xE2\x80\xA8"};
   std::string const page = reportPage({{"strings", hostile}});
   EXPECT_EQ(page.find("<!--"), std::string::npos);
   std::size_t ends = 0;
   for (auto at = page.find("</script"); at != std::string::npos;
        at = page.find("</script", at + 1))
      ++ends;
   EXPECT_EQ(ends, 3u);  // of the data, and of both scripts
   json expected = hostile;
   expected[3] = "\xEF\xBF\xBD\x01 &lt;";
   EXPECT_EQ(dataOf(page).at("strings"), expected);
}

}  // namespace
}  // namespace Agent
