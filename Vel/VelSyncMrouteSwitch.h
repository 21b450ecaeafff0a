// The synchronous programmer of one switch chip's multicast tables. It decides which oif sets share
// an index of the replication table and keeps a freed index for a while as a zombie; it remembers
// the routes and boundary entries of the chip. Every hardware action is delegated to the platform's
// hooks (Vel/VelSyncMrouteHelper.h), which program at once.
//
// Duties of the routing layer, its caller:
//  1. Sharing is by identity of the oif set object. Equal sets must be the same object while
//     anything uses them, zombies included (MrouteLib::MrouteTableColl does that). No new record
//     may be put under an object whose record has turned dirty: the death of the old record takes
//     the object's entries out of all collections, the newer one's too. So intern a fresh object.
//  2. After doAllocateMtableOifSet: take mtableOifSet and set it to null at once, since the result
//     counts as a user. Null: no room. Hold the record until a route points at it.
//  3. A route is allocated (doAllocateRoute) with the record whose index it is to have, and then
//     pointed at the record (doSetMtableOifSet), which holds it from then on; until then the route
//     holds none. To change a route's set, point it at the new record; the old one may go with
//     that. Other properties change by deletion and allocation.
//  4. Running out of room is told by the flags of MrouteLib::SwitchChip. Watch mtableFree,
//     mrouteTcamFree, boundaryTcamFree and mrouteReviewKick; only mark in the handlers, and try
//     again from a clock, a bounded number of routes at a time. A route that waits for a route
//     entry should hold no record.
//  5. Two routes under one (key, accepting vlan), as no-RPF routes of two VRFs are, share the entry
//     in routeKeyToHandle: it names the latest, and goes with whichever is deleted first.
//
// Without a platform. While VEL_NOOP_AGENT is in the environment, an index or a handle that is in
// use may be given out again, as hooks that do nothing do: the newest record, route or boundary
// entry has it. A route whose handle a newer one has taken over is neither pointed nor deleted; its
// deletion asks for the reviews and changes nothing else.
//
// Which operation changes which flag, and asks for which review:
//
//   operation                                      | effect
//   -----------------------------------------------+----------------------------------------------
//   oif set allocation, mtableFull() says full     | mtableFree false
//   oif set allocation, the platform gives none    | none: mtableFree stays
//   an oif set is freed (not: becomes a zombie)    | mtableFree true
//   route allocation fails, mrouteFull() says full | mrouteTcamFree false
//   route allocated                                | multicastReviewPending + 1
//   bridge allocation fails, and the boundary      | boundaryTcamFree false
//     table is full                                |
//   boundary deleted, its table is not full        | boundaryTcamFree true
//   route deleted                                  | mrouteTcamFree stays: room in the route table
//                                                  |   is announced by the reactor's review alone
//   route or boundary deleted                      | unicastReviewPending, unicast6ReviewPending
//                                                  |   and multicastReviewPending + 1 each
//
// Ownership. The switch is counted; whoever calls an operation holds it meanwhile. Records are held
// by routes, by zombieOifSet, and by callers; inUseOifSet, frrMtableOifSet and frrProcessingOifSet
// name them. When the last reference to the switch goes, it sets deleted, has the platform clear
// the chip (doCleanup), lets go of its result, routes, boundary entries and zombies, whose records
// are freed at once, and then empties all other collections; listeners are notified of each. Records
// that others hold outlive it, and die quietly.
#pragma once

