// A number over time, in bounded memory. The number keeps its value until the next change.
//
// The changes are kept in slots of equal duration. A slot has its first, lowest, highest and last
// value. When the slots are used up, the duration doubles and adjacent slots are joined, so no
// extreme is ever lost, and a run of any length has at most 4 * maxSlots points.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Agent {

class Series {
 public:
   static constexpr std::size_t maxSlots = 500;

   struct Point {
      double time;  // seconds
      double value;

      friend bool operator==(Point const&, Point const&) = default;
   };

   // The number has this value from `time` on. Times do not descend; an earlier time counts as the
   // latest one.
   void add(double time, double value);
   // The changes in ascending order of time.
   std::vector<Point> points() const;

 private:
   struct Slot {
      std::int64_t number;  // begins at number * width_
      Point first, lowest, highest, last;
   };

   std::int64_t slotAt(double time) const { return static_cast<std::int64_t>(time / width_); }
   static void join(Slot& earlier, Slot const& later);
   void widen();

   double width_ = 1e-6;  // seconds
   std::vector<Slot> slots_;
};

}  // namespace Agent
