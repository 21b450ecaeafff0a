// The common base of the oif set records of the two paths. A record stands for one oif set that a
// programmer has placed in its chip's replication table.
//
// References to a record are held by the routes that use the record, by its entry in zombieOifSet,
// and by the programmer's mtableOifSet result until the caller has taken it. The programmer's other
// collections name the record without holding it (RecordName).
//
// When the last reference goes, the record first notifies its reactors (onZeroReferences). If a
// reactor is still bound afterwards, the record lives on; the unbinding of the last reactor starts
// the same sequence again. Otherwise the record passes itself to its programmer (doCleanup), which
// frees it or makes it a zombie. This happens once per loss of the last reference, and again if a
// listener leaves the record without a user while it becomes a zombie. It happens synchronously
// inside the operation that dropped the reference, in the destructor of a counted pointer: a
// reactor or a hook that throws there terminates the process. A record that has outlived its
// programmer is destroyed without a call of a hook.
#pragma once

#include <utility>
#include <vector>

#include "MrouteLib/SwitchChip.h"

namespace Vel {

// The name of a record in a collection that does not hold the record: its serial number, so that a
// later record at the same address has another name. A name gives no access to the record; the
// programmer's record() returns the named record while the record lives. Names compare with
// pointers to records.
template <class Record>
class RecordName {
 public:
   using Object = Record;
   // The type name of the record, followed by "Ptr".
   static Qor::String typeName() { return Qor::String(Qor::className<Record>()) + "Ptr"; }

   RecordName() = default;
   RecordName(std::nullptr_t) {}
   RecordName(Record const* record) : serial_(record ? record->serial() : 0) {}
   RecordName(Qor::Ptr<Record> const& record) : RecordName(record.get()) {}

   // The serial number of the named record; 0 if the name is empty.
   Qor::U64 serial() const { return serial_; }
   explicit operator bool() const { return serial_ != 0; }
   friend bool operator==(RecordName a, RecordName b) { return a.serial_ == b.serial_; }

 private:
   template <class, class, class>
   friend class OifSetRecord;
   explicit RecordName(Qor::U64 serial) : serial_(serial) {}

   Qor::U64 serial_ = 0;
};

// Shared back pointer from the records to their programmer. The programmer sets the pointer to null
// in its destructor, so that records that outlive the programmer see null.
template <class Switch>
class RecordOwner final : public Qor::RefCounted {
 public:
   Switch* mrouteSwitch = nullptr;
};

// `Record` derives from this class, and has doCleanup() and a Notifiee with onZeroReferences().
// `State` has the members that each change of a route reads; as a base it puts them into the
// record's first cache line.
template <class Record, class Switch, class State>
class OifSetRecord : public Qor::Entity<Record, MrouteLib::MtableOifSet>,
                     protected State,
                     public MrouteLib::OifSetCarrier {
 public:
   MrouteLib::OifSetPtr oifSet() const override { return oifSet_; }
   // The oif set, without another reference.
   MrouteLib::OifSet const& carried() const { return *oifSet_; }
   // Whether the set also sends to the CPU.
   bool toCpu() const { return toCpu_; }
   // The record's programmer, which the record does not hold; null after the programmer's end.
   Switch* mrouteSwitch() const {
      return programmer() ? static_cast<RecordOwner<Switch> const*>(programmer())->mrouteSwitch
                          : nullptr;
   }
   // The name of the record. No other record of the process ever has the same name.
   RecordName<Record> const& recordName() const { return name_; }
   Qor::U64 serial() const { return name_.serial(); }

 protected:
   OifSetRecord(MrouteLib::OifSetPtr oifSet, bool toCpu, Switch* mrouteSwitch)
         : OifSetCarrier(mrouteSwitch ? mrouteSwitch->livingRecords_.owner(mrouteSwitch) : nullptr),
           oifSet_(std::move(oifSet)),
           name_(this->nextSerial()),
           toCpu_(toCpu) {
      QOR_ASSERT(oifSet_ != nullptr);
      enter(*oifSet_);
   }
   ~OifSetRecord() override {
      if (mrouteSwitch()) mrouteSwitch()->expel(static_cast<Record&>(*this));
      leave(*oifSet_);
   }

   // Passes the record to its programmer; does nothing after the programmer's end.
   void cleanUpBySwitch() {
      if (!mrouteSwitch()) return;
      Qor::Ptr<Record> const self(static_cast<Record*>(this));
      mrouteSwitch()->handleFreeMtableOifSet(self);
   }

 private:
   template <class, class>
   friend class InUseRecords;

   void zeroReferencesIs(bool) override {
      this->template notify<&Record::Notifiee::onZeroReferences>();
      if (this->hasNotifiees()) return;
      // A listener may remove the record from zombieOifSet, or use the record and drop it again,
      // while it becomes a zombie. The record then has no user, and its group is still to be freed.
      auto& record = static_cast<Record&>(*this);
      do {
         record.doCleanup();
      } while (mrouteSwitch() && !record.deleted() && this->references() == 1 &&
               !this->hasNotifiees());
   }
   bool heldByNotifiees() const override { return this->hasNotifiees(); }

   MrouteLib::OifSetPtr const oifSet_;
   RecordName<Record> const name_;
   bool const toCpu_;
};

// All living records of one programmer, found through the record chains of the oif sets
// (MrouteLib::OifSetCarrier). A look-up here returns a named record only while the record lives.
template <class Record, class Switch>
class LivingRecords {
   using Carrier = MrouteLib::OifSetCarrier;

