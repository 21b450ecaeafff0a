// The synchronous programmer of one switch chip's multicast tables. The programmer decides which
// oif sets share an index of the replication table, and keeps an unused index for a while as a
// zombie. It records the routes and boundary entries of the chip. Every hardware action is
// delegated to the platform's hooks (Vel/VelSyncMrouteHelper.h), which program the chip before they
// return.
//
// Threads. The thread of the activity loop makes all calls; the switch calls hooks and notifies
// listeners on that thread. No object has a lock.
//
// Order. Make the hook object first, then the switch, then its reactor (Vel/VelSyncMrouteSm.h). One
// agent-wide reactor (Vel/VelMrouteSm.h) serves all chips. Let go in the reverse order: the
// reactors, then the routing layer's records, then the switch, then the hook object.
//
// Errors.
//  - An allocation hook that throws leaves nothing recorded: mtableOifSet or routeHandle keeps its
//    previous value, and the error reaches the caller of the operation. A hook that points or
//    deletes an entry and throws leaves the entry recorded as before.
//  - If mrouteSwitchInit(switchId, true) throws, the constructor fails with that error.
//  - The hook handleFreeMtableOifSet and, at the end of the switch, mrouteSwitchInit(switchId,
//    false) run inside a destructor, with the notifications of those changes. A hook or listener
//    that throws there terminates the process.
//  - Elsewhere a listener that throws ends the notification. The remaining listeners are not
//    notified, the operation stops with the changes made so far, and the error reaches the caller
//    of the mutator.
//
// Duties of the routing layer, which calls the switch:
//  1. Sharing is by identity of the oif set object. Equal sets must be the same object while
//     a record carries the set, zombies included (MrouteLib::MrouteTableColl ensures that). Do not
//     allocate a new record for an object whose record has turned dirty: intern a new object. The
//     freeing of the old record removes the object's entries from all collections, and would remove
//     the entries of the newer record too.
//  2. After doAllocateMtableOifSet, take the record at once (takeMtableOifSet()), since the
//     attribute mtableOifSet counts as a user of the record. A null result means that the chip has
//     no room. Hold the record until a route points at it.
//  3. Allocate a route (doAllocateRoute) with the record of its set, so that the entry starts with
//     the index of that record. Then point the route at the record (doSetMtableOifSet). The route
//     holds the record from that call on, and holds no record before. To change the set of a route,
//     point the route at the new record; this may drop the last reference to the old record. To
//     change another property, delete the route and allocate it again.
//  4. The flags of MrouteLib::SwitchChip say that a table has run out of room. Watch mtableFree,
//     mrouteTcamFree, boundaryTcamFree and mrouteReviewKick. Only mark the waiting routes in these
//     handlers, and try the allocations again from a clock, a bounded number of routes at a time. A
//     route that waits for a route entry should hold no record.
//  5. Two routes may have one (key, accepting vlan), as no-RPF routes of two VRFs do. They share
//     the entry in routeKeyToHandle. The entry names the later route, and the deletion of either
//     route removes the entry.
//
// Without a platform. While VEL_NOOP_AGENT is in the environment, hooks that do nothing may return
// an index or a handle that is in use. The newest record, route or boundary entry then has the
// index or the handle. After a newer route has taken over a handle, doSetMtableOifSet does nothing
// for the older route, and doDeleteRoute requests the reviews and changes nothing else.
//
// The flag that each operation changes, and the review that it requests:
//
//   operation                                      | effect
//   -----------------------------------------------+----------------------------------------------
//   oif set allocation, mtableFull() returns true  | mtableFree false
//   oif set allocation, the platform returns the   | none: mtableFree keeps its value
//     invalid index                                |
//   an oif set is freed (not: becomes a zombie)    | mtableFree true
//   route allocation fails, mrouteFull() is true   | mrouteTcamFree false
//   route allocated                                | multicastReviewPending + 1
//   bridge allocation fails, and the boundary      | boundaryTcamFree false
//     table is full                                |
//   boundary deleted, its table is not full        | boundaryTcamFree true
//   route deleted                                  | mrouteTcamFree keeps its value: only the
//                                                  |   reactor's review sets it to true
//   route or boundary deleted                      | unicastReviewPending, unicast6ReviewPending
//                                                  |   and multicastReviewPending + 1 each
//
// Ownership. The switch is counted; the caller of an operation holds the switch during the call.
// Routes, zombieOifSet and callers hold records. inUseOifSet, frrMtableOifSet and
// frrProcessingOifSet name records without holding them. When the last reference to the switch
// goes, the switch sets deleted and runs doCleanup, so that the platform clears the chip. Then it
// drops its mtableOifSet, its routes, boundary entries and zombies, which frees their records at
// once. At last it empties all other collections. Listeners are notified of each of these changes.
// A record that a caller still holds outlives the switch, and is destroyed without a call of a
// hook.
#pragma once

