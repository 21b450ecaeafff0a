// An open-addressing index that maps the hash of a key to the number of an entry kept elsewhere. A
// cell is 8 bytes: a 32-bit hash and a number. Cells are probed linearly; a removal moves the later
// cells of its run up. The maps of the framework that look up by hash consist of such an index and
// a Qor::Slab of entries.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "Qor/Hash.h"
#include "Qor/TableMemory.h"
#include "Qor/Types.h"

namespace Qor {

class HashIndex {
 public:
   // The result of locate() for an entry that is not in the index.
   static constexpr U32 nowhere = 0xFFFFFFFF;

   // The hash of a key, which the other operations expect.
   template <class K>
   static U32 hash(K const& key) {
      return hashFold(hashOf(key));
   }

   // The part of a look-up that depends on the key alone; Qor::HashMap computes it once.
   template <class K>
   static U32 probe(K const& key) {
      return hash(key);
   }
   // The number of the entry with `hash` that satisfies same(number); nowhere if there is none.
   template <class Same>
   U32 find(U32 hash, Same const& same) const {
      U32 const position = locate(hash, same);
      return position == nowhere ? nowhere : (*this)[position];
   }
   // Removes this entry and returns its number.
   template <class Same>
   U32 take(U32 hash, Same const& same) {
      U32 const position = locate(hash, same);
      if (position == nowhere) return nowhere;
      U32 const number = (*this)[position];
      vacate(position);
      return number;
   }
   // Removes all entries of a map.
   template <class Map>
   void clear(Map const&) {
      HashIndex().swap(*this);
   }

   // The position of the cell with `hash` whose entry satisfies same(number); nowhere if there is
   // none. The index is at most half full, so that every probe ends at an empty cell.
   template <class Same>
   U32 locate(U32 hash, Same const& same) const {
      if (size_ == 0) return nowhere;
      for (U32 position = hash & mask_;; position = (position + 1) & mask_) {
         Cell const& cell = cells_[position];
         if (cell.entry == 0) return nowhere;
         if (cell.hash == hash && same(cell.entry - 1)) return position;
      }
   }
   // The position of the cell of entry `number`, which must be in the index. Reads no entry.
   U32 locate(U32 hash, U32 number) const {
      U32 position = hash & mask_;
      while (cells_[position].entry != number + 1)
         position = (position + 1) & mask_;
      return position;
   }
   // Fetches the cell at which the search for `hash` begins, for a search that follows soon.
   void prefetch(U32 hash) const {
      if (!cells_.empty()) __builtin_prefetch(&cells_[hash & mask_], 1);
   }
   // The number of entries.
   U32 size() const { return size_; }
   // The number of the entry at `position`.
   U32 operator[](U32 position) const { return cells_[position].entry - 1; }
   // Adds entry `number`, which must not be in the index.
   void insert(U32 hash, U32 number) {
      if (cells_.empty() || size_ >= (mask_ + 1) / 2) grow();
      place({hash, number + 1});
      ++size_;
   }

   // Empties the cell at `hole` and moves the later cells of its run up, so that the index needs no
   // tombstones.
   void vacate(U32 hole) {
      for (U32 position = (hole + 1) & mask_; cells_[position].entry != 0;
           position = (position + 1) & mask_) {
         U32 const home = cells_[position].hash & mask_;
         if (((position - home) & mask_) >= ((position - hole) & mask_)) {
            cells_[hole] = cells_[position];
            hole = position;
         }
      }
      cells_[hole] = {};
      --size_;
   }

   void swap(HashIndex& other) noexcept {
      cells_.swap(other.cells_);
      std::swap(mask_, other.mask_);
      std::swap(size_, other.size_);
   }

 private:
   struct Cell {
      U32 hash = 0;
      U32 entry = 0;  // number + 1; 0 is an empty cell
   };

   using Cells = std::vector<Cell, TableAllocator<Cell>>;

   void place(Cell cell) {
      U32 position = cell.hash & mask_;
      while (cells_[position].entry != 0)
         position = (position + 1) & mask_;
      cells_[position] = cell;
   }
   void grow() {
      Cells const before = std::exchange(cells_, Cells(cells_.empty() ? 16 : cells_.size() * 2));
      mask_ = static_cast<U32>(cells_.size()) - 1;
      for (Cell const& cell : before) {
         if (cell.entry != 0) place(cell);
      }
   }

   Cells cells_;
   U32 mask_ = 0;  // the number of cells, a power of two, less one
   U32 size_ = 0;
};

}  // namespace Qor
