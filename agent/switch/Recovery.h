// The hardware status after a restart of the agent: rebuilt, before any route is told again, from
// the routes that are found on the chip. The library's recovery is made and called by name
// (Qor/Type.h), as an agent does that links no type of it.
#pragma once

#include <map>
#include <vector>

#include "IntfVlanId/Table.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Vel/VrfId.h"
#include "platform/sim/Found.h"

namespace Agent {

// Gives every VRF a status, and every route found one with its accepting interface and poll times
// of 0: when it was last used is not known. Of several entries with one key the last one tells the
// interface.
void recoverHwStatus(std::map<L3::VrfName, Vel::VrfId> const& vrfs,
                     std::vector<Sim::FoundRoute> const& found,
                     Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
                     Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus);

}  // namespace Agent
