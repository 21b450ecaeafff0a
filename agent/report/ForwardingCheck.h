// Compares what the simulated chip forwards with what the capture says in the end.
//
// A packet is sent through the chip for every route of the capture, in its incoming interface, and
// must come out exactly at the interfaces the route names; outputs whose link is down get nothing
// on either side. The packet must hit the route's own entry, and the chip must hold no other
// entries than those. Routes that wait for room, or whose writes failed, are not differences: they
// are states, listed with their reasons.
#pragma once

#include <string>
#include <vector>

#include "agent/input/CaptureState.h"
#include "agent/switch/SimulatedSwitch.h"

namespace Agent {

struct ForwardingCheck {
   struct NotPlaced {
      RouteId id;
      std::string reason;
   };

   std::size_t routes = 0;                // compared
   std::vector<std::string> differences;  // a line for each
   std::vector<NotPlaced> notPlaced;

   bool passed() const { return differences.empty(); }
};

// The switch is settled. Sending the packets counts in the chip's hit times and counters.
ForwardingCheck checkForwarding(SimulatedSwitch& simulated, CaptureState const& capture);

}  // namespace Agent
