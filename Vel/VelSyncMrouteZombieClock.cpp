// The zombie clock of the synchronous per-switch reactor. The clock is armed for the expiry of the
// first zombie, and each pass removes all zombies that are due.
#include "Vel/VelSyncMrouteSm.h"
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
   auto const self = hold();
   Qor::Ptr<MrouteSwitch> const chip = mrouteSwitch();
   auto const& zombies = chip->zombieOifSet();
   while (!zombies.empty()) {
      auto const& [key, record] = *zombies.begin();
      if (record->zombie().expiryTime() > Qor::now()) break;
      VEL_TRACE(5, "Removing zombie OifSetIndex: " << record->oifSetIndex());
      VEL_BLIP("handleZombieClock %s", record->oifSetIndex());
      chip->zombieOifSetDel(key);
   }
   // handleZombie() does not set the clock of a deleted switch; its end frees the other zombies.
   if (chip->deleted()) zombieClock_.arm(Qor::never);
   handleZombie();
}

}  // namespace Vel
