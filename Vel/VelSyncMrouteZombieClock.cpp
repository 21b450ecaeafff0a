// The zombie clock of the synchronous per-switch reactor. The clock is armed for the expiry of the
// first zombie, and each pass removes all zombies that are due.
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
   purgeDueZombies(purging, [] { return false; });
}

}  // namespace Vel
