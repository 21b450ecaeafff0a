// Memory for large tables. The processor translates the address of every access by a small table of
// recently used pages. A table of many megabytes exceeds that table in pages of 4 KB, and an access
// to a cold entry then waits for the translation as well. Blocks of 2 MB or more therefore begin at
// a multiple of 2 MB, and the kernel is asked to back them by large pages. A kernel without large
// pages ignores the request.
#pragma once

#include <cstddef>

#include "Qor/Export.h"

namespace Qor {

inline constexpr std::size_t cacheLine = 64;
inline constexpr std::size_t largePage = std::size_t(2) << 20;

// Returns a block of at least `size` bytes, which begins at an even cache line; processors fetch an
// even line and the next line together. Throws std::bad_alloc.
QOR_PUBLIC void* allocateTable(std::size_t size);
// Frees a block of allocateTable(size).
QOR_PUBLIC void freeTable(void* memory, std::size_t size) noexcept;

// For the containers of the standard library.
template <class T>
struct TableAllocator {
   using value_type = T;

   TableAllocator() = default;
   template <class U>
   TableAllocator(TableAllocator<U> const&) {}
   T* allocate(std::size_t count) { return static_cast<T*>(allocateTable(count * sizeof(T))); }
   void deallocate(T* memory, std::size_t count) { freeTable(memory, count * sizeof(T)); }
   friend bool operator==(TableAllocator, TableAllocator) { return true; }
};

}  // namespace Qor
