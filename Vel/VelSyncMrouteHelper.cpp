#include "Vel/VelSyncMrouteHelper.h"

#include <utility>

#include "Vel/VelDescribe.h"
#include "Vel/VelMrouteSm.h"

namespace VelHelper {

using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Qor::U16;
using Qor::U32;

MrouteSmHelper::MrouteSmHelper(Qor::Name name) : Entity(std::move(name)) {}

MrouteSmHelper::~MrouteSmHelper() = default;

void MrouteSmHelper::mrouteInit(bool) {
   hookNotImplemented(__func__);
}

void MrouteSmHelper::handleMulticastRouting(bool) {
   hookNotImplemented(__func__);
}

void MrouteSmHelper::handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode) {}

void MrouteSmHelper::verifyMulticastRouting(bool) {
   hookNotImplemented(__func__);
}

void MrouteSmHelper::mrouteSwitchInit(U32, bool) {
   hookNotImplemented(__func__);
}

U32 MrouteSmHelper::doAllocateMtableOifSet(U32, U32, OifSetPtr) {
   hookNotImplemented(__func__);
   return 0;
}

U32 MrouteSmHelper::doReallocateMtableOifSet(U32, U32, OifSetPtr) {
   hookNotImplemented(__func__);
   return 0;
}

void MrouteSmHelper::handleFreeMtableOifSet(U32, Qor::Ptr<Vel::MtableOifSet>) {
   hookNotImplemented(__func__);
}

U32 MrouteSmHelper::doCreateMrouteCounter(U16, IpGenRouteKey const&) {
   return 0;
}

void MrouteSmHelper::doDeleteMrouteCounter(IpGenRouteKey const&) {}

void MrouteSmHelper::doClearMrouteCounter(IpGenRouteKey const&) {}

Qor::U64 MrouteSmHelper::doReadMrouteCounter(IpGenRouteKey const&) {
   return 0;
}

void MrouteSmHelper::ageOutHwMcastCounter(IpGenRouteKey const&) {}

RouteHandle MrouteSmHelper::doAllocateMroute(U32, U16, IpGenRouteKey const&, Bridging::VlanIdOrNone,
                                             bool, U32, bool, U16) {
   hookNotImplemented(__func__);
   return RouteHandle(0);
}

RouteHandle MrouteSmHelper::doAllocateMrouteNoRpf(U32, U16, IpGenRouteKey const&, bool, U32, bool,
                                                  U16) {
   hookNotImplemented(__func__);
   return RouteHandle(0);
}

void MrouteSmHelper::doSetMtableOifSet(U32, U16, RouteHandle, Qor::Ptr<Vel::Route const>, U32) {
   hookNotImplemented(__func__);
}

void MrouteSmHelper::doDeleteMroute(U32, U16, RouteHandle, Qor::Ptr<Vel::Route const>) {
   hookNotImplemented(__func__);
}

void MrouteSmHelper::doDeleteMrouteBoundary(U32, U16, RouteHandle, Qor::Ptr<Vel::Boundary const>) {
   hookNotImplemented(__func__);
}

void MrouteSmHelper::doCommitMrouteBatch() {}

bool MrouteSmHelper::mrouteFull(U32) {
   hookNotImplemented(__func__);
   return false;
}

bool MrouteSmHelper::mrouteBoundaryFull(U32) {
   hookNotImplemented(__func__);
   return false;
}

bool MrouteSmHelper::mtableFull(U32) {
   hookNotImplemented(__func__);
   return false;
}

bool MrouteSmHelper::mrouteHitBit(U32, U16, IpGenRouteKey const&, Bridging::VlanIdOrNone, bool) {
   hookNotImplemented(__func__);
   return false;
}

Qor::U8 MrouteSmHelper::mrouteHitBitCacheRefresh(U32) {
   return hitBitCacheRefreshed;
}

void MrouteSmHelper::mrouteHitBitCacheClear(U32) {}

void MrouteSmHelper::triggerRouteAgingReview() {}

void MrouteSmHelper::verifyMroute(U32, U16, Qor::Ptr<Vel::Route const>) {
   hookNotImplemented(__func__);
}

void MrouteSmHelper::verifyMrouteBoundary(U32, U16, Qor::Ptr<Vel::Boundary const>) {
   hookNotImplemented(__func__);
}

namespace {

Qor::Type describeMrouteSmHelper() {
   using Helper = MrouteSmHelper;
   Qor::Describe<Helper> type(Vel::typeModule);
   type.constructible<Qor::Name>("name");
   type.attribute<&Helper::mrouteSm, &Helper::mrouteSmIs, &Helper::Notifiee::onMrouteSm>();
   type.operation<&Helper::mrouteInit>("start");
   type.operation<&Helper::handleMulticastRouting>("enabled");
   type.operation<&Helper::handleMrouteCounterMode>("mode");
   type.operation<&Helper::verifyMulticastRouting>("enabled");
   type.operation<&Helper::mrouteSwitchInit>("switchId", "start");
   type.operation<&Helper::doAllocateMtableOifSet>("switchId", "oifSetIndex", "oifSet");
   type.operation<&Helper::doReallocateMtableOifSet>("switchId", "oifSetIndex", "oifSet");
   type.operation<&Helper::handleFreeMtableOifSet>("switchId", "record");
   type.operation<&Helper::doCreateMrouteCounter>("vrfId", "key");
   type.operation<&Helper::doDeleteMrouteCounter>("key");
   type.operation<&Helper::doClearMrouteCounter>("key");
   type.operation<&Helper::doReadMrouteCounter>("key");
   type.operation<&Helper::ageOutHwMcastCounter>("key");
   type.operation<&Helper::doAllocateMroute>("switchId", "vrfId", "key", "acceptingVlanId",
                                             "bridge", "oifSetIndex", "fastDrop", "rpaId");
   type.operation<&Helper::doAllocateMrouteNoRpf>("switchId", "vrfId", "key", "bridge",
                                                  "oifSetIndex", "fastDrop", "rpaId");
   type.operation<&Helper::doSetMtableOifSet>("switchId", "vrfId", "handle", "route",
                                              "oifSetIndex");
   type.operation<&Helper::doDeleteMroute>("switchId", "vrfId", "handle", "route");
   type.operation<&Helper::doDeleteMrouteBoundary>("switchId", "vrfId", "handle", "boundary");
   type.operation<&Helper::doCommitMrouteBatch>();
   type.operation<&Helper::mrouteFull>("switchId");
   type.operation<&Helper::mrouteBoundaryFull>("switchId");
   type.operation<&Helper::mtableFull>("switchId");
   type.operation<&Helper::mrouteHitBit>("switchId", "vrfId", "key", "acceptingVlanId", "boundary");
   type.operation<&Helper::mrouteHitBitCacheRefresh>("switchId");
   type.operation<&Helper::mrouteHitBitCacheClear>("switchId");
   type.operation<&Helper::triggerRouteAgingReview>();
   type.operation<&Helper::verifyMroute>("switchId", "vrfId", "route");
   type.operation<&Helper::verifyMrouteBoundary>("switchId", "vrfId", "boundary");
   return type;
}
Qor::TypeRegistration const mrouteSmHelperRegistered(describeMrouteSmHelper);

}  // namespace

}  // namespace VelHelper
