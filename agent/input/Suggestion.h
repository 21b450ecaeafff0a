// Suggestions for words that are misspelt: "did you mean".
#pragma once

#include <concepts>
#include <functional>
#include <ranges>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

// The number of edits that turn `a` into `b`: inserted, deleted and replaced characters, and two
// neighbours that change places. Letters of different case are equal. Returns limit + 1 if more
// than `limit` edits are necessary, without counting them.
std::size_t editDistance(std::string_view a, std::string_view b, std::size_t limit);

// Finds the names that are nearest to a misspelt word. The names are offered one after another and
// are not kept, so that the keys of a large table can be offered as they are printed.
class Suggestion {
 public:
   static constexpr std::size_t most = 2;  // names that are suggested

   explicit Suggestion(std::string_view word);

   // A name is near if a third of the word's characters or less are misspelt, at most three, or if
   // it begins with the word. Only the nearest names count, the first ones of these.
   void offer(std::string_view name);

   std::vector<std::string> const& names() const { return names_; }
   // "; did you mean NAME?" or "; did you mean NAME or NAME?", or empty if no name is near. Names
   // with blanks stand without quotes, as (10.0.0.2, 239.1.1.1) does.
   std::string text() const;

 private:
   std::string const word_;
   std::size_t distance_;  // of names_; without names, the largest distance of a near name
   std::vector<std::string> names_;
};

// The end of an error text for a word that is not among `names`, a range of texts or of objects
// whose text `nameOf` returns: the suggestion, or " (known: NAME, NAME)" if no name is near.
template <class Names, class NameOf = std::identity>
std::string knownNames(std::string_view word, Names const& names, NameOf nameOf = {}) {
   Suggestion suggestion(word);
   std::string known;
   for (auto const& name : names) {
      std::string const text(std::invoke(nameOf, name));
      suggestion.offer(text);
      known += (known.empty() ? "" : ", ") + text;
   }
   return suggestion.names().empty() ? " (known: " + known + ')' : suggestion.text();
}

}  // namespace Agent
