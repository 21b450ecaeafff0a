#include "Qor/Pool.h"

#include <array>
#include <utility>

namespace Qor {

namespace {

constexpr std::size_t maxSize = 512;

}  // namespace

#ifdef QOR_ADDRESS_SANITIZER

namespace {

bool reuse_ = false;

// The blocks that may be reused, by size. Never destroyed. Their addresses stand here and not in the
// blocks, which are closed.
std::vector<void*>& freed(std::size_t size) {
   static auto* const bySize = new std::array<std::vector<void*>, maxSize + 1>;
   return (*bySize)[size];
}

}  // namespace

bool Pooled::reuse() {
   return reuse_;
}

void Pooled::reuseIs(bool reuse) {
   reuse_ = reuse;
   for (std::size_t size = 0; !reuse && size <= maxSize; ++size) {
      for (void* const memory : std::exchange(freed(size), {})) {
         openMemory(memory, size);
         ::operator delete(memory);
      }
   }
}

void* Pooled::allocatePooled(std::size_t size) {
   if (size > maxSize || freed(size).empty()) return ::operator new(size);
   void* const memory = freed(size).back();
   freed(size).pop_back();
   openMemory(memory, size);
   return memory;
}

void Pooled::operator delete(void* memory, std::size_t size) {
   if (!reuse_ || size > maxSize) {
      ::operator delete(memory);
   } else {
      closeMemory(memory, size);
      freed(size).push_back(memory);
   }
}

#else

namespace {

constexpr std::size_t sizeStep = 16;

constexpr std::size_t rounded(std::size_t size) {
   return (size + sizeStep - 1) / sizeStep * sizeStep;
}

// The pools by the size in steps. The storage has static initialization, and is never destroyed.
union Pools {
   constexpr Pools() : bySize{} {}
   ~Pools() {}
   std::array<NodePool, maxSize / sizeStep + 1> bySize;
};
constinit Pools pools;

NodePool& poolOf(std::size_t size) {
   return pools.bySize[rounded(size) / sizeStep];
}

}  // namespace

bool Pooled::reuse() {
   return true;
}

void Pooled::reuseIs(bool) {}

void* Pooled::allocatePooled(std::size_t size) {
   if (size > maxSize) return ::operator new(size);
   return poolOf(size).allocate(rounded(size));
}

void Pooled::operator delete(void* memory, std::size_t size) {
   if (size > maxSize) {
      ::operator delete(memory);
   } else {
      poolOf(size).deallocate(memory, rounded(size));
   }
}

#endif

}  // namespace Qor
