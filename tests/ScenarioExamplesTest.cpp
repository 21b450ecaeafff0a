// The example lines of docs/scenarios.md. RunTest.cpp and BothPathsTest.cpp play the bundled scenarios.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "agent/scenario/ScenarioParser.h"

namespace Agent {
namespace {

std::filesystem::path const examples(VELMROUTE_EXAMPLES);

TEST(ScenarioExamples, TheLinesOfTheManualAreValidAndHaveEveryKindOfEvent) {
   std::ifstream manual(examples.parent_path() / "docs" / "scenarios.md");
   std::set<std::size_t> kinds;
   for (std::string text; std::getline(manual, text);) {
      if (!text.starts_with("    {")) continue;
      ScenarioParser parser;
      Scenario::Line line;
      EXPECT_EQ(parser.parse(text, line), ScenarioParser::Result::event) << text << '\n'
                                                                         << parser.reason();
      kinds.insert(line.event.index());
   }
   EXPECT_EQ(kinds.size(), std::variant_size_v<Scenario::Event>);
}

}  // namespace
}  // namespace Agent
