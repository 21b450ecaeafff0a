// The asynchronous path's record of one oif set in the chip's replication table.
//
// Life of a record (the switch, Vel/VelAsyncMrouteSwitch.h, drives it):
//
//   state   | recognised by                        | left by
//   --------+--------------------------------------+---------------------------------------
//   in use  | deleted false, zombie expiry never   | the release of the last reference
//   zombie  | in the switch's zombieOifSet, zombie | resurrection by an allocation of the
//           | expiry finite, usedInHw false        | same oif set, or removal from zombieOifSet
//   freed   | deleted true                         | destruction
//
// Vel/VelOifSetRecord.h lists the users of a record and describes its end.
#pragma once

#include "Qor/Pool.h"
#include "Vel/VelAsyncMrouteKeys.h"
#include "Vel/VelOifSetRecord.h"

namespace Vel::Mroute {

class AsyncMrouteSwitch;

struct AsyncRecordState {
   ZombieKey zombie_;
   Qor::U32 multicastId_ = 0;
   bool usedInHw_ = false;
   bool skipDelete_ = false;
   bool deleted_ = false;
   bool dirty_ = false;
};

class QOR_PUBLIC AsyncMtableOifSet final
      : public OifSetRecord<AsyncMtableOifSet, AsyncMrouteSwitch, AsyncRecordState>,
        public Qor::Pooled {
 public:
   // The setters of a record notify on every store, of an equal value too.
   class Notifiee : public Qor::NotifieeOf<AsyncMtableOifSet> {
    public:
      virtual void onUsedInHw() {}
      virtual void onSkipDelete() {}
      virtual void onDeleted() {}
      virtual void onZombie() {}
      virtual void onZombieLifetime() {}
      virtual void onDirty() {}
      virtual void onZeroReferences() {}
   };

   // `oifSet` must not be null. The record does not hold its switch, `mrouteSwitch`, which may be
   // null for a record that no switch frees.
   AsyncMtableOifSet(MrouteLib::OifSetPtr oifSet, bool toCpu, Qor::U32 multicastId,
                     AsyncMrouteSwitch* mrouteSwitch);

   // The multicast id of the hardware group that carries the set.
   Qor::U32 multicastId() const { return multicastId_; }

   // Whether a route has been pointed at the group since the record was made or was last a zombie.
   // If so, the record becomes a zombie when it is released; otherwise it is freed at once.
   bool usedInHw() const { return usedInHw_; }
   void usedInHwIs(bool v) { attrStore<&Notifiee::onUsedInHw>(usedInHw_, v); }

   // Whether a newer record has taken over the (fixed) group. The freeing of this record then does
   // not delete the group.
   bool skipDelete() const { return skipDelete_; }
   void skipDeleteIs(bool v) { attrStore<&Notifiee::onSkipDelete>(skipDelete_, v); }

   // Whether the record has been freed.
   bool deleted() const { return deleted_; }
   void deletedIs(bool v) { attrStore<&Notifiee::onDeleted>(deleted_, v); }

   // The record's key in zombieOifSet; the default key while the record is not a zombie.
   ZombieKey const& zombie() const { return zombie_; }
   void zombieIs(ZombieKey v) { attrStore<&Notifiee::onZombie>(zombie_, v); }

   // The time that the record stays a zombie, in seconds.
   Qor::Seconds zombieLifetime() const { return zombieLifetime_; }
   void zombieLifetimeIs(Qor::Seconds v) {
      attrStore<&Notifiee::onZombieLifetime>(zombieLifetime_, v);
   }

   // Whether the record may not be shared any more: no allocation reuses a dirty record.
   bool dirty() const { return dirty_; }
   void dirtyIs(bool v) { attrStore<&Notifiee::onDirty>(dirty_, v); }

   // Passes the record to its switch, which frees it or makes it a zombie. Called by the reference
   // counting when the last reference goes.
   void doCleanup();

 private:
   ~AsyncMtableOifSet() override;

   Qor::Seconds zombieLifetime_ = 3.0;
};

// Makes a record; the arguments are those of the constructor.
QOR_PUBLIC Qor::ValidPtr<AsyncMtableOifSet> asyncMtableOifSetFactory(
      MrouteLib::OifSetPtr oifSet, bool toCpu, Qor::U32 multicastId,
      AsyncMrouteSwitch* mrouteSwitch);

using AsyncMtableOifSetPtr = RecordName<AsyncMtableOifSet>;

// "AsyncMtableOifSet(mcastId <id>, OifSet#<serial>)"
QOR_PUBLIC std::ostream& operator<<(std::ostream& os, AsyncMtableOifSet const& record);

}  // namespace Vel::Mroute
