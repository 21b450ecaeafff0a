// What a platform finds on its chip when it starts after the agent has crashed: groups and entries
// that nobody has asked for yet. A platform takes over from here what it is asked for (adoption),
// and sweeps what is left once the routing layer has told all that it wants.
//
// Other sets than the one that a group was made for may have the same members, and other inputs. A
// group that is taken over for a set with a backup may be rewritten the moment after, since its
// input fails. So it is handed out for such a set only to who comes for an entry that points at it,
// or when no entry that is still left points at it.
//
// What has been found and not been taken is never written, so the chip's tables say what it is
// like; only which of it is still here is kept. The chip outlives these objects.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "platform/sim/Chip.h"

namespace Sim {

// An entry as recovery wants to know it.
struct FoundRoute {
   Qor::U32 vrfId = 0;
   Routing::Multicast::Fib::IpGenRouteKey key;
   Bridging::VlanIdOrNone acceptingVlan;
};

// The entries of one table. An entry that has been found holds the group it points at, also once it
// is taken, until it is known to have left it, or that the one who took it holds the group himself.
class FoundEntries {
 public:
   // All that the table has.
   explicit FoundEntries(EntryTable const& table);

   // Their numbers, ascending.
   std::set<Qor::U32> const& left() const { return left_; }
   // The one that matches the packets of this VRF, key and vlan.
   std::optional<Qor::U32> find(Qor::U32 vrfId, Routing::Multicast::Fib::IpGenRouteKey const& key,
                                Bridging::VlanIdOrNone vlan) const;
   // The group of an entry of this key and vlan, in whichever VRF; noGroup where there is none.
   Qor::U32 groupOf(Routing::Multicast::Fib::IpGenRouteKey const& key,
                    Bridging::VlanIdOrNone vlan) const;
   // Somebody has asked for it, or it is about to be deleted.
   void take(Qor::U32 index);
   // Whether an entry that nobody has asked for yet points at the group.
   bool awaits(Qor::U32 group) const { return awaited_.contains(group); }

   bool holds(Qor::U32 group) const { return holders_.contains(group); }
   bool heldByOne(Qor::U32 group) const {
      auto const holders = holders_.find(group);
      return holders != holders_.end() && holders->second == 1;
   }
   // Whether any group is held.
   bool holding() const { return !held_.empty(); }
   // The entry holds its group no more; nothing for one that holds none.
   void release(Qor::U32 index);

 private:
   EntryTable const& table_;
   std::set<Qor::U32> left_;
   std::set<Qor::U32> vrfs_;               // that had an entry
   std::map<Qor::U32, Qor::U32> held_;     // groups, by entry
   std::map<Qor::U32, Qor::U32> holders_;  // how many, by group
   std::map<Qor::U32, Qor::U32> awaited_;  // of those that are left how many, by group
};

class FoundGroups {
 public:
   using Content = std::pair<std::vector<MrouteLib::PortVlan>, bool>;  // members, and to the CPU

   static Content contentOf(Group const& group) { return {group.members, group.toCpu}; }
   static Content contentOf(MrouteLib::PortVlanSet const& set) {
      return {membersOf(set), set.toCpu()};
   }

   // All that the chip has.
   explicit FoundGroups(Chip const& chip);

   std::set<Qor::U32> const& left() const { return left_; }
   bool contains(Qor::U32 id) const { return left_.contains(id); }
   // Whether the group is offered, and has exactly this set's members.
   bool carries(Qor::U32 id, MrouteLib::PortVlanSet const& set) const;
   // A group of this content: `preferred` if that is one, else the first that
   // `may(id)` be had.
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
   // Somebody has asked for it, or it is about to be deleted.
   void take(Qor::U32 id);
   // It is nobody's again, though it is still on the chip; where its members are not certain, since
   // they are being written, it is not offered any more.
   void giveBack(Qor::U32 id, bool certain);

 private:
   Chip const& chip_;
   std::set<Qor::U32> left_;
   std::map<Content, std::set<Qor::U32>> byContent_;  // those that are offered
};

// All that the chip held, and what became of it.
struct Found {
   explicit Found(Chip const& chip)
         : groups(chip), routes(chip.routes()), boundaries(chip.boundaries()) {}

   // Whether nothing is left to sweep, nor may come back to be swept.
   bool settled() const {
      return groups.left().empty() && !routes.holding() && boundaries.left().empty();
   }
   // The routes of both tables that nobody has asked for yet. Those that send nowhere come first:
   // of several entries with one key they are the ones that only watch another interface.
   std::vector<FoundRoute> listed(Chip const& chip) const;

   FoundGroups groups;
   FoundEntries routes;
   FoundEntries boundaries;
   Qor::U64 adopted = 0;  // groups and entries that were asked for, and not written
   Qor::U64 swept = 0;    // those that were deleted
};

}  // namespace Sim