#include "Ip/Status.h"
#include "Qor/PairTable.h"
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
   using RouteKeys = Qor::PairTable<RouteKeyVlanId, RouteHandle>;
   using RouteKeyToHandleColl = Qor::Collection<RouteKeys::Forward, &Notifiee::onRouteKeyToHandle,
                                                &Notifiee::onRouteKeyToHandleImmediate>;

   static constexpr Qor::U32 invalidOifSetIndex() {
      return VelHelper::MrouteSmHelper::invalidOifSetIndex;
   }

   // `l3Status` and `mrouteHelper` are not null. Without `acsd` nothing is verified; without
   // `mfibHwStatus` no handle may be shared; `ipStatus` is kept for the platform. The constructor
   // ends with handleInitialized().
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

   // How long a freed index is kept as a zombie, in seconds; counts for zombies to come.
   // RangeException "MrouteSwitch::zombieLifetime < 0 or not finite not allowed".
   Qor::Seconds zombieLifetime() const { return zombieLifetime_; }
   void zombieLifetimeIs(Qor::Seconds v);
   // The switch is being torn down: no record becomes a zombie any more.
   bool deleted() const { return deleted_; }
   void deletedIs(bool v) { attrIs<&Notifiee::onDeleted>(deleted_, v); }
   // The platform knows of the switch. Until then the operations on routes do nothing.
   bool initialized() const { return initialized_; }

   // ---- The operations of the routing layer. ----

   // Finds or makes the record of the oif set: mtableOifSet, null when there is no room. A zombie
   // that is taken back is entered in frrMtableOifSet again if a failure has taken it out meanwhile,
   // so that its set is rewritten at the next failure.
   void doAllocateMtableOifSet(OifSetPtr oifSet) override;
   // Programs a route, or with `bridge` a boundary entry: routeHandle, invalid when it could not be
   // programmed. `mtableOifSet` may be null. A no-RPF route has no accepting vlan, VRF ids fit 16
   // bits, and handles are new (assertions). RangeException for a bridge entry without a vlan
   // ("VlanId::value < 1 or > 4094 not allowed"), before anything is written. An RP index of none()
   // is programmed as 0; with notProgrammed(), or with a multicast address for a source, the route
   // is not programmed. The VRF id of an unknown VRF is 0.
   void doAllocateRoute(IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone acceptingVlanId,
                        bool bridge, MrouteLib::MtableOifSetPtr mtableOifSet, bool fastDrop,
                        bool noRpf, Wisp::Multicast::Fib::RpaIndex rpaId,
                        L3::VrfName const& vrfName) override;
   // Points a programmed route at a record of this path; both exist (assertions). Writes nothing
   // when it points there already.
   void doSetMtableOifSet(RouteHandle handle, MrouteLib::MtableOifSetPtr mtableOifSet) override;
   // Deletes the route or boundary entry, which exists (assertion).
   void doDeleteRoute(RouteHandle handle) override;
   void doCommitRouteBatch() override;

   // ---- What records and reactors call. ----

   // By a record whose last reference has gone: frees it now, or makes it a zombie.
   void handleFreeMtableOifSet(RecordPtr const& record);
   // Has the platform compare every route and boundary entry with the hardware.
   void handleVerify();
   // Announces the switch to the platform, once.
   void handleInitialized();
   // Has the platform clear the chip; `initialized` stays set. Run at the end of the switch.
   void doCleanup();
   // Has changes verified, where the common data asks for that.
   void requestVerify() const;

   // ---- Collections, beside those of the oif set records (Vel/VelOifSetTables.h). Records of empty
   //      sets are not in inUseOifSet. ----

   // The indexes of non-empty sets that are in use on the chip: a set, whose values are all true.
   OifSetIndexColl::Map const& oifSetIndexColl() const { return oifSetIndexColl_.map(); }
   bool oifSetIndexColl(Qor::U32 index) const { return oifSetIndexColl_.value(index); }
   void oifSetIndexCollIs(Qor::U32 index, bool v) { oifSetIndexColl_.is(*this, index, v); }
   void oifSetIndexCollDel(Qor::U32 index) { oifSetIndexColl_.del(*this, index); }
   OifSetIndexColl::Iterator oifSetIndexCollDel(OifSetIndexColl::Iterator it) {
      return oifSetIndexColl_.del(*this, it);
   }
   void oifSetIndexCollDelAll() { oifSetIndexColl_.delAll(*this); }
   void oifSetIndexCollNotify(Qor::U32 index) { oifSetIndexColl_.notify(*this, index); }

   // The routes that the chip holds. routeIs() returns the route of the handle, made if there is
   // none; ReinstantiationException for "key" or "acceptingVlanId" when there is one with another
   // value.
   RouteColl::Map const& route() const { return route_.map(); }
   RoutePtr route(RouteHandle handle) const { return route_.value(handle); }
   RoutePtr routeIs(RouteHandle handle, IpGenRouteKey key, Bridging::VlanIdOrNone acceptingVlanId);
   void routeDel(RouteHandle handle);
   RouteColl::Iterator routeDel(RouteColl::Iterator it) {
      handleToRouteKey_.erase(it->first);
      return route_.del(*this, it);
   }
   void routeDelAll();
   void routeNotify(RouteHandle handle) { route_.notify(*this, handle); }

   // The boundary entries that the chip holds; as routes.
   BoundaryColl::Map const& boundary() const { return boundary_.map(); }
   BoundaryPtr boundary(RouteHandle handle) const { return boundary_.value(handle); }
   BoundaryPtr boundaryIs(RouteHandle handle, IpGenRouteKey key, Bridging::VlanId vlanId);
   void boundaryDel(RouteHandle handle) { boundary_.del(*this, handle); }
   BoundaryColl::Iterator boundaryDel(BoundaryColl::Iterator it) {
      return boundary_.del(*this, it);
   }
   void boundaryDelAll() { boundary_.delAll(*this); }
   void boundaryNotify(RouteHandle handle) { boundary_.notify(*this, handle); }

   // The handle of a route; invalid for one that the chip does not hold.
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
   bool shareRecord(RecordPtr const& existing);
   void freeNow(RecordPtr const& oifSet);
   void allocateBoundary(IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId,
                         Qor::U16 vrfId);
   void allocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId,
                      Qor::U32 oifSetIndex, bool fastDrop, bool noRpf, Qor::U16 rpaId,
                      Qor::U16 vrfId);
   void takeHandle(RouteHandle handle, IpGenRouteKey const& key,
                   Bridging::VlanIdOrNone acceptingVlanId);

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
   RouteKeys routeKeys_;
   RouteKeys::Backward handleToRouteKey_{&routeKeys_};  // follows route_
   RouteKeyToHandleColl routeKeyToHandle_{RouteKeys::Forward(&routeKeys_)};
};

QOR_PUBLIC Qor::ValidPtr<MrouteSwitch> mrouteSwitchFactory(
      Qor::Name name, Qor::U32 switchId, Qor::Ptr<VelCommonSmData> acsd,
      Qor::Ptr<L3Status> l3Status, Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper,
      Qor::Ptr<Ip::Status const> ipStatus,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus);

}  // namespace Vel
