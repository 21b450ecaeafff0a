// The twin of the table programmers: the life of a route with flat arrays, an open-addressing table
// and virtual calls only. One twin serves for both paths, because their tables are the same. The
// twin trusts its caller, notifies no reactor, and counts no references.
#pragma once

#include <utility>
#include <vector>

#include "Hooks.h"
#include "MrouteLib/OifSet.h"
#include "Qor/Hash.h"

namespace Bench {

using Qor::U16;
using Qor::U32;
using Qor::U64;

// An open-addressing table from a key to a number. A cell has a hash and a number; probing is
// linear, and an erasure moves later cells up. The caller stores the keys and compares them by
// number.
class TwinIndex {
 public:
   static constexpr U32 none = 0xFFFFFFFF;

   template <class Matches>
   U32 find(U32 hash, Matches const& matches) const {
      if (cells_.empty()) return none;
      for (std::size_t at = hash & mask();; at = (at + 1) & mask()) {
         Cell const& cell = cells_[at];
         if (cell.number == none || (cell.hash == hash && matches(cell.number))) return cell.number;
      }
   }
   void insert(U32 hash, U32 number) {
      if ((size_ + 1) * 4 > cells_.size() * 3) grow();
      ++size_;
      place({hash, number});
   }
   void erase(U32 hash, U32 number) {
      std::size_t hole = hash & mask();
      while (cells_[hole].number != number)
         hole = (hole + 1) & mask();
      for (std::size_t at = (hole + 1) & mask(); cells_[at].number != none;
           at = (at + 1) & mask()) {
         std::size_t const home = cells_[at].hash & mask();
         if (((at - home) & mask()) >= ((at - hole) & mask())) {
            cells_[hole] = cells_[at];
            hole = at;
         }
      }
      cells_[hole] = {};
      --size_;
   }

 private:
   struct Cell {
      U32 hash = 0;
      U32 number = none;
   };
   std::size_t mask() const { return cells_.size() - 1; }
   void place(Cell cell) {
      std::size_t at = cell.hash & mask();
      while (cells_[at].number != none)
         at = (at + 1) & mask();
      cells_[at] = cell;
   }
   void grow() {
      std::vector<Cell> const before =
            std::exchange(cells_, std::vector<Cell>(cells_.empty() ? 16 : cells_.size() * 2));
      for (Cell const& cell : before) {
         if (cell.number != none) place(cell);
      }
   }

   std::vector<Cell> cells_;
   std::size_t size_ = 0;
};

class Twin {
 public:
   using SetKey = MrouteLib::OifSet const*;
   static constexpr U32 none = TwinIndex::none;

   struct RouteKey {
      IpGenRouteKey key;
      U16 vlan = 0;
      U32 vrfId = 0;
      bool operator==(RouteKey const&) const = default;
      U32 hash() const {
         return Qor::hashFold(Qor::hashMix(Qor::hashBytes(&key, sizeof key, vlan), vrfId));
      }
   };

   explicit Twin(TwinHooks& hooks) : hooks_(hooks) {}

   // Adds a user to the group of the set and returns the slot of the group. A zombie is
   // resurrected, and a set without a group gets a new one.
   U32 useGroup(SetKey set) {
      U32 const hash = hashOf(set);
      U32 slot = bySet_.find(hash, [&](U32 n) { return groups_[n].set == set; });
      if (slot != none) {
         Group& group = groups_[slot];
         if (group.users++ == 0) unlink(slot);
         return slot;
      }
      slot = freeGroup_;
      if (slot == none) {
         slot = static_cast<U32>(groups_.size());
         groups_.emplace_back();
      } else {
         freeGroup_ = groups_[slot].next;
      }
      groups_[slot] = {set, hooks_.allocateGroup(set), 1, none, none, 0};
      bySet_.insert(hash, slot);
      return slot;
   }
   // Removes a user from the group. A group without users becomes the last zombie of the list, so
   // the list is in the order of expiry.
   void leaveGroup(U32 slot, double now) {
      Group& group = groups_[slot];
      if (--group.users != 0) return;
      group.expiry = now + 3;
      group.previous = lastZombie_;
      group.next = none;
      (lastZombie_ == none ? firstZombie_ : groups_[lastZombie_].next) = slot;
      lastZombie_ = slot;
   }
   // Frees the zombies that have expired.
   void purge(double now) {
      while (firstZombie_ != none && groups_[firstZombie_].expiry <= now) {
         U32 const slot = firstZombie_;
         Group& group = groups_[slot];
         unlink(slot);
         bySet_.erase(hashOf(group.set), slot);
         hooks_.deleteGroup(group.id);
         group.next = std::exchange(freeGroup_, slot);
      }
   }

   // Adds a route and returns its handle.
   U32 addRoute(IpGenRouteKey const& key, U16 vlan, U32 vrfId, U32 group) {
      U32 const handle = hooks_.allocateRoute(key, vlan, vrfId);
      if (handle >= routes_.size()) routes_.resize(handle + 1);
      routes_[handle] = {{key, vlan, vrfId}, group};
      byKey_.insert(routes_[handle].key.hash(), handle);
      hooks_.pointRoute(handle, groups_[group].id);
      return handle;
   }
   void pointRoute(U32 handle, U32 group, double now) {
      hooks_.pointRoute(handle, groups_[group].id);
      leaveGroup(std::exchange(routes_[handle].group, group), now);
   }
   void deleteRoute(U32 handle, double now) {
      Route const& route = routes_[handle];
      byKey_.erase(route.key.hash(), handle);
      hooks_.deleteRoute(handle);
      leaveGroup(route.group, now);
   }
   U32 routeOf(RouteKey const& key) const {
      return byKey_.find(key.hash(), [&](U32 n) { return routes_[n].key == key; });
   }

 private:
   struct Group {
      SetKey set = nullptr;
      U32 id = 0;
      U32 users = 0;
      U32 previous = none, next = none;  // links of the zombie list; in a free slot, the free list
      double expiry = 0;
   };
   struct Route {
      RouteKey key;
      U32 group = none;
   };

   static U32 hashOf(SetKey set) { return Qor::hashFold(Qor::hashOf(set)); }
   void unlink(U32 slot) {
      Group const& group = groups_[slot];
      (group.previous == none ? firstZombie_ : groups_[group.previous].next) = group.next;
      (group.next == none ? lastZombie_ : groups_[group.next].previous) = group.previous;
   }

   TwinHooks& hooks_;
   TwinIndex bySet_;
   TwinIndex byKey_;
   std::vector<Group> groups_;
   std::vector<Route> routes_;
   U32 freeGroup_ = none;
   U32 firstZombie_ = none, lastZombie_ = none;
};

}  // namespace Bench
