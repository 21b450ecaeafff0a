// Fast reroute of the asynchronous per-switch reactor. A failure of an interface moves the oif sets
// that come in over it from the switch's frrMtableOifSet to frrProcessingOifSet. Passes on a clock
// then rewrite the groups of these sets in place, so that every route of a group follows at once.
#include "Vel/VelAsyncMrouteSmReactors.h"
#include "Vel/VelTrace.h"

namespace Vel::Mroute {

using MrouteLib::OifSetPtr;
using MrouteLib::PortVlanSet;

void AsyncMrouteSwitchSm::handleOperStatus(Interface::EthIntfStatus const& changed) {
   if (!initialized()) {
      VEL_TRACE(2, "SM uninitialized, ignore event");
      return;
   }
   Lnet::IntfId const intf = changed.intfId();
   Interface::IntfOperStatus const status = changed.operStatus();
   VEL_TRACE(2, "handleOperStatus"
                      << "Intf: " << intf << ", operStatus: " << status);
   VEL_BLIP("AsyncMrouteSwitchSm::handleOperStatus, intf: %s, status: %s", intf, status);
   if (startsReroute(status)) updateFrrMtableOif(intf);
}

void AsyncMrouteSwitchSm::QorBfdStatus::handleBfdStatus() {
   if (!asyncMrouteSwitchSm()->initialized()) return;
   Bfd::Peer const& peer = status_->peer();
   auto const& app = asyncMrouteSwitchSm()->bfdAllPeerStatus();
   if (!app || !app->peerStatus(peer)) {
      VEL_TRACE(2, "bfdState is deleted " << peer);
      return;
   }
   Bfd::OperState const state = status_->status();
   Lnet::IntfId const intf = status_->intf();
   VEL_TRACE(2, "Peer: " << peer << " intf:" << intf << " status: " << state
                         << " peerState: " << peerState() << " ip: " << peer.ip());
   VEL_BLIP("AsyncMrouteSwitchSm::handleBfdStatus, peer: %s, state: %s, peer state: %s ip: %s",
            status_->name(), state, peerState(), peer.ip());
   if (state == Bfd::OperState::up) {
      peerStateIs(state);
      return;
   }
   if (peer.type() != Bfd::SessionType::singleHop) return;
   VEL_TRACE(8, "handleBfdStatus"
                      << " Intf " << intf);
   bool const cameDown = peerState() != Bfd::OperState::down && state == Bfd::OperState::down;
   if (cameDown) {
      VEL_TRACE(8, "handleBfdStatus"
                         << " Intf " << intf);
      // The reroute may delete this nested reactor, and release the last reference to its owner.
      Qor::Ptr<AsyncMrouteSwitchSm> const sm = asyncMrouteSwitchSm();
      Bfd::Peer const key = peer;
      sm->updateFrrMtableOif(intf);
      if (sm->bfdStatus(key) != this) return;
   }
   // The status is read again, since the session may have recovered during the reroute.
   peerStateIs(status_->status());
}

void AsyncMrouteSwitchSm::updateFrrMtableOif(Lnet::IntfId intfId) {
   auto const self = hold();
   RerouteRetry const retry(*this);
   Qor::Ptr<AsyncMrouteSwitch> const held = mrouteSwitch();
   AsyncMrouteSwitch& chip = *held;
   VEL_TRACE(8, "AsyncMrouteSwitchSm::updateFrrMtableOif( " << intfId << ", vlan " << vlanOf(intfId)
                                                            << " )");
   auto const& waiting = chip.frrMtableOifSet();
   for (auto entry = waiting.begin(); entry != waiting.end();) {
      PortVlanSet const& set = entry->first->portVlanSet();
      if (!reroutedOn(set, intfId)) {
         VEL_TRACE(2, " skip frrMtableOif " << set.pretty());
         ++entry;
         continue;
      }
      auto const [oifSet, named] = *entry;
      VEL_TRACE(2, " FrrSwitch from " << set.pretty() << ", frrOifs " << frrMembers(set));
      VEL_BLIP("MrouteSwitchSm:: FrrSwitch from %s, frrOifs %s", set.pretty(), frrMembers(set));
      for (auto const& record : chip.records(oifSet))
         record->dirtyIs(true);
      // The named record may have been freed and replaced by a newer record of the same set. If a
      // listener of dirtyIs() has just released the last record, no record is left to wait.
      auto record = chip.record(oifSet, named);
      if (!record) record = chip.inUseRecord(oifSet);
      chip.frrMtableOifSetDel(oifSet);
      if (record) chip.frrProcessingOifSetIs(oifSet, record);
      // Last in the loop, since a listener may have removed further entries.
      entry = waiting.resume(entry, oifSet);
   }
   handleClock();
}

void AsyncMrouteSwitchSm::handleClock() {
   auto const self = hold();
   Qor::Ptr<AsyncMrouteSwitch> const chip = mrouteSwitch();
   auto const& waiting = chip->frrProcessingOifSet();
   VEL_TRACE(8, "review FrrProcessingOifSets: " << waiting.size());
   VEL_BLIP("AsyncMrouteSwitchSm:: frrProcessingOifSets: %s", waiting.size());
   reroutePass(*chip);
}

// Rewrites the groups of a waiting oif set, unless no record of the set is in use or its record has
// become a zombie.
void AsyncMrouteSwitchSm::rewriteForFrr(AsyncMrouteSwitch& chip, OifSetPtr const& oifSet) {
   auto const inUse = chip.inUseRecord(oifSet);
   if (!inUse) {
      VEL_TRACE(2, "oif not in inUseOifSet:" << oifSet);
      VEL_BLIP(" frrOifSet not in use %s", oifSet);
      return;
   }
   auto waiting = chip.record(oifSet, chip.frrProcessingOifSet(oifSet));
   if (!waiting) waiting = inUse;
   if (waiting->zombie().isZombie()) {
      VEL_BLIP(" frrOifSet becomes zombie, mcastId: %s", waiting->multicastId());
      // No route uses a zombie. The reroute goes on only if a newer record carries the set.
      if (waiting == inUse || inUse->zombie().isZombie()) return;
   }
   VEL_TRACE(8, "original pvSet" << oifSet->portVlanSet().pretty());
   PortVlanSet const pvSet =
         frrReplacement(oifSet->portVlanSet(), [function = __func__](auto const& member) {
            VEL_TRACE_IN(function, 8, "add port " << member);
         });
   // The new object stays outside the interner: the routing layer must not share groups by it.
   OifSetPtr const rewritten = Qor::make<MrouteLib::OifSet>(nullptr, pvSet);
   for (auto const& record : chip.records(oifSet)) {
      // A fixed group that a newer record has taken over carries the set of that record.
      if (record->zombie().isZombie() || record->deleted() || record->skipDelete()) continue;
      VEL_TRACE(8, ": Overwrite with new pvSet " << pvSet.pretty()
                                                 << " to mcastId: " << record->multicastId());
      VEL_BLIP(" Overwrite with pvSet %s to mcastId: %s", pvSet.pretty(), record->multicastId());
      record->dirtyIs(true);
      if (mrouteHelper()) {
         mrouteHelper()->doUpdateMulticastGroupInPlace(rewritten, record->multicastId());
      }
   }
}

}  // namespace Vel::Mroute
