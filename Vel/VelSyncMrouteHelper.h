// The hooks of the synchronous path, which reach the hardware of switch chips. A platform derives
// from MrouteSmHelper and overrides the hooks; the library reaches hardware through no other
// interface. This header is the platform's manual. One object may serve several chips: a hook that
// concerns one chip gets the number of the chip as `switchId`. `vrfId` is the VRF of the route.
//
// Timing. A hook programs the chip before it returns.
//
// Threads. The thread of the activity loop calls all hooks. Another thread passes its results to
// the loop through Qor::Inbox (Qor/Inbox.h).
//
// Order. The agent makes the hook object first, then for each chip the switch
// (Vel/VelSyncMrouteSwitch.h) and its reactor (Vel/VelSyncMrouteSm.h), and one agent-wide reactor
// (Vel/VelMrouteSm.h) for all chips. Each of these objects holds the hook object.
//
// Errors. A hook may throw, with the exceptions named below; the error reaches the caller of the
// operation or of the mutator that led to the call, or the activity loop's caller if a clock did.
//  - An allocation hook that throws leaves nothing recorded, so it must leave nothing allocated on
//    the chip either.
//  - A hook that points or deletes an entry and throws leaves the route or boundary entry recorded
//    as before.
//  - handleFreeMtableOifSet() and mrouteSwitchInit(switchId, false) run inside a destructor. They
//    must not throw: an exception there terminates the process.
//
// Indexes. An oif set index stands for the chip's replication of one oif set. The index 0 means "no
// set", so no non-empty set has the index 0. The platform returns invalidOifSetIndex if it could
// not allocate an index. An empty set has no outgoing ports and does not count against the
// replication table: each empty set gets an index of its own outside the table, and never the
// invalid index. The value 0xFFFFFFFE is a hint and never an index.
//
// Handles. A handle stands for an entry of the route table or of the boundary table. No two entries
// of a chip have the same handle, neither within a table nor across the two tables. There is one
// exception: while the FIB hardware status says rangeRouteHandleShared, a route that is a group
// range or a catch-all may get the handle of the route with the same key and accepting vlan. For a
// route of another key the programmer raises Qor::ReinstantiationException.
//
// Full tables. The library asks mtableFull() before it allocates an index for a non-empty set. It
// asks mrouteFull() or mrouteBoundaryFull() after the allocation of an entry has returned the
// invalid handle, and again later, to find out whether the table has room again.
//
// Required hooks ("required" below). A required hook that is called and not overridden stops the
// process, unless VEL_NOOP_AGENT is in the environment. With VEL_NOOP_AGENT the hook returns the
// value in parentheses, or nothing, and the programmer accepts an index and a handle that are in
// use (Vel/VelSyncMrouteSwitch.h).
#pragma once

#include "Routing/Multicast/Fib/CounterMode.h"
#include "Vel/VelCommon.h"
#include "Vel/VelSyncMrouteRecords.h"

namespace Vel {
class MrouteSm;
}

namespace VelHelper {

class QOR_PUBLIC MrouteSmHelper : public Qor::Entity<MrouteSmHelper, Vel::VelBaseHelper> {
 public:
   class Notifiee : public Qor::NotifieeOf<MrouteSmHelper> {
    public:
      virtual void onMrouteSm() {}
   };

   using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   static constexpr Qor::U32 invalidOifSetIndex = 0xFFFFFFFF;
   // The hint that asks for a new index while an older index of the same oif set is dirty.
   static constexpr Qor::U32 freshOifSetIndex = 0xFFFFFFFE;
   // The results of mrouteHitBitCacheRefresh().
   static constexpr Qor::U8 hitBitCacheRefreshed = 1;
   static constexpr Qor::U8 hitBitCacheBusy = 2;

   explicit MrouteSmHelper(Qor::Name name);

   // The agent-wide reactor that uses this object; not held. Null before that reactor is made,
   // after it is destroyed, and after its constructor has failed.
   Vel::MrouteSm* mrouteSm() const { return mrouteSm_; }
   void mrouteSmIs(Vel::MrouteSm* v) { attrIs<&Notifiee::onMrouteSm>(mrouteSm_, v); }

   // ---- Hooks, in the order of their slots. ----

   // Required. The agent-wide reactor starts; `start` is true.
   virtual void mrouteInit(bool start);
   // Required. The platform turns multicast routing on or off, on all chips.
   virtual void handleMulticastRouting(bool enabled);
   // Sets the mode of the route counters: packets, bytes or disabled. Default: the hook does
   // nothing.
   virtual void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode);
   // Required. The platform compares `enabled` with the hardware's multicast routing state.
   virtual void verifyMulticastRouting(bool enabled);
   // Required. The chip's programmer starts (`start` true) or ends (false). At the end the platform
   // clears the chip. The library still calls handleFreeMtableOifSet() afterwards for each
   // remaining record, and the platform has nothing left to free on the chip then. The call at the
   // end must not throw.
   virtual void mrouteSwitchInit(Qor::U32 switchId, bool start);

   // Required (0). Programs the replication of `oifSet`. With the hint 0 or freshOifSetIndex the
   // platform allocates a new index and returns that index. With any other `oifSetIndex` it
   // rewrites the index in place, so that every route with that index forwards to `oifSet` from
   // then on, and returns the same index. The hook returns invalidOifSetIndex if it could not
   // program the set.
   virtual Qor::U32 doAllocateMtableOifSet(Qor::U32 switchId, Qor::U32 oifSetIndex,
                                           MrouteLib::OifSetPtr oifSet);
   // Required (0). Rewrites an index in place, as doAllocateMtableOifSet does. For platforms that
   // have to move replications; the library does not call this hook.
   virtual Qor::U32 doReallocateMtableOifSet(Qor::U32 switchId, Qor::U32 oifSetIndex,
                                             MrouteLib::OifSetPtr oifSet);
   // Required. The platform frees the record's index; no route of the chip uses that index any
   // more. The library calls this hook inside a destructor: the hook must not throw.
   virtual void handleFreeMtableOifSet(Qor::U32 switchId, Qor::Ptr<Vel::MtableOifSet> record);

