#include "agent/live/RoutePolicy.h"

namespace Agent {

namespace {

RouteDecision withCpu(CpuReason reason, std::string text) {
   RouteDecision decision;
   decision.reason = reason;
   decision.text = std::move(text);
   return decision;
}

}  // namespace

char const* nameOf(CpuReason reason) {
   static constexpr char const* names[cpuReasons] = {
         "none",           "unresolved",      "any-source",      "link-local-group", "no-input",
         "unmapped-input", "unmapped-output", "hidden-by-table", "no-table"};
   return names[static_cast<std::size_t>(reason)];
}

bool isLinkLocalGroup(Lnet::IpGenAddr const& group) {
   auto const& bytes = group.bytes();
   if (group.isV6()) return bytes[0] == 0xff && (bytes[1] & 0x0f) <= 2;
   return bytes[0] == 224 && bytes[1] == 0 && bytes[2] == 0;
}

RouteDecision decide(Kernel::RouteKey const& key, Kernel::Route const& route,
                     RouteSurroundings const& surroundings) {
   if (route.unresolved) {
      return withCpu(CpuReason::unresolved, "the kernel waits for the daemon's answer");
   }
   if (key.source.isUnspecified()) {
      return withCpu(CpuReason::anySource, "(*,G): the CPU has to see new sources");
   }
   if (isLinkLocalGroup(key.group)) {
      return withCpu(CpuReason::linkLocalGroup, "the group is local to the link");
   }
   if (route.input == 0) return withCpu(CpuReason::noInput, "the kernel names no input interface");
   RouteDecision decision;
   auto const input = surroundings.mapped(route.input);
   if (!input) {
      return withCpu(CpuReason::unmappedInput,
                     "input " + surroundings.nameOf(route.input) + " has no port");
   }
   Qor::U32 const table = surroundings.selectedTable(key.family(), route.input);
   if (table == 0) return withCpu(CpuReason::noTable, "no rule selects a table for the input");
   if (table != key.table) {
      return withCpu(CpuReason::hiddenByTable, "hidden by table " + std::to_string(table));
   }
   decision.input = *input;
   for (Qor::U32 const output : route.outputs) {
      auto const mapped = surroundings.mapped(output);
      if (!mapped) {
         return withCpu(CpuReason::unmappedOutput,
                        "output " + surroundings.nameOf(output) + " has no port");
      }
      decision.outputs.push_back(*mapped);
   }
   return decision;
}

}  // namespace Agent
