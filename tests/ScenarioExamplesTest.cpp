// The bundled scenarios, and the example lines of docs/scenarios.md.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

#include "agent/scenario/ScenarioParser.h"

namespace Agent {
namespace {

std::filesystem::path const examples(VELMROUTE_EXAMPLES);

std::set<std::filesystem::path> bundled() {
   std::set<std::filesystem::path> files;
   for (auto const& entry : std::filesystem::directory_iterator(examples / "scenarios"))
      if (entry.path().extension() == ".jsonl") files.insert(entry.path());
   return files;
}

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

// The program finds the path of a scenario in its file. BothPathsTest.cpp plays the scenarios on
// both paths.
TEST(ScenarioExamples, TheBundledScenariosAreValidAndTheirExpectationsHold) {
   EXPECT_GE(bundled().size(), 12u);
   for (auto const& path : bundled()) {
      std::string const command =
            std::string("'") + VELMROUTE_PROGRAM + "' run '" + path.string() + "' >/dev/null";
      EXPECT_EQ(std::system(command.c_str()), 0) << path;
   }
}

}  // namespace
}  // namespace Agent
