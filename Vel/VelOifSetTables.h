// The collections of oif set records that the table programmers of both paths keep, with the same
// names and the same meaning. A programmer derives from OifSetTables, and its Notifiee from
// OifSetTablesNotifiee.
#pragma once

#include <utility>
#include <vector>

#include "Qor/Collection.h"
#include "Qor/QueueMap.h"
#include "Vel/VelOifSetRecord.h"

namespace Vel {

// What is told of these collections.
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

// `Base` is the programmer's interface, `Record` its kind of records. `Switch` has a `typeName`.
template <class Switch, class Base, class Record, class ZombieKey>
class OifSetTables : public Qor::Entity<Switch, Base> {
   using Told = OifSetTablesNotifiee<Switch, ZombieKey>;

 public:
   using OifSetPtr = MrouteLib::OifSetPtr;
   using RecordPtr = Qor::Ptr<Record>;
   using NamedRecord = RecordName<Record>;
   using RecordMap = Qor::HashMap<OifSetPtr, NamedRecord>;
   using InUseOifSetColl =
         Qor::Collection<RecordMap, &Told::onInUseOifSet, &Told::onInUseOifSetImmediate>;
   using ZombieOifSetColl = Qor::Collection<Qor::QueueMap<ZombieKey, RecordPtr>,
                                            &Told::onZombieOifSet, &Told::onZombieOifSetImmediate>;
   using FrrMtableOifSetColl =
         Qor::Collection<RecordMap, &Told::onFrrMtableOifSet, &Told::onFrrMtableOifSetImmediate>;
   using FrrProcessingOifSetColl = Qor::Collection<RecordMap, &Told::onFrrProcessingOifSet,
                                                   &Told::onFrrProcessingOifSetImmediate>;

   // The record `named` under `oifSet` in one of the collections, if it still lives; else null.
   RecordPtr record(OifSetPtr const& oifSet, NamedRecord named) const {
      return livingRecords_.find(oifSet, named);
   }
   // All living records that carry `oifSet`, the newest first: more than one where a dirty or a
   // non-reusable record has been replaced while routes still used it.
   std::vector<RecordPtr> records(OifSetPtr const& oifSet) const {
      return livingRecords_.all(oifSet);
   }
   // The living in-use record of `oifSet`, zombies included; else null.
   RecordPtr inUseRecord(OifSetPtr const& oifSet) const { return livingRecords_.inUse(oifSet); }

   // The latest record of each oif set, zombies included; not counted.
   RecordMap const& inUseOifSet() const { return inUseOifSet_.map(); }
   NamedRecord inUseOifSet(OifSetPtr const& s) const { return inUseOifSet_.value(s); }
   void inUseOifSetIs(OifSetPtr s, NamedRecord v) {
      livingRecords_.inUseIs(s, v);
      inUseOifSet_.is(self(), s, v);
   }
   void inUseOifSetDel(OifSetPtr s) {
      livingRecords_.inUseIs(s, nullptr);
      inUseOifSet_.del(self(), s);
   }
   typename InUseOifSetColl::Iterator inUseOifSetDel(typename InUseOifSetColl::Iterator it) {
      livingRecords_.inUseIs(it->first, nullptr);
      return inUseOifSet_.del(self(), it);
   }
   void inUseOifSetDelAll() {
      for (auto const& [oifSet, named] : inUseOifSet())
         livingRecords_.inUseIs(oifSet, nullptr);
      inUseOifSet_.delAll(self());
   }
   void inUseOifSetNotify(OifSetPtr s) { inUseOifSet_.notify(self(), s); }

   // The zombies, the next to expire first. An entry keeps its record alive; removing it may free
   // the record before the operation returns, which needs the switch.
   typename ZombieOifSetColl::Map const& zombieOifSet() const { return zombieOifSet_.map(); }
   RecordPtr zombieOifSet(ZombieKey const& key) const { return zombieOifSet_.value(key); }
   // Under the record's own zombie key. A null record raises the range error of null parameters
   // (Qor::throwNullParameter).
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

   // Records whose oif set uses fast reroute; not counted.
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

   // Records that wait to be rewritten for fast reroute; not counted.
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

   // Takes a zombie back.
   void resurrect(Record const& record) {
      zombieOifSet_.map().expect(record.queuePlace());
      zombieOifSetDel(record.zombie());
   }

   // For the end of the switch: the records that others hold are named no more.
   void recordNamesDelAll() {
      inUseOifSetDelAll();
      frrMtableOifSetDelAll();
      frrProcessingOifSetDelAll();
   }

   // The records that outlive the switch belong to nobody from now on. First in its destructor.
   void releaseRecords() { livingRecords_.releaseAll(); }

 private:
   template <class, class, class>
   friend class OifSetRecord;
   Switch& self() { return static_cast<Switch&>(*this); }

   LivingRecords<Record, Switch> livingRecords_;
   InUseOifSetColl inUseOifSet_;
   ZombieOifSetColl zombieOifSet_;
   FrrMtableOifSetColl frrMtableOifSet_;
   FrrProcessingOifSetColl frrProcessingOifSet_;
};

}  // namespace Vel
