// The asynchronous programmer of one switch chip's multicast tables. It decides which oif sets
// share a replication group and keeps a freed group for a while as a zombie. Every hardware action
// is delegated to the platform's hooks (Vel/VelAsyncMrouteHelper.h). Operations return transactions
// that complete later.
//
// Duties of the routing layer, the caller of the operations:
//  1. Sharing is by identity of the oif set object. Equal sets must be one object while any route,
//     record or zombie uses the set; MrouteLib::MrouteTableColl does this. An object whose record
//     has turned dirty must not be used for further routes (MrouteTableColl::oifSetRetire()), so
//     that those routes share a new object.
//  2. After an allocation, read mrouteFailureReason first. Codes 8 and 4096 leave the previous
//     result in its attribute. After doAllocateMtableOifSet, take the record at once
//     (takeMtableOifSet()), since the attribute mtableOifSet counts as a user of the record. Hold
//     the record (counted) as long as the route points at it.
//  3. A route is allocated (doAllocateRoute) and then pointed at a record (doSetMtableOifSet). To
//     change the set of a route, point the route at the new record and hold the old record until
//     the new transaction has succeeded. doSetBridgeAction changes nothing in hardware: to change
//     the bridge action, delete the route and allocate it again.
//  4. Two handles may have the same in-use key (route key, vlan and VRF). The deletion of the older
//     handle then erases the newer handle's entry in inUseRouteHandle. If the key of a route stays
//     equal, delete the old handle before the new allocation; otherwise allocate first. Catch-all
//     routes of both address families have the same route key.
//  5. On code 8, give up the first zombie (zombieOifSetDel of the first key) if there is one;
//     otherwise wait for a deletion. If a transaction fails, mark the record dirty, release the
//     record, and allocate again.
//
// Failure codes: 0 none, 8 no free multicast id, 1024 no route handle, 4096 no VRF status.
//
// Thread. All calls come from one thread, which drives the activity loop; no object has a lock. A
// completion on another thread enters the loop through Qor/Inbox.h.
//
// Ownership. The switch is counted, and holds its hooks. The caller of an operation holds the
// switch during the call. Records are held by their users and by zombieOifSet. inUseOifSet,
// frrMtableOifSet and frrProcessingOifSet name a record without holding it, and a name may outlast
// its record: record() returns the named record, or null if the record has died.
//
// Order of life. Make the hooks, then the switch, then the reactor (Vel/VelAsyncMrouteSm.h).
// Release the reactor first, then the routes and the records, and the switch last. The end of the
// reactor marks the switch deleted and frees the zombies, so that each record released afterwards
// is freed at once. When the last reference to the switch goes, the switch sets deleted, sets
// mtableOifSet to null, removes its zombies, which are freed at once, and then empties all other
// collections; listeners are notified of each change. A record that outlives the switch calls no
// hook when its last user releases it, so that its group stays allocated on the chip.
//
// Errors thrown by hooks and listeners. An error ends the operation and reaches its caller:
//
//   the error comes from               | state when the caller receives the error
//   -----------------------------------+---------------------------------------------------------
//   a hook that allocates a group or   | no record, handle or entry has been recorded, routeHandle
//   an entry                           | and mtableOifSet are unchanged, mrouteFailureReason is 0
//   doSetMtableOifSet                  | usedInHw of the record is unchanged
//   doDeleteRoute                      | the route is gone from both collections of routes
//   doGetXactForOifSet,                | the change has been made: the record is in mtableOifSet,
//   doGetXactForIngress                | or its usedInHw is true
//   doScheduleVerify                   | the change has been made
//   a listener                         | the change has been made; the notification and the
//                                      | operation have ended, so the remaining listeners are not
//                                      | notified. A record that has no user yet, since the error
//                                      | came before mtableOifSet was set, is freed
//
// A record is freed in the destructor of its last counted pointer. A hook or a listener that is
// called there, doDeleteOifSet and doScheduleVerify above all, must not throw: an error cannot
// leave the destructor, and the process is terminated. The same holds for the end of the switch.
#pragma once

