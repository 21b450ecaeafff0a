// Two maps of the framework that share their pairs: a hash map from keys to numbers that a chip
// assigns, and an ordered map from the numbers to the keys. The maps are independent of each other,
// but mostly hold the same pairs, one map the inverse of the other. A pair that both maps hold is
// stored once, in a slot (Qor/Slab.h) that is found through an index of hashes (Qor/HashIndex.h)
// and through a radix tree (Qor/NumberMap.h). A pair that one map holds alone has a slot of its
// own. An operation on both maps therefore misses the cache once per pair, instead of once per map.
//
//  - Forward and Backward are the two maps, for use in a Qor::Collection (Qor/Map.h).
//  - The references in a result of find() and in an iterator's entry refer into a slot. They are
//    valid until an operation changes or erases the pair.
//  - The tree holds the hash of each number's key. A look-up of a number can so start fetching the
//    cell of the index that an erasure of the same pair from the forward map reads next.
//  - The pair that was added last, or found by its number last, is remembered. The next operation
//    on its key does not hash the key again.
//  - Iteration of Forward is in an order that depends on the history of changes alone, iteration of
//    Backward in the order of the numbers.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

#include "Qor/HashIndex.h"
#include "Qor/Map.h"
#include "Qor/NumberMap.h"
#include "Qor/Slab.h"
#include "Qor/Types.h"

namespace Qor {

// `K` can be hashed (Qor/Hash.h); `V` is a type whose value() returns its number. The slots hold
// copies of both.
template <class K, class V>
class PairTable {
   static_assert(std::is_trivially_copyable_v<K> && std::is_trivially_copyable_v<V>);
   static constexpr U32 none = HashIndex::nowhere;

   struct RawSlot {
      K key;
      V value;
      U32 hash = 0;
      U32 nextFree = 0;
      bool forward = false;  // whether the forward and the backward map hold the pair
      bool backward = false;
   };
   // The slot of a number's pair, and the hash of its key.
   struct Place {
      U32 slot;
      U32 hash;
   };
   using Slots = Slab<RawSlot>;
   using Tree = NumberMap<V, Place>;

 public:
   class Forward;
   class Backward;

   PairTable() = default;
   PairTable(PairTable const&) = delete;
   PairTable& operator=(PairTable const&) = delete;

 private:
   RawSlot& slot(U32 number) const { return slots_[number]; }

   bool isRecent(K const& key) const { return recent_ != none && slot(recent_).key == key; }
   // The hash of a key, and its position in the index or none.
   struct Located {
      U32 hash;
      U32 position;
   };
   Located locate(K const& key) const {
      U32 hash;
      if (isRecent(key)) {
         RawSlot const& recent = slot(recent_);
         hash = recent.hash;
         if (recent.forward) return {hash, index_.locate(hash, recent_)};
      } else {
         hash = HashIndex::hash(key);
      }
      return {hash, index_.locate(hash, [&](U32 n) { return slot(n).key == key; })};
   }
   U32 make(K const& key, V value, U32 hash) {
      recent_ = slots_.take();
      RawSlot& made = slot(recent_);
      made.key = key;
      made.value = value;
      made.hash = hash;
      made.forward = made.backward = false;
      return recent_;
   }
   // The slot of the pair if the other map holds it, else a new slot. The slot becomes the recent
   // one.
   U32 joinBackward(K const& key, V value, U32 hash) {
      if (byNumber_.size() != joined_) {
         auto const* const place = byNumber_.find(value);
         if (place && slot(place->second.slot).key == key) {
            ++joined_;
            return recent_ = place->second.slot;
         }
      }
      return make(key, value, hash);
   }
   U32 joinForward(K const& key, V value) {
      U32 hash;
      if (isRecent(key) && slot(recent_).forward && slot(recent_).value == value) {
         ++joined_;
         return recent_;
      }
      if (forwardSize_ == joined_) {
         hash = HashIndex::hash(key);
      } else {
         auto const [h, position] = locate(key);
         hash = h;
         if (position != none && slot(index_[position]).value == value) {
            ++joined_;
            return recent_ = index_[position];
         }
      }
      return make(key, value, hash);
   }
   // After one map has erased the pair of slot `number`: the other map holds it alone, or the slot
   // is free.
   void release(U32 number, RawSlot const& released) {
      if (released.forward || released.backward) {
         --joined_;
      } else {
         if (recent_ == number) recent_ = none;
         slots_.give(number);
      }
   }

   bool assignForward(K const& key, V& value) {
      auto const [hash, position] = locate(key);
      U32 const before = position == none ? none : index_[position];
      if (before != none && slot(before).value == value) return false;
      U32 const number = joinBackward(key, value, hash);
      slot(number).forward = true;
      if (before == none) {
         index_.insert(hash, number);
         ++forwardSize_;
      } else {
         index_.replace(position, number);
         value = slot(before).value;
         slot(before).forward = false;
         release(before, slot(before));
      }
      return true;
   }
   bool assignBackward(V value, K& key) {
      auto const [place, made] = byNumber_.insert(value, Place{none, 0});
      U32 const before = place->second.slot;
      if (!made && slot(before).key == key) return false;
      U32 const number = joinForward(key, value);
      RawSlot& now = slot(number);
      now.backward = true;
      place->second = {number, now.hash};
      if (!made) {
         key = slot(before).key;
         slot(before).backward = false;
         release(before, slot(before));
      }
      return true;
   }
   std::optional<V> takeForward(K const& key) {
      U32 const position = locate(key).position;
      if (position == none) return std::nullopt;
      U32 const number = index_[position];
      index_.vacate(position);
      --forwardSize_;
      RawSlot& leaving = slot(number);
      std::optional<V> const value(leaving.value);
      leaving.forward = false;
      release(number, leaving);
      return value;
   }
   std::optional<K> takeBackward(V value) {
      auto const place = byNumber_.take(value);
      if (!place) return std::nullopt;
      RawSlot& leaving = slot(place->slot);
      std::optional<K> const key(leaving.key);
      leaving.backward = false;
      release(place->slot, leaving);
      return key;
   }

