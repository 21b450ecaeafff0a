// A simulated switch chip: ports with a link state, a replication table of multicast groups, a
// route table that points at groups, and a boundary table. It forwards packets by what has been
// written into it and by nothing else, so what a receiver would see can be asked of it.
//
// It is strict. A write that a correct driver never issues is refused: the chip stays as it was,
// the caller gets the reason, and the refusal is kept as a violation, after which audit() fails. A
// full table is not met by a correct driver either, which counts what it has allocated. Writes
// take effect at once: when they happen is the business of the platform in front of the chip.
//
// The chip is shared by its platform and by whoever shows its tables; both hold it counted.
#pragma once

#include <array>
#include <optional>
#include <ostream>
#include <vector>

#include "Lnet/IntfId.h"
#include "MrouteLib/PortVlanSet.h"
#include "Qor/Ptr.h"
#include "platform/sim/EntryTable.h"

namespace Sim {

// The size of a mid-range fixed-configuration switch. Tables have at most 16,777,216 entries.
struct ChipConfig {
   Qor::U32 groups = 8192;
   Qor::U32 routes = 32768;
   Qor::U32 boundaries = 1024;
   // From the issue of a write to its completion, when nothing is before it: a write through a
   // driver's transaction queue takes about a millisecond. Used by the platform, not by the chip.
   Qor::Seconds latency = 0.001;
};

enum class WriteKind : unsigned char {
   groupCreate,
   groupUpdate,
   groupDelete,
   routeCreate,
   routePoint,
   routeDelete,
   boundaryCreate,
   boundaryDelete,
};
inline constexpr std::size_t writeKinds = 8;

// The groups that every chip has, whatever its table: one that sends nowhere, and one that sends to
// the CPU alone. They cost no room, cannot be written, and a route may point at them at any time.
inline constexpr Qor::U32 dropGroup = 0xFFFFFFFD;
inline constexpr Qor::U32 cpuGroup = 0xFFFFFFFE;

constexpr bool isHardWired(Qor::U32 group) {
   return group == dropGroup || group == cpuGroup;
}
Qor::String groupName(Qor::U32 group);  // "17", "drop", "cpu"; "none" for noGroup

std::ostream& operator<<(std::ostream& os, WriteKind kind);  // "groupCreate"

// What was done that must not be: all are counted, the texts of the first hundred are kept.
class Violations {
 public:
   void add(Qor::String text);
   Qor::U64 count() const { return count_; }
   std::vector<Qor::String> const& texts() const { return texts_; }
   // Adds the texts, and how many more there were.
   void audit(std::vector<Qor::String>& faults) const;

 private:
   static constexpr std::size_t kept = 100;
   Qor::U64 count_ = 0;
   std::vector<Qor::String> texts_;
};

struct Port {
   Qor::U32 number = 0;
   std::vector<Bridging::VlanIdOrNone> vlans;  // those it carries
   bool linkUp = true;
   Qor::U64 copies = 0;         // sent
   Qor::U64 droppedCopies = 0;  // not sent, the link being down
};

struct Group {
   std::vector<MrouteLib::PortVlan> members;  // ascending
   bool toCpu = false;
   Qor::U32 routes = 0;  // how many route entries point at it
};

// The members of a set as a group has them.
std::vector<MrouteLib::PortVlan> membersOf(MrouteLib::PortVlanSet const& set);

struct Packet {
   Qor::U32 vrfId = 0;
   Lnet::IpGenAddr source;
   Lnet::IpGenAddr group;
   Bridging::VlanIdOrNone vlan;  // in which it arrives
   Qor::U32 bytes = 64;
};

enum class Forwarding : unsigned char {
   forwarded,   // to a port or to the CPU
   noRoute,     // no entry matches
   wrongVlan,   // the longest match accepts from another vlan
   notPointed,  // the entry has not been pointed at a group
   emptyGroup,  // the group has no members and not the CPU
   portsDown,   // the group has members, all behind links that are down
   bridged,     // a boundary entry keeps the packet in its vlan
};

std::ostream& operator<<(std::ostream& os, Forwarding forwarding);  // "wrongVlan"

struct Forwarded {
   Forwarding result = Forwarding::noRoute;
   std::vector<MrouteLib::PortVlan> copies;  // ascending
   bool toCpu = false;
   Qor::U32 droppedCopies = 0;     // those to ports whose link is down
   std::optional<Qor::U32> entry;  // the route or boundary entry that was hit
};

class Chip final : public Qor::RefCounted {
 public:
   // RangeException for a table of more than 16,777,216 entries
   //    "ChipConfig::groups > 16777216 not allowed"   (routes, boundaries likewise)
   // and for a latency that is negative, infinite or not a number
   //    "ChipConfig::latency < 0 or not finite not allowed".
   explicit Chip(ChipConfig const& config = {});

