// An open-addressing index from hashes to the numbers of entries that are kept elsewhere: cells of a
// hash and a number, 8 bytes, probed one after the other, and closed up when one leaves. The maps of
// the framework that look up by hash are made of it and of a Qor::Slab.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "Qor/Hash.h"
#include "Qor/Types.h"

namespace Qor {

class HashIndex {
 public:
   static constexpr U32 nowhere = 0xFFFFFFFF;

   // The hash of a key, as the index takes it.
   template <class K>
   static U32 hash(K const& key) {
      return hashFold(hashOf(key));
   }

   // Where the entry of that hash stands for which same(number) holds; or nowhere.
   template <class Same>
   U32 locate(U32 hash, Same const& same) const {
      if (size_ == 0) return nowhere;
      for (U32 position = hash & mask();; position = (position + 1) & mask()) {
         Cell const& cell = cells_[position];
         if (cell.entry == 0) return nowhere;
         if (cell.hash == hash && same(cell.entry - 1)) return position;
      }
   }
   // Where the entry `number` stands, which is here: no entry is looked at.
   U32 locate(U32 hash, U32 number) const {
      U32 position = hash & mask();
      while (cells_[position].entry != number + 1)
         position = (position + 1) & mask();
      return position;
   }
   U32 operator[](U32 position) const { return cells_[position].entry - 1; }
   // Starts fetching where an entry of that hash is likely to stand.
   // Never a function by itself, which the compiler takes for one without an effect.
   [[gnu::always_inline]] void prefetch(U32 hash) const {
      if (size_ != 0) __builtin_prefetch(&cells_[hash & mask()], 1);
   }

   void insert(U32 hash, U32 number) {
      if ((std::size_t(size_) + 1) * 2 > cells_.size()) grow();
      place({hash, number + 1});
      ++size_;
   }

   // Another entry, of the same hash, in the place of the one that is there.
   void replace(U32 position, U32 number) { cells_[position].entry = number + 1; }

   // Empties a cell and moves later cells of its run up, so that no tombstones are needed.
   void vacate(U32 hole) {
      for (U32 position = (hole + 1) & mask(); cells_[position].entry != 0;
           position = (position + 1) & mask()) {
         U32 const home = cells_[position].hash & mask();
         if (((position - home) & mask()) >= ((position - hole) & mask())) {
            cells_[hole] = cells_[position];
            hole = position;
         }
      }
      cells_[hole] = {};
      --size_;
   }

   void swap(HashIndex& other) noexcept {
      cells_.swap(other.cells_);
      std::swap(size_, other.size_);
   }

 private:
   struct Cell {
      U32 hash = 0;
      U32 entry = 0;  // number + 1; 0 is an empty cell
   };

   U32 mask() const { return static_cast<U32>(cells_.size()) - 1; }
   void place(Cell cell) {
      U32 position = cell.hash & mask();
      while (cells_[position].entry != 0)
         position = (position + 1) & mask();
      cells_[position] = cell;
   }
   void grow() {
      std::vector<Cell> const before =
            std::exchange(cells_, std::vector<Cell>(cells_.empty() ? 16 : cells_.size() * 2));
      for (Cell const& cell : before) {
         if (cell.entry != 0) place(cell);
      }
   }

   std::vector<Cell> cells_;
   U32 size_ = 0;
};

}  // namespace Qor
