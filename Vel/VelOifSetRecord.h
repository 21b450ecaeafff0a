// What the oif set records of the two paths have in common: one record stands for one oif set that
// a programmer has placed in its chip's replication table.
//
// References to a record are held by the routes that use it, by its entry among the zombies and by
// the programmer's mtableOifSet result until the caller has taken it. The programmer's other
// collections name it without holding it (RecordName).
//
// When the last reference goes, the notifiees are told first (onZeroReferences); if one of them is
// still bound afterwards, the record lives on, and the last one's leaving starts over. Otherwise
// the record hands itself to its programmer (doCleanup), which frees it or makes it a zombie. That
// happens once per loss of the last reference, synchronously inside the operation that dropped it.
// A record that has outlived its programmer just goes.
#pragma once

#include <utility>
#include <vector>

#include "MrouteLib/SwitchChip.h"

namespace Vel {

// How a collection names a record that it does not keep alive: by the serial number of the record,
// so that a later record at the same address is another one. A name leads nowhere by itself; the
// programmer's record() returns the named record while that lives. Names compare with records.
template <class Record>
class RecordName {
 public:
   using Object = Record;
   // As the record's kind is called, and "Ptr".
   static Qor::String typeName() { return Qor::String(Qor::className<Record>()) + "Ptr"; }

   RecordName() = default;
   RecordName(std::nullptr_t) {}
   RecordName(Record const* record) : serial_(record ? record->serial() : 0) {}
   RecordName(Qor::Ptr<Record> const& record) : RecordName(record.get()) {}

   // 0 for the name of no record.
   Qor::U64 serial() const { return serial_; }
   explicit operator bool() const { return serial_ != 0; }
   friend bool operator==(RecordName a, RecordName b) { return a.serial_ == b.serial_; }

 private:
   Qor::U64 serial_ = 0;
};

// The programmer that a record belongs to, as its records know it: one object for all of them, which
// lives as long as any, and which the programmer leaves when it goes.
template <class Switch>
class RecordOwner final : public Qor::RefCounted {
 public:
   Switch* mrouteSwitch = nullptr;
};

// `Record` derives from this, and has a Notifiee with onZeroReferences(), and doCleanup(). `State` is
// what it keeps beside: what each change of a route looks at, so that it is in the record's first
// cache line.
template <class Record, class Switch, class State>
class OifSetRecord : public Qor::Entity<Record, MrouteLib::MtableOifSet>,
                     protected State,
                     public MrouteLib::OifSetCarrier {
 public:
   MrouteLib::OifSetPtr oifSet() const override { return oifSet_; }
   // The same, not counted once more.
   MrouteLib::OifSet const& carried() const { return *oifSet_; }
   // Whether the set also sends to the CPU.
   bool toCpu() const { return toCpu_; }
   // The programmer the record belongs to, which it does not hold; null once that has gone.
   Switch* mrouteSwitch() const {
      return programmer() ? static_cast<RecordOwner<Switch> const*>(programmer())->mrouteSwitch
                          : nullptr;
   }
   // Where the record's entry among the zombies is, if it has one.
   Qor::U32 queuePlace() const { return queuePlace_; }
   void queuePlaceIs(Qor::U32 place) { queuePlace_ = place; }

 protected:
   OifSetRecord(MrouteLib::OifSetPtr oifSet, bool toCpu, Switch* mrouteSwitch)
         : OifSetCarrier(mrouteSwitch ? mrouteSwitch->livingRecords_.owner(mrouteSwitch) : nullptr),
           oifSet_(std::move(oifSet)),
           toCpu_(toCpu) {
      QOR_ASSERT(oifSet_ != nullptr);
      enter(*oifSet_);
   }
   ~OifSetRecord() override { leave(*oifSet_); }

   // Hands the record to its programmer, if there still is one.
   void cleanUpBySwitch() {
      if (!mrouteSwitch()) return;
      Qor::Ptr<Record> const self(static_cast<Record*>(this));
      mrouteSwitch()->handleFreeMtableOifSet(self);
   }

 private:
   void zeroReferencesIs(bool) override {
      this->template notify<&Record::Notifiee::onZeroReferences>();
      if (this->hasNotifiees()) return;
      static_cast<Record*>(this)->doCleanup();
   }
   bool heldByNotifiees() const override { return this->hasNotifiees(); }

   MrouteLib::OifSetPtr const oifSet_;
   Qor::U32 queuePlace_ = 0;
   bool const toCpu_;
};

// Every living record made for one programmer, as the chains of what carries an oif set have them.
// It is what tells whether a record that is named somewhere still lives. The one that is named in
// use is known here too, so that the most frequent question of all takes one look.
template <class Record, class Switch>
class LivingRecords {
   using Carrier = MrouteLib::OifSetCarrier;

 public:
   using RecordPtr = Qor::Ptr<Record>;
   using OifSetPtr = MrouteLib::OifSetPtr;

   // Of the programmer whose member this is.
   Qor::Ptr<RecordOwner<Switch>> const& owner(Switch* mrouteSwitch) {
      owner_->mrouteSwitch = mrouteSwitch;
      return owner_;
   }

   // The record that inUseOifSet names for this oif set, if it lives, else null.
   RecordPtr inUse(OifSetPtr const& oifSet) const {
      for (auto* c = first(oifSet); c; c = next(c)) {
         if (c->inUse()) return static_cast<Record*>(c);
      }
      return nullptr;
   }
   // Follows inUseOifSet, ahead of whoever is told of its change.
   void inUseIs(OifSetPtr const& oifSet, RecordName<Record> named) {
      for (auto* c = first(oifSet); c; c = next(c))
         c->inUseIs(c->serial() == named.serial());
   }

   // The named record of this oif set if it lives, else null.
   RecordPtr find(OifSetPtr const& oifSet, RecordName<Record> named) const {
      if (!named) return nullptr;
      for (auto* c = first(oifSet); c; c = next(c)) {
         if (c->serial() == named.serial()) return static_cast<Record*>(c);
      }
      return nullptr;
   }
   // All living records of this oif set, the newest first.
   std::vector<RecordPtr> all(OifSetPtr const& oifSet) const {
      std::vector<RecordPtr> found;
      for (auto* c = first(oifSet); c; c = next(c))
         found.emplace_back(static_cast<Record*>(c));
      return found;
   }

   // The programmer goes: its records belong to nobody from now on.
   void releaseAll() { owner_->mrouteSwitch = nullptr; }

 private:
   // The chain of the set's carriers, of which those of other programmers are passed over.
   Carrier* first(OifSetPtr const& oifSet) const {
      return oifSet ? own(Carrier::firstOf(*oifSet)) : nullptr;
   }
   Carrier* next(Carrier const* carrier) const { return own(carrier->next()); }
   Carrier* own(Carrier* carrier) const {
      while (carrier && carrier->programmer() != owner_.get())
         carrier = carrier->next();
      return carrier;
   }

   Qor::Ptr<RecordOwner<Switch>> const owner_ = Qor::make<RecordOwner<Switch>>();
};

}  // namespace Vel
