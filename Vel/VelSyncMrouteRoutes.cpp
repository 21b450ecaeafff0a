// The route and boundary tables of the synchronous switch.
#include <utility>

#include "Vel/VelSyncMrouteSwitch.h"
#include "Vel/VelTrace.h"

namespace Vel {

using Bridging::VlanIdOrNone;
using Wisp::Multicast::Fib::RpaIndex;

namespace {

// Prints a record, or "null", in traces.
struct Shown {
   MrouteLib::MtableOifSetPtr const& record;
   friend std::ostream& operator<<(std::ostream& os, Shown const& shown) {
      auto const synchronous = Qor::ptrCast<MtableOifSet>(shown.record);
      return synchronous ? os << *synchronous : os << "null";
   }
};

Qor::U32 indexOf(MtableOifSet const* record) {
   return record ? record->oifSetIndex() : 0;
}

}  // namespace

MrouteSwitch::RoutePtr MrouteSwitch::routeIs(RouteHandle handle, IpGenRouteKey key,
                                             VlanIdOrNone acceptingVlanId) {
   RoutePtr r = route(handle);
   if (!r) return makeRoute(handle, key, acceptingVlanId);
   if (r->key() != key) Qor::throwReinstantiation("key", r->key().strep());
   if (r->acceptingVlanId() != acceptingVlanId) {
      Qor::throwReinstantiation("acceptingVlanId", r->acceptingVlanId().strep());
   }
   return r;
}

// Makes the route of a handle that has none.
MrouteSwitch::RoutePtr MrouteSwitch::makeRoute(RouteHandle handle, IpGenRouteKey const& key,
                                               VlanIdOrNone acceptingVlanId) {
   RoutePtr r = routeFactory(handle, key, acceptingVlanId);
   route_.is(*this, handle, r);
   return r;
}

// The removed route may be the last user of its record, and the switch must live to free that
// record.
void MrouteSwitch::routeDel(RouteHandle handle) {
   auto const self = hold();
   keepPair(handle);
   route_.del(*this, handle);
}

void MrouteSwitch::routeDelAll() {
   auto const self = hold();
   for (auto const& [handle, r] : route())
      keepPair(handle);
   route_.delAll(*this);
}

MrouteSwitch::BoundaryPtr MrouteSwitch::boundaryIs(RouteHandle handle, IpGenRouteKey key,
                                                   Bridging::VlanId vlanId) {
   BoundaryPtr const b = boundary_.instantiate(
         *this, handle, [&] { return Qor::make<Boundary>(handle, key, vlanId); });
   if (b->key() != key) Qor::throwReinstantiation("key", b->key().strep());
   if (b->vlanId() != vlanId) {
      Qor::throwReinstantiation("acceptingVlanId", b->vlanId().strep());
   }
   return b;
}

void MrouteSwitch::doAllocateRoute(IpGenRouteKey const& routeKey, VlanIdOrNone acceptingVlanId,
                                   bool bridge, MrouteLib::MtableOifSetPtr mtableOifSet,
                                   bool fastDrop, bool noRpf, RpaIndex rpaId,
                                   L3::VrfName const& vrfName) {
   VEL_TRACE(2, "doAllocateRoute"
                      << " , Key: " << routeKey << ", AcceptingVlanId: " << acceptingVlanId
                      << ", Bridge: " << bridge << ", fastDrop: " << fastDrop << ", noRpf" << noRpf
                      << ", rpaId: " << rpaId << ", oifSet: " << Shown{mtableOifSet}
                      << ", VRF: " << vrfName);
   QOR_ASSERT(!noRpf || acceptingVlanId.isNone());
   if (!initialized_) return;
   Qor::U32 const vrfId = l3Status_->vrfNameToVrfId(vrfName.name()).value();
   QOR_ASSERT(vrfId <= 0xFFFF);
   if (bridge) {
      allocateBoundary(routeKey, acceptingVlanId, static_cast<Qor::U16>(vrfId));
      return;
   }
   if (routeKey.source().address().isMulticast()) {
      VEL_TRACE(2, "Multicast source address for mroute");
      routeHandleIs(RouteHandle());
      return;
   }
   if (rpaId == RpaIndex::notProgrammed()) {
      routeHandleIs(RouteHandle());
      return;
   }
   Qor::U16 const rpa = rpaId == RpaIndex::none() ? Qor::U16{0} : rpaId.value();
   allocateRoute(routeKey, acceptingVlanId,
                 indexOf(Qor::objectCast<MtableOifSet>(mtableOifSet.get())), fastDrop, noRpf, rpa,
                 static_cast<Qor::U16>(vrfId));
}

void MrouteSwitch::allocateBoundary(IpGenRouteKey const& key, VlanIdOrNone acceptingVlanId,
                                    Qor::U16 vrfId) {
   // A vlan of none raises here, before the platform has programmed an entry that would stay
   // behind.
   Bridging::VlanId const vlan(acceptingVlanId.value());
   RouteHandle const handle = mrouteHelper_->doAllocateMroute(switchId(), vrfId, key,
                                                              acceptingVlanId, true, 0, false, 0);
   if (handle.isNull()) {
      if (mrouteHelper_->mrouteBoundaryFull(switchId())) {
         VEL_TRACE(2, "Full boundary table");
         boundaryTcamFreeIs(false);
      }
      routeHandleIs(handle);
      return;
   }
   if (BoundaryPtr const older = boundary(handle)) {
      if (!noopAgent()) {
         // The texts of the assertions on handles are behaviour, their blanks included.
         // clang-format off
         QOR_ASSERT(!boundary( handle ));
         // clang-format on
      }
      if (older->key() != key || older->vlanId() != vlan) boundaryDel(handle);
   }
   boundaryIs(handle, key, vlan)->vrfIdIs(vrfId);
   routeHandleIs(handle);
}

void MrouteSwitch::allocateRoute(IpGenRouteKey const& key, VlanIdOrNone acceptingVlanId,
                                 Qor::U32 oifSetIndex, bool fastDrop, bool noRpf, Qor::U16 rpaId,
                                 Qor::U16 vrfId) {
   // The index is read when the hook has returned.
   RouteKeyVlanId const keyVlanId(key, acceptingVlanId);
   routeKeyToHandle().prefetch(keyVlanId);
   RouteHandle const handle =
         noRpf ? mrouteHelper_->doAllocateMrouteNoRpf(switchId(), vrfId, key, false, oifSetIndex,
                                                      fastDrop, rpaId)
               : mrouteHelper_->doAllocateMroute(switchId(), vrfId, key, acceptingVlanId, false,
                                                 oifSetIndex, fastDrop, rpaId);
   if (handle.isNull()) {
      if (mrouteHelper_->mrouteFull(switchId())) {
         VEL_TRACE(2, "Full mroute table");
         mrouteTcamFreeIs(false);
      }
      routeHandleIs(handle);
      return;
   }
   RoutePtr mroute;
   if (!route().find(handle)) {
      mroute = makeRoute(handle, key, acceptingVlanId);
   } else {
      takeHandle(handle, key, acceptingVlanId);
      mroute = routeIs(handle, key, acceptingVlanId);
   }
   routeKeyToHandle_.is(*this, keyVlanId, handle);
   mroute->fastdropIs(fastDrop);
   mroute->vrfIdIs(vrfId);
   mroute->rpaIdIs(rpaId);
   l3Status_->multicastReviewPendingInc();
   routeHandleIs(handle);
   requestVerify();
}

// A second route may get a handle in use only where the hardware shares handles among ranges. Hooks
// that do nothing return the handle 0 for every route: the newest route takes the handle over.
void MrouteSwitch::takeHandle(RouteHandle handle, IpGenRouteKey const& key,
                              VlanIdOrNone acceptingVlanId) {
   if (noopAgent()) {
      RouteKeyVlanId const before = route(handle)->keyVlanId();
      if (before == RouteKeyVlanId(key, acceptingVlanId)) return;
      routeKeyToHandleDel(before);
      routeDel(handle);
      return;
   }
   bool const range =
         key.kind() == IpGenRouteKey::kindGroupRange || key.kind() == IpGenRouteKey::kindCatchAll;
   if (!range || !mfibHwStatus_ || !mfibHwStatus_->rangeRouteHandleShared()) {
      // clang-format off
      QOR_ASSERT(!route( handle ));
      // clang-format on
   }
}

void MrouteSwitch::doSetMtableOifSet(RouteHandle handle, MrouteLib::MtableOifSetPtr mtableOifSet) {
   if (!initialized_) return;
   RoutePtr const mroute = route(handle);
   if (!mroute && noopAgent()) return;  // a newer route has taken over the handle
   QOR_ASSERT(mroute);
   auto* const oif = Qor::objectCast<MtableOifSet>(mtableOifSet.get());
   QOR_ASSERT(oif);
   VEL_TRACE(2, "doSetMtableOifSet"
                      << ", vrfId: " << mroute->vrfId() << ", Route: " << handle
                      << ", key: " << mroute->key() << ", iif " << mroute->acceptingVlanId()
                      << ", fastdrop: " << mroute->fastdrop()
                      << ", oifSetIndex: " << oif->oifSetIndex());
   if (mroute->mtableOifSet() == oif) {
      VEL_TRACE(2, "Mroute unchanged, nothing to do");
      return;
   }
   mrouteHelper_->doSetMtableOifSet(switchId(), mroute->vrfId(), handle, mroute,
                                    oif->oifSetIndex());
   mroute->mtableOifSetIs(oif);
   requestVerify();
}

void MrouteSwitch::doDeleteRoute(RouteHandle handle) {
   if (!initialized_) return;
   if (RoutePtr const mroute = route(handle)) {
      VEL_TRACE(2, "doDeleteRoute"
                         << ", vrfId: " << mroute->vrfId() << ", Route: " << handle << ' '
                         << mroute->key());
      mrouteHelper_->doDeleteMroute(switchId(), mroute->vrfId(), handle, mroute);
      routeKeyToHandle_.del(*this, mroute->keyVlanId(), handle);
      VEL_TRACE(2, "doDeleteRoute"
                         << ", Route: " << handle
                         << ", oifSetIndex: " << indexOf(mroute->mtableOifSet().get()));
      routeDel(handle);
   } else {
      VEL_TRACE(2, "doDeleteRoute"
                         << ", Boundary: " << handle);
      BoundaryPtr const bnd = boundary(handle);
      if (bnd) {
         mrouteHelper_->doDeleteMrouteBoundary(switchId(), bnd->vrfId(), handle, bnd);
         boundaryDel(handle);
      } else if (!noopAgent()) {  // else a newer entry took over the handle, and was deleted
         QOR_ASSERT(bnd);
      }
      if (!boundaryTcamFree() && !mrouteHelper_->mrouteBoundaryFull(switchId())) {
         VEL_TRACE(2, "Boundary entries now available - set boundaryTcamFree true");
         boundaryTcamFreeIs(true);
      }
   }
   l3Status_->unicastReviewPendingInc();
   l3Status_->unicast6ReviewPendingInc();
   l3Status_->multicastReviewPendingInc();
   requestVerify();
}

void MrouteSwitch::doCommitRouteBatch() {
   mrouteHelper_->doCommitMrouteBatch();
}

// The walks resume by handle, since a platform may delete entries from a verify hook.
void MrouteSwitch::handleVerify() {
   VEL_TRACE(2, "handleVerify"
                      << ", switch # " << switchId());
   if (!initialized_) return;
   for (auto it = route().begin(); it != route().end();) {
      auto const [handle, mroute] = *it;
      VEL_TRACE(2, "Verifying route " << handle);
      mrouteHelper_->verifyMroute(switchId(), mroute->vrfId(), mroute);
      it = route().upperBound(handle);
   }
   for (auto it = boundary().begin(); it != boundary().end();) {
      auto const [handle, bnd] = *it;
      VEL_TRACE(2, "Verifying boundary");
      mrouteHelper_->verifyMrouteBoundary(switchId(), bnd->vrfId(), bnd);
      it = boundary().upperBound(handle);
   }
}

}  // namespace Vel
