// Life of the switch, and the allocation of oif sets.
#include "Vel/VelAsyncMrouteSwitch.h"

#include <utility>

#include "Vel/VelDescribe.h"
#include "Vel/VelTrace.h"

namespace Vel::Mroute {

using MrouteLib::MrouteFailureReason;
using MrouteLib::OifSetPtr;

AsyncMrouteSwitch::AsyncMrouteSwitch(
      Qor::Name name, Qor::Ptr<Routing::Hardware::RouteStatus const> routingHwRouteStatus,
      Qor::Ptr<VelHelper::AsyncMrouteHelper> mrouteHelper)
      : OifSetTables(std::move(name), 0),
        routingHwRouteStatus_(std::move(routingHwRouteStatus)),
        mrouteHelper_(std::move(mrouteHelper)) {
   QOR_ASSERT(mrouteHelper_ != nullptr);
}

// The end of the switch. The reference count is held at one here, so that listeners and hooks may
// take and drop references to the switch.
void AsyncMrouteSwitch::zeroReferencesIs(bool) {
   deletedIs(true);
   mtableOifSetIs(nullptr);
   zombieOifSetDelAll();
   recordNamesDelAll();
   mcastIdToOifSetDelAll();
   oifSetXactDelAll();
   inUseRouteHandleDelAll();
   inUseRouteHandleKeyDelAll();
}

AsyncMrouteSwitch::~AsyncMrouteSwitch() {
   releaseRecords();
}

Qor::Ptr<AsyncMrouteSwitch> asyncMrouteSwitchFactory(
      Qor::Name name, Qor::Ptr<Routing::Hardware::RouteStatus const> routingHwRouteStatus,
      Qor::Ptr<VelHelper::AsyncMrouteHelper> mrouteHelper) {
   return Qor::make<AsyncMrouteSwitch>(std::move(name), std::move(routingHwRouteStatus),
                                       std::move(mrouteHelper));
}

// Returns the in-use record of this oif set if one more route may share the record, else null. A
// zombie is resurrected.
AsyncMrouteSwitch::RecordPtr AsyncMrouteSwitch::reusableRecord(OifSetPtr const& oifSet) {
   RecordPtr const existing = inUseRecord(oifSet);
   if (!existing) return nullptr;
   Qor::U32 const mcastId = existing->multicastId();
   VEL_TRACE(2, "Found existing "
                      << " mtableOifSet " << *existing << " oifSet " << oifSet << " mcastId "
                      << mcastId);
   if (!mrouteHelper_->mcastIdReusable(mcastId) || existing->dirty()) return nullptr;

   VEL_TRACE(2, "Found an existing oif set");
   VEL_BLIP("Foung an existing oif set");
   if (existing->zombie().isZombie()) {
      VEL_TRACE(2, "Resurrecting zombie mtableOifSet " << *existing);
      resurrect(existing);
      existing->zombieIs(ZombieKey());
   }
   return existing;
}

// Gives a fixed id, which may belong to an older record, to the newer record. The older record need
// not be the one in inUseOifSet: that record may have another id, and then keeps its group. The
// mapping of the id may be stale, so that no older record is found.
void AsyncMrouteSwitch::takeOverFixedGroup(Qor::U32 multicastId, RecordPtr const& newer) {
   OifSetPtr const before = mcastIdToOifSet(multicastId);
   if (!before) return;
   RecordPtr old;
   for (RecordPtr const& r : records(before)) {
      if (!old && r != newer && r->multicastId() == multicastId && !r->deleted()) old = r;
   }
   if (old) {
      VEL_TRACE(8, "skip delete mtable oifset " << *old);
      old->skipDeleteIs(true);
   } else {
      VEL_TRACE(8, "Missing mtableOifSet on mcastId " << multicastId << ".  Restart init?");
      VEL_BLIP(" missing mtableOifSet on mcastId %s", multicastId);
   }
}

Hux::XactPtr AsyncMrouteSwitch::doAllocateMtableOifSet(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                                       OifSetPtr oifSet, Hux::XactPtr blockingXact,
                                                       Qor::U32 presetMulticastId, bool frrRoute) {
   MrouteLib::PortVlanSet const& portVlanSet = oifSet->portVlanSet();
   VEL_TRACE(8, "AsyncMrouteSwitch::doAllocateMtableOifSet( "
                      << routeKeyInfo << ", " << oifSet << ", blockingXact "
                      << (blockingXact ? "set" : "none") << ", presetMulticastId "
                      << presetMulticastId << ", frrRoute " << frrRoute << " )");
   VEL_TRACE(7, " oifset " << oifSet << ' ' << portVlanSet.pretty());
   mrouteFailureReasonIs(MrouteFailureReason::none);

   bool const fixed = mrouteHelper_->needFixedOifSet(portVlanSet.type());
   RecordPtr mtableOifSetLocal = fixed ? nullptr : reusableRecord(oifSet);
   if (!mtableOifSetLocal) {
      bool const wasInUse = inUseOifSet().find(oifSet).has_value();
      Qor::U32 const mcastId = fixed ? mrouteHelper_->doAllocateFixedMulticastGroup(
                                             oifSet, blockingXact, presetMulticastId)
                                     : mrouteHelper_->doAllocateSharableMulticastGroup(
                                             routeKeyInfo, oifSet, blockingXact, frrRoute);
      if (!mrouteHelper_->mcastIdIsValid(mcastId)) {
         VEL_TRACE(2, "No free multicastId found");
         VEL_BLIP(" No free multicastId found. acceptingVlan %s %s", routeKeyInfo.acceptingVlanId(),
                  portVlanSet.pretty());
         mrouteFailureReasonIs(MrouteFailureReason::noMulticastId);
         return nullptr;
      }
      mtableOifSetLocal = asyncMtableOifSetFactory(oifSet, portVlanSet.toCpu(), mcastId, this);
      if (fixed) takeOverFixedGroup(mcastId, mtableOifSetLocal);

      VEL_TRACE(2, "mtableOifSet " << *mtableOifSetLocal << " oifSet " << oifSet << " mcastId "
                                   << mcastId);
      inUseOifSetIs(oifSet, mtableOifSetLocal);
      if (!wasInUse && portVlanSet.currentIif() != Lnet::IntfId()) {
         VEL_TRACE(2, " Adding FrrOifSet ");
         frrMtableOifSetIs(oifSet, mtableOifSetLocal);
      }
      mcastIdToOifSetIs(mcastId, oifSet);
   }

   QOR_ASSERT(mtableOifSetLocal);
   Qor::U32 const mcastId = mtableOifSetLocal->multicastId();
   mtableOifSetIs(mtableOifSetLocal);
   mrouteHelper_->doScheduleVerify();
   Hux::XactPtr const xact = mrouteHelper_->doGetXactForOifSet(mcastId);
   if (!xact && !noopAgent()) QOR_ASSERT(xact);
   return xact;
}

namespace {

Qor::Type describeAsyncMrouteSwitch() {
   using Switch = AsyncMrouteSwitch;
   using Told = Switch::Notifiee;
   Qor::Describe<Switch> type(typeModule);
   type.base<MrouteLib::AsyncSwitchChip>();
   type.constructor<&asyncMrouteSwitchFactory>("name", "routingHwRouteStatus",
                                               Qor::Required("mrouteHelper"));
   type.attribute<&Switch::routingHwRouteStatus>();
   type.attribute<&Switch::mrouteHelper>();
   type.attribute<&Switch::deleted, &Switch::deletedIs, &Told::onDeleted>();
   type.attribute<&Switch::testKill, &Switch::testKillIs, &Told::onTestKill>();
   describeOifSetTables<Switch, Switch::OifSetTables>(type);
   type.collection<Switch::McastIdToOifSetColl, Switch, &Switch::mcastIdToOifSet,
                   &Switch::mcastIdToOifSetDel, &Switch::mcastIdToOifSetIs,
                   &Switch::mcastIdToOifSetDelAll, &Switch::mcastIdToOifSetNotify>();
   type.collection<Switch::OifSetXactColl, Switch, &Switch::oifSetXact, &Switch::oifSetXactDel,
                   &Switch::oifSetXactIs, &Switch::oifSetXactDelAll, &Switch::oifSetXactNotify>();
   type.collection<Switch::InUseRouteHandleColl, Switch, &Switch::inUseRouteHandle,
                   &Switch::inUseRouteHandleDel, &Switch::inUseRouteHandleIs,
                   &Switch::inUseRouteHandleDelAll, &Switch::inUseRouteHandleNotify>();
   type.collection<Switch::InUseRouteHandleKeyColl, Switch, &Switch::inUseRouteHandleKey,
                   &Switch::inUseRouteHandleKeyDel, &Switch::inUseRouteHandleKeyIs,
                   &Switch::inUseRouteHandleKeyDelAll, &Switch::inUseRouteHandleKeyNotify>();
   type.operation<&Switch::doAllocateMtableOifSet>("routeKeyInfo", "oifSet", "blockingXact",
                                                   "presetMulticastId", "frrRoute");
   type.operation<&Switch::doAllocateRoute>("routeKey", "acceptingVlanId", "bridgeAction", "rpaId",
                                            "vrfName");
   type.operation<&Switch::doSetMtableOifSet>("handle", "mtableOifSet", "blockingXact");
   type.operation<&Switch::doActivateRoute>("handle");
   type.operation<&Switch::doSetBridgeAction>("handle", "bridgeAction");
   type.operation<&Switch::doDeleteRoute>("handle");
   type.operation<&Switch::doGetMulticastId>("mtableOifSet");
   type.operation<&Switch::doGetOifSet>("mtableOifSet");
   type.operation<&Switch::needIngressProgramming>("type");
   type.operation<&Switch::doGetOifSetXactFailureReason>("xact");
   type.operation<&Switch::doGetIngressXactFailureReason>("xact");
   type.operation<&Switch::dumpRouteHandle>("handle");
   type.operation<&Switch::handleFreeMtableOifSet>("record");
   return type;
}
Qor::TypeRegistration const asyncMrouteSwitchRegistered(describeAsyncMrouteSwitch);

}  // namespace

}  // namespace Vel::Mroute
