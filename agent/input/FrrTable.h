// Reads the JSON of FRR's commands `show ip mroute json` and `show ip mroute vrf all json`, and of
// their forms with `ipv6`:
//
//    {"default":{"239.1.1.1":{"10.0.0.2":{"installed":1,"iif":"rtr0",
//      "oil":{"rtr3":{"outboundInterface":"rtr3","ttl":1}}}}}}
//
// Without `vrf all` the groups are at the top, and the VRF is "default". A source is an address or
// "*". All keys but "installed", "iif" and "oil" are ignored, and "inboundInterface" of an output
// stands for a missing "iif". A route without "iif" and "oil" is an error. A route that FRR has not installed, or whose input it does not know,
// is unresolved. The keys of "oil" are the outputs; an output that FRR cannot name is left out.
#pragma once

#include <memory>
#include <string_view>

#include "agent/input/TableHandler.h"

namespace Agent {

// Whether a JSON text is an object, as all tables of FRR are.
bool looksLikeFrrTable(std::string_view text);

std::unique_ptr<TableHandler> newFrrTable(std::string_view text, char const* const& reached,
                                          SnapshotEvent& event);

}  // namespace Agent
