// What a platform finds on its chip when it starts after the agent has crashed: groups and entries
// that nobody has asked for yet. A platform takes over from here what it is asked for (adoption),
// and sweeps what is left once the routing layer has told all that it wants.
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
   void take(Qor::U32 index) { left_.erase(index); }

   bool holds(Qor::U32 group) const { return holders_.contains(group); }
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
};

class FoundGroups {
 public:
   // All that the chip has.
   explicit FoundGroups(Chip const& chip);

   std::set<Qor::U32> const& left() const { return left_; }
   bool contains(Qor::U32 id) const { return left_.contains(id); }
   // Whether the group is offered, and has exactly this set's members.
   bool carries(Qor::U32 id, MrouteLib::PortVlanSet const& set) const;
   // A group with exactly this set's members: `preferred` if that is one, else the one that most
   // entries point at.
   std::optional<Qor::U32> like(MrouteLib::PortVlanSet const& set,
                                Qor::U32 preferred = noGroup) const;
   // Somebody has asked for it, or it is about to be deleted.
   void take(Qor::U32 id);
   // It is nobody's again, though it is still on the chip; where its members are not certain, since
   // they are being written, it is not offered any more.
   void giveBack(Qor::U32 id, bool certain);

 private:
   using Content = std::pair<std::vector<MrouteLib::PortVlan>, bool>;  // members, and to the CPU

   static Content contentOf(Group const& group) { return {group.members, group.toCpu}; }

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
