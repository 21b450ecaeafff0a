// The collections of oif set records of a table programmer, with the same names and the same
// meaning on both paths. A programmer derives from OifSetTables, and its Notifiee from
// OifSetTablesNotifiee.
//
// Each change of a collection notifies the programmer's reactors with the key, and a removal of all
// entries notifies them once by the immediate form. A reactor that throws ends the notification;
// the error reaches the caller of the mutator, with the change made.
#pragma once

#include <utility>
#include <vector>

#include "Qor/Collection.h"
#include "Qor/QueueMap.h"
#include "Vel/VelInUseRecords.h"
#include "Vel/VelOifSetRecord.h"
#include "Vel/VelSetIndex.h"

namespace Vel {

// The handlers of the changes of these collections.
template <class Switch, class ZombieKey>
class OifSetTablesNotifiee : public Qor::NotifieeOf<Switch> {
 public:
   virtual void onInUseOifSet(MrouteLib::OifSetPtr const&) {}
   virtual void onInUseOifSetImmediate() {}
   virtual void onZombieOifSet(ZombieKey const&) {}
   virtual void onZombieOifSetImmediate() {}
   virtual void onFrrMtableOifSet(MrouteLib::OifSetPtr const&) {}
   virtual void onFrrMtableOifSetImmediate() {}
   virtual void onFrrProcessingOifSet(MrouteLib::OifSetPtr const&) {}
   virtual void onFrrProcessingOifSetImmediate() {}

 protected:
   void onImmediate() override {
      onInUseOifSetImmediate();
      onZombieOifSetImmediate();
      onFrrMtableOifSetImmediate();
      onFrrProcessingOifSetImmediate();
   }
};

// `Base` is the programmer's interface, `Record` the type of its records. `Switch` has `typeName`.
template <class Switch, class Base, class Record, class ZombieKey>
class OifSetTables : public Qor::Entity<Switch, Base> {
   using Told = OifSetTablesNotifiee<Switch, ZombieKey>;

 public:
   using OifSetPtr = MrouteLib::OifSetPtr;
   using RecordPtr = Qor::Ptr<Record>;
   using NamedRecord = RecordName<Record>;
   using RecordMap = Qor::HashMap<OifSetPtr, NamedRecord, SetIndex<Record, Switch>>;
   using InUseOifSetColl = Qor::Collection<InUseRecords<Record, Switch>, &Told::onInUseOifSet,
                                           &Told::onInUseOifSetImmediate>;
   using ZombieOifSetColl = Qor::Collection<Qor::QueueMap<ZombieKey, RecordPtr>,
                                            &Told::onZombieOifSet, &Told::onZombieOifSetImmediate>;
   using FrrMtableOifSetColl =
         Qor::Collection<RecordMap, &Told::onFrrMtableOifSet, &Told::onFrrMtableOifSetImmediate>;
   using FrrProcessingOifSetColl = Qor::Collection<RecordMap, &Told::onFrrProcessingOifSet,
                                                   &Told::onFrrProcessingOifSetImmediate>;

   // Returns the record that one of the collections names under `oifSet` if the record lives, else
   // null.
   RecordPtr record(OifSetPtr const& oifSet, NamedRecord named) const {
      return named ? livingRecords_.find(oifSet, named) : nullptr;
   }
   // Returns all living records that carry `oifSet`, the newest first. A set has more than one if a
   // dirty or a non-reusable record has been replaced while routes still used the record.
   std::vector<RecordPtr> records(OifSetPtr const& oifSet) const {
      return livingRecords_.all(oifSet);
   }
   // Calls visit(record) for each of them; the calls may change the records of the set.
   template <class Visit>
   void eachRecord(OifSetPtr const& oifSet, Visit const& visit) const {
      livingRecords_.each(oifSet, visit);
   }
   // Returns the record that inUseOifSet names under `oifSet`, zombies included, if the record
   // lives; else null.
   RecordPtr inUseRecord(OifSetPtr const& oifSet) const { return inUseOifSet().record(oifSet); }

   // Names the latest record of each oif set, zombies included; holds no record.
   typename InUseOifSetColl::Map const& inUseOifSet() const { return inUseOifSet_.map(); }
   NamedRecord inUseOifSet(OifSetPtr const& s) const { return inUseOifSet_.value(s); }
   void inUseOifSetIs(OifSetPtr s, NamedRecord v) { inUseOifSet_.is(self(), s, v); }
   void inUseOifSetDel(OifSetPtr s) { inUseOifSet_.del(self(), s); }
   typename InUseOifSetColl::Iterator inUseOifSetDel(typename InUseOifSetColl::Iterator it) {
      return inUseOifSet_.del(self(), it);
   }
   void inUseOifSetDelAll() { inUseOifSet_.delAll(self()); }
   void inUseOifSetNotify(OifSetPtr s) { inUseOifSet_.notify(self(), s); }