#include "Ip/Status.h"
#include "Qor/RecordIndex.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Vel/L3Status.h"
#include "Vel/VelCommonSmData.h"
#include "Vel/VelOifSetTables.h"
#include "Vel/VelSyncMrouteHelper.h"

namespace Vel {

class QOR_PUBLIC MrouteSwitch final
      : public OifSetTables<MrouteSwitch, MrouteLib::SwitchChip, MtableOifSet, ZombieKey> {
 public:
   static constexpr char const* typeName = "Vel::MrouteSwitch";

   class Notifiee : public OifSetTablesNotifiee<MrouteSwitch, ZombieKey> {
    public:
      virtual void onDeleted() {}
      virtual void onInitialized() {}
      virtual void onZombieLifetime() {}
      virtual void onOifSetIndexColl(Qor::U32) {}
      virtual void onOifSetIndexCollImmediate() {}
      virtual void onRoute(MrouteLib::RouteHandle const&) {}
      virtual void onRouteImmediate() {}
      virtual void onBoundary(MrouteLib::RouteHandle const&) {}
      virtual void onBoundaryImmediate() {}
      virtual void onRouteKeyToHandle(RouteKeyVlanId const&) {}
      virtual void onRouteKeyToHandleImmediate() {}

    protected:
      void onImmediate() override {
         OifSetTablesNotifiee::onImmediate();
         onOifSetIndexCollImmediate();
         onRouteImmediate();
         onBoundaryImmediate();
         onRouteKeyToHandleImmediate();
      }
   };

   using RouteHandle = MrouteLib::RouteHandle;
   using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
   using RoutePtr = Qor::Ptr<Route>;
   using BoundaryPtr = Qor::Ptr<Boundary>;
   using OifSetIndexColl =
         Qor::Collection<Qor::NumberMap<Qor::U32, bool>, &Notifiee::onOifSetIndexColl,
                         &Notifiee::onOifSetIndexCollImmediate>;
   using RouteColl = Qor::Collection<Qor::NumberMap<RouteHandle, RoutePtr>, &Notifiee::onRoute,
                                     &Notifiee::onRouteImmediate>;
   using BoundaryColl = Qor::Collection<Qor::NumberMap<RouteHandle, BoundaryPtr>,
                                        &Notifiee::onBoundary, &Notifiee::onBoundaryImmediate>;
   using RouteKeyToHandleColl =
         Qor::Collection<Qor::RecordIndex<RoutesByKey>, &Notifiee::onRouteKeyToHandle,
                         &Notifiee::onRouteKeyToHandleImmediate>;

   static constexpr Qor::U32 invalidOifSetIndex() {
      return VelHelper::MrouteSmHelper::invalidOifSetIndex;
   }

   // `l3Status` and `mrouteHelper` are not null (assertions). With a null `acsd` the switch
   // requests no verification; with a null `mfibHwStatus` no routes share a handle. The switch
   // keeps `ipStatus` for the platform and does not read it. The constructor ends with
   // handleInitialized().
   MrouteSwitch(Qor::Name name, Qor::U32 switchId, Qor::Ptr<VelCommonSmData> acsd,
                Qor::Ptr<L3Status> l3Status, Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper,
                Qor::Ptr<Ip::Status const> ipStatus,
                Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus);

   Qor::Ptr<VelCommonSmData> const& acsd() const { return acsd_; }
   Qor::Ptr<L3Status> const& l3Status() const { return l3Status_; }
   Qor::Ptr<VelHelper::MrouteSmHelper> const& mrouteHelper() const { return mrouteHelper_; }
   Qor::Ptr<Ip::Status const> const& ipStatus() const { return ipStatus_; }
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const& mfibHwStatus() const {
      return mfibHwStatus_;
   }

   // The time for which the switch keeps an unused index as a zombie, in seconds. A change applies
   // to later zombies only.
   // RangeException "MrouteSwitch::zombieLifetime < 0 or not finite not allowed".
   Qor::Seconds zombieLifetime() const { return zombieLifetime_; }
   void zombieLifetimeIs(Qor::Seconds v);
   // True while the switch is torn down: from then on no record becomes a zombie.
   bool deleted() const { return deleted_; }
   void deletedIs(bool v) { attrIs<&Notifiee::onDeleted>(deleted_, v); }
   // True once mrouteSwitchInit(switchId, true) has returned. Before, the operations on routes do
   // nothing.
   bool initialized() const { return initialized_; }

   // ---- The operations of the routing layer. ----

   // Finds or makes the record of the oif set. Result: mtableOifSet, null if the chip has no room.
   // If the record is a zombie, the switch resurrects it. A failure can have removed that record
   // from frrMtableOifSet; the switch then enters the record again, so that the next failure
   // rewrites its set.
   void doAllocateMtableOifSet(OifSetPtr oifSet) override;
   // Programs a route, or with `bridge` a boundary entry. Result: routeHandle, the invalid handle
   // if the entry could not be programmed. `mtableOifSet` may be null. A no-RPF route has no
   // accepting vlan, a VRF id fits 16 bits, and the handle from the platform is new (assertions). A
   // bridge entry without a vlan raises RangeException "VlanId::value < 1 or > 4094 not allowed"
   // before the switch calls a hook. The switch programs an RP index of none() as 0. It does not
   // program a route with the RP index notProgrammed() or with a multicast address as its source.
   // The id of an unknown VRF is 0.
   void doAllocateRoute(IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone acceptingVlanId,
                        bool bridge, MrouteLib::MtableOifSetPtr mtableOifSet, bool fastDrop,
                        bool noRpf, Wisp::Multicast::Fib::RpaIndex rpaId,
                        L3::VrfName const& vrfName) override;
   // Points a programmed route at a record of the synchronous path; both exist (assertions). Calls
   // no hook if the route points at that record already.
   void doSetMtableOifSet(RouteHandle handle, MrouteLib::MtableOifSetPtr mtableOifSet) override;
   // Deletes the route or boundary entry, which exists (assertion).
   void doDeleteRoute(RouteHandle handle) override;
   void doCommitRouteBatch() override;

   // ---- Operations for records and reactors. ----

   // Frees the record now, or makes it a zombie. A record calls this when its last reference has
   // gone.
   void handleFreeMtableOifSet(RecordPtr const& record);
   // Calls the platform's verify hook for every route and every boundary entry.
   void handleVerify();
   // Calls mrouteSwitchInit(switchId, true), once, and then sets `initialized`.
   void handleInitialized();
   // Calls mrouteSwitchInit(switchId, false), so that the platform clears the chip; `initialized`
   // stays true. The end of the switch runs this.
   void doCleanup();
   // Requests a verification from the common data (VelCommonSmData::requestVerify).
   void requestVerify() const;

   // ---- Collections. Vel/VelOifSetTables.h has the collections of oif set records; records of
   //      empty sets are not in inUseOifSet. ----

   // The indexes of non-empty sets that are in use on the chip. All values are true.
   OifSetIndexColl::Map const& oifSetIndexColl() const { return oifSetIndexColl_.map(); }
   bool oifSetIndexColl(Qor::U32 index) const { return oifSetIndexColl_.value(index); }
   void oifSetIndexCollIs(Qor::U32 index, bool v) { oifSetIndexColl_.is(*this, index, v); }
   void oifSetIndexCollDel(Qor::U32 index) { oifSetIndexColl_.del(*this, index); }
   OifSetIndexColl::Iterator oifSetIndexCollDel(OifSetIndexColl::Iterator it) {
      return oifSetIndexColl_.del(*this, it);
   }
   void oifSetIndexCollDelAll() { oifSetIndexColl_.delAll(*this); }
   void oifSetIndexCollNotify(Qor::U32 index) { oifSetIndexColl_.notify(*this, index); }

   // The routes that the chip holds. routeIs() returns the route of the handle, and makes the route
   // if the handle has none. It raises ReinstantiationException for "key" or "acceptingVlanId" if
   // the handle's route has a different value.
   RouteColl::Map const& route() const { return route_.map(); }
   RoutePtr route(RouteHandle handle) const { return route_.value(handle); }
   RoutePtr routeIs(RouteHandle handle, IpGenRouteKey key, Bridging::VlanIdOrNone acceptingVlanId);
   void routeDel(RouteHandle handle);
   RouteColl::Iterator routeDel(RouteColl::Iterator it) {
      keepPair(it->first);
      return route_.del(*this, it);
   }
   void routeDelAll();
   void routeNotify(RouteHandle handle) { route_.notify(*this, handle); }

   // The boundary entries that the chip holds. boundaryIs() follows the rules of routeIs(), and
   // names a different vlan "acceptingVlanId" too.
   BoundaryColl::Map const& boundary() const { return boundary_.map(); }
   BoundaryPtr boundary(RouteHandle handle) const { return boundary_.value(handle); }
   BoundaryPtr boundaryIs(RouteHandle handle, IpGenRouteKey key, Bridging::VlanId vlanId);
   void boundaryDel(RouteHandle handle) { boundary_.del(*this, handle); }
   BoundaryColl::Iterator boundaryDel(BoundaryColl::Iterator it) {
      return boundary_.del(*this, it);
   }
   void boundaryDelAll() { boundary_.delAll(*this); }
   void boundaryNotify(RouteHandle handle) { boundary_.notify(*this, handle); }

   // The handle of a route; the invalid handle for a route that the chip does not hold.
   RouteKeyToHandleColl::Map const& routeKeyToHandle() const { return routeKeyToHandle_.map(); }
   RouteHandle routeKeyToHandle(RouteKeyVlanId const& key) const {
      return routeKeyToHandle_.value(key);
   }
   void routeKeyToHandleIs(RouteKeyVlanId key, RouteHandle v) {
      routeKeyToHandle_.is(*this, key, v);
   }
   void routeKeyToHandleDel(RouteKeyVlanId key) { routeKeyToHandle_.del(*this, key); }
   RouteKeyToHandleColl::Iterator routeKeyToHandleDel(RouteKeyToHandleColl::Iterator it) {
      return routeKeyToHandle_.del(*this, it);
   }
   void routeKeyToHandleDelAll() { routeKeyToHandle_.delAll(*this); }
   void routeKeyToHandleNotify(RouteKeyVlanId key) { routeKeyToHandle_.notify(*this, key); }

 private:
   ~MrouteSwitch() override;
   void zeroReferencesIs(bool) override;

   void publishEmptySet(OifSetPtr const& oifSet);
   bool shareRecord(OifSetPtr const& oifSet, RecordPtr const& existing);
   void freeNow(RecordPtr const& oifSet);
   void allocateBoundary(IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId,
                         Qor::U16 vrfId);
   void allocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId,
                      Qor::U32 oifSetIndex, bool fastDrop, bool noRpf, Qor::U16 rpaId,
                      Qor::U16 vrfId);
   void takeHandle(RouteHandle handle, IpGenRouteKey const& key,
                   Bridging::VlanIdOrNone acceptingVlanId);
   RoutePtr makeRoute(RouteHandle handle, IpGenRouteKey const& key,
                      Bridging::VlanIdOrNone acceptingVlanId);
   // Takes the pair of routeKeyToHandle out of the route, which leaves the switch.
   void keepPair(RouteHandle handle) {
      routeKeyToHandle_.storage().expel(handle, [](RouteKeyVlanId const&) { return true; });
   }

   Qor::Ptr<VelCommonSmData> const acsd_;
   Qor::Ptr<L3Status> const l3Status_;
   Qor::Ptr<VelHelper::MrouteSmHelper> const mrouteHelper_;
   Qor::Ptr<Ip::Status const> const ipStatus_;
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const mfibHwStatus_;
   Qor::Seconds zombieLifetime_ = 4.0;
   bool deleted_ = false;
   bool initialized_ = false;
   bool ended_ = false;
   OifSetIndexColl oifSetIndexColl_;
   RouteColl route_;
   BoundaryColl boundary_;
   RouteKeyToHandleColl routeKeyToHandle_{Qor::RecordIndex(RoutesByKey(&route_.map()))};
};

QOR_PUBLIC Qor::Ptr<MrouteSwitch> mrouteSwitchFactory(
      Qor::Name name, Qor::U32 switchId, Qor::Ptr<VelCommonSmData> acsd,
      Qor::Ptr<L3Status> l3Status, Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper,
      Qor::Ptr<Ip::Status const> ipStatus,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus);

}  // namespace Vel
