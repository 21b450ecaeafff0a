#include "agent/report/Shortfalls.h"

#include <fmt/format.h>

#include "agent/report/ErrorOutput.h"

namespace Agent {

std::vector<std::string> shortfalls(std::uint64_t badLines, Switch const& theSwitch) {
   std::vector<std::string> found;
   if (badLines)
      found.push_back(
            fmt::format("{} bad {} left out", badLines, badLines == 1 ? "line was" : "lines were"));
   bool placed = false;
   theSwitch.programmer().forEach([&](RouteView const& route) {
      placed = placed || route.state() == VelMroute::RouteState::inHardware;
   });
   auto const wanted = theSwitch.programmer().routes();
   if (wanted && !placed) found.push_back(fmt::format("none of {} routes is in hardware", wanted));
   return found;
}

bool passesStrict(bool strict, std::vector<std::string> const& found) {
   if (!strict) return true;
   for (std::string const& text : found)
      printError(text);
   return found.empty();
}

}  // namespace Agent
