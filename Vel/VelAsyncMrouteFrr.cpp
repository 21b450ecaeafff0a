// Fast reroute of the asynchronous per-switch reactor. A failure of an interface moves the oif sets
// that come in over it from the switch's frrMtableOifSet to frrProcessingOifSet. Passes on a clock
// then rewrite the groups of these sets in place, so that every route of a group follows at once.
#include "Vel/VelAsyncMrouteSmReactors.h"
#include "Vel/VelTrace.h"

namespace Vel::Mroute {

using MrouteLib::OifSetPtr;
using MrouteLib::PortVlanSet;

namespace {

// Out of line, so that the scan of many sets is a small loop.
constexpr Qor::U16 skipLevel = 1u << 2;
[[gnu::noinline, gnu::cold]] void traceSkipped(PortVlanSet const& set) {
   VEL_TRACE_IN("updateFrrMtableOif", 2, " skip frrMtableOif " << set.pretty());
}

// Moves a set from the armed sets to those that wait. This function may hold the last reference to
// the record, whose end notifies listeners. So the caller's walk takes its next step afterwards.
void awaitRewrite(AsyncMrouteSwitch& chip, OifSetPtr const& oifSet,
                  AsyncMrouteSwitch::NamedRecord named) {
   chip.eachRecord(oifSet, [](auto const& record) { record->dirtyIs(true); });
   // The named record may have been freed and replaced by a newer record of the same set. If a
   // listener of dirtyIs() has just released the last record, no record is left to wait.
   auto record = chip.record(oifSet, named);
   if (!record) record = chip.inUseRecord(oifSet);
   chip.frrMtableOifSetDel(oifSet);
   if (record) chip.frrProcessingOifSetIs(oifSet, record);
}

}  // namespace

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
   Qor::Seconds const begun = Qor::now();
   VEL_TRACE(8, "AsyncMrouteSwitchSm::updateFrrMtableOif( " << intfId << ", vlan " << vlanOf(intfId)
                                                            << " )");
   auto const& armed = chip.frrMtableOifSet();
   auto const isHit = [intfId](auto const& entry) {
      PortVlanSet const& set = entry.first->portVlanSet();
      if (reroutedOn(set, intfId)) return true;
      if (velTraceLevels & skipLevel) [[unlikely]]
         traceSkipped(set);
      return false;
   };
   for (auto entry = armed.seek(armed.begin(), isHit); entry != armed.end();) {
      auto const [oifSet, named] = *entry;
      PortVlanSet const& set = oifSet->portVlanSet();
      VEL_TRACE(2, " FrrSwitch from " << set.pretty() << ", frrOifs " << BackupMembersOf{set});
      VEL_BLIP_AT(begun, "MrouteSwitchSm:: FrrSwitch from %s, frrOifs %s", MembersOf{set},
                  BackupMembersOf{set});
      awaitRewrite(chip, oifSet, named);
      // Last in the loop, since a listener may have removed further entries.
      entry = armed.seek(armed.resume(entry, oifSet), isHit);
   }
   rewriteWaiting(begun);
}

void AsyncMrouteSwitchSm::handleClock() {
   rewriteWaiting(Qor::now());
}

// The pass is traced under the name of the handler.
void AsyncMrouteSwitchSm::rewriteWaiting(Qor::Seconds begun) {
   auto const self = hold();
   Qor::Ptr<AsyncMrouteSwitch> const chip = mrouteSwitch();
   auto const& waiting = chip->frrProcessingOifSet();
   VEL_TRACE_IN("handleClock", 8, "review FrrProcessingOifSets: " << waiting.size());
   VEL_BLIP("AsyncMrouteSwitchSm:: frrProcessingOifSets: %s", waiting.size());
   reroutePass(*chip, begun);
}

// Rewrites the groups of a waiting oif set, unless no record of the set is in use or its record has
// become a zombie.
void AsyncMrouteSwitchSm::rewriteForFrr(AsyncMrouteSwitch& chip, OifSetPtr const& oifSet,
                                        AsyncMrouteSwitch::NamedRecord named, Qor::Seconds time) {
   auto const inUse = chip.inUseRecord(oifSet);
   if (!inUse) {
      VEL_TRACE(2, "oif not in inUseOifSet:" << oifSet);
      VEL_BLIP_AT(time, " frrOifSet not in use %s", oifSet);
      return;
   }
   auto waiting = named == inUse ? inUse : chip.record(oifSet, named);
   if (!waiting) waiting = inUse;
   if (waiting->zombie().isZombie()) {
      VEL_BLIP_AT(time, " frrOifSet becomes zombie, mcastId: %s", waiting->multicastId());
      // No route uses a zombie. The reroute goes on only if a newer record carries the set.
      if (waiting == inUse || inUse->zombie().isZombie()) return;
   }
   VEL_TRACE(8, "original pvSet" << oifSet->portVlanSet().pretty());
   OifSetPtr const rewritten =
         frrReplacement(oifSet->portVlanSet(), [function = __func__](auto const& member) {
            VEL_TRACE_IN(function, 8, "add port " << member);
         });
   PortVlanSet const& pvSet = rewritten->portVlanSet();
   chip.eachRecord(oifSet, [&, function = __func__](auto const& record) {
      // A fixed group that a newer record has taken over carries the set of that record.
      if (record->zombie().isZombie() || record->deleted() || record->skipDelete()) return;
      VEL_TRACE_IN(function, 8,
                   ": Overwrite with new pvSet " << pvSet.pretty()
                                                 << " to mcastId: " << record->multicastId());
      VEL_BLIP_AT(time, " Overwrite with pvSet %s to mcastId: %s", MembersOf{pvSet},
                  record->multicastId());
      record->dirtyIs(true);
      if (mrouteHelper()) {
         mrouteHelper()->doUpdateMulticastGroupInPlace(rewritten, record->multicastId());
      }
   });
}

}  // namespace Vel::Mroute
