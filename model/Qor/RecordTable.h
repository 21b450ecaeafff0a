// Two maps of the framework that show one table of records. Forward maps keys to numbers that a chip
// assigns, and Backward maps the numbers to the keys. A record lies under its number in a
// Qor::NumberMap: the backward entry, and beside it the mark that the forward pair of the same
// number is there. A change of both maps misses the cache for one record and for one cell of the
// index of hashes (Qor/HashIndex.h), through which Forward finds the number of a key.
//
// The maps are independent of each other, and may contradict each other. A record has room for one
// key. A forward pair with another key than the record of its number lies apart, in a small map
// that is mostly empty.
//
//  - Forward and Backward are the two maps, for use in a Qor::Collection (Qor/Map.h). They refer to
//    the table, which outlives them.
//  - An entry of Backward keeps its address until it is erased. The references in a result of
//    Forward are valid until an operation changes or erases the pair or the record of its number.
//  - Forward iterates in the order of the numbers and then over the pairs that lie apart. Backward
//    iterates in the order of the numbers.
#pragma once

#include <cstddef>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

#include "Qor/HashIndex.h"
#include "Qor/HashMap.h"
#include "Qor/Map.h"
#include "Qor/NumberMap.h"
#include "Qor/Types.h"

namespace Qor {

// `K` can be hashed (Qor/Hash.h); `V` is a type whose value() returns its number.
template <class K, class V>
class RecordTable {
   static_assert(std::is_trivially_copyable_v<K> && std::is_trivially_copyable_v<V>);
   static constexpr U32 none = HashIndex::nowhere;

   // The mark of a record whose forward pair is there: the hash of the key.
   struct Hashed {
      U32 hash;
   };
   using Records = NumberMap<V, K, Hashed>;
   using Record = typename Records::Slot;
   using Apart = HashMap<K, V>;

   static K const& keyOf(Record& record) { return record.entry().second; }
   U32 locate(K const& key, U32 hash) const {
      return index_.locate(hash, [&](U32 n) { return keyOf(*records_.marked(n)) == key; });
   }
   // Enters a pair whose key is not in Forward. The number that a cell of the index cannot hold has
   // no room in the records.
   void enter(K const& key, V value, U32 hash) {
      bool const entered = value.value() != none &&
                           records_.mark(value, key, {hash},
                                         [&](auto const& entry) { return entry.second == key; });
      if (entered) {
         index_.insert(hash, value.value());
      } else {
         apart_.insert(key, value);
      }
   }
   // Removes the forward pair of a number. It is in a record.
   void leave(U32 position) {
      U32 const number = index_[position];
      index_.vacate(position);
      records_.unmark(number, [](Record&) { return true; });
   }
   // Removes the forward pair of a number if there is one in a record that satisfies goes(key).
   template <class Goes>
   bool leaveIf(V value, Goes const& goes) {
      U32 hash = 0;
      bool const left = records_.unmark(value.value(), [&](Record& record) {
         hash = record.mark.hash;
         return goes(keyOf(record));
      });
      if (left) index_.vacate(index_.locate(hash, value.value()));
      return left;
   }

   bool assignForward(K const& key, V& value) {
      U32 const hash = HashIndex::hash(key);
      U32 const position = locate(key, hash);
      std::optional<V> before;
      if (position != none) {
         before = V(index_[position]);
      } else if (!apart_.empty()) {
         if (auto const* const entry = apart_.find(key)) before = entry->second;
      }
      if (before == value) return false;
      if (position != none) {
         leave(position);
      } else if (before) {
         apart_.take(key);
      }
      enter(key, value, hash);
      if (before) value = *before;
      return true;
   }
   std::optional<V> takeForward(K const& key) {
      U32 const position = locate(key, HashIndex::hash(key));
      if (position == none) return apart_.empty() ? std::nullopt : apart_.take(key);
      V const value(index_[position]);
      leave(position);
      return value;
   }
   bool assignBackward(V value, K& there) {
      // The record's forward pair moves apart before the record takes another key.
      K key;
      bool const parts = leaveIf(value, [&](K const& present) {
         if (present == there) return false;
         key = present;
         return true;
      });
      if (parts) apart_.insert(key, value);
      return records_.assign(value, there);
   }

   Records records_;
   HashIndex index_;  // of the records with a forward pair
   Apart apart_;

 public:
   RecordTable() = default;
   RecordTable(RecordTable const&) = delete;
   RecordTable& operator=(RecordTable const&) = delete;

