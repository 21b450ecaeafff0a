// Two maps of the framework that show one table of records. Forward maps keys to numbers that a chip
// assigns, and Backward maps the numbers to the keys. A record lies under its number in a
// Qor::NumberMap: the backward entry, and beside it the mark that the forward pair of the same
// number is there (Qor/RecordIndex.h).
//
// The maps are independent of each other, and may contradict each other.
//
//  - Forward and Backward are the two maps, for use in a Qor::Collection (Qor/Map.h). They refer to
//    the table, which outlives them.
//  - An entry of Backward keeps its address until it is erased.
//  - Backward iterates in the order of the numbers.
#pragma once

#include <optional>

#include "Qor/Map.h"
#include "Qor/NumberMap.h"
#include "Qor/RecordIndex.h"
#include "Qor/Types.h"

namespace Qor {

// `K` can be hashed (Qor/Hash.h); `V` is a type whose value() returns its number.
template <class K, class V>
class RecordTable {
   // The mark of a record: the hash of its key.
   struct Hashed {
      U32 hash;
   };
   using Map = NumberMap<V, K, Hashed>;

   // The records as the index sees them.
   class Records {
    public:
      using Key = K;
      using Number = V;
      using Record = typename Map::Slot;

      explicit Records(Map* map) : map_(map) {}
      static K const& keyOf(Record const& record) { return record.entry().second; }
      static V const& numberOf(Record const& record) { return record.entry().first; }
      static U32 hashOf(Record const& record) { return record.mark.hash; }
      Record* marked(U32 number) const { return map_->marked(number); }
      Record* markedAtLeast(U64 number) const { return map_->markedAtLeast(number); }
      bool mark(K const& key, V number, U32 hash) {
         return map_->mark(number, key, {hash},
                           [&](auto const& entry) { return entry.second == key; });
      }
      template <class Goes>
      bool unmark(U32 number, Goes const& goes) {
         return map_->unmark(number, goes);
      }

    private:
      Map* map_;
   };
   using Index = RecordIndex<Records>;

   Map map_;
   Index index_{Records(&map_)};

 public:
   RecordTable() = default;
   RecordTable(RecordTable const&) = delete;
   RecordTable& operator=(RecordTable const&) = delete;

   class Forward {
    public:
      using Key = K;
      using Value = V;
      using Entry = typename Index::Entry;
      using ConstIterator = typename Index::ConstIterator;
      static constexpr bool ordered = false;

      explicit Forward(RecordTable* table) : index_(&table->index_) {}

      U32 size() const { return index_->size(); }
      bool empty() const { return index_->empty(); }
      ConstIterator begin() const { return index_->begin(); }
      ConstIterator end() const { return index_->end(); }
      auto find(K const& key) const { return index_->find(key); }
      void prefetch(K const& key) const { index_->prefetch(key); }
      bool assign(K const& key, V& value) { return index_->assign(key, value); }
      std::optional<V> take(K const& key) { return index_->take(key); }
      std::optional<V> take(K const& key, V likely) { return index_->take(key, likely); }
      ConstIterator resume(ConstIterator at, K const& key) const { return index_->resume(at, key); }
      auto takeAll() { return index_->takeAll(); }

    private:
      Index* const index_;
   };

   class Backward {
    public:
      using Key = V;
      using Value = K;
      using Entry = typename Map::Entry;
      using ConstIterator = typename Map::ConstIterator;
      static constexpr bool ordered = true;

      explicit Backward(RecordTable* table) : table_(table) {}

      U32 size() const { return map().size(); }
      bool empty() const { return map().empty(); }
      ConstIterator begin() const { return map().begin(); }
      ConstIterator end() const { return map().end(); }
      Entry const* find(V value) const { return map().find(value); }
      ConstIterator lowerBound(V value) const { return map().lowerBound(value); }
      ConstIterator upperBound(V value) const { return map().upperBound(value); }
      bool assign(V value, K& there) {
         table_->index_.expel(value, [&](K const& present) { return !(present == there); });
         return table_->map_.assign(value, there);
      }
      std::optional<K> take(V value) { return table_->map_.take(value); }
      ConstIterator resume(ConstIterator, V value) const { return upperBound(value); }
      auto takeAll() { return table_->map_.takeAll(); }

    private:
      Map const& map() const { return table_->map_; }

      RecordTable* const table_;
   };
};

}  // namespace Qor
