// The freeing of oif set records: at once, or after a time as a zombie. It runs in the destructor
// of the last counted pointer to the record, so that no error can leave it.
//
//   record deleted | switch deleted | zombie | usedInHw | outcome (the first row that matches)
//   ---------------+----------------+--------+----------+---------------------------------------
//   yes            |                |        |          | nothing: the record is freed already
//   no             | yes            |        |          | freed now; the entries of the record stay
//                  |                |        |          | in the collections
//   no             | no             | yes    |          | freed now
//   no             | no             | no     | yes      | becomes a zombie for its zombieLifetime
//   no             | no             | no     | no       | freed now
#include "Qor/Clock.h"
#include "Vel/VelAsyncMrouteSwitch.h"
#include "Vel/VelTrace.h"

namespace Vel::Mroute {

using MrouteLib::OifSetPtr;

void AsyncMrouteSwitch::handleFreeMtableOifSet(RecordPtr const& record) {
   VEL_TRACE(8, "AsyncMrouteSwitch::handleFreeMtableOifSet()");
   VEL_TRACE(7, " mt " << *record << " oifset " << record->oifSet() << " acceptingVlan "
                       << record->carried().portVlanSet().currentIif() << " PVs "
                       << record->carried().portVlanSet().pretty() << " multicastId "
                       << record->multicastId());
   if (record->deleted()) {
      VEL_TRACE(2, "OifSet is already freed");
      return;
   }

   // A listener of the changes below may release the last reference to the switch.
   auto const self = hold();
   if (deleted_) {
      VEL_TRACE(2, "MrouteSwitch deletion, skipping delayed deletion");
      freeNow(record);
   } else if (record->zombie().isZombie()) {
      VEL_TRACE(2, "Freeing zombie oifSet");
      freeNow(record);
   } else if (record->usedInHw()) {
      VEL_TRACE(2, "Adding zombie " << *record << " with mcastId: " << record->multicastId());
      // The key is fixed before a follower of the record is notified. A follower may cause an
      // allocation that resurrects the record; such a record must not enter zombieOifSet.
      ZombieKey const key(record->multicastId(), Qor::now() + record->zombieLifetime());
      record->usedInHwIs(false);
      record->zombieIs(key);
      if (record->zombie() == key) zombieOifSetIs(record);
   } else {
      VEL_TRACE(2, "OifSet " << record->oifSet() << " not used in hw, skipping delayed deletion");
      freeNow(record);
   }
   mrouteHelper_->doScheduleVerify();
}

void AsyncMrouteSwitch::freeNow(RecordPtr const& record) {
   OifSetPtr const oifSet = record->oifSet();
   Qor::U32 const mcastId = record->multicastId();
   VEL_TRACE(2, "Freeing oifSet resources");
   if (record->skipDelete()) {
      // The text of the assertion is behaviour, its blanks included.
      // clang-format off
      QOR_ASSERT(mrouteHelper()->needFixedOifSet( oifSet->portVlanSet().type() ));
      // clang-format on
   } else {
      mrouteHelper_->doDeleteOifSet(mcastId);
   }
   if (!deleted_ && inUseOifSet(oifSet) == record) {
      VEL_TRACE(2, "Delete oifset " << oifSet);
      inUseOifSetDel(oifSet);
      // A listener may have allocated the same set again: the entries then belong to the newer
      // record.
      auto const anew = [&] { return inUseOifSet().find(oifSet).has_value(); };
      if (!anew()) frrMtableOifSetDel(oifSet);
      if (!anew()) frrProcessingOifSetDel(oifSet);
      if (!anew() && mcastIdToOifSet(mcastId) == oifSet) mcastIdToOifSetDel(mcastId);
   }
   record->deletedIs(true);
}

}  // namespace Vel::Mroute
