// The map behind inUseOifSet: it names the latest record of each oif set, and holds no record.
//
// The pair of an oif set and its latest record lies in the record itself while the record lives. The
// map finds the pair through the record chain of the set (Vel/VelOifSetRecord.h), so that a look-up
// reads the set and the record alone. All other pairs lie apart, in a small map that is mostly
// empty: the name of a record that has ended, and the name of a record of another set or of another
// programmer.
//
//  - The references in an entry are valid until an operation changes or erases the pair, or the
//    record ends.
//  - The order of an iteration depends on the history of insertions and erasures alone. Pairs that
//    lie apart come last.
//  - An erasure leaves iterators to other entries valid.
#pragma once

#include <cstddef>
#include <iterator>
#include <optional>
#include <utility>

#include "Qor/HashMap.h"
#include "Qor/Map.h"
#include "Qor/Slab.h"
#include "Vel/VelOifSetRecord.h"

namespace Vel {

template <class Record, class Switch>
class InUseRecords {
   using Living = LivingRecords<Record, Switch>;
   using Apart = Qor::HashMap<MrouteLib::OifSetPtr, RecordName<Record>>;
   // A place of a record in the iteration; the record is null at a free place.
   struct Cell {
      Record* record = nullptr;
      Qor::U32 nextFree = 0;
   };

 public:
   using Key = MrouteLib::OifSetPtr;
   using Value = RecordName<Record>;
   static constexpr bool ordered = false;
   using Entry = Qor::EntryRef<Key, Value>;

   class ConstIterator {
    public:
      using iterator_category = std::input_iterator_tag;
      using value_type = Entry;
      using difference_type = std::ptrdiff_t;
      using pointer = Entry;
      using reference = Entry;

      ConstIterator() = default;
      Entry operator*() const {
         if (place_ < map_->places_.count()) return entryOf(*map_->places_[place_].record);
         return {apart_->first, apart_->second};
      }
      Entry operator->() const { return **this; }
      ConstIterator& operator++() {
         if (place_ < map_->places_.count()) {
            ++place_;
            skipFree();
         } else {
            ++apart_;
         }
         return *this;
      }
      bool operator==(ConstIterator const& other) const {
         return place_ == other.place_ && apart_ == other.apart_;
      }

    private:
      friend class InUseRecords;
      ConstIterator(InUseRecords const* map, Qor::U32 place, typename Apart::ConstIterator apart)
            : map_(map), place_(place), apart_(apart) {
         skipFree();
      }
      void skipFree() {
         while (place_ < map_->places_.count() && !map_->places_[place_].record)
            ++place_;
      }

      InUseRecords const* map_ = nullptr;
      Qor::U32 place_ = 0;                   // behind all places: `apart_` is the position
      typename Apart::ConstIterator apart_;  // the first, until the iterator is behind all places
   };

   explicit InUseRecords(Living const* living) : living_(living) {}

   Qor::U32 size() const { return listed_ + apart_.size(); }
   bool empty() const { return size() == 0; }
   ConstIterator begin() const { return {this, 0, std::as_const(apart_).begin()}; }
   ConstIterator end() const { return {this, places_.count(), std::as_const(apart_).end()}; }

   // The record that is named under this oif set if the record lives, else null.
   Record* record(Key const& oifSet) const {
      Record* const listed = listedOf(oifSet);
      if (listed || apart_.empty()) return listed;
      auto const* const entry = apart_.find(oifSet);
      return entry && entry->second ? living_->find(oifSet, entry->second) : nullptr;
   }
   std::optional<Entry> find(Key const& oifSet) const {
      if (Record const* const listed = listedOf(oifSet)) return entryOf(*listed);
      auto const* const entry = apart_.empty() ? nullptr : apart_.find(oifSet);
      return entry ? std::optional(Entry{entry->first, entry->second}) : std::nullopt;
   }
   bool assign(Key const& oifSet, Value& value) {
      std::optional<Value> before;
      if (auto const entry = find(oifSet)) before = entry->second;
      if (before == value) return false;
      if (before) take(oifSet);
      if (Record* const named = value ? living_->find(oifSet, value) : nullptr) {
         Qor::U32 const place = places_.take();
         places_[place].record = named;
         named->inUsePlaceIs(place);
         ++listed_;
      } else {
         apart_.insert(oifSet, value);
      }
      if (before) value = *before;
      return true;
   }
   std::optional<Value> take(Key const& oifSet) {
      Record* const listed = listedOf(oifSet);
      if (!listed) return apart_.empty() ? std::nullopt : apart_.take(oifSet);
      remove(*listed);
      return listed->recordName();
   }
   Apart takeAll() {
      for (Qor::U32 place = 0; place < places_.count(); ++place) {
         if (Record* const listed = places_[place].record) remove(*listed);
      }
      return apart_.takeAll();
   }
   // The position counts, not the key.
   ConstIterator resume(ConstIterator at, Key const& oifSet) const {
      if (at.place_ < places_.count()) return {this, at.place_ + 1, std::as_const(apart_).begin()};
      return {this, places_.count(), apart_.resume(at.apart_, oifSet)};
   }

   // Moves the pair out of a record that ends.
   void expel(Record& record) {
      apart_.insert(record.oifSet_, record.name_);
      remove(record);
   }

 private:
   static Entry entryOf(Record const& record) { return {record.oifSet_, record.name_}; }
   Record* listedOf(Key const& oifSet) const {
      return living_->find(oifSet, [](Record const& record) {
         return record.inUsePlace() != MrouteLib::OifSetCarrier::nowhere;
      });
   }
   void remove(Record& record) {
      Qor::U32 const place = record.inUsePlace();
      record.inUsePlaceIs(MrouteLib::OifSetCarrier::nowhere);
      places_[place].record = nullptr;
      places_.give(place);
      --listed_;
   }

   Living const* living_;
   Qor::Slab<Cell> places_;
   Qor::U32 listed_ = 0;
   Apart apart_;
};

}  // namespace Vel
