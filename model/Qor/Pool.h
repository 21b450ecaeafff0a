// Memory for many objects of one size, of which some come and go all the time: nodes of a map, and
// the records of which a table has one for each route or group. Objects lie side by side in chunks
// that grow with their number, so that neighbours in time are neighbours in memory; one that takes
// most of a cache line gets a whole one, since a table's objects are mostly met cold. Those of two
// lines begin at even ones, which a processor fetches together.
//
// Memory that is free is closed to the program in a build with the address sanitizer, which reports
// each use of it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <vector>

#include "Qor/Export.h"

#if defined(__SANITIZE_ADDRESS__)
#define QOR_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QOR_ADDRESS_SANITIZER 1
#endif
#endif
#ifdef QOR_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace Qor {

// Closes memory to the program, and opens it again; nothing without the address sanitizer.
inline void closeMemory([[maybe_unused]] void const* memory, [[maybe_unused]] std::size_t size) {
#ifdef QOR_ADDRESS_SANITIZER
   __asan_poison_memory_region(memory, size);
#endif
}
inline void openMemory([[maybe_unused]] void const* memory, [[maybe_unused]] std::size_t size) {
#ifdef QOR_ADDRESS_SANITIZER
   __asan_unpoison_memory_region(memory, size);
#endif
}

inline constexpr std::size_t cacheLine = 64;

// How far apart objects of this size lie: rounded up to whole lines where that wastes little.
constexpr std::size_t poolStride(std::size_t size) {
   std::size_t const lines = (size + cacheLine - 1) / cacheLine * cacheLine;
   return (lines - size) * 8 <= lines * 3 ? lines : size;
}

// Freed memory is reused; the pool frees its chunks when it is destroyed. All sizes passed to one
// pool are the same, and at least that of a pointer.
class NodePool {
 public:
   void* allocate(std::size_t size) {
      if (!free_) addChunk(poolStride(size));
      Node* const node = free_;
      openMemory(node, size);
      free_ = node->next;
      __builtin_prefetch(free_, 1);  // far, too, where objects were freed in any order
      return node;
   }
   void deallocate(void* memory, std::size_t size) {
      free_ = ::new (memory) Node{free_};
      closeMemory(memory, size);
   }

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
         deallocate(chunks_.back().get() + i * stride, stride);
   }

   std::vector<std::unique_ptr<std::byte, Aligned>> chunks_;
   Node* free_ = nullptr;
};

// Objects of a class that derives from this, directly or not, come from pools, one for each size.
// The library owns the pools, also for objects that its callers make and release. The pools live as
// long as the process, since objects with static storage die late.
//
// Built with the address sanitizer, the library allocates each object by itself, so that leaks are
// seen, and returns its memory at once: the sanitizer keeps that closed for long, and no later
// object has the address soon. A test of two objects at one address turns reuse on.
class QOR_PUBLIC Pooled {
 public:
   // For make(), which finds the pools by this name.
   static void* allocatePooled(std::size_t size);
   static void operator delete(void* memory, std::size_t size);

   // Whether the memory of an object that has gone is given to the next one of its size. The
   // memory is closed to access until then. Without the address sanitizer memory is always reused.
   static bool reuse();
   static void reuseIs(bool reuse);

 protected:
   ~Pooled() = default;
};

}  // namespace Qor
