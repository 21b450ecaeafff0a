#include "Qor/TableMemory.h"

#include <new>

#if __has_include(<sys/mman.h>)
#include <sys/mman.h>
#endif

namespace Qor {

namespace {

constexpr std::align_val_t alignmentOf(std::size_t size) {
   return std::align_val_t(size < largePage ? 2 * cacheLine : largePage);
}

}  // namespace

void* allocateTable(std::size_t size) {
   void* const memory = ::operator new(size, alignmentOf(size));
#ifdef MADV_HUGEPAGE
   // The result does not matter: without large pages the block works as well.
   if (size >= largePage) ::madvise(memory, size / largePage * largePage, MADV_HUGEPAGE);
#endif
   return memory;
}

void freeTable(void* memory, std::size_t size) noexcept {
   ::operator delete(memory, alignmentOf(size));
}

}  // namespace Qor
