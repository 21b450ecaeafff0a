// The forwarding rule of a chip: the copies of one packet, by a route table, a boundary table and
// the sets at which the entries point. The simulated chip and the shadow of the tables
// (hooks/Shadow.h) both forward by this rule alone.
//
// A match is longer if its group prefix is longer, and for equal group prefixes if its source
// prefix is longer: (S,G), (*,G), group ranges, catch-all. If all route entries of the longest
// match accept from other vlans, the packet is dropped and does not fall through to a shorter
// match; a boundary key leaves such a packet to shorter matches. Between a route entry and a
// boundary entry the longer match decides, and between equally long ones the boundary entry.
#pragma once

#include <optional>
#include <ostream>
#include <vector>

#include "MrouteLib/PortVlan.h"
#include "hooks/EntryTable.h"

namespace VelMroute {

struct Packet {
   Qor::U32 vrfId = 0;
   Lnet::IpGenAddr source;
   Lnet::IpGenAddr group;
   Bridging::VlanIdOrNone vlan;  // the vlan in which the packet arrives
   Qor::U32 bytes = 64;
};

enum class Forwarding : unsigned char {
   forwarded,   // to a port or to the CPU
   noRoute,     // no entry matches
   wrongVlan,   // the entries of the longest match accept from other vlans
   notPointed,  // the entry points at no set
   emptyGroup,  // the set has no members and does not send to the CPU
   portsDown,   // the links of all members are down
   bridged,     // a boundary entry keeps the packet in its vlan
};

std::ostream& operator<<(std::ostream& os, Forwarding forwarding);  // "wrongVlan"

struct Forwarded {
   Forwarding result = Forwarding::noRoute;
   std::vector<MrouteLib::PortVlan> copies;  // ascending
   bool toCpu = false;
   Qor::U32 droppedCopies = 0;  // copies dropped because the link of their port is down
   // The number of the entry that was hit: of a boundary entry if the result is `bridged`,
   // otherwise of a route entry. An entry whose set sends nowhere is hit, too.
   std::optional<Qor::U32> entry;
};

// The entry that decides on the packet: `entry` is its number, and the result is `bridged` for a
// boundary entry and `notPointed` for a route entry. Without an entry the result is final. With
// `otherVlan` a chip may have another rule for route entries that accept from other vlans.
Forwarded match(EntryTable const& routes, EntryTable const& boundaries, Packet const& packet,
                EntryTable::OtherVlan otherVlan = EntryTable::OtherVlan::ends);

// Sends the packet of a route entry to the members of its set. `set` has `members`, a range of port
// and vlan pairs, and `toCpu`. isUp(member) returns whether the link of the member's port is up.
template <class Set, class IsUp>
void replicate(Set const& set, IsUp&& isUp, Forwarded& out) {
   for (MrouteLib::PortVlan const& member : set.members) {
      if (isUp(member)) {
         out.copies.push_back(member);
      } else {
         ++out.droppedCopies;
      }
   }
   out.toCpu = set.toCpu;
   if (out.toCpu || !out.copies.empty()) {
      out.result = Forwarding::forwarded;
   } else {
      out.result = set.members.empty() ? Forwarding::emptyGroup : Forwarding::portsDown;
   }
}

}  // namespace VelMroute
