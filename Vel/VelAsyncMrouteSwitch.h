// The asynchronous programmer of one switch chip's multicast tables. It decides which oif sets
// share a replication group and keeps a freed group for a while as a zombie; every hardware action
// is delegated to the platform's hooks (Vel/VelAsyncMrouteHelper.h), which return transactions.
//
// Duties of the routing layer, its caller:
//  1. Sharing is by identity of the oif set object. Equal sets must be the same object while
//     anything uses them, zombies included (MrouteLib::MrouteTableColl does that); and an object
//     whose record has turned dirty must not be handed out to further routes, so that they share
//     anew.
//  2. After doAllocateMtableOifSet: look at mrouteFailureReason first. Codes 8 and 4096 leave the
//     previous results standing. Then take mtableOifSet and set it to null at once, since the
//     result counts as a user. Hold the record (counted) as long as the route points at it.
//  3. A route is allocated (doAllocateRoute) and then pointed at a record (doSetMtableOifSet). To
//     change its set, point it at the new record and hold the old one until the new transaction has
//     succeeded. doSetBridgeAction changes nothing in hardware here: such a change is a deletion
//     and an allocation.
//  4. Two handles under one in-use key (same route key, vlan and VRF): deleting the older one
//     erases the newer one's entry in inUseRouteHandle. So release first when the key stays equal,
//     and allocate first otherwise. The keys of catch-all routes are one key, of either address
//     family.
//  5. On code 8 there may be zombies to give up (zombieOifSetDel of the first key); otherwise wait
//     for a deletion. On a failed transaction mark the record dirty, let it go, and allocate again.
//
// Failure codes: 0 none, 8 no free multicast id, 1024 no route handle, 4096 no VRF status.
//
// Ownership. The switch is counted; whoever calls an operation holds it meanwhile. Records are held
// by their users and by zombieOifSet; inUseOifSet, frrMtableOifSet and frrProcessingOifSet name
// them without holding them, and a name may outlast its record there: record() says whether it
// still lives. When the last reference to the switch goes, it sets deleted, lets go of its result,
// removes its zombies, which are freed at once, and then empties all other collections; listeners
// are notified of each. Records that others hold outlive it, and die quietly with their last user.
#pragma once

#include "Qor/PairTable.h"
#include "Routing/Hardware/RouteStatus.h"
#include "Vel/VelAsyncMrouteHelper.h"
#include "Vel/VelAsyncMrouteKeys.h"
#include "Vel/VelAsyncMtableOifSet.h"
#include "Vel/VelOifSetTables.h"

