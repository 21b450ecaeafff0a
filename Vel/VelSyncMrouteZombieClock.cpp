// The zombie clock of the synchronous per-switch reactor. The clock is armed for the expiry of the
// first zombie, and bounded passes remove the zombies that are due. If a pass leaves such zombies,
// the clock is armed for a time in the past and fires again in the next turn.
#include "Vel/VelSyncMrouteSmReactors.h"
#include "Vel/VelTrace.h"

namespace Vel {

void MrouteSwitchSm::handleZombie() {
   VEL_TRACE(6, "handleZombie");
   if (!initialized() || !mrouteSwitch()) return;
   if (mrouteSwitch()->deleted()) {
      VEL_TRACE(6, "MrouteSwitch marked for deletion - skipping zombie handling");
      return;
   }
   auto const& zombies = mrouteSwitch()->zombieOifSet();
   if (!zombies.empty()) {
      MtableOifSet const& first = *zombies.begin()->second;
      VEL_TRACE(5, "Setting timer for oifSetIndex: " << first.oifSetIndex());
      VEL_BLIP("handleZombie, Set timer for zombie oifSetIndex: %s", first.oifSetIndex());
      zombieClock_.arm(first.zombie().expiryTime());
   } else {
      zombieClock_.arm(Qor::never);
      VEL_TRACE(5, "Resetting zombie timer");
   }
   if (acsd()) acsd()->requestVerify();
}

void MrouteSwitchSm::handleZombieClock() {
   VEL_TRACE(6, "handleZombieClock");
   if (!initialized() || !mrouteSwitch()) return;
   auto const purging = [function = __func__](ZombieKey const&, MtableOifSet const& record) {
      VEL_TRACE_IN(function, 5, "Removing zombie OifSetIndex: " << record.oifSetIndex());
      VEL_BLIP("handleZombieClock %s", record.oifSetIndex());
   };
   Qor::Seconds const deadline = Qor::now() + zombiePassBudget;
   purgeDueZombies(purging, [&] { return Qor::now() >= deadline; });
}

}  // namespace Vel
