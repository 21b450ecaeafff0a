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
// References are held by the routes that use the record, by its zombieOifSet entry and by the
// switch's mtableOifSet result until the caller has taken it. The switch's other collections name
// it without holding it.
//
// When the last reference goes, the notifiees are told first (onZeroReferences); if one of them is
// still bound afterwards, the record lives on, and the last one's leaving starts over. Otherwise
// the record hands itself to its switch (doCleanup), which frees it or makes it a zombie. That
// happens once per loss of the last reference, synchronously inside the operation that dropped it.
// A record that has outlived its switch just goes.
#pragma once

#include "MrouteLib/SwitchChip.h"
#include "Vel/VelAsyncMrouteKeys.h"

namespace Vel::Mroute {

class AsyncMrouteSwitch;

class QOR_PUBLIC AsyncMtableOifSet final
      : public Qor::Entity<AsyncMtableOifSet, MrouteLib::MtableOifSet> {
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

   MrouteLib::OifSetPtr oifSet() const override { return oifSet_; }
   // Whether the set also sends to the CPU.
   bool toCpu() const { return toCpu_; }
   // The hardware replication group that carries the set.
   Qor::U32 multicastId() const { return multicastId_; }
   // Null once the switch has gone.
   AsyncMrouteSwitch* mrouteSwitch() const { return mrouteSwitch_; }

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
   friend class AsyncMrouteSwitch;
   ~AsyncMtableOifSet() override;
   void zeroReferencesIs(bool) override;
   bool heldByNotifiees() const override { return hasNotifiees(); }

   MrouteLib::OifSetPtr const oifSet_;
   AsyncMrouteSwitch* mrouteSwitch_;
   AsyncMtableOifSet* nextOfOifSet_ = nullptr;  // in the switch's chain of living records
   ZombieKey zombie_;
   Qor::Seconds zombieLifetime_ = 3.0;
   Qor::U32 const multicastId_;
   bool const toCpu_;
   bool usedInHw_ = false;
   bool skipDelete_ = false;
   bool deleted_ = false;
   bool dirty_ = false;
};

// Makes a record. Raises Qor::RangeException "null ValidPtr" should there be none.
QOR_PUBLIC Qor::ValidPtr<AsyncMtableOifSet> asyncMtableOifSetFactory(
      MrouteLib::OifSetPtr oifSet, bool toCpu, Qor::U32 multicastId,
      AsyncMrouteSwitch* mrouteSwitch);

// How the switch's collections name a record they do not keep alive. Never followed without asking
// the switch whether that record still lives.
class AsyncMtableOifSetPtr {
 public:
   AsyncMtableOifSetPtr() = default;
   AsyncMtableOifSetPtr(AsyncMtableOifSet* record) : record_(record) {}

   AsyncMtableOifSet* get() const { return record_; }
   friend bool operator==(AsyncMtableOifSetPtr a, AsyncMtableOifSetPtr b) = default;

 private:
   AsyncMtableOifSet* record_ = nullptr;
};

// "AsyncMtableOifSet(mcastId <id>, OifSet#<serial>)"
QOR_PUBLIC std::ostream& operator<<(std::ostream& os, AsyncMtableOifSet const& record);

}  // namespace Vel::Mroute
