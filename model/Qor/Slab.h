// Numbered slots with stable addresses, in which the maps of the framework keep their entries. The
// slots are in chunks of doubling size, so that slots taken one after the other are mostly
// adjacent. A slot whose size is a power of two up to a cache line never crosses a cache line.
#pragma once

#include <bit>
#include <cstddef>
#include <utility>
#include <vector>

#include "Qor/Assert.h"
#include "Qor/TableMemory.h"
#include "Qor/Types.h"

namespace Qor {

// `S` is default constructible, and a default-constructed S is a free slot. Its member `nextFree`
// (U32) belongs to the slab while the slot is free. The map constructs and destroys the contents
// and knows which slots are in use; the slab only frees the memory.
template <class S>
class Slab {
   static constexpr std::size_t alignment =
         // NOLINTNEXTLINE(misc-redundant-expression): for some types both results are equal.
         std::has_single_bit(sizeof(S)) && sizeof(S) <= cacheLine ? sizeof(S) : alignof(S);

 public:
   struct alignas(alignment) Slot : S {};
   static constexpr U32 firstChunk = 16;  // slots; each further chunk has twice as many

   // The number of slots, free ones included. Their numbers are 0 to count() - 1.
   U32 count() const { return count_; }

   [[gnu::always_inline]] Slot& operator[](U32 number) const {
      auto const chunk = static_cast<U32>(std::bit_width(number / firstChunk + 1)) - 1;
      return const_cast<Slot&>(chunks_[chunk][number - firstChunk * ((1u << chunk) - 1)]);
   }

   // The number of the slot freed last, or of a new slot.
   U32 take() {
      if (firstFree_ != 0) {
         U32 const number = firstFree_ - 1;
         firstFree_ = (*this)[number].nextFree;
         // The next free slot may be cold: slots are freed in any order.
         if (firstFree_ != 0) __builtin_prefetch(&(*this)[firstFree_ - 1], 1);
         return number;
      }
      QOR_ASSERT(count_ < 0xFFFFFFFE);
      auto const chunk = static_cast<U32>(std::bit_width(count_ / firstChunk + 1)) - 1;
      if (chunk == chunks_.size()) {
         chunks_.emplace_back(std::size_t(firstChunk) << chunk);
      }
      return count_++;
   }
   // Frees a slot for the next take(). Its address stays valid.
   void give(U32 number) {
      (*this)[number].nextFree = firstFree_;
      firstFree_ = number + 1;
   }

   void swap(Slab& other) noexcept {
      chunks_.swap(other.chunks_);
      std::swap(count_, other.count_);
      std::swap(firstFree_, other.firstFree_);
   }

 private:
   using Chunk = std::vector<Slot, TableAllocator<Slot>>;
   std::vector<Chunk> chunks_;
   U32 count_ = 0;
   U32 firstFree_ = 0;  // number + 1 of the slot freed last
};

}  // namespace Qor
