#include "Qor/Ptr.h"

#include <vector>

namespace Qor {

namespace {

// Ownership in real trees is a few levels deep and is deleted in place, so that an owner's parts
// are gone when its destructor returns. Only pathological chains reach this depth.
constexpr unsigned maxNestedDeletions = 200;

}  // namespace

RefCounted::~RefCounted() = default;

void RefCounted::zeroReferencesIs(bool) {}

bool RefCounted::heldByNotifiees() const {
   return false;
}

void RefCounted::lastReferenceGone() {
   references_ = 1;
   unreferenced_ = false;
   zeroReferencesIs(true);
   if (--references_ != 0) return;
   if (heldByNotifiees()) {
      unreferenced_ = true;
      return;
   }

   static unsigned depth = 0;
   static std::vector<RefCounted*> waiting;
   if (depth >= maxNestedDeletions) {
      waiting.push_back(this);
      return;
   }
   ++depth;
   delete this;
   while (depth == 1 && !waiting.empty()) {
      RefCounted* next = waiting.back();
      waiting.pop_back();
      delete next;
   }
   --depth;
}

}  // namespace Qor
