#include "agent/report/RouteFilter.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <set>
#include <stdexcept>

#include "agent/input/NumberText.h"
#include "agent/input/PrintableText.h"
#include "agent/input/Suggestion.h"

namespace Agent {

namespace {

constexpr std::array<std::string_view, 6> filterWords{"group", "source", "interface",
                                                      "state", "vrf",    "table"};

// Whether all addresses of the inner prefix are addresses of the outer one.
bool contains(Lnet::IpGenPrefix const& outer, Lnet::IpGenPrefix const& inner) {
   return outer.length() <= inner.length() && outer.contains(inner.address());
}

}  // namespace

std::span<std::string_view const> RouteFilter::words() {
   return filterWords;
}

RouteFilter::RouteFilter(std::span<std::string const> text) : empty_(text.empty()) {
   std::set<std::string_view> seen;
   for (std::size_t i = 0; i < text.size(); i += 2) {
      std::string const& word = text[i];
      if (std::ranges::find(filterWords, word) == filterWords.end()) {
         throw std::invalid_argument(fmt::format("{} is not a filter of routes{}",
                                                 printable(inQuotes(word)),
                                                 knownNames(word, filterWords)));
      }
      if (i + 1 == text.size()) throw std::invalid_argument(inQuotes(word) + " needs a value");
      if (!seen.insert(word).second)
         throw std::invalid_argument(inQuotes(word) + " stands twice in the filter");
      add(word, text[i + 1]);
   }
}

Lnet::IpGenPrefix RouteFilter::prefixOf(std::string const& value) {
   auto const prefix = Lnet::IpGenPrefix::parse(value);
   if (!prefix || prefix->isNull()) {
      throw std::invalid_argument(printable(inQuotes(value)) +
                                  " is neither an address nor a prefix");
   }
   return *prefix;
}

void RouteFilter::add(std::string_view word, std::string const& value) {
   if (word == "group") {
      group_ = prefixOf(value);
   } else if (word == "source") {
      source_ = value == "*" ? Lnet::IpGenPrefix() : prefixOf(value);
   } else if (word == "interface") {
      interface_ = value;
   } else if (word == "vrf") {
      vrf_ = value;
   } else if (word == "state") {
      state_ = reportedStateNamed(value);
      if (state_) return;
      throw std::invalid_argument(fmt::format(
            "{} is not a state{}", printable(inQuotes(value)),
            knownNames(value, allReportedStates, [](auto state) { return nameOf(state); })));
   } else {
      Qor::U32 number = 0;
      if (!parseNumber(value, number))
         throw std::invalid_argument(printable(inQuotes(value)) + " is not the number of a table");
      table_ = number;
   }
}

bool RouteFilter::matches(RouteRow const& route) const {
   Lnet::IpGenPrefix const& source = route.key.source();
   if (group_ && !contains(*group_, route.key.group())) return false;
   if (source_ &&
       (source_->isNull() ? !source.isAny() : source.isAny() || !contains(*source_, source))) {
      return false;
   }
   if (state_ && route.state != *state_) return false;
   if (vrf_ && route.vrf != *vrf_) return false;
   if (table_ && route.table != *table_) return false;
   return !interface_ || route.iif == *interface_ ||
          std::ranges::find(route.outputs, *interface_, &RouteOutput::oif) != route.outputs.end();
}

}  // namespace Agent
