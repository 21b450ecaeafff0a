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
#include "Qor/HashMap.h"

namespace Vel {

// How a collection names a record that it does not keep alive. Never followed without asking the
// programmer whether that record still lives.
template <class Record>
class RecordName {
 public:
   // As the record's kind is called, and "Ptr".
   static Qor::String typeName() { return Qor::String(Qor::className<Record>()) + "Ptr"; }

   RecordName() = default;
   RecordName(Record* record) : record_(record) {}

   Record* get() const { return record_; }
   friend bool operator==(RecordName a, RecordName b) = default;

 private:
   Record* record_ = nullptr;
};

template <class Record>
class LivingRecords;

// `Record` derives from this, and has a Notifiee with onZeroReferences(), and doCleanup().
template <class Record, class Switch>
class OifSetRecord : public Qor::Entity<Record, MrouteLib::MtableOifSet> {
 public:
   using Link = OifSetRecord;

   MrouteLib::OifSetPtr oifSet() const override { return oifSet_; }
   // Whether the set also sends to the CPU.
   bool toCpu() const { return toCpu_; }
   // The programmer the record belongs to, which it does not hold; null once that has gone.
   Switch* mrouteSwitch() const { return mrouteSwitch_; }

 protected:
   OifSetRecord(MrouteLib::OifSetPtr oifSet, bool toCpu, Switch* mrouteSwitch)
         : oifSet_(std::move(oifSet)), mrouteSwitch_(mrouteSwitch), toCpu_(toCpu) {
      QOR_ASSERT(oifSet_ != nullptr);
      if (mrouteSwitch_) mrouteSwitch_->livingRecords_.add(*this);
   }
   ~OifSetRecord() override {
      if (mrouteSwitch_) mrouteSwitch_->livingRecords_.remove(*this);
   }

   // Hands the record to its programmer, if there still is one.
   void cleanUpBySwitch() {
      if (!mrouteSwitch_) return;
      Qor::Ptr<Record> const self(static_cast<Record*>(this));
      mrouteSwitch_->handleFreeMtableOifSet(self);
   }

 private:
   friend class LivingRecords<Record>;

   void zeroReferencesIs(bool) override {
      this->template notify<&Record::Notifiee::onZeroReferences>();
      if (this->hasNotifiees()) return;
      static_cast<Record*>(this)->doCleanup();
   }
   bool heldByNotifiees() const override { return this->hasNotifiees(); }

   MrouteLib::OifSetPtr const oifSet_;
   Switch* mrouteSwitch_;
   OifSetRecord* nextOfOifSet_ = nullptr;  // in the chain of living records
   bool const toCpu_;
};

// Every living record made for one programmer: chains of those that carry the same oif set. It is
// what tells whether a record that is named somewhere still lives. The one that is named in use is
// known here too, so that the most frequent question of all takes one look.
template <class Record>
class LivingRecords {
 public:
   using RecordPtr = Qor::Ptr<Record>;
   using OifSetPtr = MrouteLib::OifSetPtr;

   using Link = typename Record::Link;

   void add(Link& record) {
      auto const [entry, first] = ofSet_.insert(record.oifSet_.get(), {&record, nullptr});
      if (!first) record.nextOfOifSet_ = std::exchange(entry->second.newest, &record);
   }
   void remove(Link& record) {
      auto* const entry = ofSet_.find(record.oifSet_.get());
      Living& living = entry->second;
      Link** link = &living.newest;
      while (*link != &record)
         link = &(*link)->nextOfOifSet_;
      *link = record.nextOfOifSet_;
      if (living.inUse == &record) living.inUse = nullptr;
      if (!living.newest) ofSet_.take(record.oifSet_.get());
   }

   // The record that inUseOifSet names for this oif set, if it lives, else null.
   RecordPtr inUse(OifSetPtr const& oifSet) const {
      auto const* const entry = ofSet_.find(oifSet.get());
      return entry ? static_cast<Record*>(entry->second.inUse) : nullptr;
   }
   // Follows inUseOifSet, ahead of whoever is told of its change.
   void inUseIs(OifSetPtr const& oifSet, RecordName<Record> named) {
      if (auto* const entry = ofSet_.find(oifSet.get())) {
         entry->second.inUse = find(oifSet, named).get();
      }
   }
   void inUseDelAll() {
      for (auto& [oifSet, living] : ofSet_)
         living.inUse = nullptr;
   }

   // The named record of this oif set if it lives, else null. Found among the living ones of the
   // set: the address alone may be that of a later record.
   RecordPtr find(OifSetPtr const& oifSet, RecordName<Record> named) const {
      for (auto* r = named.get() ? first(oifSet) : nullptr; r; r = r->nextOfOifSet_) {
         if (static_cast<Record*>(r) == named.get()) return named.get();
      }
      return nullptr;
   }
   // All living records of this oif set, the newest first.
   std::vector<RecordPtr> all(OifSetPtr const& oifSet) const {
      std::vector<RecordPtr> found;
      for (auto* r = first(oifSet); r; r = r->nextOfOifSet_)
         found.emplace_back(static_cast<Record*>(r));
      return found;
   }

   // The programmer goes: its records belong to nobody from now on.
   void releaseAll() {
      for (auto const& [oifSet, living] : ofSet_) {
         for (auto* r = living.newest; r; r = r->nextOfOifSet_)
            r->mrouteSwitch_ = nullptr;
      }
      ofSet_.clear();
   }

 private:
   // The living records of one oif set.
   struct Living {
      Link* newest;  // the head of their chain
      Link* inUse;   // one of them, or null
   };

   Link* first(OifSetPtr const& oifSet) const {
      auto const* const entry = ofSet_.find(oifSet.get());
      return entry ? entry->second.newest : nullptr;
   }

   Qor::HashMap<MrouteLib::OifSet const*, Living> ofSet_;
};

}  // namespace Vel
