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
//
// `Index` is Qor::HashIndex, or a class with the same probe(), find(), take(), insert() and clear()
// that leads from a key to the number of its entry by other means.
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

template <class K, class V, class Index = HashIndex>
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
   explicit HashMap(Index index) : index_(std::move(index)) {}
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
      U32 const number = numberOf(key);
      return number == HashIndex::nowhere ? nullptr : &slots_[number].entry();
   }

   // The first position from `at` on with wanted(entry); end() if there is none.
   template <class Wanted>
   ConstIterator seek(ConstIterator at, Wanted const& wanted) const {
      for (U32 number = at.number_; number < slots_.count();) {
         // The slots of a chunk are adjacent.
         U32 const nextChunk = 2 * std::bit_floor(number + Slots::firstChunk) - Slots::firstChunk;
         U32 const behind = std::min(nextChunk, slots_.count());
         for (Slot* slot = &slots_[number]; number < behind; ++number, ++slot) {
            if (slot->live && wanted(slot->entry())) return ConstIterator(this, number);
         }
      }
      return end();
   }

   // The position of the entry of `key`; end() if there is none.
   ConstIterator position(K const& key) const {
      U32 const number = numberOf(key);
      return number == HashIndex::nowhere ? end() : ConstIterator(this, number);
   }

   // Returns the entry of `key`, made from `value` if there was none, and whether it was made.
   std::pair<Entry*, bool> insert(K key, V value) { return findOrMake(std::move(key), value); }

   bool assign(K const& key, V& value) {
      auto const [entry, made] = findOrMake(key, value);
      return made || exchangeUnequal(entry->second, value);
   }

   std::optional<V> take(K const& key) {
      if (size_ == 0) return std::nullopt;
      U32 const number = index_.take(Index::probe(key), isUnder(key));
      if (number == HashIndex::nowhere) return std::nullopt;
      --size_;
      Slot& s = slots_[number];
      s.live = false;
      std::optional<V> value(std::move(s.entry().second));
      s.entry().~Entry();
      slots_.give(number);
      return value;
   }

   HashMap takeAll() {
      index_.clear(*this);
      HashMap taken;
      taken.slots_.swap(slots_);
      std::swap(taken.size_, size_);
      return taken;
   }
   void clear() { takeAll(); }

   // The position counts, not the key.
   ConstIterator resume(ConstIterator at, K const&) const {
      return ConstIterator(this, std::min(at.number_ + 1, slots_.count()));
   }

   Index& index() { return index_; }

   void swap(HashMap& other) noexcept {
      slots_.swap(other.slots_);
      index_.swap(other.index_);
      std::swap(size_, other.size_);
   }

 private:
   // The entry of `key`, and whether it was made. Moves from `value` only to make the entry.
   template <class L>
   std::pair<Entry*, bool> findOrMake(L&& key, V& value) {
      auto const probe = Index::probe(key);
      U32 const present = index_.find(probe, isUnder(key));
      if (present != HashIndex::nowhere) return {&slots_[present].entry(), false};
      U32 const number = slots_.take();
      Slot& s = slots_[number];
      ::new (&s.storage) Entry(std::forward<L>(key), std::move(value));
      s.live = true;
      index_.insert(probe, number);
      ++size_;
      return {&s.entry(), true};
   }
   auto isUnder(K const& key) const {
      return [this, &key](U32 number) { return slots_[number].entry().first == key; };
   }
   U32 numberOf(K const& key) const {
      return size_ == 0 ? HashIndex::nowhere : index_.find(Index::probe(key), isUnder(key));
   }

   Slots slots_;
   Index index_;
   U32 size_ = 0;
};
static_assert(Map<HashMap<U32, U32>>);

}  // namespace Qor
