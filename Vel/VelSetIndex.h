// The index of a map of oif sets (Qor/HashMap.h) that needs no table: the number of an entry lies in
// one of the set's living records, and the record chain of the set leads to it. A change of the map
// therefore reads the set and the record alone, which its caller has just read. The entries of sets
// without a living record of the programmer are in a small hash index.
#pragma once

#include <utility>

#include "Qor/HashIndex.h"
#include "Vel/VelOifSetRecord.h"

namespace Vel {

template <class Record, class Switch>
class SetIndex {
   using Living = LivingRecords<Record, Switch>;
   using FrrMap = MrouteLib::OifSetCarrier::FrrMap;
   using HashIndex = Qor::HashIndex;
   static constexpr Qor::U32 nowhere = HashIndex::nowhere;
   static_assert(nowhere == MrouteLib::OifSetCarrier::nowhere);

 public:
   // Without a programmer, for a map that has only the entries which were taken from another map.
   SetIndex() = default;
   SetIndex(Living const* living, FrrMap map) : living_(living), map_(map) {}

   static MrouteLib::OifSetPtr const& probe(MrouteLib::OifSetPtr const& oifSet) { return oifSet; }
   template <class Same>
   Qor::U32 find(MrouteLib::OifSetPtr const& oifSet, Same const& same) const {
      if (Record* const record = holderOf(oifSet)) return record->frrEntry(map_);
      return apart_.find(HashIndex::hash(oifSet), same);
   }
   template <class Same>
   Qor::U32 take(MrouteLib::OifSetPtr const& oifSet, Same const& same) {
      if (Record* const record = holderOf(oifSet)) {
         return std::exchange(record->frrEntry(map_), nowhere);
      }
      return apart_.take(HashIndex::hash(oifSet), same);
   }
   void insert(MrouteLib::OifSetPtr const& oifSet, Qor::U32 number) {
      if (Record* const record = living_->find(oifSet, [](Record const&) { return true; })) {
         record->frrEntry(map_) = number;
      } else {
         apart_.insert(HashIndex::hash(oifSet), number);
      }
   }
   template <class Map>
   void clear(Map const& map) {
      for (auto const& [oifSet, value] : map) {
         if (Record* const record = holderOf(oifSet)) record->frrEntry(map_) = nowhere;
      }
      HashIndex().swap(apart_);
   }
   // Moves the number out of a record that ends.
   void expel(Record& record) {
      Qor::U32 const number = std::exchange(record.frrEntry(map_), nowhere);
      if (number != nowhere) apart_.insert(HashIndex::hash(&record.carried()), number);
   }
   void swap(SetIndex& other) noexcept {
      std::swap(living_, other.living_);
      std::swap(map_, other.map_);
      apart_.swap(other.apart_);
   }

 private:
   Record* holderOf(MrouteLib::OifSetPtr const& oifSet) const {
      return living_->find(oifSet,
                           [this](Record& record) { return record.frrEntry(map_) != nowhere; });
   }

   Living const* living_ = nullptr;
   FrrMap map_{};
   HashIndex apart_;
};

}  // namespace Vel
