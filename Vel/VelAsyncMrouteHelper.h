// The asynchronous path's seam to one switch chip. A platform derives from AsyncMrouteHelper and
// overrides the hooks; the library reaches hardware through nothing else. This header is the
// platform's manual.
//
// The life of a group. doAllocateSharableMulticastGroup (or doAllocateFixedMulticastGroup) chooses
// a multicast id and starts programming it with the oif set's members; right after,
// doGetXactForOifSet(id) must return the transaction that does so. Routes are pointed at the group
// by doSetMtableOifSet. doDeleteOifSet(id) is its end: the id may be handed out again from then on.
//
// The life of a route. doAllocateRoute reserves an entry and returns its handle; doSetMtableOifSet
// points it at a group, and right after, doGetXactForIngress(handle) must return the transaction
// that does so; doDeleteRoute is its end.
//
// Order. The library issues its changes in an order that is safe for the chip (a group exists
// before a route points at it, and no route points at a group that is deleted), provided the
// platform applies them, deletions included, in the order of the calls. A blocking transaction,
// where one is passed, must complete before the new change is applied.
//
// Failures. Running out of groups or entries is reported at once by an invalid id or handle. A
// change that fails later is reported by its transaction's state; doGetXactFailureReason gives the
// text.
//
// Required hooks ("required" below) stop the process when they are called and not overridden,
// unless VEL_NOOP_AGENT is in the environment: they then return the neutral value given.
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

// Which kind of transaction a failure reason is asked for.
enum class MrouteXactType : unsigned char {
   oifSet = 0,   // programs a multicast group
   ingress = 1,  // programs a route's ingress entry
};

// "oifSet", "ingress"; the number for any other value.
QOR_PUBLIC std::ostream& operator<<(std::ostream& os, MrouteXactType type);
// Reads those names back; anything else is null.
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

   // Multicast id of no group.
   static constexpr Qor::U32 invalidMulticastId = 0xFFFFFFFF;

   AsyncMrouteHelper(Qor::Name name, Qor::Ptr<FlexCounters::CounterKeyTable> activeCounterKeyTable,
                     Qor::Ptr<MrouteLib::MrouteCounterKeyMapTable> mrouteCounterKeyMapTable);

   // Counter keys that the platform has active; may be null.
   Qor::Ptr<FlexCounters::CounterKeyTable> const& activeCounterKeyTable() const {
      return activeCounterKeyTable_;
   }
   // From route counter keys to the platform's counter keys; may be null.
   Qor::Ptr<MrouteLib::MrouteCounterKeyMapTable> const& mrouteCounterKeyMapTable() const {
      return mrouteCounterKeyMapTable_;
   }

   // Routes whose hardware counter has been deleted and whose key the platform has still to clean
   // up; routes that asked for a counter and got none. Both are the platform's: no reactor of the
   // library writes or reads them.
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

   // The counter settings of the forwarding configuration, at start and on change. Default:
   // nothing.
   virtual void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode);
   virtual void handleWildcardCounter(bool allCounter);

   // For the platform's own counter handling; the library does not call them. True: the
   // route has (had) a counter. Default: true.
   virtual bool doCreateMrouteCounter(Vel::VrfId vrfId, Routing::Multicast::Fib::IpGenRouteKey key);
   virtual bool doDeleteMrouteCounter(Vel::VrfId vrfId, Routing::Multicast::Fib::IpGenRouteKey key);

   // Required (0). A free multicast id, its group on the way to carry `oifSet`; or an invalid id
   // when no group is free. `blockingXact` may be null. `excludeEmptyMcid` is true for a
   // fast-reroute route: its group must be one that can be rewritten in place, so not a group that
   // all empty sets share.
   virtual Qor::U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                                     MrouteLib::OifSetPtr oifSet,
                                                     Hux::XactPtr blockingXact,
                                                     bool excludeEmptyMcid);
   // Required (0). The fixed group `mcastId`, or the fixed group the platform uses instead, on the
   // way to carry `oifSet` from now on.
   virtual Qor::U32 doAllocateFixedMulticastGroup(MrouteLib::OifSetPtr oifSet,
                                                  Hux::XactPtr blockingXact, Qor::U32 mcastId);
   // Required. Rewrites the members of a group in place: every route that points at it forwards to
   // `oifSet` afterwards.
   virtual void doUpdateMulticastGroupInPlace(MrouteLib::OifSetPtr oifSet, Qor::U32 mcastId);
   // Required (null). The latest transaction that programs the group's members; not null for a
   // group that has been allocated and not deleted.
   virtual Hux::XactPtr doGetXactForOifSet(Qor::U32 mcastId);
   // Required (empty). Why `xact` failed; empty while it has not.
   virtual Qor::String8 doGetXactFailureReason(Hux::XactPtr xact, MrouteXactType mrouteXactType);
   // Required. Deletes the group; no route points at it any more, once the changes issued before
   // are applied.
   virtual void doDeleteOifSet(Qor::U32 mcastId);
   // Required (invalid handle). An entry for the route, or the invalid handle when there is none.
   // The accepting vlan is none for a routed entry that accepts from anywhere; `bridgeAction` marks
   // an entry that bridges; `vrfId` is the route's VRF. The entry forwards nothing before it is
   // pointed at a group.
   virtual MrouteLib::RouteHandle doAllocateRoute(
         Routing::Multicast::Fib::IpGenRouteKey const& routeKey,
         Bridging::VlanIdOrNone acceptingVlanId, bool bridgeAction,
         Wisp::Multicast::Fib::RpaIndex rpaId, Qor::U32 vrfId);
   // Required. Points the route at the group, replacing the group it pointed at.
   virtual void doSetMtableOifSet(MrouteLib::RouteHandle handle, Qor::U32 mcastId,
                                  Hux::XactPtr blockingXact);
   // Required (null). The latest transaction that points the route at a group.
   virtual Hux::XactPtr doGetXactForIngress(MrouteLib::RouteHandle handle);
   // Required. Deletes the route's entry.
   virtual void doDeleteRoute(MrouteLib::RouteHandle handle);
   // Required (0.0). When a packet last hit the entry, on the Qor::now() time base; 0.0 for never.
   virtual Qor::Seconds routeLastAccessedTime(MrouteLib::RouteHandle handle);

   // Whether oif sets of this type live in fixed, pre-assigned groups. Default: false.
   virtual bool needFixedOifSet(Routing::Multicast::Fib::RouteKeyType type);
   // Whether routes of this type need an ingress entry at all. Default: true.
   virtual bool needIngressProgramming(Routing::Multicast::Fib::RouteKeyType type);
   // Whether the group may be shared by one more route. Default: true.
   virtual bool mcastIdReusable(Qor::U32 mcastId);
   // The one place that decides which ids mean "no group". Default: all but invalidMulticastId.
   virtual bool mcastIdIsValid(Qor::U32 mcastId);
   // The nearest interval, in seconds, at which the platform can poll activity. Default: unchanged.
   virtual double doGetAdjustedPollingInterval(double const& interval);
   virtual double doGetAdjustedActivityPollInterval(double const& interval);
   // Asks the platform to verify its tables some time; called after every change. Default: nothing.
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
