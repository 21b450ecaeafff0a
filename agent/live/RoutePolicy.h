// Decides which routes of the kernel go into hardware. All or nothing: a route with one interface
// that has no port stays wholly with the CPU, because a copy to the CPU would be forwarded by the
// kernel to all outputs a second time.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Lnet/IntfId.h"
#include "kernel/Route.h"

namespace Agent {

// The reasons as fixed words, for metrics and filters.
enum class CpuReason : unsigned char {
   none,            // the route goes into hardware
   unresolved,      // the kernel waits for the daemon's answer
   anySource,       // a (*,G) route, with which the CPU sees new sources
   linkLocalGroup,  // of protocols, which the CPU must see
   noInput,         // the kernel names no input interface
   unmappedInput,   // the input has no port in the configuration
   unmappedOutput,  // an output has none
   hiddenByTable,   // the rules select another table for packets from the input
   noTable,         // the rules select no table for them
};
inline constexpr std::size_t cpuReasons = 9;

char const* nameOf(CpuReason reason);  // "unmapped-output"

struct RouteDecision {
   CpuReason reason = CpuReason::none;
   std::string text;  // "output eth5 has no port"; empty for a route that goes into hardware
   // Of a route that goes into hardware.
   Lnet::IntfId input;
   std::vector<Lnet::IntfId> outputs;

   bool inHardware() const { return reason == CpuReason::none; }
};

// The interfaces of the kernel as the policy needs them.
struct RouteSurroundings {
   // The configured interface with this index of the kernel; nothing for others.
   std::function<std::optional<Lnet::IntfId>(Qor::U32 ifindex)> mapped;
   // The name of the interface for people: "eth5", or "interface 7" if the kernel has none.
   std::function<std::string(Qor::U32 ifindex)> nameOf;
   // The table that the rules select for packets from this interface; 0 for none.
   std::function<Qor::U32(Lnet::IpFamily family, Qor::U32 ifindex)> selectedTable;
};

// 224.0.0.0/24, and the scopes of the node and the link of IPv6.
bool isLinkLocalGroup(Lnet::IpGenAddr const& group);

RouteDecision decide(Kernel::RouteKey const& key, Kernel::Route const& route,
                     RouteSurroundings const& surroundings);

}  // namespace Agent
