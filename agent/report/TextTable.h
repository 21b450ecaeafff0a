// Text in aligned columns, two blanks apart, without blanks at the ends of lines.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Agent {

// Each line is a list of cells.
std::string aligned(std::vector<std::vector<std::string>> const& lines);

// A table with a header that fits into a width. The cells of a column are never cut, but lists
// become shorter: "rtr3 rtr4 +12" stands for 14 members. Columns for which the width has no room
// stand below each row, with their titles.
class TextTable {
 public:
   enum class Kind {
      word,
      number,    // right-aligned
      list,      // words with a blank between them
      sentence,  // stands below its row if not all of its column fits
   };
   struct Column {
      std::string title;
      Kind kind = Kind::word;
   };

   explicit TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}

   // As many cells as columns. An empty cell is printed as "-", but of a sentence as nothing.
   void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

   // The lines of the table. Width 0: lines may have any length.
   std::string text(std::size_t width) const;

 private:
   std::vector<std::size_t> widths(bool shortest) const;
   std::vector<std::size_t> inLine(std::size_t width) const;
   std::string below(std::vector<std::string> const& row, std::size_t from,
                     std::size_t width) const;

   std::vector<Column> columns_;
   std::vector<std::vector<std::string>> rows_;
};

}  // namespace Agent
