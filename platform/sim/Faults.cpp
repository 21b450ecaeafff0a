#include "platform/sim/Faults.h"

#include <utility>

namespace Sim {

void Faults::failNext(WriteKind kind, Qor::String8 reason, Qor::U32 count) {
   QOR_ASSERT(!reason.empty());
   Planned& planned = planned_[static_cast<std::size_t>(kind)];
   planned.failures = count;
   planned.reason = std::move(reason);
}

void Faults::rateIs(WriteKind kind, double probability) {
   QOR_ASSERT(probability >= 0 && probability <= 1);
   planned_[static_cast<std::size_t>(kind)].rate = probability;
}

void Faults::slowNext(Qor::U32 n, Qor::Seconds extra) {
   QOR_ASSERT(n > 0 && extra >= 0);
   slowIn_ = n;
   slowBy_ = extra;
}

Qor::String8 Faults::failure(WriteKind kind) {
   Planned& planned = planned_[static_cast<std::size_t>(kind)];
   if (planned.failures > 0) {
      --planned.failures;
      ++injected_;
      return planned.reason;
   }
   // The upper 53 bits as a fraction: the same numbers with every standard library.
   if (planned.rate > 0 && static_cast<double>(random_() >> 11) * 0x1p-53 < planned.rate) {
      ++injected_;
      return "injected fault";
   }
   return {};
}

Qor::Seconds Faults::extraLatency() {
   return slowIn_ > 0 && --slowIn_ == 0 ? slowBy_ : 0;
}

}  // namespace Sim
