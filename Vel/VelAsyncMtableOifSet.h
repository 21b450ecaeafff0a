// The asynchronous path's record of one oif set placed in the chip's replication table.
//
// Life of a record (the switch, Vel/VelAsyncMrouteSwitch.h, drives it):
//
//   state   | recognised by                        | left by
//   --------+--------------------------------------+---------------------------------------
//   in use  | deleted false, zombie expiry never   | its last reference going
//   zombie  | in the switch's zombieOifSet, zombie | resurrection by an allocation of the
//           | expiry finite, usedInHw false        | same oif set, or leaving zombieOifSet
//   freed   | deleted true                         | destruction with its last reference
//
// What counts as a user of the record, and how it ends: Vel/VelOifSetRecord.h.
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
   // The setters of a record visit the notifiees on every store, equal values included.
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

   // `oifSet` is not null. `mrouteSwitch` is the owner; it is not held, and may be null for a
   // record that nobody frees.
   AsyncMtableOifSet(MrouteLib::OifSetPtr oifSet, bool toCpu, Qor::U32 multicastId,
                     AsyncMrouteSwitch* mrouteSwitch);

   // The hardware replication group that carries the set.
   Qor::U32 multicastId() const { return multicastId_; }

   // A route has been pointed at the group; decides between zombie and immediate free.
   bool usedInHw() const { return usedInHw_; }
   void usedInHwIs(bool v) { attrStore<&Notifiee::onUsedInHw>(usedInHw_, v); }

   // The (fixed) group has been taken over by a newer record for the same id: freeing this record
   // leaves the group alone.
   bool skipDelete() const { return skipDelete_; }
   void skipDeleteIs(bool v) { attrStore<&Notifiee::onSkipDelete>(skipDelete_, v); }

   bool deleted() const { return deleted_; }
   void deletedIs(bool v) { attrStore<&Notifiee::onDeleted>(deleted_, v); }

   // The record's key among the zombies; the default key while it is none.
   ZombieKey const& zombie() const { return zombie_; }
   void zombieIs(ZombieKey v) { attrStore<&Notifiee::onZombie>(zombie_, v); }

   // How long the record stays a zombie, in seconds.
   Qor::Seconds zombieLifetime() const { return zombieLifetime_; }
   void zombieLifetimeIs(Qor::Seconds v) {
      attrStore<&Notifiee::onZombieLifetime>(zombieLifetime_, v);
   }

   // The group may no longer be shared: no new allocation reuses the record.
   bool dirty() const { return dirty_; }
   void dirtyIs(bool v) { attrStore<&Notifiee::onDirty>(dirty_, v); }

   // Hands the record to its switch. Run by the reference counting.
   void doCleanup();

 private:
   ~AsyncMtableOifSet() override;

   Qor::Seconds zombieLifetime_ = 3.0;
};

// Makes a record. Raises Qor::RangeException "null ValidPtr" should there be none.
QOR_PUBLIC Qor::ValidPtr<AsyncMtableOifSet> asyncMtableOifSetFactory(
      MrouteLib::OifSetPtr oifSet, bool toCpu, Qor::U32 multicastId,
      AsyncMrouteSwitch* mrouteSwitch);

using AsyncMtableOifSetPtr = RecordName<AsyncMtableOifSet>;

// "AsyncMtableOifSet(mcastId <id>, OifSet#<serial>)"
QOR_PUBLIC std::ostream& operator<<(std::ostream& os, AsyncMtableOifSet const& record);

}  // namespace Vel::Mroute
