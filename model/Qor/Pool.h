// Memory for many objects of one size, of which some come and go all the time: nodes of a map, and
// the records of which a table has one for each route or group. Objects lie side by side in chunks
// that grow with their number, so that neighbours in time are neighbours in memory; one that takes
// most of a cache line gets a whole one, since a table's objects are mostly met cold. Those of two
// lines begin at even ones, which a processor fetches together.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <vector>

#include "Qor/Export.h"

namespace Qor {

inline constexpr std::size_t cacheLine = 64;

// How far apart objects of this size lie: rounded up to whole lines where that wastes little.
constexpr std::size_t poolStride(std::size_t size) {
   std::size_t const lines = (size + cacheLine - 1) / cacheLine * cacheLine;
   return (lines - size) * 8 <= lines * 3 ? lines : size;
}

// What is freed is reused; the chunks go with the pool. All sizes asked of one pool are the same,
// and at least that of a pointer.
class NodePool {
 public:
   void* allocate(std::size_t size) {
      if (!free_) addChunk(poolStride(size));
      Node* const node = free_;
      free_ = node->next;
      __builtin_prefetch(free_, 1);  // far, too, where objects were freed in any order
      return node;
   }
   void deallocate(void* memory) { free_ = ::new (memory) Node{free_}; }

 private:
   static constexpr std::align_val_t alignment{2 * cacheLine};

   struct Node {
      Node* next;
   };
   struct Aligned {
      void operator()(std::byte* chunk) const { ::operator delete(chunk, alignment); }
   };

   void addChunk(std::size_t stride) {
      std::size_t const nodes = std::size_t(16) << std::min<std::size_t>(chunks_.size(), 8);
      std::size_t const bytes = nodes * stride;
      auto* const memory = ::operator new(bytes, alignment);
      chunks_.emplace_back(static_cast<std::byte*>(memory));
      for (std::size_t i = nodes; i-- > 0;)
         deallocate(chunks_.back().get() + i * stride);
   }

   std::vector<std::unique_ptr<std::byte, Aligned>> chunks_;
   Node* free_ = nullptr;
};

// Objects of a class that derives from this, directly or not, come from pools, one for each size.
// The pools are the library's, whoever makes and whoever lets go of an object, and live as long as
// the process, since objects with static storage die late. Built with the address sanitizer, the
// library allocates each object by itself, so that a use of one that has gone is seen.
class QOR_PUBLIC Pooled {
 public:
   static void* operator new(std::size_t size);
   static void operator delete(void* memory, std::size_t size);

 protected:
   ~Pooled() = default;
};

}  // namespace Qor
