// Fast reroute of the synchronous per-switch reactor. A failure of an interface moves the oif sets
// with that input from the switch's frrMtableOifSet to frrProcessingOifSet. Passes on a clock then
// rewrite the sets in place, under the same index, so that every route with the index follows at
// once.
#include "Vel/VelSyncMrouteSmReactors.h"
#include "Vel/VelTrace.h"

namespace Vel {

using MrouteLib::OifSetPtr;
using MrouteLib::PortVlanSet;

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
   auto const& armed = chip->frrMtableOifSet();
   VEL_TRACE(8,
             __PRETTY_FUNCTION__ << " FrrSwitch from " << intfId << ", frrOifs " << armed.size());
   Qor::Seconds const begun = Qor::now();
   for (auto entry = armed.begin(); entry != armed.end();) {
      PortVlanSet const& set = entry->first->portVlanSet();
      if (!reroutedOn(set, intfId)) {
         VEL_TRACE(8, " skip frrMtableOif " << set);
         if (set.currentIif() != intfId) {
            VEL_BLIP_AT(begun, " skip Frr, currentIif %s", set.currentIif());
         } else {
            VEL_BLIP_AT(begun,
                        "No need for inplace update, invalid currentIif: %s, or portVlanFrrs: %s",
                        set.currentIif().isNull(), set.portVlanFrr().size());
         }
         ++entry;
         continue;
      }
      OifSetPtr const oifSet = entry->first;
      auto const record = chip->inUseRecord(oifSet);
      bool const live = record && !record->zombie().isZombie();
      if (live) record->dirtyIs(true);
      chip->frrMtableOifSetDel(oifSet);
      if (live) chip->frrProcessingOifSetIs(oifSet, record);
      // Last in the loop, since a listener may have removed further entries.
      entry = armed.resume(entry, oifSet);
   }
   handleClock();
}

void MrouteSwitchSm::handleClock() {
   auto const self = hold();
   Qor::Ptr<MrouteSwitch> const chip = mrouteSwitch();
   if (!chip) return;
   VEL_TRACE(8, __PRETTY_FUNCTION__ << "review FrrProcessingOifSet: "
                                    << FrrPosition<MrouteSwitchSm>::ofProcess().oifSet);
   reroutePass(*chip);
}

// Rewrites a waiting oif set, unless its record has been freed or has become a zombie.
void MrouteSwitchSm::rewriteForFrr(MrouteSwitch& chip, OifSetPtr const& oifSet) {
   auto const velMtableOifSet = chip.record(oifSet, chip.frrProcessingOifSet(oifSet));
   if (!velMtableOifSet || !chip.inUseOifSet().find(oifSet) ||
       velMtableOifSet->zombie().isZombie()) {
      return;
   }
   QOR_ASSERT(velMtableOifSet->dirty());
   PortVlanSet const pvSet =
         frrReplacement(oifSet->portVlanSet(), [function = __func__](auto const& member) {
            VEL_TRACE_IN(function, 8, "add port " << member);
         });
   VEL_TRACE(8, "original pvSet" << oifSet->portVlanSet());
   Qor::U32 const oifSetIndex = velMtableOifSet->oifSetIndex();
   VEL_TRACE(8, ": Overwrite with new pvSet " << pvSet << " to oifSetIndex: " << oifSetIndex);
   VEL_BLIP("MrouteSwitchSm::handleClock Overwrite with pvSet %s to oifSetIndex: %s",
            pvSet.pretty(), oifSetIndex);
   if (!mrouteHelper()) return;
   OifSetPtr const rewritten = Qor::make<MrouteLib::OifSet>(nullptr, pvSet);
   if (mrouteHelper()->doAllocateMtableOifSet(chip.switchId(), oifSetIndex, rewritten) !=
       oifSetIndex) {
      VEL_TRACE(8, ": HW resource full ");
      VEL_BLIP("MrouteSwitchSm::handleClockHW resource full");
   }
}

}  // namespace Vel
