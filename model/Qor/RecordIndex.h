// A map from keys to the numbers of records that hold the keys themselves. The index of hashes
// (Qor/HashIndex.h) leads from a key to its record, and the record stores the hash. A change
// therefore misses the cache for the record and for one cell of the index, and a removal by number
// does not hash the key.
//
// The records belong to another map, which may change independently of this map. A record has room
// for one pair: its own key and its own number. The mark of a record states that the map has this
// pair. All other pairs lie apart, in a small map that is mostly empty. The owner of the records
// calls expel() before a record leaves or takes another key.
//
// The references in a result of find() are valid until an operation changes or erases the pair or
// its record. Iteration is in the order of the numbers and then over the pairs that lie apart.
#pragma once

#include <cstddef>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

#include "Qor/HashIndex.h"
#include "Qor/HashMap.h"
#include "Qor/Map.h"
#include "Qor/Types.h"

namespace Qor {

// `Records` gives access to the records, and a copy of `Records` refers to the same records:
//
//  - Records::Key, Records::Number: the type of the keys, which can be hashed (Qor/Hash.h), and the
//    type of the numbers, whose value() is a U32;
//  - Records::Record, keyOf(record), numberOf(record), hashOf(record): the parts of a record;
//  - marked(number), markedAtLeast(number): the marked record with this number, or the first one
//    with a number that is not less; null without one;
//  - mark(key, number, hash): marks the record of this number if it has room for the pair, and
//    returns whether the record was marked;
//  - unmark(number, goes): removes the mark of the record with this number if there is a marked
//    record that satisfies goes(record), and returns whether the mark was removed.
template <class Records>
class RecordIndex {
   using Record = typename Records::Record;
   static constexpr U32 none = HashIndex::nowhere;

 public:
   using Key = typename Records::Key;
   using Value = typename Records::Number;
   static_assert(std::is_trivially_copyable_v<Key> && std::is_trivially_copyable_v<Value>);
   static constexpr bool ordered = false;

   using Entry = EntryRef<Key, Value>;

 private:
   using Apart = HashMap<Key, Value>;
   static Entry entryOf(Record const& record) {
      return {Records::keyOf(record), Records::numberOf(record)};
   }

 public:
   class ConstIterator {
    public:
      using iterator_category = std::input_iterator_tag;
      using value_type = Entry;
      using difference_type = std::ptrdiff_t;
      using pointer = Entry;
      using reference = Entry;

      ConstIterator() = default;
      Entry operator*() const {
         if (record_) return entryOf(*record_);
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
      friend class RecordIndex;
      ConstIterator(RecordIndex const* index, typename Apart::ConstIterator apart)
            : index_(index), apart_(apart) {}
      // Steps to the first pair whose number is not less than `number`. The pairs that lie apart
      // are behind the records.
      void seek(U64 number) {
         record_ = index_->records_.markedAtLeast(number);
         if (record_) {
            number_ = Records::numberOf(*record_).value();
         } else {
            apart_ = std::as_const(index_->apart_).begin();
         }
      }

      RecordIndex const* index_ = nullptr;
      Record const* record_ = nullptr;  // null behind the records
      U32 number_ = 0;                  // of the record, which may have been erased
      typename Apart::ConstIterator apart_;
   };

   explicit RecordIndex(Records records) : records_(std::move(records)) {}

   U32 size() const { return cells_.size() + apart_.size(); }
   bool empty() const { return size() == 0; }
   ConstIterator begin() const {
      ConstIterator at = end();
      at.seek(0);
      return at;
   }
   ConstIterator end() const { return {this, std::as_const(apart_).end()}; }

   std::optional<Entry> find(Key const& key) const {
      Record const* found = nullptr;
      cells_.locate(HashIndex::hash(key), [&](U32 number) {
         Record const* const record = records_.marked(number);
         bool const same = Records::keyOf(*record) == key;
         if (same) found = record;
         return same;
      });
      if (found) return entryOf(*found);
      auto const* const apart = apart_.empty() ? nullptr : apart_.find(key);
      return apart ? std::optional(Entry{apart->first, apart->second}) : std::nullopt;
   }

   // Fetches the cell of the index that the next operation with `key` reads first.
   void prefetch(Key const& key) const { cells_.prefetch(HashIndex::hash(key)); }

   bool assign(Key const& key, Value& value) {
      U32 const hash = HashIndex::hash(key);
      U32 const position = locate(key, hash);
      std::optional<Value> before;
      if (position != none) {
         before = Value(cells_[position]);
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

   std::optional<Value> take(Key const& key) {
      U32 const position = locate(key, HashIndex::hash(key));
      if (position == none) return apart_.empty() ? std::nullopt : apart_.take(key);
      Value const value(cells_[position]);
      leave(position);
      return value;
   }
   // As take(key). `likely` is the number that `key` most likely has: the operation then neither
   // hashes the key nor searches for its record. It does not read a key that is the record's own.
   std::optional<Value> take(Key const& key, Value likely) {
      bool const left =
            leaveIf(likely, [&](Key const& present) { return &present == &key || present == key; });
      return left ? likely : take(key);
   }

   // The position counts, not the key.
   ConstIterator resume(ConstIterator at, Key const& key) const {
      if (at.record_) {
         ++at;
      } else {
         at.apart_ = apart_.resume(at.apart_, key);
      }
      return at;
   }

   // Plain values need no owner.
   struct Removed {};
   Removed takeAll() {
      HashIndex().swap(cells_);
      for (U64 number = 0; auto const* const record = records_.markedAtLeast(number); ++number) {
         number = Records::numberOf(*record).value();
         records_.unmark(static_cast<U32>(number), [](Record const&) { return true; });
      }
      apart_.clear();
      return {};
   }

   // Moves the pair in the record of `number` apart, if the record has a pair whose key satisfies
   // goes(key).
   template <class Goes>
   void expel(Value number, Goes const& goes) {
      Key key;
      bool const left = leaveIf(number, [&](Key const& present) {
         key = present;
         return goes(present);
      });
      if (left) apart_.insert(key, number);
   }

 private:
   U32 locate(Key const& key, U32 hash) const {
      return cells_.locate(
            hash, [&](U32 number) { return Records::keyOf(*records_.marked(number)) == key; });
   }
   // Enters a pair whose key is not in the map. No cell of the index can hold the number `none`.
   void enter(Key const& key, Value value, U32 hash) {
      if (value.value() != none && records_.mark(key, value, hash)) {
         cells_.insert(hash, value.value());
      } else {
         apart_.insert(key, value);
      }
   }
   // Removes the pair of the record at a position of the index.
   void leave(U32 position) {
      U32 const number = cells_[position];
      cells_.vacate(position);
      records_.unmark(number, [](Record const&) { return true; });
   }
   // Removes the pair in the record of `number` if its key satisfies goes(key).
   template <class Goes>
   bool leaveIf(Value number, Goes const& goes) {
      U32 hash = 0;
      bool const left = records_.unmark(number.value(), [&](Record const& record) {
         hash = Records::hashOf(record);
         return goes(Records::keyOf(record));
      });
      if (left) cells_.vacate(cells_.locate(hash, number.value()));
      return left;
   }

   Records records_;
   HashIndex cells_;  // of the marked records
   Apart apart_;
};

}  // namespace Qor