   // The zombies in the order of their expiry. An entry holds its record; its removal may free the
   // record before the operation returns. The freeing uses the switch: the removals by key and of
   // all entries hold the switch until they return; the caller of the iterator form must hold it.
   typename ZombieOifSetColl::Map const& zombieOifSet() const { return zombieOifSet_.map(); }
   RecordPtr zombieOifSet(ZombieKey const& key) const { return zombieOifSet_.value(key); }
   // Adds the record under its own zombie key. A null record raises the range error of null
   // parameters (Qor::throwNullParameter).
   void zombieOifSetIs(RecordPtr record) {
      if (!record) Qor::throwNullParameter(Switch::typeName, "zombieOifSet");
      ZombieKey const key = record->zombie();
      zombieOifSet_.is(self(), key, std::move(record));
   }
   RecordPtr newZombieOifSet(RecordPtr record) {
      zombieOifSetIs(record);
      return record;
   }
   void zombieOifSetDel(ZombieKey key) {
      auto const held = this->hold();
      zombieOifSet_.del(self(), key);
   }
   typename ZombieOifSetColl::Iterator zombieOifSetDel(typename ZombieOifSetColl::Iterator it) {
      return zombieOifSet_.del(self(), it);
   }
   void zombieOifSetDelAll() {
      auto const held = this->hold();
      zombieOifSet_.delAll(self());
   }
   void zombieOifSetNotify(ZombieKey key) { zombieOifSet_.notify(self(), key); }

   // Names the records whose oif set uses fast reroute; holds no record.
   RecordMap const& frrMtableOifSet() const { return frrMtableOifSet_.map(); }
   NamedRecord frrMtableOifSet(OifSetPtr const& s) const { return frrMtableOifSet_.value(s); }
   void frrMtableOifSetIs(OifSetPtr s, NamedRecord v) { frrMtableOifSet_.is(self(), s, v); }
   void frrMtableOifSetDel(OifSetPtr s) { frrMtableOifSet_.del(self(), s); }
   typename FrrMtableOifSetColl::Iterator frrMtableOifSetDel(
         typename FrrMtableOifSetColl::Iterator it) {
      return frrMtableOifSet_.del(self(), it);
   }
   void frrMtableOifSetDelAll() { frrMtableOifSet_.delAll(self()); }
   void frrMtableOifSetNotify(OifSetPtr s) { frrMtableOifSet_.notify(self(), s); }

   // Names the records that wait to be rewritten for fast reroute; holds no record.
   RecordMap const& frrProcessingOifSet() const { return frrProcessingOifSet_.map(); }
   NamedRecord frrProcessingOifSet(OifSetPtr const& s) const {
      return frrProcessingOifSet_.value(s);
   }
   void frrProcessingOifSetIs(OifSetPtr s, NamedRecord v) { frrProcessingOifSet_.is(self(), s, v); }
   void frrProcessingOifSetDel(OifSetPtr s) { frrProcessingOifSet_.del(self(), s); }
   typename FrrProcessingOifSetColl::Iterator frrProcessingOifSetDel(
         typename FrrProcessingOifSetColl::Iterator it) {
      return frrProcessingOifSet_.del(self(), it);
   }
   void frrProcessingOifSetDelAll() { frrProcessingOifSet_.delAll(self()); }
   void frrProcessingOifSetNotify(OifSetPtr s) { frrProcessingOifSet_.notify(self(), s); }

 protected:
   using Qor::Entity<Switch, Base>::Entity;
   ~OifSetTables() override = default;

   // Removes the record from zombieOifSet, so that a route may use the record again.
   void resurrect(RecordPtr const& record) {
      auto const held = this->hold();
      ZombieKey const key = record->zombie();
      zombieOifSet_.del(self(), key, record);
   }

   // Empties the collections that name records, at the end of the switch.
   void recordNamesDelAll() {
      inUseOifSetDelAll();
      frrMtableOifSetDelAll();
      frrProcessingOifSetDelAll();
   }

   // Detaches the records that outlive the switch. The switch calls it first in its destructor.
   void releaseRecords() { livingRecords_.releaseAll(); }

 private:
   template <class, class, class>
   friend class OifSetRecord;
   Switch& self() { return static_cast<Switch&>(*this); }
   // Keeps the entries that the maps find by a record which ends.
   void expel(Record& record) {
      if (record.inUsePlace() != Record::nowhere) inUseOifSet_.storage().expel(record);
      frrMtableOifSet_.storage().index().expel(record);
      frrProcessingOifSet_.storage().index().expel(record);
   }

   LivingRecords<Record, Switch> livingRecords_;
   InUseOifSetColl inUseOifSet_{InUseRecords<Record, Switch>(&livingRecords_)};
   ZombieOifSetColl zombieOifSet_;
   FrrMtableOifSetColl frrMtableOifSet_{RecordMap({&livingRecords_, Record::FrrMap::armed})};
   FrrProcessingOifSetColl frrProcessingOifSet_{
         RecordMap({&livingRecords_, Record::FrrMap::waiting})};
};

}  // namespace Vel