   // Route counters; a key stands for the route on all chips. doCreateMrouteCounter() returns a
   // number other than 0 if the platform counts the route from now on, and 0 (the default) if not.
   // doReadMrouteCounter() returns the packets or bytes since the last reading (default 0), or
   // MrouteSm::unchangedCounter. The other two do nothing by default.
   virtual Qor::U32 doCreateMrouteCounter(Qor::U16 vrfId, IpGenRouteKey const& key);
   virtual void doDeleteMrouteCounter(IpGenRouteKey const& key);
   virtual void doClearMrouteCounter(IpGenRouteKey const& key);
   virtual Qor::U64 doReadMrouteCounter(IpGenRouteKey const& key);
   // The reactor removes this counter to make room for a new one; the platform stops counting the
   // route. Default: the hook does nothing.
   virtual void ageOutHwMcastCounter(IpGenRouteKey const& key);

   // Required (handle 0). Programs a route entry. The entry forwards the packets that arrive in the
   // accepting vlan by `oifSetIndex` (0: to no port), or drops them if `fastDrop` is set. With
   // `bridge` the hook programs a boundary entry in the boundary table; then the vlan is 1 to 4094,
   // and the last three arguments are 0 and false.
   virtual MrouteLib::RouteHandle doAllocateMroute(Qor::U32 switchId, Qor::U16 vrfId,
                                                   IpGenRouteKey const& key,
                                                   Bridging::VlanIdOrNone acceptingVlanId,
                                                   bool bridge, Qor::U32 oifSetIndex, bool fastDrop,
                                                   Qor::U16 rpaId);
   // Required (handle 0). Programs a route entry that accepts packets from every vlan; `bridge` is
   // false.
   virtual MrouteLib::RouteHandle doAllocateMrouteNoRpf(Qor::U32 switchId, Qor::U16 vrfId,
                                                        IpGenRouteKey const& key, bool bridge,
                                                        Qor::U32 oifSetIndex, bool fastDrop,
                                                        Qor::U16 rpaId);
   // Required. Points the entry at `oifSetIndex`. During the call `route` still names the record of
   // the set that the entry forwarded to before.
   virtual void doSetMtableOifSet(Qor::U32 switchId, Qor::U16 vrfId, MrouteLib::RouteHandle handle,
                                  Qor::Ptr<Vel::Route const> route, Qor::U32 oifSetIndex);
   // Required, both. The platform deletes the entry.
   virtual void doDeleteMroute(Qor::U32 switchId, Qor::U16 vrfId, MrouteLib::RouteHandle handle,
                               Qor::Ptr<Vel::Route const> route);
   virtual void doDeleteMrouteBoundary(Qor::U32 switchId, Qor::U16 vrfId,
                                       MrouteLib::RouteHandle handle,
                                       Qor::Ptr<Vel::Boundary const> boundary);
   // Ends a batch of changes, for platforms that write in batches. Default: the hook does nothing.
   virtual void doCommitMrouteBatch();

   // Required (false). True if the route, boundary or replication table has no room.
   virtual bool mrouteFull(Qor::U32 switchId);
   virtual bool mrouteBoundaryFull(Qor::U32 switchId);
   virtual bool mtableFull(Qor::U32 switchId);

   // Required (false). True if packets have hit the route since the review before, by the hit bits
   // cached for this review. `boundary` true asks about a boundary entry; the library passes false.
   virtual bool mrouteHitBit(Qor::U32 switchId, Qor::U16 vrfId, IpGenRouteKey const& key,
                             Bridging::VlanIdOrNone acceptingVlanId, bool boundary);
   // Reads the hit bits from the hardware at the beginning of a review. Returns
   // hitBitCacheRefreshed (the default) if the cache holds the hit bits, or hitBitCacheBusy while
   // the hardware still collects them. After hitBitCacheBusy the library calls the hook again
   // Qor::Clock::retryGap later.
   // Warning: all chips share one review position. With several chips, one chip can begin a review
   // and another chip can continue and complete it. The library then asks for the second chip's hit
   // bits without a refresh of that chip's cache. So a platform of several chips either refreshes
   // the caches of all chips here, or reads the hardware in mrouteHitBit() for a chip without a
   // refresh since mrouteHitBitCacheClear().
   virtual Qor::U8 mrouteHitBitCacheRefresh(Qor::U32 switchId);
   // The review is complete. Default: the hook does nothing.
   virtual void mrouteHitBitCacheClear(Qor::U32 switchId);
   // For the platform's own use; the library does not call this hook. Default: it does nothing.
   virtual void triggerRouteAgingReview();

   // Required, both. The platform compares the entry with the hardware.
   virtual void verifyMroute(Qor::U32 switchId, Qor::U16 vrfId, Qor::Ptr<Vel::Route const> route);
   virtual void verifyMrouteBoundary(Qor::U32 switchId, Qor::U16 vrfId,
                                     Qor::Ptr<Vel::Boundary const> boundary);

 protected:
   ~MrouteSmHelper() override;

 private:
   Vel::MrouteSm* mrouteSm_ = nullptr;
};

}  // namespace VelHelper
