#include "agent/input/Suggestion.h"

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

char lower(char c) {
   return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool beginsWith(std::string_view name, std::string_view word) {
   return name.size() > word.size() &&
          std::ranges::equal(name.substr(0, word.size()), word, {}, lower, lower);
}

}  // namespace

std::size_t editDistance(std::string_view a, std::string_view b, std::size_t limit) {
   std::size_t const far = limit + 1;
   if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) > limit) return far;
   // Rows of the usual table: the distances of the first i characters of `a` to each beginning of
   // `b`. A swap needs the row before the last one.
   std::vector<std::size_t> row(b.size() + 1), above(b.size() + 1), twoAbove(b.size() + 1);
   for (std::size_t j = 0; j <= b.size(); ++j)
      above[j] = j;
   for (std::size_t i = 1; i <= a.size(); ++i) {
      row[0] = i;
      std::size_t least = i;
      for (std::size_t j = 1; j <= b.size(); ++j) {
         char const x = lower(a[i - 1]), y = lower(b[j - 1]);
         row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (x != y)});
         bool const swapped =
               i > 1 && j > 1 && x == lower(b[j - 2]) && y == lower(a[i - 2]) && x != y;
         if (swapped) row[j] = std::min(row[j], twoAbove[j - 2] + 1);
         least = std::min(least, row[j]);
      }
      if (least > limit) return far;
      twoAbove.swap(above);
      above.swap(row);
   }
   return std::min(above[b.size()], far);
}

// A word of one character has no near name, because it would be near to too many.
Suggestion::Suggestion(std::string_view word)
      : word_(word),
        distance_(word.size() < 2 ? 0 : std::clamp<std::size_t>(word.size() / 3, 1, 3)) {}

void Suggestion::offer(std::string_view name) {
   if (word_.size() < 2) return;
   std::size_t distance = editDistance(word_, name, distance_);
   if (beginsWith(name, word_)) distance = std::min<std::size_t>(distance, 1);
   if (distance > distance_) return;
   if (distance < distance_) names_.clear();
   distance_ = distance;
   if (names_.size() < most && std::ranges::find(names_, name) == names_.end())
      names_.emplace_back(name);
}

std::string Suggestion::text() const {
   if (names_.empty()) return {};
   std::string text = "; did you mean " + names_.front();
   if (names_.size() > 1) text += " or " + names_.back();
   return text + '?';
}

}  // namespace Agent
