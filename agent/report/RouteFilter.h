// Selects routes by words, as people write them behind the view "routes":
//
//    group 239.1.0.0/16 source 10.0.0.2 interface rtr3 state waiting vrf red table 253
//
// Each word has a value and stands at most once. A route must fit all of them.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "agent/report/RouteRow.h"

namespace Agent {

class RouteFilter {
 public:
   // The words, and the usage of a filter.
   static std::span<std::string_view const> words();
   static constexpr char const* usage =
         "[group PREFIX] [source PREFIX|*] [interface NAME] [state STATE] [vrf NAME] [table N]";

   RouteFilter() = default;
   // Raises std::invalid_argument, with a text that names the known words, for other texts.
   explicit RouteFilter(std::span<std::string const> text);

   bool empty() const { return empty_; }
   bool matches(RouteRow const& route) const;

 private:
   void add(std::string_view word, std::string const& value);
   static Lnet::IpGenPrefix prefixOf(std::string const& value);

   bool empty_ = true;
   std::optional<Lnet::IpGenPrefix> group_, source_;  // the null prefix: any source
   std::optional<std::string> interface_;             // the input or an output
   std::optional<ReportedState> state_;
   std::optional<std::string> vrf_;
   std::optional<Qor::U32> table_;
};

}  // namespace Agent
