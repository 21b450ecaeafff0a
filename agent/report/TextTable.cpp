#include "agent/report/TextTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <numeric>
#include <string_view>

namespace Agent {

namespace {

constexpr std::size_t gap = 2;     // blanks between columns
constexpr std::size_t indent = 3;  // of the lines below a row
constexpr char const* none = "-";

// The first `shown` members of a list, and the number of the others.
std::string shortened(std::string_view list, std::size_t shown) {
   std::size_t const members = static_cast<std::size_t>(std::ranges::count(list, ' ')) + 1;
   if (shown >= members) return std::string(list);
   std::size_t end = 0;
   for (std::size_t i = 0; i < shown; ++i)
      end = list.find(' ', end + (i > 0));
   return fmt::format("{} +{}", list.substr(0, end), members - shown);
}

// The list with as many members as fit into the width, and at least one.
std::string fitted(std::string const& list, std::size_t width) {
   if (list.size() <= width) return list;
   std::string best = shortened(list, 1);
   for (std::size_t shown = 2;; ++shown) {
      std::string longer = shortened(list, shown);
      if (longer.size() > width) return best;
      best = std::move(longer);
   }
}

std::size_t lineWidth(std::vector<std::size_t> const& widths) {
   if (widths.empty()) return 0;
   return std::reduce(widths.begin(), widths.end()) + gap * (widths.size() - 1);
}

void trim(std::string& text) {
   text.erase(text.find_last_not_of(' ') + 1);
   text += '\n';
}

}  // namespace

std::string aligned(std::vector<std::vector<std::string>> const& lines) {
   std::vector<std::size_t> widths;
   for (auto const& line : lines) {
      widths.resize(std::max(widths.size(), line.size()));
      for (std::size_t i = 0; i < line.size(); ++i)
         widths[i] = std::max(widths[i], line[i].size());
   }
   std::string text;
   for (auto const& line : lines) {
      for (std::size_t i = 0; i < line.size(); ++i)
         fmt::format_to(std::back_inserter(text), "{:<{}}  ", line[i], widths[i]);
      trim(text);
   }
   return text;
}

// The widths of all columns, with lists in full or as short as possible.
std::vector<std::size_t> TextTable::widths(bool shortest) const {
   std::vector<std::size_t> widths;
   for (std::size_t i = 0; i < columns_.size(); ++i) {
      std::size_t width = columns_[i].title.size();
      bool const shortens = shortest && columns_[i].kind == Kind::list;
      for (auto const& row : rows_)
         width = std::max(width, shortens ? shortened(row[i], 1).size() : row[i].size());
      widths.push_back(width);
   }
   return widths;
}

// The widths of the first columns, which are in the line of their row; the others are below it.
std::vector<std::size_t> TextTable::inLine(std::size_t width) const {
   std::vector<std::size_t> used = widths(false);
   if (width == 0) return used;
   std::vector<std::size_t> const least = widths(true);
   while (used.size() > 1 && lineWidth(used) > width) {
      std::size_t const columns = used.size();
      std::vector<std::size_t> shortest(least.begin(),
                                        least.begin() + static_cast<std::ptrdiff_t>(columns));
      if (lineWidth(shortest) > width || columns_[columns - 1].kind == Kind::sentence) {
         used.pop_back();
         continue;
      }
      // The lists share the room that is left, from the left.
      std::size_t room = width - lineWidth(shortest);
      for (std::size_t i = 0; i < columns; ++i) {
         std::size_t const more = std::min(room, used[i] - shortest[i]);
         used[i] = shortest[i];
         room -= more;
         if (columns_[i].kind != Kind::list) continue;
         for (auto const& row : rows_) {
            used[i] = std::max(used[i], fitted(row[i], shortest[i] + more).size());
         }
      }
   }
   return used;
}

// The cells of the columns from `from` on, in lines that are wrapped at blanks.
std::string TextTable::below(std::vector<std::string> const& row, std::size_t from,
                             std::size_t width) const {
   std::string text, line(indent, ' ');
   // `room` is the width that the line must have left.
   auto const put = [&](std::string const& word, std::size_t space, std::size_t room) {
      bool const first = line.size() == indent;
      if (!first && line.size() + space + room > width) {
         text += line + '\n';
         line.assign(indent, ' ');
      } else if (!first) {
         line.append(space, ' ');
      }
      line += word;
   };
   for (std::size_t i = from; i < columns_.size(); ++i) {
      if (row[i].empty()) continue;
      bool const words = columns_[i].kind == Kind::sentence;
      std::string const cell =
            columns_[i].kind == Kind::list
                  ? fitted(row[i], width - std::min(width, indent + columns_[i].title.size() + 1))
                  : row[i];
      std::size_t end = words ? cell.find(' ') : std::string::npos;
      put(columns_[i].title + ' ' + cell.substr(0, end), gap,
          columns_[i].title.size() + 1 + cell.size());
      while (end != std::string::npos) {
         std::size_t const begin = end + 1;
         end = cell.find(' ', begin);
         std::string const word = cell.substr(begin, end - begin);
         put(word, 1, word.size());
      }
   }
   return line.size() == indent ? text : text + line + '\n';
}

std::string TextTable::text(std::size_t width) const {
   std::vector<std::size_t> const used = inLine(width);
   std::string text;
   auto const print = [&](auto const& cellOf) {
      for (std::size_t i = 0; i < used.size(); ++i) {
         fmt::format_to(std::back_inserter(text),
                        fmt::runtime(columns_[i].kind == Kind::number ? "{:>{}}  " : "{:<{}}  "),
                        cellOf(i), used[i]);
      }
      trim(text);
   };
   print([&](std::size_t i) { return columns_[i].title; });
   for (auto const& row : rows_) {
      print([&](std::size_t i) -> std::string {
         Kind const kind = columns_[i].kind;
         if (row[i].empty()) return kind == Kind::sentence ? "" : none;
         return kind == Kind::list ? fitted(row[i], used[i]) : row[i];
      });
      text += below(row, used.size(), width);
   }
   return text;
}

}  // namespace Agent