namespace Vel::Mroute {

class QOR_PUBLIC AsyncMrouteSwitch final
      : public OifSetTables<AsyncMrouteSwitch, MrouteLib::AsyncSwitchChip, AsyncMtableOifSet,
                            ZombieKey> {
 public:
   static constexpr char const* typeName = "Vel::Mroute::AsyncMrouteSwitch";

   class Notifiee : public OifSetTablesNotifiee<AsyncMrouteSwitch, ZombieKey> {
    public:
      virtual void onDeleted() {}
      virtual void onTestKill() {}
      virtual void onMcastIdToOifSet(Qor::U32) {}
      virtual void onMcastIdToOifSetImmediate() {}
      virtual void onOifSetXact(MrouteLib::OifSetPtr const&) {}
      virtual void onOifSetXactImmediate() {}
      virtual void onInUseRouteHandle(InUseRouteHandleKey const&) {}
      virtual void onInUseRouteHandleImmediate() {}
      virtual void onInUseRouteHandleKey(MrouteLib::RouteHandle const&) {}
      virtual void onInUseRouteHandleKeyImmediate() {}

    protected:
      void onImmediate() override {
         OifSetTablesNotifiee::onImmediate();
         onMcastIdToOifSetImmediate();
         onOifSetXactImmediate();
         onInUseRouteHandleImmediate();
         onInUseRouteHandleKeyImmediate();
      }
   };

   using McastIdToOifSetColl =
         Qor::Collection<Qor::NumberMap<Qor::U32, OifSetPtr>, &Notifiee::onMcastIdToOifSet,
                         &Notifiee::onMcastIdToOifSetImmediate>;
   using OifSetXactColl =
         Qor::Collection<Qor::HashMap<OifSetPtr, Hux::XactPtr>, &Notifiee::onOifSetXact,
                         &Notifiee::onOifSetXactImmediate>;
   using RouteHandles = Qor::PairTable<InUseRouteHandleKey, MrouteLib::RouteHandle>;
   using InUseRouteHandleColl =
         Qor::Collection<RouteHandles::Forward, &Notifiee::onInUseRouteHandle,
                         &Notifiee::onInUseRouteHandleImmediate>;
   using InUseRouteHandleKeyColl =
         Qor::Collection<RouteHandles::Backward, &Notifiee::onInUseRouteHandleKey,
                         &Notifiee::onInUseRouteHandleKeyImmediate>;

   // `routingHwRouteStatus` may be null: no VRF is known then. `mrouteHelper` is not null.
   AsyncMrouteSwitch(Qor::Name name,
                     Qor::Ptr<Routing::Hardware::RouteStatus const> routingHwRouteStatus,
                     Qor::Ptr<VelHelper::AsyncMrouteHelper> mrouteHelper);

   Qor::Ptr<Routing::Hardware::RouteStatus const> const& routingHwRouteStatus() const {
      return routingHwRouteStatus_;
   }
   Qor::Ptr<VelHelper::AsyncMrouteHelper> const& mrouteHelper() const { return mrouteHelper_; }

   // The switch is being torn down: no record becomes a zombie any more, and freeing leaves the
   // collections alone.
   bool deleted() const { return deleted_; }
   void deletedIs(bool v) { attrIs<&Notifiee::onDeleted>(deleted_, v); }
   // For tests: stored and notified, nothing more.
   bool testKill() const { return testKill_; }
   void testKillIs(bool v) { attrIs<&Notifiee::onTestKill>(testKill_, v); }

   // ---- Operations of the routing layer (MrouteLib::AsyncSwitchChip). ----

   // Finds or makes the group for `oifSet` and leaves its record in mtableOifSet. Returns the
   // transaction that programs the group; null with failure code 8 when there is no free multicast
   // id, and nothing has changed then. An in-use, clean record of this very object is shared and
   // costs no hardware work, nor does a zombie, which is resurrected. `blockingXact` may be null;
   // `presetMulticastId` is used for types that live in fixed groups; `frrRoute` is passed on to
   // the platform.
   Hux::XactPtr doAllocateMtableOifSet(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                       OifSetPtr oifSet, Hux::XactPtr blockingXact,
                                       Qor::U32 presetMulticastId, bool frrRoute) override;
   // Allocates the route's entry; its handle is in routeHandle, invalid with code 1024 when the
   // platform had none. Code 4096, and routeHandle as it was, when the VRF is not known.
   void doAllocateRoute(Routing::Multicast::Fib::IpGenRouteKey const& routeKey,
                        Bridging::VlanIdOrNone acceptingVlanId, bool bridgeAction,
                        Wisp::Multicast::Fib::RpaIndex rpaId, L3::VrfName const& vrfName) override;
   // Points the route at the record's group and returns the route's transaction. From now on the
   // record becomes a zombie when it is freed, even before the transaction completes. A null record
   // is an assertion.
   Hux::XactPtr doSetMtableOifSet(MrouteLib::RouteHandle handle,
                                  MrouteLib::MtableOifSetPtr mtableOifSet,
                                  Hux::XactPtr blockingXact) override;
   // These two trace, and change nothing on this path.
   void doActivateRoute(MrouteLib::RouteHandle handle) override;
   void doSetBridgeAction(MrouteLib::RouteHandle handle, bool bridgeAction) override;
   void doDeleteRoute(MrouteLib::RouteHandle handle) override;
   // A null record is an assertion here, and has a null oif set there.
   Qor::U32 doGetMulticastId(MrouteLib::MtableOifSetPtr const& mtableOifSet) const override;
   OifSetPtr doGetOifSet(MrouteLib::MtableOifSetPtr const& mtableOifSet) const override;
   bool needIngressProgramming(Routing::Multicast::Fib::RouteKeyType type) const override;
   Qor::String8 doGetOifSetXactFailureReason(Hux::XactPtr const& xact) const override;
   Qor::String8 doGetIngressXactFailureReason(Hux::XactPtr const& xact) const override;

   // "<route key> vlan<n> vrfId <n>" of a programmed handle, "?" otherwise.
   Qor::String dumpRouteHandle(MrouteLib::RouteHandle handle) const;

   // ---- Records. ----

   // Called by a record whose last reference has gone: frees it now, or makes it a zombie.
   void handleFreeMtableOifSet(RecordPtr const& record);

   // ---- Collections, beside those of the oif set records (Vel/VelOifSetTables.h). Where a newer
   //      record has replaced the one named in frrMtableOifSet, that entry stays as it is. ----

   // Which oif set a multicast id carries.
   McastIdToOifSetColl::Map const& mcastIdToOifSet() const { return mcastIdToOifSet_.map(); }
   OifSetPtr mcastIdToOifSet(Qor::U32 id) const { return mcastIdToOifSet_.value(id); }
   void mcastIdToOifSetIs(Qor::U32 id, OifSetPtr v) { mcastIdToOifSet_.is(*this, id, v); }
   void mcastIdToOifSetDel(Qor::U32 id) { mcastIdToOifSet_.del(*this, id); }
   McastIdToOifSetColl::Iterator mcastIdToOifSetDel(McastIdToOifSetColl::Iterator it) {
      return mcastIdToOifSet_.del(*this, it);
   }
   void mcastIdToOifSetDelAll() { mcastIdToOifSet_.delAll(*this); }
   void mcastIdToOifSetNotify(Qor::U32 id) { mcastIdToOifSet_.notify(*this, id); }

   // A transaction per oif set; for the platform, the programmer does not use it.
   OifSetXactColl::Map const& oifSetXact() const { return oifSetXact_.map(); }
   Hux::XactPtr oifSetXact(OifSetPtr const& s) const { return oifSetXact_.value(s); }
   void oifSetXactIs(OifSetPtr s, Hux::XactPtr v) { oifSetXact_.is(*this, s, v); }
   void oifSetXactDel(OifSetPtr s) { oifSetXact_.del(*this, s); }
   OifSetXactColl::Iterator oifSetXactDel(OifSetXactColl::Iterator it) {
      return oifSetXact_.del(*this, it);
   }
   void oifSetXactDelAll() { oifSetXact_.delAll(*this); }
   void oifSetXactNotify(OifSetPtr s) { oifSetXact_.notify(*this, s); }

   // The programmed routes, both ways: independent collections, which share what they hold.
   InUseRouteHandleColl::Map const& inUseRouteHandle() const { return inUseRouteHandle_.map(); }
   MrouteLib::RouteHandle inUseRouteHandle(InUseRouteHandleKey const& key) const {
      return inUseRouteHandle_.value(key);
   }
   void inUseRouteHandleIs(InUseRouteHandleKey key, MrouteLib::RouteHandle v) {
      inUseRouteHandle_.is(*this, key, v);
   }
   void inUseRouteHandleDel(InUseRouteHandleKey key) { inUseRouteHandle_.del(*this, key); }
   InUseRouteHandleColl::Iterator inUseRouteHandleDel(InUseRouteHandleColl::Iterator it) {
      return inUseRouteHandle_.del(*this, it);
   }
   void inUseRouteHandleDelAll() { inUseRouteHandle_.delAll(*this); }
   void inUseRouteHandleNotify(InUseRouteHandleKey key) { inUseRouteHandle_.notify(*this, key); }

   InUseRouteHandleKeyColl::Map const& inUseRouteHandleKey() const {
      return inUseRouteHandleKey_.map();
   }
   // The default key for an unknown handle.
   InUseRouteHandleKey inUseRouteHandleKey(MrouteLib::RouteHandle handle) const {
      return inUseRouteHandleKey_.value(handle);
   }
   void inUseRouteHandleKeyIs(MrouteLib::RouteHandle handle, InUseRouteHandleKey v) {
      inUseRouteHandleKey_.is(*this, handle, v);
   }
   void inUseRouteHandleKeyDel(MrouteLib::RouteHandle handle) {
      inUseRouteHandleKey_.del(*this, handle);
   }
   InUseRouteHandleKeyColl::Iterator inUseRouteHandleKeyDel(InUseRouteHandleKeyColl::Iterator it) {
      return inUseRouteHandleKey_.del(*this, it);
   }
   void inUseRouteHandleKeyDelAll() { inUseRouteHandleKey_.delAll(*this); }
   void inUseRouteHandleKeyNotify(MrouteLib::RouteHandle handle) {
      inUseRouteHandleKey_.notify(*this, handle);
   }

 private:
   ~AsyncMrouteSwitch() override;
   void zeroReferencesIs(bool) override;

   RecordPtr reusableRecord(OifSetPtr const& oifSet);
   void takeOverFixedGroup(Qor::U32 multicastId, RecordPtr const& newer);
   void freeNow(RecordPtr const& record);

   Qor::Ptr<Routing::Hardware::RouteStatus const> const routingHwRouteStatus_;
   Qor::Ptr<VelHelper::AsyncMrouteHelper> const mrouteHelper_;
   bool deleted_ = false;
   bool testKill_ = false;
   McastIdToOifSetColl mcastIdToOifSet_;
   OifSetXactColl oifSetXact_;
   RouteHandles routeHandles_;
   InUseRouteHandleColl inUseRouteHandle_{RouteHandles::Forward(&routeHandles_)};
   InUseRouteHandleKeyColl inUseRouteHandleKey_{RouteHandles::Backward(&routeHandles_)};
};

QOR_PUBLIC Qor::ValidPtr<AsyncMrouteSwitch> asyncMrouteSwitchFactory(
      Qor::Name name, Qor::Ptr<Routing::Hardware::RouteStatus const> routingHwRouteStatus,
      Qor::Ptr<VelHelper::AsyncMrouteHelper> mrouteHelper);

}  // namespace Vel::Mroute
