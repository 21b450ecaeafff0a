// The interfaces of the table programmers to the routing layer. There is one programmer per switch
// chip; a chip has an asynchronous or a synchronous one. A caller runs an operation and then reads
// its results from attributes. A chip without room is a result, never an error.
//
// The headers of the programmers (Vel/VelAsyncMrouteSwitch.h, Vel/VelSyncMrouteSwitch.h) state the
// duties of the routing layer and the effect of each operation.
#pragma once

#include "Bridging/VlanId.h"
#include "Hux/Xact.h"
#include "L3/VrfName.h"
#include "MrouteLib/MrouteFailureReason.h"
#include "MrouteLib/OifSet.h"
#include "MrouteLib/RouteHandle.h"
#include "MrouteLib/RouteKeyInfo.h"
#include "Qor/Entity.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"
#include "Wisp/Multicast/Fib/RpaIndex.h"

namespace MrouteLib {

// The record of a programmed oif set. Each path derives its own record type. A route holds its
// record by a counted pointer.
class QOR_PUBLIC MtableOifSet : public Qor::EntityBase {
 public:
   // The oif set of the record; never null.
   virtual OifSetPtr oifSet() const = 0;

 protected:
   MtableOifSet() = default;
   ~MtableOifSet() override;
};

using MtableOifSetPtr = Qor::Ptr<MtableOifSet>;

class QOR_PUBLIC SwitchChipBase : public Qor::Entity<SwitchChipBase, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<SwitchChipBase> {
    public:
      virtual void onRouteHandle() {}
      virtual void onMtableOifSet() {}
   };

   // The platform's number of the chip.
   Qor::U32 switchId() const { return switchId_; }

   // Result: the handle of the route allocated last; the invalid handle if the allocation failed.
   RouteHandle routeHandle() const { return routeHandle_; }
   void routeHandleIs(RouteHandle v) { attrIs<&Notifiee::onRouteHandle>(routeHandle_, v); }

   // Result: the record chosen by the last oif set allocation. The attribute holds the record. The
   // caller must take the record at once (takeMtableOifSet()): otherwise the record keeps this
   // reference when its last route leaves it.
   MtableOifSetPtr mtableOifSet() const { return mtableOifSet_; }
   void mtableOifSetIs(MtableOifSetPtr v) {
      attrIs<&Notifiee::onMtableOifSet>(mtableOifSet_, std::move(v));
   }
   // Returns the record and sets the attribute to null.
   MtableOifSetPtr takeMtableOifSet() {
      MtableOifSetPtr taken = mtableOifSet_;
      mtableOifSetIs(nullptr);
      return taken;
   }

 protected:
   SwitchChipBase(Qor::Name name, Qor::U32 switchId);
   ~SwitchChipBase() override;

 private:
   Qor::U32 const switchId_;
   RouteHandle routeHandle_;
   MtableOifSetPtr mtableOifSet_;
};

// The asynchronous path: operations return transactions that complete later.
class QOR_PUBLIC AsyncSwitchChip : public Qor::Entity<AsyncSwitchChip, SwitchChipBase> {
 public:
   class Notifiee : public Qor::NotifieeOf<AsyncSwitchChip> {
    public:
      virtual void onMrouteFailureReason() {}
   };

   // Result: MrouteFailureReason::none, or the reason why the last operation failed.
   MrouteFailureReason mrouteFailureReason() const { return mrouteFailureReason_; }
   void mrouteFailureReasonIs(MrouteFailureReason v) {
      attrIs<&Notifiee::onMrouteFailureReason>(mrouteFailureReason_, v);
   }

