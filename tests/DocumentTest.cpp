// Text tables in widths, and the schemas of the documents.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "JsonSchema.h"
#include "agent/report/TextTable.h"

namespace Agent {
namespace {

using nlohmann::json;

std::filesystem::path const docs = std::filesystem::path(VELMROUTE_EXAMPLES).parent_path() / "docs";

TEST(TextTable, FitsIntoAWidthWithoutCuttingAWord) {
   using Kind = TextTable::Kind;
   TextTable table({{"SOURCE"},
                    {"N", Kind::number},
                    {"OIFS", Kind::list},
                    {"STATE"},
                    {"REASON", Kind::sentence}});
   table.add({"10.0.0.2", "7", "rtr1 rtr2 rtr3 rtr4", "offloaded", ""});
   table.add({"10.0.0.30", "4711", "rtr1", "waiting", "no free multicast group; waits"});
   table.add({"*", "", "", "failed", "short"});
   std::map<std::size_t, std::string> const texts = {
         {0,
          "SOURCE        N  OIFS                 STATE      REASON\n"
          "10.0.0.2      7  rtr1 rtr2 rtr3 rtr4  offloaded\n"
          "10.0.0.30  4711  rtr1                 waiting    no free multicast group; waits\n"
          "*             -  -                    failed     short\n"},
         {60,  // a sentence has no room in its column
          "SOURCE        N  OIFS                 STATE\n"
          "10.0.0.2      7  rtr1 rtr2 rtr3 rtr4  offloaded\n"
          "10.0.0.30  4711  rtr1                 waiting\n"
          "   REASON no free multicast group; waits\n"
          "*             -  -                    failed\n"
          "   REASON short\n"},
         {42,  // a list becomes shorter
          "SOURCE        N  OIFS          STATE\n"
          "10.0.0.2      7  rtr1 rtr2 +2  offloaded\n"
          "10.0.0.30  4711  rtr1          waiting\n"
          "   REASON no free multicast group; waits\n"
          "*             -  -             failed\n"
          "   REASON short\n"},
         {30,  // further columns go below, and sentences wrap
          "SOURCE        N  OIFS\n"
          "10.0.0.2      7  rtr1 rtr2 +2\n"
          "   STATE offloaded\n"
          "10.0.0.30  4711  rtr1\n"
          "   STATE waiting\n"
          "   REASON no free multicast\n"
          "   group; waits\n"
          "*             -  -\n"
          "   STATE failed  REASON short\n"},
         {1,  // the first column is never cut
          "SOURCE\n"
          "10.0.0.2\n   N 7\n   OIFS rtr1 +3\n   STATE offloaded\n"
          "10.0.0.30\n   N 4711\n   OIFS rtr1\n   STATE waiting\n"
          "   REASON no\n   free\n   multicast\n   group;\n   waits\n"
          "*\n   STATE failed\n   REASON short\n"},
   };
   for (auto const& [width, text] : texts)
      EXPECT_EQ(table.text(width), text) << width;
}

// A definition that several schemas have is the same in all of them, so that a document can be
// validated by one file.
TEST(Schemas, HaveEqualDefinitionsAndFitTheExamplesOfTheDocument) {
   std::map<std::string, std::pair<std::string, json>> definitions;
   for (auto const& file : std::filesystem::directory_iterator(docs / "schemas")) {
      std::string const name = file.path().filename();
      auto const schema = json::parse(std::ifstream(file.path()));
      auto const ofThis = schema.value("definitions", json::object());
      for (auto const& [key, definition] : ofThis.items()) {
         auto const& [first, same] = *definitions.try_emplace(key, name, definition).first;
         EXPECT_EQ(same.second, definition) << key << " of " << name << " and " << same.first;
      }
   }
   // Below the heading "## NAME" stands a block of JSON that fits the schema NAME.
   std::ifstream lines(docs / "json.md");
   std::string name, block;
   unsigned blocks = 0;
   bool inBlock = false;
   for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("## ")) name = line.substr(3);
      if (inBlock && line == "```") {
         EXPECT_EQ(testSupport::schemaFault(name, block), "") << name;
         ++blocks;
         inBlock = false;
      } else if (inBlock) {
         block += line + '\n';
      } else if (line == "```json") {
         inBlock = true;
         block.clear();
      }
   }
   EXPECT_GE(blocks, 9u);
}

}  // namespace
}  // namespace Agent