   Slots slots_;
   HashIndex index_;
   Tree byNumber_;
   U32 forwardSize_ = 0;
   U32 joined_ = 0;  // pairs that both maps hold
   mutable U32 recent_ = none;

   // The owner of removed entries: plain values need none.
   struct Removed {};

   // An entry of either map: references to the key and the value of a pair.
   template <class A, class B>
   struct Shown {
      A const& first;
      B const& second;
      Shown const* operator->() const { return this; }
   };

 public:
   // The map from keys to numbers.
   class Forward {
    public:
      using Key = K;
      using Value = V;
      using Entry = Shown<K, V>;
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
            return {table_->slot(number_).key, table_->slot(number_).value};
         }
         Entry operator->() const { return **this; }
         ConstIterator& operator++() {
            ++number_;
            skip();
            return *this;
         }
         bool operator==(ConstIterator const& other) const { return number_ == other.number_; }

       private:
         friend class Forward;
         ConstIterator(PairTable const* table, U32 number) : table_(table), number_(number) {
            skip();
         }
         void skip() {
            while (number_ < table_->slots_.count() && !table_->slot(number_).forward)
               ++number_;
         }

         PairTable const* table_ = nullptr;
         U32 number_ = 0;
      };

      explicit Forward(PairTable* table) : table_(table) {}

      U32 size() const { return table_->forwardSize_; }
      bool empty() const { return size() == 0; }
      ConstIterator begin() const { return ConstIterator(table_, 0); }
      ConstIterator end() const { return ConstIterator(table_, table_->slots_.count()); }
      std::optional<Entry> find(K const& key) const {
         U32 const position = table_->locate(key).position;
         if (position == none) return std::nullopt;
         RawSlot const& found = table_->slot(table_->index_[position]);
         return Entry{found.key, found.value};
      }
      bool assign(K const& key, V& value) { return table_->assignForward(key, value); }
      std::optional<V> take(K const& key) { return table_->takeForward(key); }
      // The position counts, not the key.
      ConstIterator resume(ConstIterator at, K const&) const {
         return ConstIterator(table_, std::min(at.number_ + 1, table_->slots_.count()));
      }
      Removed takeAll() {
         HashIndex().swap(table_->index_);
         table_->forwardSize_ = 0;
         for (U32 number = 0; number < table_->slots_.count(); ++number) {
            RawSlot& leaving = table_->slot(number);
            if (std::exchange(leaving.forward, false)) table_->release(number, leaving);
         }
         return {};
      }

    private:
      PairTable* const table_;
   };

   // The map from numbers to keys.
   class Backward {
    public:
      using Key = V;
      using Value = K;
      using Entry = Shown<V, K>;
      static constexpr bool ordered = true;

      class ConstIterator {
       public:
         using iterator_category = std::input_iterator_tag;
         using value_type = Entry;
         using difference_type = std::ptrdiff_t;
         using pointer = Entry;
         using reference = Entry;

         ConstIterator() = default;
         Entry operator*() const { return {at_->first, table_->slot(at_->second.slot).key}; }
         Entry operator->() const { return **this; }
         ConstIterator& operator++() {
            ++at_;
            return *this;
         }
         bool operator==(ConstIterator const& other) const { return at_ == other.at_; }

       private:
         friend class Backward;
         ConstIterator(PairTable const* table, typename Tree::ConstIterator at)
               : table_(table), at_(at) {}

         PairTable const* table_ = nullptr;
         typename Tree::ConstIterator at_;
      };

      explicit Backward(PairTable* table) : table_(table) {}

      U32 size() const { return table_->byNumber_.size(); }
      bool empty() const { return size() == 0; }
      ConstIterator begin() const { return {table_, std::as_const(table_->byNumber_).begin()}; }
      ConstIterator end() const { return {table_, std::as_const(table_->byNumber_).end()}; }
      std::optional<Entry> find(V value) const {
         auto const* const place = std::as_const(table_->byNumber_).find(value);
         if (!place) return std::nullopt;
         table_->index_.prefetch(place->second.hash);
         table_->recent_ = place->second.slot;
         RawSlot const& found = table_->slot(place->second.slot);
         __builtin_prefetch(&found);
         return Entry{place->first, found.key};
      }
      ConstIterator lowerBound(V value) const {
         return {table_, table_->byNumber_.lowerBound(value)};
      }
      ConstIterator upperBound(V value) const {
         return {table_, table_->byNumber_.upperBound(value)};
      }
      bool assign(V value, K& key) { return table_->assignBackward(value, key); }
      std::optional<K> take(V value) { return table_->takeBackward(value); }
      ConstIterator resume(ConstIterator, V value) const { return upperBound(value); }
      Removed takeAll() {
         Tree const gone(std::move(table_->byNumber_));
         for (auto const& [value, place] : gone) {
            RawSlot& leaving = table_->slot(place.slot);
            leaving.backward = false;
            table_->release(place.slot, leaving);
         }
         return {};
      }

    private:
      PairTable* const table_;
   };
};
static_assert(Map<PairTable<U32, U32>::Forward> && Map<PairTable<U32, U32>::Backward>);

}  // namespace Qor
