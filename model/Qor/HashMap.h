// The hash map of the framework: a slab of entries with stable addresses, and a small
// open-addressing index over it.
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
#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "Qor/Assert.h"
#include "Qor/Hash.h"
#include "Qor/Pool.h"
#include "Qor/Types.h"

namespace Qor {

template <class K, class V>
class HashMap {
   struct Slot;

 public:
   using Key = K;
   using Value = V;

   using Entry = std::pair<K const, V>;

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
         if (number_ >= map_->slotCount_) return;
         slot_ = &map_->slot(number_);
         skipFree();
      }
      // Slots lie side by side but where a chunk begins.
      void step() {
         ++number_;
         ++slot_;
         if (std::has_single_bit(number_ + firstChunk) && number_ < map_->slotCount_) {
            slot_ = &map_->slot(number_);
         }
      }
      void skipFree() {
         while (number_ < map_->slotCount_ && !slot_->live)
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
      for (U32 number = 0; number < slotCount_; ++number) {
         Slot& s = slot(number);
         if (s.live) s.entry().~Entry();
      }
   }

   U32 size() const { return size_; }
   bool empty() const { return size_ == 0; }

   Iterator begin() { return Iterator(this, 0); }
   Iterator end() { return Iterator(this, slotCount_); }
   ConstIterator begin() const { return ConstIterator(this, 0); }
   ConstIterator end() const { return ConstIterator(this, slotCount_); }

   Entry* find(K const& key) { return const_cast<Entry*>(std::as_const(*this).find(key)); }
   Entry const* find(K const& key) const {
      if (size_ == 0) return nullptr;
      U32 const position = locate(key, hash32(key));
      return position == nowhere ? nullptr : &slot(index_[position].slot - 1).entry();
   }

   // The entry under `key`, made from `value` if there was none; and whether it was made.
   std::pair<Entry*, bool> insert(K key, V value) {
      U32 const hash = hash32(key);
      if (size_ != 0) {
         U32 const position = locate(key, hash);
         if (position != nowhere) return {&slot(index_[position].slot - 1).entry(), false};
      }
      if ((std::size_t(size_) + 1) * 4 > index_.size() * 3) grow();
      U32 const number = takeSlot();
      Slot& s = slot(number);
      ::new (&s.storage) Entry(std::move(key), std::move(value));
      s.live = true;
      place(hash, number);
      ++size_;
      return {&s.entry(), true};
   }

   // Erases the entry and hands out its value, so that the caller decides when the value dies.
   std::optional<V> take(K const& key) {
      if (size_ == 0) return std::nullopt;
      U32 const position = locate(key, hash32(key));
      if (position == nowhere) return std::nullopt;
      U32 const number = index_[position].slot - 1;
      vacate(position);
      --size_;
      Slot& s = slot(number);
      s.live = false;
      std::optional<V> value(std::move(s.entry().second));
      s.entry().~Entry();
      s.nextFree = firstFree_;
      firstFree_ = number + 1;
      return value;
   }

   // The first entry behind the place where `iterator` stood, whatever has been erased since.
   ConstIterator resume(ConstIterator iterator) const {
      return ConstIterator(this, std::min(iterator.number_ + 1, slotCount_));
   }

   void clear() { HashMap const gone(std::move(*this)); }

   void swap(HashMap& other) noexcept {
      chunks_.swap(other.chunks_);
      index_.swap(other.index_);
      std::swap(size_, other.size_);
      std::swap(slotCount_, other.slotCount_);
      std::swap(firstFree_, other.firstFree_);
   }

 private:
   struct PlainSlot {
      Entry& entry() { return *std::launder(reinterpret_cast<Entry*>(&storage)); }
      alignas(Entry) std::byte storage[sizeof(Entry)];
      U32 nextFree = 0;  // of a free slot: the next free slot's number + 1
      bool live = false;
   };
   // A slot that fills a cache line, or an even part of one, crosses none.
   static constexpr std::size_t slotAlignment =
         std::has_single_bit(sizeof(PlainSlot)) && sizeof(PlainSlot) <= cacheLine
               ? sizeof(PlainSlot)
               : alignof(PlainSlot);
   struct alignas(slotAlignment) Slot : PlainSlot {};
   struct IndexCell {
      U32 hash = 0;
      U32 slot = 0;  // number + 1; 0 is an empty cell
   };

   static constexpr U32 nowhere = 0xFFFFFFFF;
   static constexpr U32 firstChunk = 16;  // slots; each further chunk doubles

   static U32 hash32(K const& key) { return hashFold(hashOf(key)); }

   Slot& slot(U32 number) const {
      auto const chunk = static_cast<U32>(std::bit_width(number / firstChunk + 1)) - 1;
      return chunks_[chunk][number - firstChunk * ((1u << chunk) - 1)];
   }

   U32 mask() const { return static_cast<U32>(index_.size()) - 1; }

   U32 locate(K const& key, U32 hash) const {
      for (U32 position = hash & mask();; position = (position + 1) & mask()) {
         IndexCell const& cell = index_[position];
         if (cell.slot == 0) return nowhere;
         if (cell.hash == hash && slot(cell.slot - 1).entry().first == key) return position;
      }
   }

   void place(U32 hash, U32 number) {
      U32 position = hash & mask();
      while (index_[position].slot != 0)
         position = (position + 1) & mask();
      index_[position] = {hash, number + 1};
   }

   // Empties an index cell and moves later cells of its run up, so that no tombstones are needed.
   void vacate(U32 hole) {
      for (U32 position = (hole + 1) & mask(); index_[position].slot != 0;
           position = (position + 1) & mask()) {
         U32 const home = index_[position].hash & mask();
         if (((position - home) & mask()) >= ((position - hole) & mask())) {
            index_[hole] = index_[position];
            hole = position;
         }
      }
      index_[hole] = {};
   }

   void grow() {
      std::vector<IndexCell> wider(index_.empty() ? 16 : index_.size() * 2);
      index_.swap(wider);
      for (IndexCell const& cell : wider) {
         if (cell.slot != 0) place(cell.hash, cell.slot - 1);
      }
   }

   U32 takeSlot() {
      if (firstFree_ != 0) {
         U32 const number = firstFree_ - 1;
         firstFree_ = slot(number).nextFree;
         return number;
      }
      QOR_ASSERT(slotCount_ < nowhere - 1);
      auto const chunk = static_cast<U32>(std::bit_width(slotCount_ / firstChunk + 1)) - 1;
      if (chunk == chunks_.size()) {
         chunks_.push_back(
               std::make_unique_for_overwrite<Slot[]>(std::size_t(firstChunk) << chunk));
      }
      return slotCount_++;
   }

   std::vector<std::unique_ptr<Slot[]>> chunks_;
   std::vector<IndexCell> index_;
   U32 size_ = 0;
   U32 slotCount_ = 0;
   U32 firstFree_ = 0;  // number + 1 of the slot freed last
};

}  // namespace Qor
