#include "Vel/VelSyncMrouteHelper.h"

#include <utility>

namespace VelHelper {

using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Qor::U16;
using Qor::U32;

MrouteSmHelper::MrouteSmHelper(Qor::Name name) : Entity(std::move(name)) {}

MrouteSmHelper::~MrouteSmHelper() = default;

void MrouteSmHelper::mrouteInit(bool) {
   hookNotImplemented();
}

void MrouteSmHelper::handleMulticastRouting(bool) {
   hookNotImplemented();
}

void MrouteSmHelper::handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode) {}

void MrouteSmHelper::verifyMulticastRouting(bool) {
   hookNotImplemented();
}

void MrouteSmHelper::mrouteSwitchInit(U32, bool) {
   hookNotImplemented();
}

U32 MrouteSmHelper::doAllocateMtableOifSet(U32, U32, OifSetPtr) {
   hookNotImplemented();
   return 0;
}

U32 MrouteSmHelper::doReallocateMtableOifSet(U32, U32, OifSetPtr) {
   hookNotImplemented();
   return 0;
}

void MrouteSmHelper::handleFreeMtableOifSet(U32, Qor::Ptr<Vel::MtableOifSet>) {
   hookNotImplemented();
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
   hookNotImplemented();
   return RouteHandle(0);
}

RouteHandle MrouteSmHelper::doAllocateMrouteNoRpf(U32, U16, IpGenRouteKey const&, bool, U32, bool,
                                                  U16) {
   hookNotImplemented();
   return RouteHandle(0);
}

void MrouteSmHelper::doSetMtableOifSet(U32, U16, RouteHandle, Qor::Ptr<Vel::Route const>, U32) {
   hookNotImplemented();
}

void MrouteSmHelper::doDeleteMroute(U32, U16, RouteHandle, Qor::Ptr<Vel::Route const>) {
   hookNotImplemented();
}

void MrouteSmHelper::doDeleteMrouteBoundary(U32, U16, RouteHandle, Qor::Ptr<Vel::Boundary const>) {
   hookNotImplemented();
}

void MrouteSmHelper::doCommitMrouteBatch() {}

bool MrouteSmHelper::mrouteFull(U32) {
   hookNotImplemented();
   return false;
}

bool MrouteSmHelper::mrouteBoundaryFull(U32) {
   hookNotImplemented();
   return false;
}

bool MrouteSmHelper::mtableFull(U32) {
   hookNotImplemented();
   return false;
}

bool MrouteSmHelper::mrouteHitBit(U32, U16, IpGenRouteKey const&, Bridging::VlanIdOrNone, bool) {
   hookNotImplemented();
   return false;
}

Qor::U8 MrouteSmHelper::mrouteHitBitCacheRefresh(U32) {
   return hitBitCacheRefreshed;
}

void MrouteSmHelper::mrouteHitBitCacheClear(U32) {}

void MrouteSmHelper::triggerRouteAgingReview() {}

void MrouteSmHelper::verifyMroute(U32, U16, Qor::Ptr<Vel::Route const>) {
   hookNotImplemented();
}

void MrouteSmHelper::verifyMrouteBoundary(U32, U16, Qor::Ptr<Vel::Boundary const>) {
   hookNotImplemented();
}

}  // namespace VelHelper
