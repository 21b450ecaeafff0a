#include "agent/page/Series.h"

#include <algorithm>

namespace Agent {

void Series::add(double time, double value) {
   if (!slots_.empty()) {
      Point const& latest = slots_.back().last;
      if (latest.value == value) return;
      time = std::max(time, latest.time);
   }
   Point const point{time, value};
   Slot const slot{slotAt(time), point, point, point, point};
   if (!slots_.empty() && slots_.back().number == slot.number) {
      join(slots_.back(), slot);
      return;
   }
   slots_.push_back(slot);
   while (slots_.size() > maxSlots)
      widen();
}

void Series::join(Slot& earlier, Slot const& later) {
   if (later.lowest.value < earlier.lowest.value) earlier.lowest = later.lowest;
   if (later.highest.value > earlier.highest.value) earlier.highest = later.highest;
   earlier.last = later.last;
}

void Series::widen() {
   width_ *= 2;
   std::size_t kept = 0;
   for (Slot slot : slots_) {
      slot.number = slotAt(slot.first.time);
      if (kept > 0 && slots_[kept - 1].number == slot.number) {
         join(slots_[kept - 1], slot);
      } else {
         slots_[kept++] = slot;
      }
   }
   slots_.resize(kept);
}

std::vector<Series::Point> Series::points() const {
   std::vector<Point> points;
   for (Slot const& slot : slots_) {
      bool const fallsFirst = slot.lowest.time < slot.highest.time;
      for (Point const& point : {slot.first, fallsFirst ? slot.lowest : slot.highest,
                                 fallsFirst ? slot.highest : slot.lowest, slot.last}) {
         if (points.empty() || !(points.back() == point)) points.push_back(point);
      }
   }
   return points;
}

}  // namespace Agent
