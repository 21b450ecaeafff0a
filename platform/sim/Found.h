// The groups and entries that a platform finds on its chip when it starts after a crash of the
// agent. The platform adopts a found group or entry for a request that it satisfies. The platform
// sweeps the remaining ones when the routing layer has announced the end of the replay.
//
// Backups. Several oif sets may have the members of one found group and different inputs. A set
// with backup pairs has its group rewritten as soon as its input fails. Such a set gets a found
// group only if the request is for an entry that points at the group, or if no remaining entry
// does.
//
// The platform does not write a found group or entry before it is taken, so the chip's tables have
// all its properties. These objects keep the numbers only. The chip must outlive them.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "platform/sim/Chip.h"

namespace Sim {

// A found entry as the recovery of the hardware status needs it.
struct FoundRoute {
   Qor::U32 vrfId = 0;
   Routing::Multicast::Fib::IpGenRouteKey key;
   Bridging::VlanIdOrNone acceptingVlan;
   bool boundary = false;  // an entry of the boundary table
};

// The found entries of one table. A found entry keeps its group alive, even after adoption, until
// the entry points elsewhere or its new owner holds the group.
class FoundEntries {
 public:
   // Starts with all entries of the table.
   explicit FoundEntries(EntryTable const& table);

   // The numbers of the remaining entries, ascending.
   std::set<Qor::U32> const& left() const { return left_; }
   // The remaining entry with this VRF, key and accepting vlan.
   std::optional<Qor::U32> find(Qor::U32 vrfId, Routing::Multicast::Fib::IpGenRouteKey const& key,
                                Bridging::VlanIdOrNone vlan) const;
   // The group of a remaining entry with this key and vlan in any VRF; noGroup if there is none.
   Qor::U32 groupOf(Routing::Multicast::Fib::IpGenRouteKey const& key,
                    Bridging::VlanIdOrNone vlan) const;
   // Removes the entry from the remaining ones: it is adopted, or is about to be deleted.
   void take(Qor::U32 index);
   // Whether a remaining entry points at the group.
   bool awaits(Qor::U32 group) const { return awaited_.contains(group); }

   // Whether an entry keeps the group alive.
   bool holds(Qor::U32 group) const { return holders_.contains(group); }
   // Whether exactly one entry keeps the group alive.
   bool heldByOne(Qor::U32 group) const {
      auto const holders = holders_.find(group);
      return holders != holders_.end() && holders->second == 1;
   }
   // Whether any entry keeps a group alive.
   bool holding() const { return !held_.empty(); }
   // The entry no longer keeps its group alive. No effect on an entry without a group.
   void release(Qor::U32 index);

 private:
   EntryTable const& table_;
   std::set<Qor::U32> left_;
   std::set<Qor::U32> vrfs_;               // the VRF ids of all found entries
   std::map<Qor::U32, Qor::U32> held_;     // by entry, the group that it keeps alive
   std::map<Qor::U32, Qor::U32> holders_;  // by group, the number of entries that keep it alive
   // By group, the number of remaining entries that point at it.
   std::map<Qor::U32, Qor::U32> awaited_;
};

// The found groups. A group is offered for adoption while its members on the chip are certain.
class FoundGroups {
 public:
   // The members, and whether the group sends to the CPU.
   using Content = std::pair<std::vector<MrouteLib::PortVlan>, bool>;

   static Content contentOf(Group const& group) { return {group.members, group.toCpu}; }
   static Content contentOf(MrouteLib::PortVlanSet const& set) {
      return {membersOf(set), set.toCpu()};
   }

   // Starts with all groups of the chip's table.
   explicit FoundGroups(Chip const& chip);

   // The ids of the remaining groups, ascending.
   std::set<Qor::U32> const& left() const { return left_; }
   bool contains(Qor::U32 id) const { return left_.contains(id); }
   // Whether the group is offered and has exactly the members of the set.
   bool carries(Qor::U32 id, MrouteLib::PortVlanSet const& set) const;
   // An offered group with this content: `preferred` if it is such a group, otherwise the lowest id
   // for which may(id) is true.
   template <class May>
   std::optional<Qor::U32> like(Content const& content, Qor::U32 preferred, May const& may) const {
      auto const equal = byContent_.find(content);
      if (equal == byContent_.end()) return std::nullopt;
      if (equal->second.contains(preferred)) return preferred;
      for (Qor::U32 const id : equal->second) {
         if (may(id)) return id;
      }
      return std::nullopt;
   }
   // Removes the group from the remaining ones: it is adopted, or is about to be deleted.
   void take(Qor::U32 id);
   // The owner of the group released it, but the group stays on the chip and is found again. With
   // `certain` false a write of its members is under way, and the group is no longer offered.
   void giveBack(Qor::U32 id, bool certain);

 private:
   Chip const& chip_;
   std::set<Qor::U32> left_;
   std::map<Content, std::set<Qor::U32>> byContent_;  // the offered groups
};

// The found groups and entries of a chip, with the numbers of adopted and swept ones.
struct Found {
   explicit Found(Chip const& chip)
         : groups(chip), routes(chip.routes()), boundaries(chip.boundaries()) {}

   // Whether no found group and no found boundary entry remains, and no found route entry keeps a
   // group alive that its owner could still give back.
   bool settled() const {
      return groups.left().empty() && !routes.holding() && boundaries.left().empty();
   }
   // The remaining entries of both tables. Entries that send nowhere come first: of several entries
   // with one key these are the fastdrop entries, and recovery keeps the last entry of a key.
   std::vector<FoundRoute> listed(Chip const& chip) const;

   FoundGroups groups;
   FoundEntries routes;
   FoundEntries boundaries;
   Qor::U64 adopted = 0;  // adopted groups and entries
   Qor::U64 swept = 0;    // swept groups and entries
};

}  // namespace Sim
