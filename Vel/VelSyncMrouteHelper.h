// The synchronous path's seam to one kind of switch chip. A platform derives from MrouteSmHelper
// and overrides the hooks; the library reaches hardware through nothing else. This header is the
// platform's manual. One object may serve several chips: hooks of a chip are given its number,
// `switchId`. `vrfId` is the route's VRF.
//
// All hooks program at once: what a hook has returned from is on the chip.
//
// Indexes. An oif set index stands for the chip's replication of one oif set. 0 means "no set", so
// no non-empty set has it; invalidOifSetIndex means that none could be had. Empty sets (without
// outgoing ports) do not count against the replication table: each gets an index of its own,
// outside the table, and never the invalid one. The index 0xFFFFFFFE is a hint, never an index.
//
// Handles. A handle stands for an entry of the route table or of the boundary table: no two entries
// of a chip share one, in one table or in two. A handle in use may be returned once more for one
// purpose alone: for a group range or a catch-all route of the same key and accepting vlan as the
// route that has it, while the FIB hardware status says rangeRouteHandleShared. For a route of
// another key the programmer refuses it (Qor::ReinstantiationException).
//
// Full tables. An allocation that fails returns the invalid index or handle; the library then asks
// the ...Full() hook whether that is for lack of room, and tries again once there is room.
//
// Required hooks ("required" below) stop the process when they are called and not overridden,
// unless VEL_NOOP_AGENT is in the environment: they then return 0, false or nothing, and the
// programmer accepts an index and a handle that are in use (Vel/VelSyncMrouteSwitch.h).
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
   // The hint that asks for an index while an index of the same oif set is dirty.
   static constexpr Qor::U32 freshOifSetIndex = 0xFFFFFFFE;
   // Answers of mrouteHitBitCacheRefresh().
   static constexpr Qor::U8 hitBitCacheRefreshed = 1;
   static constexpr Qor::U8 hitBitCacheBusy = 2;

   explicit MrouteSmHelper(Qor::Name name);

   // The top-level reactor that uses this object; not held, null while there is none.
   Vel::MrouteSm* mrouteSm() const { return mrouteSm_; }
   void mrouteSmIs(Vel::MrouteSm* v) { attrIs<&Notifiee::onMrouteSm>(mrouteSm_, v); }

   // ---- Hooks, in the order of their slots. ----

   // Required. The top-level reactor starts (`start` true).
   virtual void mrouteInit(bool start);
   // Required. Multicast routing is turned on or off, on all chips.
   virtual void handleMulticastRouting(bool enabled);
   // What route counters count. Default: nothing.
   virtual void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode);
   // Required. Compare with the hardware whether multicast routing is on, as `enabled` says.
   virtual void verifyMulticastRouting(bool enabled);
   // Required. The chip's programmer starts (`start` true) or ends. At the end the chip is to be
   // cleared; what is freed afterwards is still told, and means nothing to the chip any more.
   virtual void mrouteSwitchInit(Qor::U32 switchId, bool start);

   // Required (0). Replication of `oifSet`: with the hint 0 or freshOifSetIndex under a new index,
   // which is returned; with any other `oifSetIndex` in place, under that index, so that every
   // route that has it forwards to `oifSet` from then on, and it is returned when that was done.
   // invalidOifSetIndex otherwise.
   virtual Qor::U32 doAllocateMtableOifSet(Qor::U32 switchId, Qor::U32 oifSetIndex,
                                           MrouteLib::OifSetPtr oifSet);
   // Required (0). Writes an index anew, as doAllocateMtableOifSet does in place; for platforms
   // that have to move replications. The library does not call it.
   virtual Qor::U32 doReallocateMtableOifSet(Qor::U32 switchId, Qor::U32 oifSetIndex,
                                             MrouteLib::OifSetPtr oifSet);
   // Required. The record's index is free; no route of the chip has it any more.
   virtual void handleFreeMtableOifSet(Qor::U32 switchId, Qor::Ptr<Vel::MtableOifSet> record);

   // Counters, by route key on all chips. Create: not 0 when the route is counted from now on;
   // default 0. Read: the packets or bytes since the last reading; default 0.
   virtual Qor::U32 doCreateMrouteCounter(Qor::U16 vrfId, IpGenRouteKey const& key);
   virtual void doDeleteMrouteCounter(IpGenRouteKey const& key);
   virtual void doClearMrouteCounter(IpGenRouteKey const& key);
   virtual Qor::U64 doReadMrouteCounter(IpGenRouteKey const& key);
   // The counter makes room for another one. Default: nothing.
   virtual void ageOutHwMcastCounter(IpGenRouteKey const& key);

   // Required (handle 0). An entry that forwards by `oifSetIndex` (0: nowhere) what
   // arrives in the accepting vlan; `fastDrop`: that drops it. With `bridge` a boundary entry, in
   // the boundary table; the vlan is 1 to 4094 then, and the rest is 0 and false.
   virtual MrouteLib::RouteHandle doAllocateMroute(Qor::U32 switchId, Qor::U16 vrfId,
                                                   IpGenRouteKey const& key,
                                                   Bridging::VlanIdOrNone acceptingVlanId,
                                                   bool bridge, Qor::U32 oifSetIndex, bool fastDrop,
                                                   Qor::U16 rpaId);
   // Required (handle 0). The same without a check of the vlan; `bridge` is false.
   virtual MrouteLib::RouteHandle doAllocateMrouteNoRpf(Qor::U32 switchId, Qor::U16 vrfId,
                                                        IpGenRouteKey const& key, bool bridge,
                                                        Qor::U32 oifSetIndex, bool fastDrop,
                                                        Qor::U16 rpaId);
   // Required. The entry forwards by `oifSetIndex` from now on; the route still names the set it
   // forwarded to before.
   virtual void doSetMtableOifSet(Qor::U32 switchId, Qor::U16 vrfId, MrouteLib::RouteHandle handle,
                                  Qor::Ptr<Vel::Route const> route, Qor::U32 oifSetIndex);
   // Required. The entry is deleted.
   virtual void doDeleteMroute(Qor::U32 switchId, Qor::U16 vrfId, MrouteLib::RouteHandle handle,
                               Qor::Ptr<Vel::Route const> route);
   virtual void doDeleteMrouteBoundary(Qor::U32 switchId, Qor::U16 vrfId,
                                       MrouteLib::RouteHandle handle,
                                       Qor::Ptr<Vel::Boundary const> boundary);
   // Everything up to here belongs together; for platforms that write in batches. Default: nothing.
   virtual void doCommitMrouteBatch();

   // Required (false). Whether the route, boundary or replication table has no room.
   virtual bool mrouteFull(Qor::U32 switchId);
   virtual bool mrouteBoundaryFull(Qor::U32 switchId);
   virtual bool mtableFull(Qor::U32 switchId);

   // Required (false). Whether the route has been hit since the review before, by the hit bits
   // cached for this review. `boundary` asks for a boundary entry; the library passes false.
   virtual bool mrouteHitBit(Qor::U32 switchId, Qor::U16 vrfId, IpGenRouteKey const& key,
                             Bridging::VlanIdOrNone acceptingVlanId, bool boundary);
   // Reads the hit bits from the hardware at the beginning of a review. hitBitCacheRefreshed when
   // they are there, hitBitCacheBusy while the hardware is at it: the library then asks again,
   // Qor::Clock::retryGap later. Default: hitBitCacheRefreshed.
   // Warning: all chips share one review position. With several chips, the review that one chip
   // began may be continued and completed by another, which is then asked for hit bits without a
   // refresh of its own cache. So a platform of several chips refreshes the caches of all of them
   // here, or answers mrouteHitBit() from the hardware for a chip that has not been refreshed since
   // mrouteHitBitCacheClear().
   virtual Qor::U8 mrouteHitBitCacheRefresh(Qor::U32 switchId);
   // The review is complete. Default: nothing.
   virtual void mrouteHitBitCacheClear(Qor::U32 switchId);
   // For the platform's own use; the library does not call it. Default: nothing.
   virtual void triggerRouteAgingReview();

   // Required. Compare the entry with the hardware.
   virtual void verifyMroute(Qor::U32 switchId, Qor::U16 vrfId, Qor::Ptr<Vel::Route const> route);
   virtual void verifyMrouteBoundary(Qor::U32 switchId, Qor::U16 vrfId,
                                     Qor::Ptr<Vel::Boundary const> boundary);

 protected:
   ~MrouteSmHelper() override;

 private:
   Vel::MrouteSm* mrouteSm_ = nullptr;
};

}  // namespace VelHelper
