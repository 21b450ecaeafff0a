// Compares the forwarding of the chip with the tables at the end of the capture.
//
// For every route of the capture the check sends a packet through the chip, from the route's
// incoming interface. A copy must leave at each output of the route whose link is up, and at no
// other interface. The packet must hit the route's own entry, and the chip must have no further
// entries. A route that waits for room, or whose write failed, is not a difference. The check lists
// such a route with its reason.
#pragma once

#include <string>
#include <vector>

#include "agent/input/CaptureState.h"
#include "agent/switch/Switch.h"

namespace Agent {

struct ForwardingCheck {
   struct NotPlaced {
      RouteId id;
      std::string reason;
   };

   std::string leftOut;                   // the reason why nothing was compared; empty: it was
   std::size_t routes = 0;                // number of routes that were compared
   std::vector<std::string> differences;  // a line each
   std::vector<NotPlaced> notPlaced;

   bool passed() const { return differences.empty(); }
};

// Requires a settled switch. The packets count in the chip's hit times and counters. A platform
// without a probe sends no packets, and leaves the check out.
ForwardingCheck checkForwarding(Switch& theSwitch, CaptureState const& capture);

}  // namespace Agent
