// The hash map of the framework: a slab of entries with stable addresses (Qor/Slab.h) and a small
// open-addressing index (Qor/HashIndex.h).
//
//  - An entry keeps its address until it is erased.
//  - Iteration runs over the slab, which is fast. Its order depends on the history of insertions
//    and erasures alone, not on hashes or pointer values. An insertion reuses the slot freed last.
//  - Erasing an entry leaves iterators to other entries valid; an insertion may move end(). No
//    iterator is kept across a notification: a position that must survive one is a key.
//  - The destructor of an erased key or value may run code that uses the map. Such code finds the
//    map without the entry. It must not clear, swap or move the map while a key is being destroyed.
//  - A look-up reads cells of the index (8 bytes each, adjacent, mostly one) and then the entry.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <iterator>
#include <new>
#include <optional>
#include <utility>

#include "Qor/HashIndex.h"
#include "Qor/Map.h"
#include "Qor/Slab.h"
#include "Qor/Types.h"

namespace Qor {

template <class K, class V>
class HashMap {
   using Pair = std::pair<K const, V>;
   struct RawSlot {
      Pair& entry() { return *std::launder(reinterpret_cast<Pair*>(&storage)); }
      alignas(Pair) std::byte storage[sizeof(Pair)];
      U32 nextFree = 0;
      bool live = false;
   };
   using Slots = Slab<RawSlot>;
   using Slot = typename Slots::Slot;

 public:
   using Key = K;
   using Value = V;
   using Entry = Pair;
   static constexpr bool ordered = false;

   template <class E>
   class Cursor {
    public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = Entry;
      using difference_type = std::ptrdiff_t;
      using pointer = E*;
      using reference = E&;

      Cursor() = default;
      E& operator*() const { return slot_->entry(); }
      E* operator->() const { return &**this; }
      Cursor& operator++() {
         step();
         skipFree();
         return *this;
      }
      Cursor operator++(int) {
         Cursor const before = *this;
         ++*this;
         return before;
      }
      bool operator==(Cursor const& other) const { return number_ == other.number_; }

    private:
      friend class HashMap;
      Cursor(HashMap const* map, U32 number) : map_(map), number_(number) {
         if (number_ >= map_->slots_.count()) return;
         slot_ = &map_->slots_[number_];
         skipFree();
      }
      // Slots are adjacent except at the beginning of a chunk.
      void step() {
         ++number_;
         ++slot_;
         if (std::has_single_bit(number_ + Slots::firstChunk) && number_ < map_->slots_.count()) {
            slot_ = &map_->slots_[number_];
         }
      }
      void skipFree() {
         while (number_ < map_->slots_.count() && !slot_->live)
            step();
      }

      HashMap const* map_ = nullptr;
      Slot* slot_ = nullptr;  // of number_; not valid at the end
      U32 number_ = 0;
   };
   using Iterator = Cursor<Entry>;
   using ConstIterator = Cursor<Entry const>;

   HashMap() = default;
   HashMap(HashMap&& other) noexcept { swap(other); }
   HashMap& operator=(HashMap&& other) noexcept {
      HashMap taken(std::move(other));
      swap(taken);
      return *this;
   }
   ~HashMap() {
      for (U32 number = 0; number < slots_.count(); ++number) {
         Slot& s = slots_[number];
         if (s.live) s.entry().~Entry();
      }
   }

   U32 size() const { return size_; }
   bool empty() const { return size_ == 0; }

   Iterator begin() { return Iterator(this, 0); }
   Iterator end() { return Iterator(this, slots_.count()); }
   ConstIterator begin() const { return ConstIterator(this, 0); }
   ConstIterator end() const { return ConstIterator(this, slots_.count()); }

   // The entry of `key`, or null.
   Entry* find(K const& key) { return const_cast<Entry*>(std::as_const(*this).find(key)); }
   Entry const* find(K const& key) const {
      if (size_ == 0) return nullptr;
      U32 const position = locate(key, HashIndex::hash(key));
      if (position == HashIndex::nowhere) return nullptr;
      return &slots_[index_[position]].entry();
   }

   // Returns the entry of `key`, made from `value` if there was none, and whether it was made.
   std::pair<Entry*, bool> insert(K key, V value) { return findOrMake(std::move(key), value); }

   bool assign(K const& key, V& value) {
      auto const [entry, made] = findOrMake(key, value);
      return made || exchangeUnequal(entry->second, value);
   }

   std::optional<V> take(K const& key) {
      if (size_ == 0) return std::nullopt;
      U32 const position = locate(key, HashIndex::hash(key));
      if (position == HashIndex::nowhere) return std::nullopt;
      U32 const number = index_[position];
      index_.vacate(position);
      --size_;
      Slot& s = slots_[number];
      s.live = false;
      std::optional<V> value(std::move(s.entry().second));
      s.entry().~Entry();
      slots_.give(number);
      return value;
   }

   HashMap takeAll() { return std::move(*this); }
   void clear() { takeAll(); }

   // The position counts, not the key.
   ConstIterator resume(ConstIterator at, K const&) const {
      return ConstIterator(this, std::min(at.number_ + 1, slots_.count()));
   }

   void swap(HashMap& other) noexcept {
      slots_.swap(other.slots_);
      index_.swap(other.index_);
      std::swap(size_, other.size_);
   }

 private:
   // The entry of `key`, and whether it was made. Moves from `value` only to make the entry.
   template <class L>
   std::pair<Entry*, bool> findOrMake(L&& key, V& value) {
      U32 const hash = HashIndex::hash(key);
      U32 const position = locate(key, hash);
      if (position != HashIndex::nowhere) return {&slots_[index_[position]].entry(), false};
      U32 const number = slots_.take();
      Slot& s = slots_[number];
      ::new (&s.storage) Entry(std::forward<L>(key), std::move(value));
      s.live = true;
      index_.insert(hash, number);
      ++size_;
      return {&s.entry(), true};
   }
   U32 locate(K const& key, U32 hash) const {
      return index_.locate(hash, [&](U32 n) { return slots_[n].entry().first == key; });
   }

   Slots slots_;
   HashIndex index_;
   U32 size_ = 0;
};
static_assert(Map<HashMap<U32, U32>>);

}  // namespace Qor