   virtual Hux::XactPtr doAllocateMtableOifSet(RouteKeyInfo const& routeKeyInfo, OifSetPtr oifSet,
                                               Hux::XactPtr blockingXact,
                                               Qor::U32 presetMulticastId, bool frrRoute) = 0;
   virtual void doAllocateRoute(Routing::Multicast::Fib::IpGenRouteKey const& routeKey,
                                Bridging::VlanIdOrNone acceptingVlanId, bool bridgeAction,
                                Wisp::Multicast::Fib::RpaIndex rpaId,
                                L3::VrfName const& vrfName) = 0;
   virtual Hux::XactPtr doSetMtableOifSet(RouteHandle handle, MtableOifSetPtr mtableOifSet,
                                          Hux::XactPtr blockingXact) = 0;
   virtual void doActivateRoute(RouteHandle handle) = 0;
   virtual void doSetBridgeAction(RouteHandle handle, bool bridgeAction) = 0;
   virtual void doDeleteRoute(RouteHandle handle) = 0;
   virtual Qor::U32 doGetMulticastId(MtableOifSetPtr const& mtableOifSet) const = 0;
   virtual OifSetPtr doGetOifSet(MtableOifSetPtr const& mtableOifSet) const = 0;
   virtual bool needIngressProgramming(Routing::Multicast::Fib::RouteKeyType type) const = 0;
   virtual Qor::String8 doGetOifSetXactFailureReason(Hux::XactPtr const& xact) const = 0;
   virtual Qor::String8 doGetIngressXactFailureReason(Hux::XactPtr const& xact) const = 0;

 protected:
   AsyncSwitchChip(Qor::Name name, Qor::U32 switchId);
   ~AsyncSwitchChip() override;

 private:
   MrouteFailureReason mrouteFailureReason_ = MrouteFailureReason::none;
};

// The synchronous path: operations program at once; flags say which tables have room.
class QOR_PUBLIC SwitchChip : public Qor::Entity<SwitchChip, SwitchChipBase> {
 public:
   class Notifiee : public Qor::NotifieeOf<SwitchChip> {
    public:
      virtual void onMtableFree() {}
      virtual void onMrouteTcamFree() {}
      virtual void onBoundaryTcamFree() {}
      virtual void onMrouteReviewKick() {}
   };

   // Whether the replication table, the route table and the boundary table have room. Initially
   // true; the programmer clears a flag when an allocation finds the table full.
   bool mtableFree() const { return mtableFree_; }
   void mtableFreeIs(bool v) { attrIs<&Notifiee::onMtableFree>(mtableFree_, v); }
   bool mrouteTcamFree() const { return mrouteTcamFree_; }
   void mrouteTcamFreeIs(bool v) { attrIs<&Notifiee::onMrouteTcamFree>(mrouteTcamFree_, v); }
   bool boundaryTcamFree() const { return boundaryTcamFree_; }
   void boundaryTcamFreeIs(bool v) { attrIs<&Notifiee::onBoundaryTcamFree>(boundaryTcamFree_, v); }

   // A counter of requests. Each change asks the routing layer to review the routes that are not
   // programmed.
   Qor::U64 mrouteReviewKick() const { return mrouteReviewKick_; }
   void mrouteReviewKickIs(Qor::U64 v) {
      attrIs<&Notifiee::onMrouteReviewKick>(mrouteReviewKick_, v);
   }

   virtual void doAllocateMtableOifSet(OifSetPtr oifSet) = 0;
   virtual void doAllocateRoute(Routing::Multicast::Fib::IpGenRouteKey const& routeKey,
                                Bridging::VlanIdOrNone acceptingVlanId, bool bridge,
                                MtableOifSetPtr mtableOifSet, bool fastDrop, bool noRpf,
                                Wisp::Multicast::Fib::RpaIndex rpaId,
                                L3::VrfName const& vrfName) = 0;
   virtual void doSetMtableOifSet(RouteHandle handle, MtableOifSetPtr mtableOifSet) = 0;
   virtual void doDeleteRoute(RouteHandle handle) = 0;
   virtual void doCommitRouteBatch() = 0;

 protected:
   SwitchChip(Qor::Name name, Qor::U32 switchId);
   ~SwitchChip() override;

 private:
   bool mtableFree_ = true;
   bool mrouteTcamFree_ = true;
   bool boundaryTcamFree_ = true;
   Qor::U64 mrouteReviewKick_ = 0;
};

}  // namespace MrouteLib
