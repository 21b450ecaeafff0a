#include "Qor/Pool.h"

#include <array>

namespace Qor {

#ifdef __SANITIZE_ADDRESS__

void* Pooled::operator new(std::size_t size) {
   return ::operator new(size);
}

void Pooled::operator delete(void* memory, std::size_t) {
   ::operator delete(memory);
}

#else

namespace {

constexpr std::size_t sizeStep = 16;
constexpr std::size_t maxSize = 512;

// By the size in steps. Never destroyed.
NodePool& poolOf(std::size_t size) {
   static auto* const pools = new std::array<NodePool, maxSize / sizeStep + 1>;
   return (*pools)[(size + sizeStep - 1) / sizeStep];
}

}  // namespace

void* Pooled::operator new(std::size_t size) {
   if (size > maxSize) return ::operator new(size);
   return poolOf(size).allocate((size + sizeStep - 1) / sizeStep * sizeStep);
}

void Pooled::operator delete(void* memory, std::size_t size) {
   if (size > maxSize) {
      ::operator delete(memory);
   } else {
      poolOf(size).deallocate(memory);
   }
}

#endif

}  // namespace Qor
