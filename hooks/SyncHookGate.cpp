#include "hooks/SyncHookGate.h"

#include <utility>

#include "Qor/Exception.h"

namespace VelMroute {

using MrouteLib::OifSetPtr;
using Qor::U16;
using Qor::U32;

namespace {

Qor::Ptr<SyncHookGate::Hooks> const& checked(Qor::Ptr<SyncHookGate::Hooks> const& hooks) {
   if (!hooks) Qor::throwRange("VelMroute::SyncHookGate::hooks null not allowed");
   return hooks;
}

}  // namespace

SyncHookGate::SyncHookGate(Qor::Ptr<Hooks> hooks, std::optional<HookChecks::Options> checks)
      : MrouteSmHelper(checked(hooks)->name()), hooks_(std::move(hooks)) {
   if (!checks || Vel::noopAgent()) return;
   checks_ = std::make_unique<SyncHookChecks>(*hooks_, std::move(*checks));
   reportTo(checks_.get());
}

SyncHookGate::~SyncHookGate() = default;

void SyncHookGate::mrouteInit(bool start) {
   pass("mrouteInit", [&] { hooks_->mrouteInit(start); });
}

void SyncHookGate::handleMulticastRouting(bool enabled) {
   pass("handleMulticastRouting", [&] { hooks_->handleMulticastRouting(enabled); });
}

void SyncHookGate::handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) {
   pass("handleMrouteCounterMode", [&] { hooks_->handleMrouteCounterMode(mode); });
}

void SyncHookGate::verifyMulticastRouting(bool enabled) {
   pass("verifyMulticastRouting", [&] { hooks_->verifyMulticastRouting(enabled); });
}

void SyncHookGate::mrouteSwitchInit(U32 switchId, bool start) {
   auto const call = [&] {
      checks_ ? checks_->mrouteSwitchInit(switchId, start)
              : hooks_->mrouteSwitchInit(switchId, start);
   };
   if (start) {
      pass("mrouteSwitchInit", call);
   } else {
      swallow("mrouteSwitchInit", call);
   }
}

U32 SyncHookGate::doAllocateMtableOifSet(U32 switchId, U32 oifSetIndex, OifSetPtr oifSet) {
   return pass("doAllocateMtableOifSet", invalidOifSetIndex, [&] {
      return checks_ ? checks_->doAllocateMtableOifSet(switchId, oifSetIndex, oifSet)
                     : hooks_->doAllocateMtableOifSet(switchId, oifSetIndex, oifSet);
   });
}

U32 SyncHookGate::doReallocateMtableOifSet(U32 switchId, U32 oifSetIndex, OifSetPtr oifSet) {
   return pass("doReallocateMtableOifSet", invalidOifSetIndex, [&] {
      return checks_ ? checks_->doReallocateMtableOifSet(switchId, oifSetIndex, oifSet)
                     : hooks_->doReallocateMtableOifSet(switchId, oifSetIndex, oifSet);
   });
}

void SyncHookGate::handleFreeMtableOifSet(U32 switchId, Qor::Ptr<Vel::MtableOifSet> record) {
   swallow("handleFreeMtableOifSet", [&] {
      checks_ ? checks_->handleFreeMtableOifSet(switchId, record)
              : hooks_->handleFreeMtableOifSet(switchId, record);
   });
}

U32 SyncHookGate::doCreateMrouteCounter(U16 vrfId, IpGenRouteKey const& key) {
   return pass("doCreateMrouteCounter", 0,
               [&] { return hooks_->doCreateMrouteCounter(vrfId, key); });
}

void SyncHookGate::doDeleteMrouteCounter(IpGenRouteKey const& key) {
   pass("doDeleteMrouteCounter", [&] { hooks_->doDeleteMrouteCounter(key); });
}

void SyncHookGate::doClearMrouteCounter(IpGenRouteKey const& key) {
   pass("doClearMrouteCounter", [&] { hooks_->doClearMrouteCounter(key); });
}

Qor::U64 SyncHookGate::doReadMrouteCounter(IpGenRouteKey const& key) {
   return pass("doReadMrouteCounter", 0, [&] { return hooks_->doReadMrouteCounter(key); });
}

void SyncHookGate::ageOutHwMcastCounter(IpGenRouteKey const& key) {
   pass("ageOutHwMcastCounter", [&] { hooks_->ageOutHwMcastCounter(key); });
}

SyncHookGate::RouteHandle SyncHookGate::doAllocateMroute(U32 switchId, U16 vrfId,
                                                         IpGenRouteKey const& key,
                                                         VlanIdOrNone acceptingVlanId, bool bridge,
                                                         U32 oifSetIndex, bool fastDrop,
                                                         U16 rpaId) {
   return pass("doAllocateMroute", {}, [&] {
      return checks_ ? checks_->doAllocateMroute(switchId, vrfId, key, acceptingVlanId, bridge,
                                                 oifSetIndex, fastDrop, rpaId)
                     : hooks_->doAllocateMroute(switchId, vrfId, key, acceptingVlanId, bridge,
                                                oifSetIndex, fastDrop, rpaId);
   });
}

