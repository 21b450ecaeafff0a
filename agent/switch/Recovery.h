// The recovery of the hardware status after a restart of the agent. The status is rebuilt from the
// routes that are found on the chip, before the first route is replayed. The object of the library
// that does this is created and called by the names of its type and operations (Qor/Type.h), as in
// an agent that is not linked with that type.
#pragma once

#include <map>
#include <vector>

#include "IntfVlanId/Table.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Vel/VrfId.h"
#include "platform/sim/Found.h"

namespace Agent {

// Publishes a status for every VRF and for every found route. The status of a route has the
// accepting interface, and poll times of 0 because the last use is not known. If several entries
// have one key, the last entry determines the interface.
void recoverHwStatus(std::map<L3::VrfName, Vel::VrfId> const& vrfs,
                     std::vector<Sim::FoundRoute> const& found,
                     Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
                     Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus);

}  // namespace Agent