#include "Qor/RecordTable.h"
#include "Routing/Hardware/RouteStatus.h"
#include "Vel/VelAsyncMrouteHelper.h"
#include "Vel/VelAsyncMrouteKeys.h"
#include "Vel/VelAsyncMrouteRecords.h"
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
   using RouteHandles = Qor::RecordTable<InUseRouteHandleKey, MrouteLib::RouteHandle>;
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

   // Whether the switch is being torn down. A record that is released then is freed at once, and
   // its entries stay in the collections.
   bool deleted() const { return deleted_; }
   void deletedIs(bool v) { attrIs<&Notifiee::onDeleted>(deleted_, v); }
   // For tests: the switch stores the value, notifies its reactors, and does not read it.
   bool testKill() const { return testKill_; }
   void testKillIs(bool v) { attrIs<&Notifiee::onTestKill>(testKill_, v); }

   // ---- Operations of the routing layer (MrouteLib::AsyncSwitchChip). ----

   // Finds or makes the group for `oifSet` and leaves its record in mtableOifSet. Returns the
   // transaction that programs the group. Without a free multicast id it returns null with failure
   // code 8, and changes nothing else. An in-use, clean record of the same oif set object is shared
   // if the platform allows it (mcastIdReusable); a zombie among such records is resurrected. Both
   // cost no hardware work. `blockingXact` may be null; `presetMulticastId` is used for types that
   // live in fixed groups; `frrRoute` is passed to the platform.
   Hux::XactPtr doAllocateMtableOifSet(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                       OifSetPtr oifSet, Hux::XactPtr blockingXact,
                                       Qor::U32 presetMulticastId, bool frrRoute) override;
   // Allocates the route's entry and leaves the handle in routeHandle. Without a free entry,
   // routeHandle is invalid and the failure code is 1024. For an unknown VRF, routeHandle is
   // unchanged and the failure code is 4096.
   void doAllocateRoute(Routing::Multicast::Fib::IpGenRouteKey const& routeKey,
                        Bridging::VlanIdOrNone acceptingVlanId, bool bridgeAction,
                        Wisp::Multicast::Fib::RpaIndex rpaId, L3::VrfName const& vrfName) override;
   // Points the route at the record's group and returns the route's transaction. A record that is
   // released from then on becomes a zombie, even before the transaction completes. A null record
   // fails an assertion.
   Hux::XactPtr doSetMtableOifSet(MrouteLib::RouteHandle handle,
                                  MrouteLib::MtableOifSetPtr mtableOifSet,
                                  Hux::XactPtr blockingXact) override;
   // doActivateRoute and doSetBridgeAction only trace on this path.
   void doActivateRoute(MrouteLib::RouteHandle handle) override;
   void doSetBridgeAction(MrouteLib::RouteHandle handle, bool bridgeAction) override;
   // Removes the route from inUseRouteHandle and inUseRouteHandleKey, then deletes its entry.
   void doDeleteRoute(MrouteLib::RouteHandle handle) override;
   // A null record fails an assertion in doGetMulticastId; doGetOifSet returns null for it.
   Qor::U32 doGetMulticastId(MrouteLib::MtableOifSetPtr const& mtableOifSet) const override;
   OifSetPtr doGetOifSet(MrouteLib::MtableOifSetPtr const& mtableOifSet) const override;
   bool needIngressProgramming(Routing::Multicast::Fib::RouteKeyType type) const override;
   Qor::String8 doGetOifSetXactFailureReason(Hux::XactPtr const& xact) const override;
   Qor::String8 doGetIngressXactFailureReason(Hux::XactPtr const& xact) const override;

   // "<route key> vlan<n> vrfId <n>" of a programmed handle, "?" otherwise.
   Qor::String dumpRouteHandle(MrouteLib::RouteHandle handle) const;

   // ---- Records. ----

   // Frees the record now, or makes it a zombie. Called by a record whose last reference has gone.
   void handleFreeMtableOifSet(RecordPtr const& record);

   // ---- Collections, beside those of the oif set records (Vel/VelOifSetTables.h). If a newer
   //      record replaces the record named in frrMtableOifSet, the entry keeps the old name. ----

   // The oif set that each multicast id carries.
   McastIdToOifSetColl::Map const& mcastIdToOifSet() const { return mcastIdToOifSet_.map(); }
   OifSetPtr mcastIdToOifSet(Qor::U32 id) const { return mcastIdToOifSet_.value(id); }
   void mcastIdToOifSetIs(Qor::U32 id, OifSetPtr v) { mcastIdToOifSet_.is(*this, id, v); }
   void mcastIdToOifSetDel(Qor::U32 id) { mcastIdToOifSet_.del(*this, id); }
   McastIdToOifSetColl::Iterator mcastIdToOifSetDel(McastIdToOifSetColl::Iterator it) {
      return mcastIdToOifSet_.del(*this, it);
   }
   void mcastIdToOifSetDelAll() { mcastIdToOifSet_.delAll(*this); }
   void mcastIdToOifSetNotify(Qor::U32 id) { mcastIdToOifSet_.notify(*this, id); }

   // A transaction for each oif set. The platform may use this collection; the switch only empties
   // it at its end.
   OifSetXactColl::Map const& oifSetXact() const { return oifSetXact_.map(); }
   Hux::XactPtr oifSetXact(OifSetPtr const& s) const { return oifSetXact_.value(s); }
   void oifSetXactIs(OifSetPtr s, Hux::XactPtr v) { oifSetXact_.is(*this, s, v); }
   void oifSetXactDel(OifSetPtr s) { oifSetXact_.del(*this, s); }
   OifSetXactColl::Iterator oifSetXactDel(OifSetXactColl::Iterator it) {
      return oifSetXact_.del(*this, it);
   }
   void oifSetXactDelAll() { oifSetXact_.delAll(*this); }
   void oifSetXactNotify(OifSetPtr s) { oifSetXact_.notify(*this, s); }

   // The programmed routes, by key and by handle. The two collections are changed independently,
   // and show one table of records (Qor/RecordTable.h).
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
   // Returns the default key for an unknown handle.
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

QOR_PUBLIC Qor::Ptr<AsyncMrouteSwitch> asyncMrouteSwitchFactory(
      Qor::Name name, Qor::Ptr<Routing::Hardware::RouteStatus const> routingHwRouteStatus,
      Qor::Ptr<VelHelper::AsyncMrouteHelper> mrouteHelper);

}  // namespace Vel::Mroute
