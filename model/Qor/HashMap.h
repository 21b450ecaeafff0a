// The hash map of the framework: a slab of entries with stable addresses (Qor/Slab.h), and a small
// open-addressing index over it (Qor/HashIndex.h).
//
//  - An entry keeps its address until it is erased.
//  - Iteration runs over the slab: it is fast, and its order follows from the history of
//    insertions and erasures alone, never from hashes or pointer values. A freed slot is reused by
//    the next insertion.
//  - Erasing an entry leaves iterators to other entries valid; an insertion moves end().
//    Iterators are not held across a notification: a position that must survive is a key.
//  - Letting go of a key or a value may run code that comes back here: it finds the map without
//    the entry. It may do anything but clear, swap or move a map whose key is just being erased.
//  - Look-up touches the index (a tag and a slot number, 8 bytes) and then the entry it finds.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <iterator>
#include <new>
#include <optional>
#include <utility>

#include "Qor/HashIndex.h"
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
      // Slots lie side by side but where a chunk begins.
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
      Slot* slot_ = nullptr;  // dangles at the end
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

   Entry* find(K const& key) { return const_cast<Entry*>(std::as_const(*this).find(key)); }
   // The entry found last is tried first: the vlan of one interface is asked for route after route.
   Entry const* find(K const& key) const {
      if (recent_ && recent_->first == key) return recent_;
      if (size_ == 0) return nullptr;
      U32 const position = locate(key, HashIndex::hash(key));
      if (position == HashIndex::nowhere) return nullptr;
      return recent_ = &slots_[index_[position]].entry();
   }

   // The entry under `key`, made from `value` if there was none; and whether it was made.
   std::pair<Entry*, bool> insert(K key, V value) {
      U32 const hash = HashIndex::hash(key);
      U32 const position = locate(key, hash);
      if (position != HashIndex::nowhere) return {&slots_[index_[position]].entry(), false};
      U32 const number = slots_.take();
      Slot& s = slots_[number];
      ::new (&s.storage) Entry(std::move(key), std::move(value));
      s.live = true;
      index_.insert(hash, number);
      ++size_;
      return {&s.entry(), true};
   }

   // Erases the entry and hands out its value, so that the caller decides when the value dies.
   std::optional<V> take(K const& key) {
      if (size_ == 0) return std::nullopt;
      U32 const position = locate(key, HashIndex::hash(key));
      if (position == HashIndex::nowhere) return std::nullopt;
      U32 const number = index_[position];
      index_.vacate(position);
      --size_;
      recent_ = nullptr;
      Slot& s = slots_[number];
      s.live = false;
      std::optional<V> value(std::move(s.entry().second));
      s.entry().~Entry();
      slots_.give(number);
      return value;
   }

   // The first entry behind the place where `iterator` stood, whatever has been erased since.
   ConstIterator resume(ConstIterator iterator) const {
      return ConstIterator(this, std::min(iterator.number_ + 1, slots_.count()));
   }

   void clear() { HashMap const gone(std::move(*this)); }

   void swap(HashMap& other) noexcept {
      slots_.swap(other.slots_);
      index_.swap(other.index_);
      std::swap(size_, other.size_);
      recent_ = other.recent_ = nullptr;
   }

 private:
   U32 locate(K const& key, U32 hash) const {
      return index_.locate(hash, [&](U32 n) { return slots_[n].entry().first == key; });
   }

   Slots slots_;
   HashIndex index_;
   U32 size_ = 0;
   mutable Entry const* recent_ = nullptr;
};

}  // namespace Qor
