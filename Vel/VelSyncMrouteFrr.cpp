// Fast reroute of the synchronous per-switch reactor. A failure of an interface moves the oif sets
// with that input from the switch's frrMtableOifSet to frrProcessingOifSet. Passes on a clock then
// rewrite the sets in place, under the same index, so that every route with the index follows at
// once.
#include "Vel/VelSyncMrouteSmReactors.h"
#include "Vel/VelTrace.h"

namespace Vel {

using MrouteLib::OifSetPtr;
using MrouteLib::PortVlanSet;

namespace {

// Traces a set that the failure does not affect.
void skip(PortVlanSet const& set, Lnet::IntfId failed, Qor::Seconds begun) {
   VEL_TRACE_IN("updateFrrMtableOif", 8, " skip frrMtableOif " << set);
   if (set.currentIif() != failed) {
      VEL_BLIP_AT(begun, " skip Frr, currentIif %s", set.currentIif());
   } else {
      VEL_BLIP_AT(begun, "No need for inplace update, invalid currentIif: %s, or portVlanFrrs: %s",
                  set.currentIif().isNull(), set.portVlanFrr().size());
   }
}

// Moves a set from the armed sets to those that wait, if a route uses its record. This function may
// hold the last reference to the record, whose end notifies listeners. So the caller's walk takes
// its next step afterwards.
void awaitRewrite(MrouteSwitch& chip, OifSetPtr const& oifSet) {
   auto const record = chip.inUseRecord(oifSet);
   bool const live = record && !record->zombie().isZombie();
   if (live) record->dirtyIs(true);
   chip.frrMtableOifSetDel(oifSet);
   if (live) chip.frrProcessingOifSetIs(oifSet, record);
}

}  // namespace

void MrouteSwitchSm::handleOperStatus(Interface::EthIntfStatus const& changed) {
   if (!initialized()) {
      VEL_TRACE(2, "SM uninitialized, ignore event");
      return;
   }
   Lnet::IntfId const intf = changed.intfId();
   Interface::IntfOperStatus const status = changed.operStatus();
   VEL_TRACE(2, "handleOperStatus");
   VEL_TRACE(8, "Intf: " << intf << ", operStatus: " << status);
   VEL_BLIP("MrouteSwitchSm::handleOperStatus, intf: %s, status: %s", intf, status);
   if (startsReroute(status)) updateFrrMtableOif(intf);
}

void MrouteSwitchSm::updateFrrMtableOif(Lnet::IntfId intfId) {
   auto const self = hold();
   Qor::Ptr<MrouteSwitch> const chip = mrouteSwitch();
   if (!chip) return;
   RerouteRetry const retry(*this);
   Qor::Seconds const begun = Qor::now();
   auto const& armed = chip->frrMtableOifSet();
   VEL_TRACE(8,
             __PRETTY_FUNCTION__ << " FrrSwitch from " << intfId << ", frrOifs " << armed.size());
   auto const isHit = [&](auto const& entry) {
      PortVlanSet const& set = entry.first->portVlanSet();
      if (reroutedOn(set, intfId)) return true;
      skip(set, intfId, begun);
      return false;
   };
   for (auto entry = armed.seek(armed.begin(), isHit); entry != armed.end();) {
      OifSetPtr const oifSet = entry->first;
      fetchAhead(*chip, entry);
      awaitRewrite(*chip, oifSet);
      // Last in the loop, since a listener may have removed further entries.
      entry = armed.seek(armed.resume(entry, oifSet), isHit);
   }
   rewriteWaiting(begun);
}

void MrouteSwitchSm::handleClock() {
   rewriteWaiting(Qor::now());
}

// The pass is traced under the name of the handler.
void MrouteSwitchSm::rewriteWaiting(Qor::Seconds begun) {
   auto const self = hold();
   Qor::Ptr<MrouteSwitch> const chip = mrouteSwitch();
   if (!chip) return;
   VEL_TRACE_IN("handleClock", 8,
                "void Vel::MrouteSwitchSm::handleClock()review FrrProcessingOifSet: "
                      << FrrPosition<MrouteSwitchSm>::ofProcess().oifSet);
   reroutePass(*chip, begun);
}

// Rewrites a waiting oif set, unless its record has been freed or has become a zombie.
void MrouteSwitchSm::rewriteForFrr(MrouteSwitch& chip, OifSetPtr const& oifSet,
                                   MrouteSwitch::NamedRecord named, Qor::Seconds time) {
   auto const velMtableOifSet = chip.record(oifSet, named);
   if (!velMtableOifSet || !chip.inUseOifSet().find(oifSet) ||
       velMtableOifSet->zombie().isZombie()) {
      return;
   }
   QOR_ASSERT(velMtableOifSet->dirty());
   OifSetPtr const rewritten =
         frrReplacement(oifSet->portVlanSet(), [function = __func__](auto const& member) {
            VEL_TRACE_IN(function, 8, "add port " << member);
         });
   PortVlanSet const& pvSet = rewritten->portVlanSet();
   VEL_TRACE(8, "original pvSet" << oifSet->portVlanSet());
   Qor::U32 const oifSetIndex = velMtableOifSet->oifSetIndex();
   VEL_TRACE(8, ": Overwrite with new pvSet " << pvSet << " to oifSetIndex: " << oifSetIndex);
   VEL_BLIP_AT(time, "MrouteSwitchSm::handleClock Overwrite with pvSet %s to oifSetIndex: %s",
               MembersOf{pvSet}, oifSetIndex);
   if (!mrouteHelper()) return;
   if (mrouteHelper()->doAllocateMtableOifSet(chip.switchId(), oifSetIndex, rewritten) !=
       oifSetIndex) {
      VEL_TRACE(8, ": HW resource full ");
      VEL_BLIP("MrouteSwitchSm::handleClockHW resource full");
   }
}

}  // namespace Vel