   ChipConfig const& config() const { return config_; }

   // ---- Ports. Not table writes, so their refusals are no violations. ----

   // Gives the interface its port, link up, and the vlan that the port carries; again with the same
   // number for each further vlan. Refused: a number that is another interface's, an interface
   // that has another number, the empty interface.
   Refusal portAdd(Lnet::IntfId intfId, Qor::U32 number, Bridging::VlanIdOrNone vlan);
   // Refused: an interface without a port.
   Refusal linkIs(Lnet::IntfId intfId, bool up);
   // Null for an interface without a port.
   Port const* port(Lnet::IntfId intfId) const;
   Qor::HashMap<Lnet::IntfId, Port> const& ports() const { return ports_; }

   // ---- Table writes. Each returns why it was refused, or an empty text. ----

   // The members ascend, each once; each is on a port, in a vlan that the port carries or in none.
   [[nodiscard]] Refusal groupCreate(Qor::U32 id, std::vector<MrouteLib::PortVlan> members,
                                     bool toCpu);
   [[nodiscard]] Refusal groupUpdate(Qor::U32 id, std::vector<MrouteLib::PortVlan> members,
                                     bool toCpu);
   // Refused while a route points at the group.
   [[nodiscard]] Refusal groupDelete(Qor::U32 id);

   // The entry forwards nothing before it is pointed at a group; `entry` names none.
   [[nodiscard]] Refusal routeCreate(Qor::U32 index, Entry const& entry);
   [[nodiscard]] Refusal routePoint(Qor::U32 index, Qor::U32 group);
   [[nodiscard]] Refusal routeDelete(Qor::U32 index);

   // A boundary entry keeps what it matches in the vlan in which it arrived, which the entry must
   // name. Against routes it counts as any entry: the longest match decides, and at the same length
   // the boundary.
   [[nodiscard]] Refusal boundaryCreate(Qor::U32 index, Entry const& entry);
   [[nodiscard]] Refusal boundaryDelete(Qor::U32 index);

   // ---- Packets. ----

   // Replicates one packet. The longest match is by the length of the group, then of the source:
   // (S,G), (*,G), group ranges, catch-all. When its entries accept from other vlans only, the
   // packet is dropped: it does not fall through to a shorter match. Hit time and counters are
   // those of the entry that matched with its vlan, whether or not it forwards.
   Forwarded forward(Packet const& packet);

   // ---- Reading. ----

   // Null when there is no such group; the hard-wired ones are always there.
   Group const* group(Qor::U32 id) const {
      if (id < groups_.size()) return groups_[id] ? &*groups_[id] : nullptr;
      return isHardWired(id) ? &hardWired_[id - dropGroup] : nullptr;
   }
   // Calls visit(id, group) for every group of the table in the order of the ids.
   template <class Visit>
   void forEachGroup(Visit&& visit) const {
      for (Qor::U32 id = 0; id < groups_.size(); ++id) {
         if (groups_[id]) visit(id, *groups_[id]);
      }
   }
   Qor::U32 groups() const { return groupCount_; }
   Qor::U32 groupsPeak() const { return groupsPeak_; }
   // Its size, peak and entries in order.
   EntryTable const& routes() const { return routes_; }
   EntryTable const& boundaries() const { return boundaries_; }

   // How many writes of the kind have been done; refused ones are violations instead.
   Qor::U64 writes(WriteKind kind) const { return writes_[static_cast<std::size_t>(kind)]; }
   Qor::U64 droppedCopies() const { return droppedCopies_; }
   // What has hit an entry of either table so far.
   Traffic const& hits() const { return hits_; }
   Violations const& violations() const { return violations_; }

   // What is wrong with the chip, empty when nothing is: violations, counts that do not add up,
   // routes whose group is missing.
   std::vector<Qor::String> audit() const;

   // A fault of the memory: the route entry names another group from now on, and no bookkeeping
   // knows. The entry must exist.
   void softError(Qor::U32 routeIndex, Qor::U32 group);

 private:
   ~Chip() override;

   Refusal done(WriteKind kind, Refusal refusal);
   Group* writable(Qor::U32 id) { return const_cast<Group*>(group(id)); }
   Refusal checkInTable(Qor::U32 id) const;
   Refusal checkMembers(std::vector<MrouteLib::PortVlan> const& members) const;
   Refusal groupWrite(Qor::U32 id, std::vector<MrouteLib::PortVlan> members, bool toCpu);
   void replicate(Group const& group, Forwarded& out);

   ChipConfig const config_;
   Qor::HashMap<Lnet::IntfId, Port> ports_;
   Qor::HashMap<Qor::U32, Lnet::IntfId> intfOfPort_;  // by the port's number
   std::vector<std::optional<Group>> groups_;         // by id, as far as one has been used
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
