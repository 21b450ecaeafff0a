// The words of traces that several texts share.
#pragma once

#include <string>
#include <vector>

#include "agent/explain/RouteTrace.h"

namespace Agent {

// "rtr1, rtr2"
std::string namesOf(std::vector<Lnet::IntfId> const& intfs);
// The end of a sentence about packets: "leave by rtr3, rtr4", "are dropped".
std::string fateOf(PacketTrace const& packet);
// "link rtr0 down", "group 7: made (doAllocateSharableMulticastGroup)"
std::string wordsOf(HistoryEvent const& event, PathKind path);

}  // namespace Agent
