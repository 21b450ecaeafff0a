// The freeing of oif set records: at once, or after a time as a zombie. It runs in the destructor
// of the last counted pointer to the record, so that no error can leave it.
//
//   record  | switch  |        | set is of the      | zombies | outcome
//   deleted | deleted | zombie | software-only type | enabled | (the first row that matches)
//   --------+---------+--------+--------------------+---------+--------------------------------------
//   yes     |         |        |                    |         | nothing: the record is freed already
//   no      | yes     |        |                    |         | freed now
//   no      | no      | yes    |                    |         | freed now
//   no      | no      | no     | yes                |         | freed now
//   no      | no      | no     | no                 | no      | freed now
//   no      | no      | no     | no                 | yes     | becomes a zombie
#include "Qor/Clock.h"
#include "Vel/VelSyncMrouteSwitch.h"
#include "Vel/VelTrace.h"

namespace Vel {

using MrouteLib::OifSetPtr;

void MrouteSwitch::handleFreeMtableOifSet(RecordPtr const& record) {
   VEL_TRACE(2, "handleFreeMtableOifSet"
                      << ", OifSet: " << *record << ", OifSetIndex: " << record->oifSetIndex());
   if (record->deleted()) {
      VEL_TRACE(3, "OifSet resources already freed ");
      return;
   }
   // A listener of the changes below may drop the last reference to the switch.
   auto const self = hold();
   if (deleted_) {
      VEL_TRACE(3, "MrouteSwitch deletion - skipping delayed deletion of oifSet");
   } else if (record->zombie().isZombie()) {
      VEL_TRACE(3, "Now freeing zombie oifSet");
      // If all sets have one index (hooks that do nothing), a newer record may have the key by now.
      if (zombieOifSet(record->zombie()) == record) zombieOifSetDel(record->zombie());
   } else if (record->softwareOnly()) {
      VEL_TRACE(3, "OifSet not used in hw - skipping delayed deletion");
   } else if (!l3Status_->multicastZombiesEnabled()) {
      VEL_TRACE(3, "Zombies are not enabled");
   } else {
      VEL_TRACE(2, "Adding zombie");
      ZombieKey const key(record->oifSetIndex(), Qor::now() + zombieLifetime_);
      record->zombieIs(key);
      // A follower of the record may have resurrected the record in its handler.
      if (record->zombie() == key) zombieOifSetIs(record);
      requestVerify();
      return;
   }
   freeNow(record);
}

// The parameter is a record but named `oifSet`, since the text of the assertion is behaviour.
void MrouteSwitch::freeNow(RecordPtr const& oifSet) {
   OifSetPtr const set = oifSet->oifSet();
   Qor::U32 const oifSetIndex = oifSet->oifSetIndex();
   VEL_TRACE(2, "Freeing OifSetIndex: " << oifSetIndex);
   QOR_ASSERT(oifSet->oifSetIndex() != invalidOifSetIndex());
   if (!inUseOifSet().empty()) inUseOifSetDel(set);
   if (!frrMtableOifSet().empty()) frrMtableOifSetDel(set);
   if (!frrProcessingOifSet().empty()) frrProcessingOifSetDel(set);
   oifSet->deletedIs(true);
   oifSetIndexCollDel(oifSetIndex);
   mrouteHelper_->handleFreeMtableOifSet(switchId(), oifSet);
   if (!mtableFree()) {
      VEL_TRACE(2, "Free space now available in multicast group table");
      mtableFreeIs(true);
   }
   requestVerify();
}

}  // namespace Vel
