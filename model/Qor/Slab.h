// Slots of one type, known by number, that keep their address: what the maps of the framework keep
// their entries in. The slots lie side by side in chunks that double, so that neighbours in time are
// neighbours in memory, and a slot that fills a cache line, or an even part of one, crosses none.
#pragma once

#include <bit>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "Qor/Assert.h"
#include "Qor/Pool.h"
#include "Qor/Types.h"

namespace Qor {

// `S` is default constructible, which makes a free slot, and has a U32 `nextFree` for the slab's
// use while it is free. Its contents are the map's own business, as is which slots are in use.
template <class S>
class Slab {
   static constexpr std::size_t alignment =
         std::has_single_bit(sizeof(S)) && sizeof(S) <= cacheLine ? sizeof(S) : alignof(S);

 public:
   struct alignas(alignment) Slot : S {};
   static constexpr U32 firstChunk = 16;  // slots; each further chunk doubles

   // How many slots there are, free ones included: their numbers are those below.
   U32 count() const { return count_; }

   [[gnu::always_inline]] Slot& operator[](U32 number) const {
      auto const chunk = static_cast<U32>(std::bit_width(number / firstChunk + 1)) - 1;
      return chunks_[chunk][number - firstChunk * ((1u << chunk) - 1)];
   }

   // The slot freed last, or a new one.
   U32 take() {
      if (firstFree_ != 0) {
         U32 const number = firstFree_ - 1;
         firstFree_ = (*this)[number].nextFree;
         // The next one is far, too, where slots were freed in any order.
         if (firstFree_ != 0) __builtin_prefetch(&(*this)[firstFree_ - 1], 1);
         return number;
      }
      QOR_ASSERT(count_ < 0xFFFFFFFE);
      auto const chunk = static_cast<U32>(std::bit_width(count_ / firstChunk + 1)) - 1;
      if (chunk == chunks_.size()) {
         chunks_.push_back(
               std::make_unique_for_overwrite<Slot[]>(std::size_t(firstChunk) << chunk));
      }
      return count_++;
   }
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
   std::vector<std::unique_ptr<Slot[]>> chunks_;
   U32 count_ = 0;
   U32 firstFree_ = 0;  // number + 1 of the slot freed last
};

}  // namespace Qor
