// A simulated switch chip: ports with a link state, a replication table of multicast groups, a
// route table whose entries point at groups, and a boundary table. The chip forwards packets by
// these tables alone, so forward() returns the copies that receivers would get.
//
// The chip is strict. It refuses a write that a correct driver never issues: the tables stay as
// they were, the caller gets the reason, and audit() reports the refusal as a violation from then
// on. A write to a full table is such a write, because a correct driver counts its allocations.
// Writes take effect at once; the platform in front of the chip decides when they happen.
//
// The platform and the views of the tables share the chip by counted pointers.
#pragma once

#include <array>
#include <optional>
#include <ostream>
#include <vector>

#include "Lnet/IntfId.h"
#include "MrouteLib/PortVlanSet.h"
#include "Qor/HashMap.h"
#include "Qor/Ptr.h"
#include "hooks/Forwarding.h"
#include "platform/Faults.h"

namespace Sim {

using VelMroute::EntryTable;
using VelMroute::Forwarded;
using VelMroute::Forwarding;
using VelMroute::noGroup;
using VelMroute::Packet;
using VelMroute::Traffic;
using Entry = VelMroute::TableEntry;
using Refusal = EntryTable::Refusal;

// The defaults are the sizes of a mid-range fixed-configuration switch. Each table has at most
// 16,777,216 entries.
struct ChipConfig {
   Qor::U32 groups = 8192;
   Qor::U32 routes = 32768;
   Qor::U32 boundaries = 1024;
   // The time from the issue of a write to its completion in an empty queue. A write through a
   // driver's transaction queue takes about a millisecond. Only the asynchronous platform uses it.
   Qor::Seconds latency = 0.001;
};

using VelMroute::Faults;
using VelMroute::WriteKind;
using VelMroute::writeKinds;

// The hard-wired groups that every chip has outside its replication table: dropGroup sends nowhere,
// and cpuGroup sends to the CPU alone. They need no room and cannot be written, and an entry may
// point at them at any time.
inline constexpr Qor::U32 dropGroup = 0xFFFFFFFD;
inline constexpr Qor::U32 cpuGroup = 0xFFFFFFFE;

constexpr bool isHardWired(Qor::U32 group) {
   return group == dropGroup || group == cpuGroup;
}
Qor::String groupName(Qor::U32 group);  // "17", "drop", "cpu"; "none" for noGroup

// Calls and writes that a correct driver never makes. All violations are counted; the texts of the
// first hundred are kept.
class Violations {
 public:
   void add(Qor::String text);
   Qor::U64 count() const { return count_; }
   std::vector<Qor::String> const& texts() const { return texts_; }
   // Appends the texts and, if some were not kept, their number.
   void audit(std::vector<Qor::String>& faults) const;

 private:
   static constexpr std::size_t kept = 100;
   Qor::U64 count_ = 0;
   std::vector<Qor::String> texts_;
};

struct Port {
   Qor::U32 number = 0;
   std::vector<Bridging::VlanIdOrNone> vlans;  // the vlans that the port carries
   bool linkUp = true;
   Qor::U64 copies = 0;         // sent copies
   Qor::U64 droppedCopies = 0;  // copies dropped because the link was down
};

struct Group {
   std::vector<MrouteLib::PortVlan> members;  // ascending
   bool toCpu = false;
   Qor::U32 routes = 0;  // the number of route entries that point at the group
};

// The outgoing pairs of a set as the members of a group, ascending.
std::vector<MrouteLib::PortVlan> membersOf(MrouteLib::PortVlanSet const& set);

class Chip final : public Qor::RefCounted {
 public:
   // Throws RangeException
   //    "ChipConfig::groups > 16777216 not allowed", also with routes and boundaries,
   //    "ChipConfig::latency < 0 or not finite not allowed", also for NaN.
   explicit Chip(ChipConfig const& config = {});

   ChipConfig const& config() const { return config_; }

   // ---- Ports. A refusal is not a violation here, since no table is written. ----

   // Adds a port with its link up for the interface, and a vlan that the port carries. A further
   // call with the same number adds one more vlan. Refuses the number of another interface's port,
   // an interface that has a port with another number, and the empty interface.
   Refusal portAdd(Lnet::IntfId intfId, Qor::U32 number, Bridging::VlanIdOrNone vlan);
   // Refuses an interface without a port.
   Refusal linkIs(Lnet::IntfId intfId, bool up);
   // Returns null if the interface has no port.
   Port const* port(Lnet::IntfId intfId) const;
   Qor::HashMap<Lnet::IntfId, Port> const& ports() const { return ports_; }

