// The asynchronous path's seam to one switch chip. A platform derives from AsyncMrouteHelper and
// overrides the hooks; the library reaches hardware through nothing else. This header is the
// platform's manual.
//
// The life of a group. doAllocateSharableMulticastGroup (or doAllocateFixedMulticastGroup) chooses
// a multicast id and starts programming the group with the oif set's members. Right after,
// doGetXactForOifSet(id) must return the transaction that programs the group. doSetMtableOifSet
// points routes at the group. doDeleteOifSet(id) ends the group: the platform may give the id to
// another group from then on.
//
// The life of a route. doAllocateRoute reserves an entry and returns its handle. doSetMtableOifSet
// points the entry at a group; right after, doGetXactForIngress(handle) must return the transaction
// of this change. doDeleteRoute ends the entry.
//
// Order. The library issues its changes in an order that is safe for the chip: a group exists
// before a route points at it, and no route points at a group that is deleted. This holds if the
// platform applies the changes, deletions included, in the order of the calls. A blocking
// transaction, where one is passed, must complete before the new change is applied.
//
// Failures. An invalid id or handle reports at once that no group or entry is free. A change that
// fails later is reported by the state of its transaction; doGetXactFailureReason returns the text.
//
// Thread. The library calls all hooks on the thread that drives the activity loop. The platform
// must change its transactions and these collections on the same thread; a completion on another
// thread enters the loop through Qor/Inbox.h.
//
// Order of life. Make the hooks, then the switch (Vel/VelAsyncMrouteSwitch.h), then the reactor
// (Vel/VelAsyncMrouteSm.h). Release the reactor, then the routes and the records, then the switch.
// The switch and the reactor each hold the hooks, so the hooks outlive both.
//
// Hooks that throw. Report a chip without room by an invalid result, and a failed change by its
// transaction, not by an error. If a hook throws nevertheless:
//  - In an allocation (of a group or an entry), the library has recorded nothing. The error reaches
//    the caller of the operation.
//  - In doDeleteRoute, the switch has already removed the route from its collections. The error
//    reaches the caller; the platform must delete the entry itself.
//  - In the deletion of a record, the hooks (doDeleteOifSet, doScheduleVerify, needFixedOifSet) run
//    inside a destructor. They must not throw there: the process is terminated.
//  - In a handler of the reactor, the error ends the handler. Vel/VelAsyncMrouteSm.h states the
//    consequences.
//
// Required hooks ("required" below) stop the process if they are called and not overridden. If
// VEL_NOOP_AGENT is in the environment, they return the neutral value in parentheses instead.
#pragma once

#include <optional>
#include <ostream>
#include <string_view>

#include "Bridging/VlanId.h"
#include "FlexCounters/CounterKeyTable.h"
#include "Hux/Xact.h"
#include "MrouteLib/MrouteCounterKey.h"
#include "MrouteLib/MrouteCounterKeyMapTable.h"
#include "MrouteLib/OifSet.h"
#include "MrouteLib/RouteHandle.h"
#include "MrouteLib/RouteKeyInfo.h"
#include "Qor/Collection.h"
#include "Routing/Multicast/Fib/CounterMode.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"
#include "Vel/VelCommon.h"
#include "Vel/VrfId.h"
#include "Wisp/Multicast/Fib/RpaIndex.h"

namespace VelHelper {

// The kind of the transaction whose failure reason the library reads.
enum class MrouteXactType : unsigned char {
   oifSet = 0,   // programs a multicast group
   ingress = 1,  // programs a route's ingress entry
};

// Prints "oifSet" or "ingress"; the number for any other value.
QOR_PUBLIC std::ostream& operator<<(std::ostream& os, MrouteXactType type);
// Returns the type of a printed name; nothing for any other text.
QOR_PUBLIC std::optional<MrouteXactType> mrouteXactType(std::string_view name);

class QOR_PUBLIC AsyncMrouteHelper : public Qor::Entity<AsyncMrouteHelper, Vel::VelBaseHelper> {
 public:
   class Notifiee : public Qor::NotifieeOf<AsyncMrouteHelper> {
    public:
      virtual void onDeletedMrouteCounterKey(MrouteLib::MrouteCounterKey const&) {}
      virtual void onDeletedMrouteCounterKeyImmediate() {}
      virtual void onNoHwCounterMrouteKey(MrouteLib::MrouteCounterKey const&) {}
      virtual void onNoHwCounterMrouteKeyImmediate() {}

    protected:
      void onImmediate() override {
         onDeletedMrouteCounterKeyImmediate();
         onNoHwCounterMrouteKeyImmediate();
      }
   };