   class Forward {
    public:
      // References to the key and the number of a pair.
      struct Entry {
         K const& first;
         V const& second;
         Entry const* operator->() const { return this; }
      };
      using Key = K;
      using Value = V;
      static constexpr bool ordered = false;

      class ConstIterator {
       public:
         using iterator_category = std::input_iterator_tag;
         using value_type = Entry;
         using difference_type = std::ptrdiff_t;
         using pointer = Entry;
         using reference = Entry;

         ConstIterator() = default;
         Entry operator*() const {
            if (record_) return {keyOf(*record_), record_->entry().first};
            return {apart_->first, apart_->second};
         }
         Entry operator->() const { return **this; }
         ConstIterator& operator++() {
            if (record_) {
               seek(U64{number_} + 1);
            } else {
               ++apart_;
            }
            return *this;
         }
         bool operator==(ConstIterator const& other) const {
            return record_ == other.record_ && (record_ || apart_ == other.apart_);
         }

       private:
         friend class Forward;
         ConstIterator(RecordTable const* table, typename Apart::ConstIterator apart)
               : table_(table), apart_(apart) {}
         // Steps to the first pair whose number is not less than `number`. The pairs that lie apart
         // are behind the records.
         void seek(U64 number) {
            record_ = table_->records_.markedAtLeast(number);
            if (record_) {
               number_ = record_->entry().first.value();
            } else {
               apart_ = std::as_const(table_->apart_).begin();
            }
         }

         RecordTable const* table_ = nullptr;
         Record* record_ = nullptr;  // null behind the records
         U32 number_ = 0;            // of the record, which may have been erased
         typename Apart::ConstIterator apart_;
      };

      explicit Forward(RecordTable* table) : table_(table) {}

      U32 size() const { return table_->index_.size() + table_->apart_.size(); }
      bool empty() const { return size() == 0; }
      ConstIterator begin() const {
         ConstIterator at = end();
         at.seek(0);
         return at;
      }
      ConstIterator end() const { return {table_, std::as_const(table_->apart_).end()}; }
      std::optional<Entry> find(K const& key) const {
         U32 const position = table_->locate(key, HashIndex::hash(key));
         if (position != none) {
            Record& record = *table_->records_.marked(table_->index_[position]);
            return Entry{keyOf(record), record.entry().first};
         }
         auto const* const apart = table_->apart_.empty() ? nullptr : table_->apart_.find(key);
         return apart ? std::optional(Entry{apart->first, apart->second}) : std::nullopt;
      }
      bool assign(K const& key, V& value) { return table_->assignForward(key, value); }
      std::optional<V> take(K const& key) { return table_->takeForward(key); }
      // As take(key). `value` is the number that `key` most likely has: the operation then neither
      // hashes nor compares the key.
      std::optional<V> take(K const& key, V value) {
         bool const left = table_->leaveIf(value, [&](K const& present) { return present == key; });
         return left ? value : take(key);
      }
      // The position counts, not the key.
      ConstIterator resume(ConstIterator at, K const& key) const {
         if (at.record_) {
            ++at;
         } else {
            at.apart_ = table_->apart_.resume(at.apart_, key);
         }
         return at;
      }
      // Plain values need no owner.
      struct Removed {};
      Removed takeAll() {
         HashIndex().swap(table_->index_);
         for (U64 number = 0; Record* const record = table_->records_.markedAtLeast(number);) {
            number = record->entry().first.value();
            table_->records_.unmark(static_cast<U32>(number), [](Record&) { return true; });
         }
         table_->apart_.clear();
         return {};
      }

    private:
      RecordTable* const table_;
   };

   class Backward {
    public:
      using Key = V;
      using Value = K;
      using Entry = typename Records::Entry;
      using ConstIterator = typename Records::ConstIterator;
      static constexpr bool ordered = true;

      explicit Backward(RecordTable* table) : table_(table) {}

      U32 size() const { return records().size(); }
      bool empty() const { return records().empty(); }
      ConstIterator begin() const { return records().begin(); }
      ConstIterator end() const { return records().end(); }
      Entry const* find(V value) const { return records().find(value); }
      ConstIterator lowerBound(V value) const { return records().lowerBound(value); }
      ConstIterator upperBound(V value) const { return records().upperBound(value); }
      bool assign(V value, K& there) { return table_->assignBackward(value, there); }
      std::optional<K> take(V value) { return table_->records_.take(value); }
      ConstIterator resume(ConstIterator, V value) const { return upperBound(value); }
      auto takeAll() { return table_->records_.takeAll(); }

    private:
      Records const& records() const { return table_->records_; }

      RecordTable* const table_;
   };
};

}  // namespace Qor
