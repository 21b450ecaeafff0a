#include "agent/inspect/Completion.h"

#include <algorithm>
#include <utility>

#include "Lnet/IpGenAddr.h"

namespace Agent {

namespace {

// The position of the last word of a line. Its quotes may be open.
std::size_t lastWord(std::string_view line) {
   std::size_t at = 0;
   bool quoted = false;
   for (std::size_t i = 0; i < line.size(); ++i) {
      if (line[i] == '\\' && quoted) {
         ++i;
      } else if (line[i] == '"') {
         quoted = !quoted;
      } else if (!quoted && (line[i] == ' ' || line[i] == '\t')) {
         at = i + 1;
      }
   }
   return at;
}

bool isGroup(std::string_view word) {
   auto const address = Lnet::IpGenAddr::parse(word.substr(0, word.find('/')));
   return address && address->isMulticast();
}

}  // namespace

CompletionList::CompletionList(std::string_view line, std::size_t limit)
      : limit_(limit), at_(lastWord(line)), word_(line.substr(at_)) {
   try {
      before_ = wordsOf(line.substr(0, at_));
   } catch (InspectError const&) {
      before_.clear();
   }
}

void CompletionList::offer(std::string_view name, std::string_view end) {
   if (name.starts_with(word_)) found_.insert(std::string(name) + std::string(end));
}

Completion CompletionList::take() && {
   Completion completion;
   completion.at = at_;
   if (found_.empty()) return completion;
   // The words are sorted, so the first and the last one differ first.
   auto const& [first, last] = std::pair(*found_.begin(), *found_.rbegin());
   completion.common.assign(first.begin(), std::ranges::mismatch(first, last).in1);
   for (std::string const& word : found_) {
      if (completion.words.size() == limit_) break;
      completion.words.push_back(word);
   }
   completion.more = found_.size() - completion.words.size();
   return completion;
}

void completeQuestion(CompletionList& list, std::size_t first, RouteNames const& names) {
   std::vector<Word> const& before = list.before();
   std::string const& last = before.back().text;
   std::string source, vrf;  // as given; empty: none
   bool hasRoute = false;
   for (std::size_t i = first; i < before.size(); ++i) {
      std::string const& text = before[i].text;
      if (text == "vrf" || text == "iif" || text == "--iif") {
         if (text == "vrf" && i + 1 < before.size()) vrf = before[i + 1].text;
         ++i;
      } else if (text.find(',') != std::string::npos || isGroup(text)) {
         hasRoute = true;
      } else {
         source = text;
      }
   }
   if (last == "iif" || last == "--iif") {
      names.forEachInterface([&](std::string_view intf) { list.offer(intf); });
      return;
   }
   bool const ofVrf = last == "vrf";
   if (hasRoute && !ofVrf) {
      if (vrf.empty()) list.offer("vrf");
      list.offer("iif");
      return;
   }
   std::size_t const comma = list.word().find(',');
   names.forEachRoute([&](std::string const& in, std::string const& of, std::string const& group) {
      if (ofVrf) {
         if (!in.empty()) list.offer(in);
      } else if (!vrf.empty() && in != vrf) {
         return;
      } else if (!source.empty()) {
         if (of == source) list.offer(group);
      } else if (comma != std::string::npos) {
         if (list.word().compare(0, comma, of) == 0) list.offer(of + ',' + group);
      } else {
         list.offer(of, ",");
         list.offer(group);
      }
   });
}

void completeView(CompletionList& list, std::size_t first, std::span<std::string_view const> views,
                  RouteNames const& names) {
   constexpr std::string_view states[] = {"offloaded", "pending", "waiting", "failed", "trapped"};
   constexpr std::string_view selectors[] = {"source", "group", "interface",
                                             "state",  "vrf",   "table"};
   std::vector<Word> const& before = list.before();
   if (before.size() == first) return list.offerAll(views);
   if (before[first].text != "routes") return;
   std::string const& last = before.back().text;
   bool const takesValue = (before.size() - first) % 2 == 0;
   if (!takesValue) {
      for (std::string_view const selector : selectors) {
         if (std::ranges::find(before, selector, &Word::text) == before.end()) list.offer(selector);
      }
   } else if (last == "state") {
      list.offerAll(states);
   } else if (last == "interface") {
      names.forEachInterface([&](std::string_view intf) { list.offer(intf); });
   } else {
      names.forEachRoute(
            [&](std::string const& vrf, std::string const& source, std::string const& group) {
               if (last == "source") list.offer(source);
               if (last == "group") list.offer(group);
               if (last == "vrf" && !vrf.empty()) list.offer(vrf);
            });
   }
}

}  // namespace Agent