   using CounterKeyMap = Qor::HashMap<MrouteLib::MrouteCounterKey, bool>;
   using DeletedMrouteCounterKeyColl =
         Qor::Collection<CounterKeyMap, &Notifiee::onDeletedMrouteCounterKey,
                         &Notifiee::onDeletedMrouteCounterKeyImmediate>;
   using NoHwCounterMrouteKeyColl =
         Qor::Collection<CounterKeyMap, &Notifiee::onNoHwCounterMrouteKey,
                         &Notifiee::onNoHwCounterMrouteKeyImmediate>;

   // The multicast id that means "no group".
   static constexpr Qor::U32 invalidMulticastId = 0xFFFFFFFF;

   AsyncMrouteHelper(Qor::Name name, Qor::Ptr<FlexCounters::CounterKeyTable> activeCounterKeyTable,
                     Qor::Ptr<MrouteLib::MrouteCounterKeyMapTable> mrouteCounterKeyMapTable);

   // The counter keys that the platform has active; may be null.
   Qor::Ptr<FlexCounters::CounterKeyTable> const& activeCounterKeyTable() const {
      return activeCounterKeyTable_;
   }
   // Maps the counter keys of routes to the platform's counter keys; may be null.
   Qor::Ptr<MrouteLib::MrouteCounterKeyMapTable> const& mrouteCounterKeyMapTable() const {
      return mrouteCounterKeyMapTable_;
   }

   // deletedMrouteCounterKey: routes whose hardware counter has been deleted and whose key the
   // platform has still to clean up. noHwCounterMrouteKey: routes that asked for a counter and got
   // none. Both collections belong to the platform: no reactor of the library reads or writes them.
   CounterKeyMap const& deletedMrouteCounterKey() const { return deletedMrouteCounterKey_.map(); }
   bool deletedMrouteCounterKey(MrouteLib::MrouteCounterKey const& key) const {
      return deletedMrouteCounterKey_.value(key);
   }
   void deletedMrouteCounterKeyIs(MrouteLib::MrouteCounterKey key, bool v) {
      deletedMrouteCounterKey_.is(*this, key, v);
   }
   void deletedMrouteCounterKeyDel(MrouteLib::MrouteCounterKey key) {
      deletedMrouteCounterKey_.del(*this, key);
   }
   DeletedMrouteCounterKeyColl::Iterator deletedMrouteCounterKeyDel(
         DeletedMrouteCounterKeyColl::Iterator it) {
      return deletedMrouteCounterKey_.del(*this, it);
   }
   void deletedMrouteCounterKeyDelAll() { deletedMrouteCounterKey_.delAll(*this); }
   void deletedMrouteCounterKeyNotify(MrouteLib::MrouteCounterKey key) {
      deletedMrouteCounterKey_.notify(*this, key);
   }

   CounterKeyMap const& noHwCounterMrouteKey() const { return noHwCounterMrouteKey_.map(); }
   bool noHwCounterMrouteKey(MrouteLib::MrouteCounterKey const& key) const {
      return noHwCounterMrouteKey_.value(key);
   }
   void noHwCounterMrouteKeyIs(MrouteLib::MrouteCounterKey key, bool v) {
      noHwCounterMrouteKey_.is(*this, key, v);
   }
   void noHwCounterMrouteKeyDel(MrouteLib::MrouteCounterKey key) {
      noHwCounterMrouteKey_.del(*this, key);
   }
   NoHwCounterMrouteKeyColl::Iterator noHwCounterMrouteKeyDel(
         NoHwCounterMrouteKeyColl::Iterator it) {
      return noHwCounterMrouteKey_.del(*this, it);
   }
   void noHwCounterMrouteKeyDelAll() { noHwCounterMrouteKey_.delAll(*this); }
   void noHwCounterMrouteKeyNotify(MrouteLib::MrouteCounterKey key) {
      noHwCounterMrouteKey_.notify(*this, key);
   }

   // ---- Hooks, in the order of their slots. ----

   // Pass the counter settings of the forwarding configuration: when the reactor is made, when a
   // setting changes, and when another configuration is set. Default: nothing.
   virtual void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode);
   virtual void handleWildcardCounter(bool allCounter);

   // For the platform's own counter handling; the library calls neither hook. doCreateMrouteCounter
   // returns whether the route has a counter, doDeleteMrouteCounter whether the route had one.
   // Default: true.
   virtual bool doCreateMrouteCounter(Vel::VrfId vrfId, Routing::Multicast::Fib::IpGenRouteKey key);
   virtual bool doDeleteMrouteCounter(Vel::VrfId vrfId, Routing::Multicast::Fib::IpGenRouteKey key);

