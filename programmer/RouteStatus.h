// The place of a route between its owner's wish and the chip, as a value.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <ostream>

#include "MrouteLib/RouteHandle.h"
#include "Qor/Types.h"

namespace VelMroute {

// The tables of a chip in which a route may have to wait for room. A route takes a group for its
// outputs and an entry in one of the two other tables.
enum class Table : unsigned char { group, entry, boundary };
inline constexpr std::array allTables{Table::group, Table::entry, Table::boundary};

enum class RouteState : unsigned char {
   queued,           // a change waits for the next pass
   programming,      // writes are under way
   inHardware,       // the chip has the route as wanted
   waitingGroup,     // the replication table has no room. These three are in the order of Table
   waitingEntry,     // the route table has no room
   waitingBoundary,  // the boundary table has no room
   waitingVrf,       // the VRF is not in the hardware
   waitingVlan,      // an interface of the route has no vlan
   failed,           // writes failed, a hook threw, or this chip takes no such route
};

// The name of the enumerator.
std::ostream& operator<<(std::ostream& os, RouteState state);

struct RouteStatus {
   RouteState state = RouteState::queued;
   Qor::String reason;             // why the route is not in hardware; empty in hardware
   Qor::Seconds since = 0;         // the time at which the route got this state, as of Qor::now()
   MrouteLib::RouteHandle handle;  // invalid without an entry
   std::optional<Qor::U32> group;  // the multicast id or the oif set index; none without a group
   Qor::U32 failures = 0;          // placements of the present wish whose writes failed
   std::optional<std::size_t> before;  // in line for room: the number of routes in front
};

}  // namespace VelMroute
