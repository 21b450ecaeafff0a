// The route operations of the asynchronous switch: allocation, pointing at a record, deletion and
// the reasons of failed transactions.
#include <sstream>
#include <utility>

#include "Vel/VelAsyncMrouteSwitch.h"
#include "Vel/VelTrace.h"

namespace Vel::Mroute {

using MrouteLib::MrouteFailureReason;
using MrouteLib::MtableOifSetPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Routing::Multicast::Fib::IpGenRouteKey;
using VelHelper::MrouteXactType;

Qor::String AsyncMrouteSwitch::dumpRouteHandle(RouteHandle handle) const {
   auto const entry = inUseRouteHandleKey().find(handle);
   if (!entry) return "?";
   InUseRouteHandleKey const& key = entry->second;
   std::ostringstream os;
   os << key.routeKey().pretty() << " vlan" << key.vlan() << " vrfId " << key.vrfId();
   return os.str();
}

void AsyncMrouteSwitch::doAllocateRoute(IpGenRouteKey const& routeKey,
                                        Bridging::VlanIdOrNone acceptingVlanId, bool bridgeAction,
                                        Wisp::Multicast::Fib::RpaIndex rpaId,
                                        L3::VrfName const& vrfName) {
   VEL_TRACE(8, "AsyncMrouteSwitch::doAllocateRoute( "
                      << routeKey.pretty() << ", acceptingVlanId " << acceptingVlanId
                      << ", bridgeAction " << bridgeAction << ", rpaId " << rpaId << ", vrf "
                      << vrfName << " )");
   mrouteFailureReasonIs(MrouteFailureReason::none);

   auto const vrfStatus =
         routingHwRouteStatus_ ? routingHwRouteStatus_->vrfStatus(vrfName) : nullptr;
   if (!vrfStatus) {
      VEL_TRACE(8, " vrfStatus for vrf: " << vrfName << " is not present");
      VEL_BLIP(" no vrfStatus for vrf: %s", vrfName.name());
      mrouteFailureReasonIs(MrouteFailureReason::noVrfStatus);
      return;
   }

   VrfId const vrfId = vrfStatus->vrfId();
   // Both catch-all keys share an in-use key, so that the aging review finds either.
   static constexpr IpGenRouteKey catchAll = Routing::Multicast::Fib::canonicalCatchAllKey();
   bool const isCatchAll = routeKey.kind() == IpGenRouteKey::kindCatchAll;
   InUseRouteHandleKey const key(isCatchAll ? catchAll : routeKey, acceptingVlanId, vrfId);
   inUseRouteHandle().prefetch(key);  // is read when the hook has returned
   RouteHandle const handle = mrouteHelper_->doAllocateRoute(routeKey, acceptingVlanId,
                                                             bridgeAction, rpaId, vrfId.value());
   routeHandleIs(handle);
   if (handle.isNull()) {
      mrouteFailureReasonIs(MrouteFailureReason::noRouteHandle);
      return;
   }
   inUseRouteHandle_.is(*this, key, handle);
   inUseRouteHandleKey_.is(*this, handle, key);
   VEL_TRACE(7, "rh " << handle << " -> " << dumpRouteHandle(handle));
}

Hux::XactPtr AsyncMrouteSwitch::doSetMtableOifSet(RouteHandle handle, MtableOifSetPtr mtableOifSet,
                                                  Hux::XactPtr blockingXact) {
   VEL_TRACE(8, "AsyncMrouteSwitch::doSetMtableOifSet( " << handle << " )");
   mrouteFailureReasonIs(MrouteFailureReason::none);
   auto* const oif = Qor::objectCast<AsyncMtableOifSet>(mtableOifSet.get());
   QOR_ASSERT(oif);
   VEL_TRACE(7, " rh " << handle << " -> mt " << *oif << " oifset " << oif->oifSet() << ' '
                       << oif->oifSet()->portVlanSet().pretty());
   mrouteHelper_->doSetMtableOifSet(handle, oif->multicastId(), std::move(blockingXact));
   oif->usedInHwIs(true);
   mrouteHelper_->doScheduleVerify();
   return mrouteHelper_->doGetXactForIngress(handle);
}

void AsyncMrouteSwitch::doActivateRoute(RouteHandle handle) {
   VEL_TRACE(8, "AsyncMrouteSwitch::doActivateRoute( " << handle << " )");
   VEL_TRACE(7, " rh " << handle << ' ' << dumpRouteHandle(handle));
}

void AsyncMrouteSwitch::doSetBridgeAction(RouteHandle handle, bool bridgeAction) {
   VEL_TRACE(8, "AsyncMrouteSwitch::doSetBridgeAction( " << handle << ", bridgeAction "
                                                         << bridgeAction << " )");
}

void AsyncMrouteSwitch::doDeleteRoute(RouteHandle handle) {
   VEL_TRACE(8, "AsyncMrouteSwitch::doDeleteRoute( " << handle << " )");
   VEL_TRACE(7, " rh " << handle << ' ' << dumpRouteHandle(handle));
   auto const* const entry = inUseRouteHandleKey().find(handle);
   InUseRouteHandleKey const key = entry ? entry->second : InUseRouteHandleKey();
   VEL_BLIP("AsyncMrouteSwitch::doDeleteRoute %s", key.routeKey());
   // The hook comes last. Otherwise the platform could give the handle to a route that a listener
   // allocates here, and the second removal would erase the entry of the new route.
   inUseRouteHandle_.del(*this, key, handle);
   inUseRouteHandleKeyDel(handle);
   mrouteHelper_->doDeleteRoute(handle);
   mrouteHelper_->doScheduleVerify();
}

Qor::U32 AsyncMrouteSwitch::doGetMulticastId(MtableOifSetPtr const& record) const {
   auto const mtableOifSet = Qor::ptrCast<AsyncMtableOifSet>(record);
   QOR_ASSERT(mtableOifSet);
   return mtableOifSet->multicastId();
}

OifSetPtr AsyncMrouteSwitch::doGetOifSet(MtableOifSetPtr const& record) const {
   return record ? record->oifSet() : nullptr;
}

bool AsyncMrouteSwitch::needIngressProgramming(Routing::Multicast::Fib::RouteKeyType type) const {
   VEL_TRACE(8, "AsyncMrouteSwitch::needIngressProgramming( " << type << " )");
   return mrouteHelper_->needIngressProgramming(type);
}

Qor::String8 AsyncMrouteSwitch::doGetOifSetXactFailureReason(Hux::XactPtr const& xact) const {
   return mrouteHelper_->doGetXactFailureReason(xact, MrouteXactType::oifSet);
}

Qor::String8 AsyncMrouteSwitch::doGetIngressXactFailureReason(Hux::XactPtr const& xact) const {
   return mrouteHelper_->doGetXactFailureReason(xact, MrouteXactType::ingress);
}

}  // namespace Vel::Mroute