   // Required (0). Chooses a free multicast id, starts programming its group with `oifSet` and
   // returns the id; returns an invalid id if no group is free. `blockingXact` may be null.
   // `excludeEmptyMcid` is true for a fast-reroute route: the group of such a route is rewritten in
   // place, so it must not be a group that all empty sets share.
   virtual Qor::U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                                     MrouteLib::OifSetPtr oifSet,
                                                     Hux::XactPtr blockingXact,
                                                     bool excludeEmptyMcid);
   // Required (0). Starts programming the fixed group `mcastId`, or the fixed group that the
   // platform uses instead, with `oifSet`, and returns the id of the group.
   virtual Qor::U32 doAllocateFixedMulticastGroup(MrouteLib::OifSetPtr oifSet,
                                                  Hux::XactPtr blockingXact, Qor::U32 mcastId);
   // Required. Rewrites the members of a group in place: each route that points at the group
   // forwards to `oifSet` afterwards.
   virtual void doUpdateMulticastGroupInPlace(MrouteLib::OifSetPtr oifSet, Qor::U32 mcastId);
   // Required (null). Returns the latest transaction that programs the group's members. It must not
   // be null for a group that has been allocated and not deleted.
   virtual Hux::XactPtr doGetXactForOifSet(Qor::U32 mcastId);
   // Required (empty). Returns the reason why `xact` failed; empty while `xact` has not failed.
   virtual Qor::String8 doGetXactFailureReason(Hux::XactPtr xact, MrouteXactType mrouteXactType);
   // Required. Deletes the group. No route points at the group once the changes issued before have
   // been applied. Runs inside a destructor and must not throw.
   virtual void doDeleteOifSet(Qor::U32 mcastId);
   // Required (invalid handle). Reserves an entry for the route and returns its handle; returns the
   // invalid handle if no entry is free. The accepting vlan is none for a routed entry that accepts
   // from any interface. `bridgeAction` marks an entry that bridges. `vrfId` is the route's VRF.
   // The entry forwards nothing before it is pointed at a group.
   virtual MrouteLib::RouteHandle doAllocateRoute(
         Routing::Multicast::Fib::IpGenRouteKey const& routeKey,
         Bridging::VlanIdOrNone acceptingVlanId, bool bridgeAction,
         Wisp::Multicast::Fib::RpaIndex rpaId, Qor::U32 vrfId);
   // Required. Points the route at the group, in place of the group that it points at now.
   // `blockingXact` may be null.
   virtual void doSetMtableOifSet(MrouteLib::RouteHandle handle, Qor::U32 mcastId,
                                  Hux::XactPtr blockingXact);
   // Required (null). Returns the latest transaction that points the route at a group.
   virtual Hux::XactPtr doGetXactForIngress(MrouteLib::RouteHandle handle);
   // Required. Deletes the route's entry; the platform may give out its handle again from then on.
   virtual void doDeleteRoute(MrouteLib::RouteHandle handle);
   // Required (0.0). Returns the time at which a packet last hit the entry, in seconds on the
   // Qor::now() time base; 0.0 for an entry that no packet has hit.
   virtual Qor::Seconds routeLastAccessedTime(MrouteLib::RouteHandle handle);

   // Returns whether oif sets of this type live in fixed, pre-assigned groups. Default: false.
   virtual bool needFixedOifSet(Routing::Multicast::Fib::RouteKeyType type);
   // Returns whether routes of this type need an ingress entry. Default: true.
   virtual bool needIngressProgramming(Routing::Multicast::Fib::RouteKeyType type);
   // Returns whether one more route may share the group. Default: true.
   virtual bool mcastIdReusable(Qor::U32 mcastId);
   // Returns whether the id names a group; no other place decides this. Default: true for all ids
   // but invalidMulticastId.
   virtual bool mcastIdIsValid(Qor::U32 mcastId);
   // Return the interval, in seconds, that the platform can keep and that is nearest to `interval`:
   // the first for the library's aging review, the second for the platform's own activity polling,
   // which is published in mfibHwStatus.pollingInterval. Default: `interval`.
   virtual double doGetAdjustedPollingInterval(double const& interval);
   virtual double doGetAdjustedActivityPollInterval(double const& interval);
   // Asks the platform to verify its tables at a later time. The switch calls this hook after an
   // oif set allocation, after a route has been pointed at a group, after the deletion of a route,
   // and after a record has been freed or has become a zombie. Default: nothing.
   virtual void doScheduleVerify();

 protected:
   ~AsyncMrouteHelper() override;

 private:
   Qor::Ptr<FlexCounters::CounterKeyTable> const activeCounterKeyTable_;
   Qor::Ptr<MrouteLib::MrouteCounterKeyMapTable> const mrouteCounterKeyMapTable_;
   DeletedMrouteCounterKeyColl deletedMrouteCounterKey_;
   NoHwCounterMrouteKeyColl noHwCounterMrouteKey_;
};

}  // namespace VelHelper
