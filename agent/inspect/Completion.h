// Completions of the last word of an unfinished line.
#pragma once

#include <functional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/inspect/InspectWords.h"

namespace Agent {

struct Completion {
   std::size_t at = 0;              // position of the last word, which each completion can replace
   std::vector<std::string> words;  // in order, each once
   std::string common;              // the beginning that all completions have, also those left out
   std::size_t more = 0;            // completions that `words` leaves out
};

// Collects the offered words that begin with the last word of the line.
class CompletionList {
 public:
   static constexpr std::size_t most = 200;  // words that are kept, unless another limit is given

   explicit CompletionList(std::string_view line, std::size_t limit = most);

   // The last word as it is typed. Its quotes may be open.
   std::string const& word() const { return word_; }
   // The words before it. Empty if one of them has an open quote.
   std::vector<Word> const& before() const { return before_; }

   // `end` follows the name: a blank if the word is then complete.
   void offer(std::string_view name, std::string_view end = " ");
   // Adds a completion that does not begin with the last word as it is typed.
   void add(std::string completion) { found_.insert(std::move(completion)); }
   void offerAll(auto const& names) {
      for (auto const& name : names)
         offer(name);
   }
   Completion take() &&;

 private:
   std::size_t const limit_;
   std::size_t at_;
   std::string word_;
   std::vector<Word> before_;
   std::set<std::string, std::less<>> found_;
};

// Routes and interfaces, as they are completed. Sources and groups are texts: "10.0.0.2", "*". The
// VRF is empty if it is not known.
struct RouteNames {
   using Route = std::function<void(std::string const& vrf, std::string const& source,
                                    std::string const& group)>;
   std::function<void(Route const&)> forEachRoute;
   std::function<void(std::function<void(std::string_view)> const&)> forEachInterface;
};

// Completes the question of the command "explain", whose first word is before()[first]: first the
// source and then the group of "SOURCE,GROUP", or a group alone, and behind the route "vrf NAME" and
// "iif NAME".
void completeQuestion(CompletionList& list, std::size_t first, RouteNames const& names);

// Completes a view, and behind the view "routes" the words that select routes, each with a value:
// "source S", "group G", "interface I", "state X", "vrf NAME". before()[first] is the view.
void completeView(CompletionList& list, std::size_t first, std::span<std::string_view const> views,
                  RouteNames const& names);

}  // namespace Agent
