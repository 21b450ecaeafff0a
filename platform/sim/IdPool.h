// The numbers of a chip table that its driver hands out: at most `capacity`, from 0 up. A number
// that comes back is the next to go out, so the table stays dense and a reuse comes at once.
#pragma once

#include <optional>
#include <vector>

#include "Qor/Assert.h"
#include "Qor/Types.h"

namespace Sim {

class IdPool {
 public:
   // The `reserved` numbers from `reservedFirst` are never handed out.
   explicit IdPool(Qor::U32 capacity, Qor::U32 reservedFirst = 0, Qor::U32 reserved = 0)
         : capacity_(capacity), reservedFirst_(reservedFirst), reserved_(reserved) {}

   std::optional<Qor::U32> take() {
      if (!free_.empty()) {
         Qor::U32 const id = free_.back();
         free_.pop_back();
         ++taken_;
         return id;
      }
      if (next_ == reservedFirst_) next_ += reserved_;
      if (next_ >= capacity_) return std::nullopt;
      ++taken_;
      return next_++;
   }
   // Takes a number that is in use already; it is greater than all that have been taken.
   void takeFound(Qor::U32 id) {
      QOR_ASSERT(id >= next_ && id < capacity_);
      while (next_ < id) {
         if (next_ == reservedFirst_ && reserved_ > 0) {
            next_ += reserved_;
         } else {
            free_.push_back(next_++);
         }
      }
      next_ = id + 1;
      ++taken_;
   }
   // The caller knows that the number is out.
   void give(Qor::U32 id) {
      QOR_ASSERT(taken_ > 0);
      --taken_;
      free_.push_back(id);
   }
   Qor::U32 taken() const { return taken_; }
   bool full() const { return taken_ >= capacity_ - reserved_; }

 private:
   Qor::U32 const capacity_;
   Qor::U32 const reservedFirst_;
   Qor::U32 const reserved_;
   Qor::U32 next_ = 0;
   Qor::U32 taken_ = 0;
   std::vector<Qor::U32> free_;
};

}  // namespace Sim
