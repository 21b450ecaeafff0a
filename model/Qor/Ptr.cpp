#include "Qor/Ptr.h"

#include <vector>

namespace Qor {

namespace {

// Ownership in real trees is a few levels deep and is deleted in place, so that an owner's parts
// are gone when its destructor returns. Only pathological chains reach this depth.
constexpr unsigned maxNestedDeletions = 200;

}  // namespace

// One reference is the deletion's own, or that of a maker whose constructor has thrown.
RefCounted::~RefCounted() {
   QOR_ASSERT(references_ == 1);
}

void RefCounted::zeroReferencesIs(bool) {}

bool RefCounted::heldByNotifiees() const {
   return false;
}

void RefCounted::lastReferenceGone() {
   references_ = 1;
   unreferenced_ = false;
   zeroReferencesIs(true);
   if (references_ != 1) {
      --references_;
      return;
   }
   if (heldByNotifiees()) {
      references_ = 0;
      unreferenced_ = true;
      return;
   }

   // From here on the count stays at one, so that a reference which is taken and dropped while the
   // object dies does not delete it again. The list is never destroyed, since objects with static
   // storage die late.
   static unsigned depth = 0;
   static std::vector<RefCounted*>* const waiting = new std::vector<RefCounted*>;
   if (depth >= maxNestedDeletions) {
      waiting->push_back(this);
      return;
   }
   ++depth;
   delete this;
   while (depth == 1 && !waiting->empty()) {
      RefCounted* const next = waiting->back();
      waiting->pop_back();
      delete next;
   }
   --depth;
}

}  // namespace Qor
