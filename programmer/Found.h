// The bookkeeping of a platform about groups and entries that it finds on its chip when the agent
// starts again. The platform enters all of them at its construction. It adopts a found group or
// entry for a request that it satisfies, and sweeps the remaining ones when the programmer asks
// (programmer/Restart.h). A platform is free to do without this class.
//
//    hook that allocates a group    groups.like(), then groups.take(); counts `adopted`
//    hook that allocates an entry   entries.find(), then take(): the entry keeps its group alive
//    hook that points an entry      release(): the entry has left its old group, or its new owner
//                                   holds the group
//    hook that deletes a group      while entries.holds() it: groups.giveBack() in place of the write
//    sweep()                        take() and delete entries.left(), then groups.left(); counts
//                                   `swept`
//
// Backups. Several oif sets may have the members of one found group and different inputs. A set
// with backup pairs has its group rewritten as soon as its input fails. Such a set should get a
// found group only if the request is for an entry that points at the group, or if no remaining
// entry does (awaits()).
//
// The platform does not write a found group or entry before it takes it.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "MrouteLib/PortVlanSet.h"
#include "programmer/Restart.h"

namespace VelMroute {

// The found entries of one table, by the platform's numbers. A found entry keeps its group alive,
// even after adoption, until release().
class FoundEntries {
 public:
   using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;
   using VlanIdOrNone = Bridging::VlanIdOrNone;

   // Enters an entry that points at the group, or at none. `sends`: packets that match the entry go
   // somewhere.
   void add(Qor::U32 number, Restart::Route const& route, std::optional<Qor::U32> group,
            bool sends);

   // The numbers of the remaining entries, ascending.
   std::set<Qor::U32> const& left() const { return left_; }
   // The remaining entry with this VRF, key and accepting vlan; of several the highest number.
   std::optional<Qor::U32> find(Vel::VrfId vrfId, RouteKey const& key, VlanIdOrNone vlan) const;
   // The group of a remaining entry with this key and vlan in any VRF: the hook that allocates a
   // group does not get the VRF of the route.
   std::optional<Qor::U32> groupOf(RouteKey const& key, VlanIdOrNone vlan) const;
   // Removes the entry from the remaining ones: it is adopted, or is about to be deleted.
   void take(Qor::U32 number);
   // Whether a remaining entry points at the group.
   bool awaits(Qor::U32 group) const { return awaited_.contains(group); }

   // Whether an entry keeps the group alive, and whether exactly one does.
   bool holds(Qor::U32 group) const { return holders_.contains(group); }
   bool heldByOne(Qor::U32 group) const;
   // Whether any entry keeps a group alive.
   bool holding() const { return !held_.empty(); }
   // The entry no longer keeps its group alive. No effect on an entry without a group.
   void release(Qor::U32 number);

   // A found entry, also after it was taken.
   Restart::Route const& route(Qor::U32 number) const { return entries_.at(number).route; }
   std::optional<Qor::U32> group(Qor::U32 number) const { return entries_.at(number).group; }
   bool sends(Qor::U32 number) const { return entries_.at(number).sends; }

 private:
   struct Entry {
      Restart::Route route;
      std::optional<Qor::U32> group;
      bool sends;
   };
   using Id = std::tuple<RouteKey, VlanIdOrNone, Vel::VrfId>;

   static Id idOf(Restart::Route const& r) { return {r.key, r.vlan, r.vrfId}; }

   std::map<Qor::U32, Entry> entries_;
   std::set<Qor::U32> left_;
   std::map<Id, std::set<Qor::U32>> byId_;  // the remaining entries
   std::map<Qor::U32, Qor::U32> held_;      // by entry, the group that it keeps alive
   std::map<Qor::U32, Qor::U32> holders_;   // by group, the number of entries that do
   std::map<Qor::U32, Qor::U32> awaited_;   // by group, the number of remaining entries there
};

// The found groups, by the platform's numbers. A group is offered for adoption while its members on
// the chip are certain.
class FoundGroups {
 public:
   // The members, and whether the group sends to the CPU.
   struct Content {
      std::vector<MrouteLib::PortVlan> members;
      bool toCpu = false;

      friend bool operator<(Content const& a, Content const& b) {
         return std::tie(a.toCpu, a.members) < std::tie(b.toCpu, b.members);
      }
      friend bool operator==(Content const&, Content const&) = default;
   };

   // The content of a group for this set: its pairs in order.
   static Content contentOf(MrouteLib::PortVlanSet const& set);

   // Enters a group.
   void add(Qor::U32 id, Content content);

   // The ids of the remaining groups, ascending.
   std::set<Qor::U32> const& left() const { return left_; }
   bool contains(Qor::U32 id) const { return left_.contains(id); }
   // Whether the group is offered and has exactly this content.
   bool carries(Qor::U32 id, Content const& content) const;
   // An offered group with this content: `preferred` if it is such a group, otherwise the lowest id
   // for which may(id) is true.
   template <class May>
   std::optional<Qor::U32> like(Content const& content, std::optional<Qor::U32> preferred,
                                May const& may) const {
      auto const equal = byContent_.find(content);
      if (equal == byContent_.end()) return std::nullopt;
      if (preferred && equal->second.contains(*preferred)) return preferred;
      for (Qor::U32 const id : equal->second) {
         if (may(id)) return id;
      }
      return std::nullopt;
   }
   // Removes the group from the remaining ones: it is adopted, or is about to be deleted.
   void take(Qor::U32 id);
   // The owner of the group let go of it, but the group stays on the chip and is found again.
   // Without a content, since a write of its members is under way, the group is not offered.
   void giveBack(Qor::U32 id, std::optional<Content> content);

 private:
   std::set<Qor::U32> left_;
   std::map<Qor::U32, Content> content_;              // of the offered groups
   std::map<Content, std::set<Qor::U32>> byContent_;  // the same by content
};

// The found groups and entries of a chip, with the numbers of adopted and swept ones.
struct Found {
   // Whether no group or boundary entry remains, and no group can be found again.
   bool settled() const {
      return groups.left().empty() && !entries.holding() && boundaries.left().empty();
   }
   // The remaining entries of both tables, in the order that Restart::found() requires. Called
   // before any is taken.
   std::vector<Restart::Route> listed() const;
   // As Restart::isFound().
   bool isFound(Restart::Route const& route) const;

   FoundGroups groups;
   FoundEntries entries;     // of the route table
   FoundEntries boundaries;  // of the boundary table
   Qor::U64 adopted = 0;     // adopted groups and entries
   Qor::U64 swept = 0;       // swept groups and entries
};

}  // namespace VelMroute
