// The numbers 0 to `capacity` - 1 of a chip table, from which its driver takes the numbers of new
// groups or entries. The number that was returned last is taken first. The table thus stays dense,
// and a wrong reuse of a number shows soon.
#pragma once

#include <optional>
#include <vector>

#include "Qor/Assert.h"
#include "Qor/Types.h"

namespace VelMroute {

class IdPool {
 public:
   // The pool never returns the `reserved` numbers from `reservedFirst` on.
   explicit IdPool(Qor::U32 capacity, Qor::U32 reservedFirst = 0, Qor::U32 reserved = 0)
         : capacity_(capacity), reservedFirst_(reservedFirst), reserved_(reserved) {}

   // A free number, or nothing if there is none.
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
   // Takes the number of a found group or entry. The number must be greater than all numbers that
   // were taken before.
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
   // Returns a number to the pool. The number must be taken.
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

}  // namespace VelMroute
