#include "agent/scenario/Scenario.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace Agent::Scenario {

namespace {

// The address as a number, plus `step`. The sum wraps around behind the last address.
Lnet::IpGenAddr plus(Lnet::IpGenAddr const& address, std::uint32_t step) {
   Lnet::IpGenAddr::Bytes bytes = address.bytes();
   std::uint64_t carry = step;
   for (std::size_t i = address.bitWidth() / 8; i-- > 0 && carry != 0;) {
      carry += bytes[i];
      bytes[i] = static_cast<std::uint8_t>(carry);
      carry >>= 8;
   }
   if (address.isV6()) return Lnet::IpGenAddr::v6(bytes);
   return Lnet::IpGenAddr::v4(static_cast<std::uint32_t>(bytes[0]) << 24 | bytes[1] << 16 |
                              bytes[2] << 8 | bytes[3]);
}

}  // namespace

VelMroute::PlatformOptions Settings::platformOptions() const {
   VelMroute::PlatformOptions options;
   options.add("groups", chip.groups);
   options.add("routes", chip.routes);
   options.add("boundaries", chip.boundaries);
   options.add("latency", chip.latency);
   options.add("minPollingInterval", minPollingInterval);
   options.add("callCost", callCost);
   return options;
}

RouteKey RouteRun::key(std::uint32_t i) const {
   if (!first.group().isHost()) return first;
   return RouteKey(first.source(), Lnet::IpGenPrefix::host(plus(first.group().address(), i)));
}

std::string RouteRun::toString() const {
   std::string text = vrf.name() == "default" ? "" : "vrf " + vrf.name() + " ";
   text += first.pretty();
   if (groups > 1) text += " and " + std::to_string(groups - 1) + " more";
   return text;
}

std::string numberText(double value) {
   std::string out = fmt::format("{:.6f}", value);
   out.erase(out.find_last_not_of('0') + 1);
   if (out.back() == '.') out.pop_back();
   return out;
}

std::string Range::toString() const {
   if (min == max) return numberText(min);
   if (std::isinf(max)) return "at least " + numberText(min);
   if (std::isinf(min)) return "at most " + numberText(max);
   return numberText(min) + " to " + numberText(max);
}

char const* nameOf(State state) {
   static constexpr char const* names[states] = {"wanted", "inHardware", "waiting", "failed",
                                                 "groups", "zombies",    "entries", "rerouting"};
   return names[static_cast<std::size_t>(state)];
}

char const* nameOf(Count count) {
   static constexpr char const* names[counts] = {
         "groupCreate",  "groupUpdate",    "groupDelete",    "routeCreate",   "routePoint",
         "routeDelete",  "boundaryCreate", "boundaryDelete", "resurrections", "purges",
         "failedWrites", "unchanged",      "refusals",       "adopted",       "swept",
         "sent",         "lost",           "duplicated",     "writes"};
   return names[static_cast<std::size_t>(count)];
}

std::string MessageExpectation::toString() const {
   std::string out;
   if (log) {
      out = name.empty() ? "a log message" : "log message " + name;
      if (!text.empty()) out += " with \"" + text + '"';
      return out;
   }
   return "trace \"" + text + "\" of level 0 to " + std::to_string(level);
}

}  // namespace Agent::Scenario
