// Two maps of the framework in one: from keys to numbers that a chip gives out, by hash, and from the
// numbers to keys, in their order. They are independent maps, but mostly they hold the same pairs the
// other way round, and then a pair is kept once: in a slot (Qor/Slab.h) that both lead to, by an index
// of hashes (Qor/HashIndex.h) and by a radix tree (Qor/NumberMap.h). A pair that only one of them holds
// has a slot to itself. So a pair is one cold line of memory where two maps would meet two, one after
// the other.
//
//  - Forward and Backward are the maps, as Qor::Collection has them. A pair is changed by assign().
//  - What find() and iterators give out refers into a slot: it lasts until its pair changes.
//  - The tree knows the hash of a number's key, too: looking a number up starts fetching what leaving
//    the forward map will need. The pair looked at last is remembered, so that the same key asked for
//    next, there or back, is not hashed again.
//  - Iteration forward is in an order that follows from the history alone; backward by number.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

#include "Qor/HashIndex.h"
#include "Qor/NumberMap.h"
#include "Qor/Slab.h"
#include "Qor/Types.h"

namespace Qor {

// `K` is hashed, `V` has value(), its number. Both are plain values, and may be copied at will.
template <class K, class V>
class PairTable {
   static_assert(std::is_trivially_copyable_v<K> && std::is_trivially_copyable_v<V>);
   static constexpr U32 none = HashIndex::nowhere;

   struct RawSlot {
      K key;
      V value;
      U32 hash = 0;
      U32 nextFree = 0;
      bool forward = false;  // which of the maps hold the pair
      bool backward = false;
   };
   // Where the pair of a number is, and the hash of its key.
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
   // Where a key stands in the index, or none; and its hash.
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
   // The slot of a pair that the other map has already, or a new one. It is the recent one then.
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
   // One of the maps has let go of the pair: the other holds it alone, or nobody does.
   void release(U32 number, RawSlot const& released) {
      if (released.forward || released.backward) {
         --joined_;
      } else {
         if (recent_ == number) recent_ = none;
         slots_.give(number);
      }
   }

   bool assignForward(K const& key, V value) {
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
         slot(before).forward = false;
         release(before, slot(before));
      }
      return true;
   }
   bool assignBackward(V value, K const& key) {
      auto const [place, made] = byNumber_.insert(value, Place{none, 0});
      U32 const before = place->second.slot;
      if (!made && slot(before).key == key) return false;
      U32 const number = joinForward(key, value);
      RawSlot& now = slot(number);
      now.backward = true;
      place->second = {number, now.hash};
      if (!made) {
         slot(before).backward = false;
         release(before, slot(before));
      }
      return true;
   }
   bool eraseForward(K const& key) {
      U32 const position = locate(key).position;
      if (position == none) return false;
      U32 const number = index_[position];
      index_.vacate(position);
      --forwardSize_;
      slot(number).forward = false;
      release(number, slot(number));
      return true;
   }
   bool eraseBackward(V value) {
      auto const place = byNumber_.take(value);
      if (!place) return false;
      slot(place->slot).backward = false;
      release(place->slot, slot(place->slot));
      return true;
   }

   Slots slots_;
   HashIndex index_;
   Tree byNumber_;
   U32 forwardSize_ = 0;
   U32 joined_ = 0;  // pairs that both maps hold
   mutable U32 recent_ = none;

   // What the two maps have in common: references to a pair, as they show it.
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
      // Inserts or replaces; false when the pair is there.
      bool assign(K const& key, V value) { return table_->assignForward(key, value); }
      bool erase(K const& key) { return table_->eraseForward(key); }
      // The first entry behind the place where `iterator` stood, whatever has been erased since.
      ConstIterator resume(ConstIterator iterator) const {
         return ConstIterator(table_, std::min(iterator.number_ + 1, table_->slots_.count()));
      }
      void clear() {
         HashIndex().swap(table_->index_);
         table_->forwardSize_ = 0;
         for (U32 number = 0; number < table_->slots_.count(); ++number) {
            RawSlot& leaving = table_->slot(number);
            if (std::exchange(leaving.forward, false)) table_->release(number, leaving);
         }
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
      // Inserts or replaces; false when the pair is there.
      bool assign(V value, K const& key) { return table_->assignBackward(value, key); }
      bool erase(V value) { return table_->eraseBackward(value); }
      void clear() {
         Tree const gone(std::move(table_->byNumber_));
         for (auto const& [value, place] : gone) {
            RawSlot& leaving = table_->slot(place.slot);
            leaving.backward = false;
            table_->release(place.slot, leaving);
         }
      }

    private:
      PairTable* const table_;
   };
};

}  // namespace Qor