 public:
   using RecordPtr = Qor::Ptr<Record>;
   using OifSetPtr = MrouteLib::OifSetPtr;

   // Returns the back pointer for the records of the programmer, which has this object as a member.
   Qor::Ptr<RecordOwner<Switch>> const& owner(Switch* mrouteSwitch) {
      owner_->mrouteSwitch = mrouteSwitch;
      return owner_;
   }

   // Returns the newest living record of this oif set that satisfies wanted(record); null without
   // such a record.
   template <class Wanted>
   Record* find(OifSetPtr const& oifSet, Wanted const& wanted) const {
      for (Carrier* c = oifSet ? Carrier::firstOf(*oifSet) : nullptr; c; c = c->next()) {
         if (c->programmer() != owner_.get()) continue;
         auto* const record = static_cast<Record*>(c);
         if (wanted(*record)) return record;
      }
      return nullptr;
   }
   // Returns the named record of this oif set if the record lives, else null.
   Record* find(OifSetPtr const& oifSet, RecordName<Record> named) const {
      return find(oifSet, [&](Record const& record) { return record.recordName() == named; });
   }
   // Returns all living records of this oif set, the newest first.
   std::vector<RecordPtr> all(OifSetPtr const& oifSet) const {
      std::vector<RecordPtr> found;
      find(oifSet, [&](Record& record) {
         found.emplace_back(&record);
         return false;
      });
      return found;
   }

   // Calls visit(record) for the records that all() returns. The calls may change the chain. Most
   // sets have one record, which needs no list.
   template <class Visit>
   void each(OifSetPtr const& oifSet, Visit const& visit) const {
      RecordPtr const newest = find(oifSet, [](Record const&) { return true; });
      if (!newest) return;
      if (!find(oifSet, [&](Record const& record) { return &record != newest.get(); })) {
         return visit(newest);
      }
      for (RecordPtr const& record : all(oifSet))
         visit(record);
   }

   // Detaches the records from the programmer, at the programmer's end.
   void releaseAll() { owner_->mrouteSwitch = nullptr; }

 private:
   Qor::Ptr<RecordOwner<Switch>> const owner_ = Qor::make<RecordOwner<Switch>>();
};

}  // namespace Vel