   // ---- Table writes. Each returns the reason of its refusal, or an empty text. ----

   // The members ascend, without duplicates. The interface of a member has a port, and the port
   // carries the vlan of the member unless that is none. Refuses the id of a hard-wired group.
   [[nodiscard]] Refusal groupCreate(Qor::U32 id, std::vector<MrouteLib::PortVlan> members,
                                     bool toCpu);
   [[nodiscard]] Refusal groupUpdate(Qor::U32 id, std::vector<MrouteLib::PortVlan> members,
                                     bool toCpu);
   // Refuses a group at which a route entry points.
   [[nodiscard]] Refusal groupDelete(Qor::U32 id);

   // Creates an entry that points at no group: `entry.group` must be noGroup.
   [[nodiscard]] Refusal routeCreate(Qor::U32 index, Entry const& entry);
   [[nodiscard]] Refusal routePoint(Qor::U32 index, Qor::U32 group);
   [[nodiscard]] Refusal routeDelete(Qor::U32 index);

   // Creates a boundary entry, which keeps a matching packet in its accepting vlan. That vlan must
   // not be none.
   [[nodiscard]] Refusal boundaryCreate(Qor::U32 index, Entry const& entry);
   [[nodiscard]] Refusal boundaryDelete(Qor::U32 index);

   // ---- Packets. ----

   // Forwards one packet by the rule of hooks/Forwarding.h. The entry that matches with its vlan
   // counts the packet and gets the time of the hit, also if it forwards nothing.
   Forwarded forward(Packet const& packet);

   // ---- Reading. ----

   // The group of the table or the hard-wired group with this number; null if there is none.
   Group const* group(Qor::U32 id) const {
      if (id < groups_.size()) return groups_[id] ? &*groups_[id] : nullptr;
      return isHardWired(id) ? &hardWired_[id - dropGroup] : nullptr;
   }
   // Calls visit(id, group) for every group of the table, by ascending id.
   template <class Visit>
   void forEachGroup(Visit&& visit) const {
      for (Qor::U32 id = 0; id < groups_.size(); ++id) {
         if (groups_[id]) visit(id, *groups_[id]);
      }
   }
   Qor::U32 groups() const { return groupCount_; }
   Qor::U32 groupsPeak() const { return groupsPeak_; }
   EntryTable const& routes() const { return routes_; }
   EntryTable const& boundaries() const { return boundaries_; }

   // The number of completed writes of the kind, without the refused ones.
   Qor::U64 writes(WriteKind kind) const { return writes_[static_cast<std::size_t>(kind)]; }
   Qor::U64 droppedCopies() const { return droppedCopies_; }
   // The traffic that hit an entry of either table so far, also of entries that were deleted.
   Traffic const& hits() const { return hits_; }
   Violations const& violations() const { return violations_; }

   // The faults of the chip, one text each: violations, inconsistent counts, and route entries that
   // point at a missing group.
   std::vector<Qor::String> audit() const;

   // Simulates a memory fault: the route entry points at another group from now on, while all
   // counts stay as they were. The entry must exist.
   void softError(Qor::U32 routeIndex, Qor::U32 group);

 private:
   ~Chip() override;

   Refusal done(WriteKind kind, Refusal refusal);
   Group* writable(Qor::U32 id) { return const_cast<Group*>(group(id)); }
   Refusal checkInTable(Qor::U32 id) const;
   Refusal checkMembers(std::vector<MrouteLib::PortVlan> const& members) const;
   Refusal groupWrite(Qor::U32 id, std::vector<MrouteLib::PortVlan> members, bool toCpu);

   ChipConfig const config_;
   Qor::HashMap<Lnet::IntfId, Port> ports_;
   Qor::HashMap<Qor::U32, Lnet::IntfId> intfOfPort_;  // by port number
   std::vector<std::optional<Group>> groups_;         // by id, up to the highest id used so far
   std::array<Group, 2> hardWired_{Group{{}, false, 0}, Group{{}, true, 0}};
   Qor::U32 groupCount_ = 0;
   Qor::U32 groupsPeak_ = 0;
   EntryTable routes_;
   EntryTable boundaries_;
   std::array<Qor::U64, writeKinds> writes_{};
   Qor::U64 droppedCopies_ = 0;
   Traffic hits_;
   Violations violations_;
};

}  // namespace Sim
