// The tables of one chip as the calls of the hooks ask for them: sets by index, entries by handle.
// Checked hooks keep the shadow (hooks/HookChecks.h). Programs compare it with the chip, and
// explain by it how a packet is forwarded; no hook reads the tables of a chip back.
//
// Both paths use the words of this class: a set is a multicast group with its multicast id, or an
// oif set with its index; the number of either is an index here. All 32-bit values are possible
// indexes and handles. An entry at index 0 of the synchronous path points at "no set", and sends
// nowhere.
//
// Asynchronous changes. The shadow has each change from the call on. The transaction of the latest
// write of a set or an entry shows whether the write is pending, on the chip, or failed. After a
// failed write the chip may have the content from before.
//
// Deleted sets and entries. The shadow keeps each one, with the call that deleted it, until its
// index or handle is given out again. They take no part in forwarding.
#pragma once

#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <vector>

#include "Hux/Xact.h"
#include "MrouteLib/PortVlanSet.h"
#include "MrouteLib/RouteHandle.h"
#include "hooks/Forwarding.h"
#include "hooks/HookObserver.h"

namespace VelMroute {

class Shadow final {
 public:
   using RouteHandle = MrouteLib::RouteHandle;
   using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   struct Set {
      std::vector<MrouteLib::PortVlan> members;  // ascending
      bool toCpu = false;
      bool fixed = false;    // a fixed group of the asynchronous path
      Qor::U32 users = 1;    // above 1: an empty group that several empty sets share
      Qor::U32 entries = 0;  // the entries that forward by this set
      Hux::XactPtr write;    // of the members, the latest; null on the synchronous path
      HookCall lastCall;     // that touched the set

      bool empty() const { return members.empty(); }
   };
   struct Entry {
      Qor::U32 vrfId = 0;
      RouteKey key;
      Bridging::VlanIdOrNone vlan;  // none: the entry accepts from all vlans
      bool boundary = false;        // an entry of the boundary table
      bool bridge = false;          // as asked for; on the synchronous path that of `boundary`
      bool drops = false;           // a fastdrop entry of the synchronous path, with any set
      Wisp::Multicast::Fib::RpaIndex rpa;
      // The index of its set; none before the first pointing on the asynchronous path.
      std::optional<Qor::U32> set;
      Hux::XactPtr write;  // that points the entry, the latest; null on the synchronous path
      HookCall lastCall;   // that touched the entry
   };

   Shadow() = default;
   Shadow(Shadow const&) = delete;
   Shadow& operator=(Shadow const&) = delete;

   // ---- Reading. Pointers are valid until the next call of a hook. ----

   // The live set or entry; null if there is none.
   Set const* set(Qor::U32 index) const {
      auto const found = sets_.find(index);
      return found == sets_.end() ? nullptr : &found->second;
   }
   Entry const* entry(RouteHandle handle) const {
      auto const found = entries_.find(handle.value());
      return found == entries_.end() ? nullptr : &found->second.entry;
   }
   // The last set or entry with this number, if it was deleted and the number is free.
   Set const* deletedSet(Qor::U32 index) const {
      auto const found = deletedSets_.find(index);
      return found == deletedSets_.end() ? nullptr : &found->second;
   }
   Entry const* deletedEntry(RouteHandle handle) const {
      auto const found = deletedEntries_.find(handle.value());
      return found == deletedEntries_.end() ? nullptr : &found->second;
   }
   // The time of the latest change; minus infinity before the first one.
   Qor::Seconds changedAt() const { return changedAt_; }
   // The last call that touched the set or entry, live or deleted; null if no call ever has.
   HookCall const* lastCallOfSet(Qor::U32 index) const;
   HookCall const* lastCallOfEntry(RouteHandle handle) const;

   // The numbers of live sets, of those without members, and of live entries of each table.
   Qor::U32 sets() const { return static_cast<Qor::U32>(sets_.size()); }
   Qor::U32 emptySets() const { return emptySets_; }
   Qor::U32 routes() const { return static_cast<Qor::U32>(entries_.size()) - boundaries_; }
   Qor::U32 boundaries() const { return boundaries_; }

