// Memory for many objects of one size that come and go all the time: the nodes of a map, and the
// records of which a table has one for each route or group. Objects are adjacent in chunks, so that
// objects made one after the other are neighbours in memory. An object that fills most of a cache
// line gets the whole line, because most objects of a large table are not in the cache when they are
// used. Objects of two lines begin at even lines, because processors fetch such lines together.
//
// In a build with the address sanitizer, free memory is closed to the program: the sanitizer reports
// each use of that memory.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "Qor/Export.h"
#include "Qor/TableMemory.h"

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

// How far apart objects of this size lie: rounded up to whole lines where that wastes little.
constexpr std::size_t poolStride(std::size_t size) {
   std::size_t const lines = (size + cacheLine - 1) / cacheLine * cacheLine;
   return (lines - size) * 8 < lines * 3 ? lines : size;
}

// Memory that was freed last is reused first; the pool frees its chunks when it is destroyed. All
// sizes passed to one pool are the same. The addresses of free memory are in an array, so that an
// allocation does not wait for memory that left the cache long ago.
class NodePool {
 public:
   constexpr NodePool() = default;
   NodePool(NodePool&& other) noexcept { swap(other); }
   NodePool& operator=(NodePool&& other) noexcept {
      swap(other);
      return *this;
   }

   void* allocate(std::size_t size) {
      void* memory = next_;
      if (!free_.empty()) {
         memory = free_.back();
         free_.pop_back();
         // The memory of the allocation after the next one may be far away.
         if (free_.size() > 1) __builtin_prefetch(*(free_.end() - 2), 1);
      } else {
         if (next_ == end_) memory = addChunk(poolStride(size));
         next_ += poolStride(size);
      }
      openMemory(memory, size);
      return memory;
   }
   void deallocate(void* memory, std::size_t size) {
      free_.push_back(memory);  // has room for all objects of the pool
      closeMemory(memory, size);
   }
   void swap(NodePool& other) noexcept {
      chunks_.swap(other.chunks_);
      free_.swap(other.free_);
      std::swap(next_, other.next_);
      std::swap(end_, other.end_);
      std::swap(count_, other.count_);
   }

 private:
   struct Free {
      void operator()(std::byte* chunk) const { freeTable(chunk, size); }
      std::size_t size;
   };
   using Chunk = std::unique_ptr<std::byte, Free>;

   [[gnu::noinline]] std::byte* addChunk(std::size_t stride) {
      // Each chunk has twice as many objects as the chunk before, up to a large page.
      std::size_t const doubled = std::size_t(16) << std::min<std::size_t>(chunks_.size(), 17);
      std::size_t const objects = std::min(doubled, std::max<std::size_t>(largePage / stride, 16));
      std::size_t const size = std::max(objects * stride, objects < doubled ? largePage : 0);
      count_ += objects;
      if (free_.capacity() < count_) free_.reserve(std::max(count_, 2 * free_.capacity()));
      Chunk chunk(static_cast<std::byte*>(allocateTable(size)), Free{size});
      closeMemory(chunk.get(), size);
      next_ = chunk.get();
      end_ = next_ + objects * stride;
      chunks_.push_back(std::move(chunk));
      return next_;
   }

   std::vector<Chunk> chunks_;
   std::vector<void*> free_;
   std::byte* next_ = nullptr;  // memory of the last chunk that was never allocated
   std::byte* end_ = nullptr;
   std::size_t count_ = 0;  // objects in all chunks
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
