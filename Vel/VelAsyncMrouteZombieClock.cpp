// The zombie clock of the asynchronous per-switch reactor. The clock is armed for the expiry of the
// first zombie, and bounded passes remove the zombies that are due. If a pass leaves such zombies,
// the clock is armed for a time in the past and fires again in the next turn.
#include "Vel/VelAsyncMrouteSmReactors.h"
#include "Vel/VelTrace.h"

namespace Vel::Mroute {

void AsyncMrouteSwitchSm::handleZombie() {
   VEL_TRACE(2, "AsyncMrouteSwitchSm::handleZombie()");
   if (!initialized()) return;
   if (mrouteSwitch()->deleted()) {
      VEL_TRACE(2, "MrouteSwitch marked for deletion. Skipping Zombie handling");
      return;
   }
   // Without zombies the clock must be disarmed: a fired clock that is left as it is fires again
   // after Qor::Clock::retryGap.
   auto const& zombies = mrouteSwitch()->zombieOifSet();
   if (zombies.empty()) {
      VEL_TRACE(2, "Cancelling zombie timer");
      if (zombieClock()) zombieClock()->timeMinIs(Qor::never);
      return;
   }
   AsyncMtableOifSet const& first = *zombies.begin()->second;
   VEL_TRACE(2, "Starting zombie timer for mcastId: " << first.multicastId());
   if (zombieClock()) zombieClock()->timeMinIs(first.zombie().expiryTime());
}

void AsyncMrouteSwitchSm::handleZombie(ZombieKey const& key) {
   VEL_TRACE(2, "AsyncMrouteSwitchSm::handleZombie()"
                      << " key " << key);
   if (initialized() && !mrouteSwitch()->deleted()) handleZombie();
}

void AsyncMrouteSwitchSm::handleZombieClock() {
   VEL_TRACE(2, "AsyncMrouteSwitchSm::handleZombieClock()");
   if (!initialized()) return;
   Qor::Seconds const deadline = Qor::now() + zombiePassBudget;
   Qor::U32 removed = 0;
   auto const purging = [function = __func__](ZombieKey const&, AsyncMtableOifSet const& record) {
      VEL_TRACE_IN(function, 2, "Removing zombie with mcastId: " << record.multicastId());
   };
   purgeDueZombies(purging, [&, function = __func__] {
      if (++removed % zombieCheckStride != 0 || Qor::now() < deadline) return false;
      VEL_TRACE_IN(function, 8, "Not finishing reviewing all zombies.");
      return true;
   });
}

void AsyncMrouteSwitchSm::doForcePurgeOneZombie() {
   VEL_TRACE(2, "AsyncMrouteSwitchSm::doForcePurgeOneZombie()");
   Qor::Ptr<AsyncMrouteSwitch> const chip = mrouteSwitch();
   auto const& zombies = chip->zombieOifSet();
   if (zombies.empty()) return;
   auto const& [key, record] = *zombies.begin();
   Qor::U32 const mcastId = record->multicastId();
   VEL_TRACE(2, "Force removing zombie with mcastId: " << mcastId);
   VEL_BLIP("AsyncMrouteSwitchSm::doForcePurgeOneZombie() force removing zombie with mcastId %s",
            mcastId);
   chip->zombieOifSetDel(key);
}

}  // namespace Vel::Mroute