SyncHookGate::RouteHandle SyncHookGate::doAllocateMrouteNoRpf(U32 switchId, U16 vrfId,
                                                              IpGenRouteKey const& key, bool bridge,
                                                              U32 oifSetIndex, bool fastDrop,
                                                              U16 rpaId) {
   return pass("doAllocateMrouteNoRpf", {}, [&] {
      return checks_ ? checks_->doAllocateMrouteNoRpf(switchId, vrfId, key, bridge, oifSetIndex,
                                                      fastDrop, rpaId)
                     : hooks_->doAllocateMrouteNoRpf(switchId, vrfId, key, bridge, oifSetIndex,
                                                     fastDrop, rpaId);
   });
}

void SyncHookGate::doSetMtableOifSet(U32 switchId, U16 vrfId, RouteHandle handle,
                                     Qor::Ptr<Vel::Route const> route, U32 oifSetIndex) {
   pass("doSetMtableOifSet", [&] {
      checks_ ? checks_->doSetMtableOifSet(switchId, vrfId, handle, route, oifSetIndex)
              : hooks_->doSetMtableOifSet(switchId, vrfId, handle, route, oifSetIndex);
   });
}

void SyncHookGate::doDeleteMroute(U32 switchId, U16 vrfId, RouteHandle handle,
                                  Qor::Ptr<Vel::Route const> route) {
   pass("doDeleteMroute", [&] {
      checks_ ? checks_->doDeleteMroute(switchId, vrfId, handle, route)
              : hooks_->doDeleteMroute(switchId, vrfId, handle, route);
   });
}

void SyncHookGate::doDeleteMrouteBoundary(U32 switchId, U16 vrfId, RouteHandle handle,
                                          Qor::Ptr<Vel::Boundary const> boundary) {
   pass("doDeleteMrouteBoundary", [&] {
      checks_ ? checks_->doDeleteMrouteBoundary(switchId, vrfId, handle, boundary)
              : hooks_->doDeleteMrouteBoundary(switchId, vrfId, handle, boundary);
   });
}

void SyncHookGate::doCommitMrouteBatch() {
   pass("doCommitMrouteBatch", [&] { hooks_->doCommitMrouteBatch(); });
}

bool SyncHookGate::mrouteFull(U32 switchId) {
   return pass("mrouteFull", true, [&] {
      return checks_ ? checks_->mrouteFull(switchId) : hooks_->mrouteFull(switchId);
   });
}

bool SyncHookGate::mrouteBoundaryFull(U32 switchId) {
   return pass("mrouteBoundaryFull", true, [&] {
      return checks_ ? checks_->mrouteBoundaryFull(switchId) : hooks_->mrouteBoundaryFull(switchId);
   });
}

bool SyncHookGate::mtableFull(U32 switchId) {
   return pass("mtableFull", true, [&] {
      return checks_ ? checks_->mtableFull(switchId) : hooks_->mtableFull(switchId);
   });
}

bool SyncHookGate::mrouteHitBit(U32 switchId, U16 vrfId, IpGenRouteKey const& key,
                                VlanIdOrNone acceptingVlanId, bool boundary) {
   return pass("mrouteHitBit", false, [&] {
      return checks_ ? checks_->mrouteHitBit(switchId, vrfId, key, acceptingVlanId, boundary)
                     : hooks_->mrouteHitBit(switchId, vrfId, key, acceptingVlanId, boundary);
   });
}

Qor::U8 SyncHookGate::mrouteHitBitCacheRefresh(U32 switchId) {
   return pass("mrouteHitBitCacheRefresh", hitBitCacheRefreshed, [&] {
      return checks_ ? checks_->mrouteHitBitCacheRefresh(switchId)
                     : hooks_->mrouteHitBitCacheRefresh(switchId);
   });
}

void SyncHookGate::mrouteHitBitCacheClear(U32 switchId) {
   pass("mrouteHitBitCacheClear", [&] { hooks_->mrouteHitBitCacheClear(switchId); });
}

void SyncHookGate::triggerRouteAgingReview() {
   pass("triggerRouteAgingReview", [&] { hooks_->triggerRouteAgingReview(); });
}

void SyncHookGate::verifyMroute(U32 switchId, U16 vrfId, Qor::Ptr<Vel::Route const> route) {
   pass("verifyMroute", [&] {
      checks_ ? checks_->verifyMroute(switchId, vrfId, route)
              : hooks_->verifyMroute(switchId, vrfId, route);
   });
}

void SyncHookGate::verifyMrouteBoundary(U32 switchId, U16 vrfId,
                                        Qor::Ptr<Vel::Boundary const> boundary) {
   pass("verifyMrouteBoundary", [&] {
      checks_ ? checks_->verifyMrouteBoundary(switchId, vrfId, boundary)
              : hooks_->verifyMrouteBoundary(switchId, vrfId, boundary);
   });
}

}  // namespace VelMroute