   // Call visit(index, set) and visit(handle, entry) for each one, by ascending number. A visit
   // must not call hooks.
   template <class Visit>
   void forEachSet(Visit&& visit) const {
      for (auto const& [index, set] : sets_)
         visit(index, set);
   }
   template <class Visit>
   void forEachEntry(Visit&& visit) const {
      for (auto const& [handle, slot] : entries_)
         visit(RouteHandle(handle), slot.entry);
   }
   // For the entries of the VRF and key in both tables, with any vlan. Of several entries with one
   // vlan it visits the oldest.
   template <class Visit>
   void forEachEntryOf(Qor::U32 vrfId, RouteKey const& key, Visit&& visit) const {
      auto const each = [&](Qor::U32 number, TableEntry const&) {
         RouteHandle const handle(handles_[number]);
         visit(handle, *entry(handle));
      };
      routeTable_.forEachOf(vrfId, key, each);
      boundaryTable_.forEachOf(vrfId, key, each);
   }
   template <class Visit>
   void forEachDeletedEntry(Visit&& visit) const {
      for (auto const& [handle, entry] : deletedEntries_)
         visit(RouteHandle(handle), entry);
   }

   // Forwards a packet by the rule of hooks/Forwarding.h, and counts nothing. `entry` of the result
   // is the value of a handle. isUp(interface) returns the state of a link; without it all links
   // are up. Of two entries with the same VRF, key and vlan the older one takes part.
   Forwarded forward(Packet const& packet,
                     std::function<bool(Lnet::IntfId)> const& isUp = {}) const;

   // ---- Writing, for the checks of the gates alone. ----

   // Notified of each change from now on, or null; outlives the shadow.
   void observerIs(HookObserver* observer) { observer_ = observer; }
   // The index is not live.
   void setMade(Qor::U32 index, MrouteLib::PortVlanSet const& set, bool fixed,
                HookCall const& call);
   // The set or entry is live in all others.
   void setWritten(Qor::U32 index, MrouteLib::PortVlanSet const& set, HookCall const& call);
   void setShared(Qor::U32 index, HookCall const& call);
   void setXactIs(Qor::U32 index, Hux::XactPtr write) { sets_.at(index).write = std::move(write); }
   // Takes one user from a shared set, and deletes any other.
   void setDeleted(Qor::U32 index, HookCall const& call);
   void entryMade(RouteHandle handle, Entry entry);
   void entryPointed(RouteHandle handle, Qor::U32 index, HookCall const& call);
   void entryXactIs(RouteHandle handle, Hux::XactPtr write) {
      entries_.at(handle.value()).entry.write = std::move(write);
   }
   void entryDeleted(RouteHandle handle, HookCall const& call);
   // All sets and entries are deleted by this call.
   void clear(HookCall const& call);

 private:
   struct Slot {
      Entry entry;
      std::optional<Qor::U32> number;  // in its match table; none: an older entry stands there
   };

   EntryTable& tableOf(Entry const& entry) { return entry.boundary ? boundaryTable_ : routeTable_; }
   void write(Set& written, MrouteLib::PortVlanSet const& set, HookCall const& call);
   void enter(Qor::U32 handle, Slot& slot);
   void leave(Slot& slot);
   void count(Entry const& entry, int change);
   void notify(HookWrite::Action action, Qor::U32 index, HookCall const& call) {
      changedAt_ = call.time;
      if (observer_) observer_->wrote({call, action, index});
   }
   void notify(HookWrite::Action action, Qor::U32 handle, Entry const& entry,
               std::optional<Qor::U32> before = {}) {
      changedAt_ = entry.lastCall.time;
      if (!observer_) return;
      observer_->wrote(
            {entry.lastCall, action, handle, entry.vrfId, &entry.key, entry.set, before});
   }

   HookObserver* observer_ = nullptr;
   Qor::Seconds changedAt_ = -std::numeric_limits<Qor::Seconds>::infinity();
   std::map<Qor::U32, Set> sets_;
   std::map<Qor::U32, Slot> entries_;
   std::map<Qor::U32, Set> deletedSets_;
   std::map<Qor::U32, Entry> deletedEntries_;
   Qor::U32 emptySets_ = 0;
   Qor::U32 boundaries_ = 0;
   // The entries by match. Their numbers in both tables are dense, and lead to the handles.
   EntryTable routeTable_{"route entry", 0xFFFFFFFF};
   EntryTable boundaryTable_{"boundary entry", 0xFFFFFFFF};
   std::vector<Qor::U32> handles_;      // by number
   std::vector<Qor::U32> freeNumbers_;  // below handles_.size()
   std::vector<Qor::U32> hidden_;       // handles of entries that match as an older one does
};

}  // namespace VelMroute
