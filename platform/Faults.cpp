#include "platform/Faults.h"

#include <random>
#include <utility>

#include "Qor/Assert.h"
#include "Qor/EnumText.h"
#include "hooks/HookQuestion.h"

namespace VelMroute {

std::ostream& operator<<(std::ostream& os, WriteKind kind) {
   static constexpr char const* names[] = {"groupCreate",    "groupUpdate",   "groupDelete",
                                           "routeCreate",    "routePoint",    "routeDelete",
                                           "boundaryCreate", "boundaryDelete"};
   static_assert(std::size(names) == writeKinds);
   return Qor::printEnum(os, kind, names);
}

struct Faults::Random::Generator {
   std::mt19937_64 next{1};
};

Faults::Random::Random() : generator_(std::make_unique<Generator>()) {}

Faults::Random::~Random() = default;

Faults::Random::Random(Random const& other)
      : generator_(std::make_unique<Generator>(*other.generator_)) {}

Faults::Random& Faults::Random::operator=(Random const& other) {
   *generator_ = *other.generator_;
   return *this;
}

void Faults::Random::seedIs(Qor::U64 seed) {
   generator_->next.seed(seed);
}

double Faults::Random::fraction() {
   return static_cast<double>(generator_->next() >> 11) * 0x1p-53;
}

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

void Faults::callBegins(Qor::U32 hook) {
   if (HookQuestion::underWay()) {
      refused_ = writeFails_ = false;
      return;
   }
   ++calls_;
   if (calls_ == failedCall_.number) {
      failingHook_ = hook;
      failingCalls_ = 1 + failedCall_.again;
      if (failedCall_.undoFails) {
         for (WriteKind const kind :
              {WriteKind::groupDelete, WriteKind::routeDelete, WriteKind::boundaryDelete})
            failNext(kind, "failed undo");
      }
   }
   // Other hooks between the failing calls, for example the cleanup of the caller, succeed.
   bool const fails = failingCalls_ > 0 && hook == failingHook_;
   failingCalls_ -= fails;
   refused_ = fails && failedCall_.refused;
   writeFails_ = fails && failedCall_.writeFails;
   injected_ += refused_;
}

Qor::String8 Faults::failure(WriteKind kind) {
   Planned& planned = planned_[static_cast<std::size_t>(kind)];
   // A planned failure stays planned while the call fails as a whole.
   if (writeFails_) {
      ++injected_;
      ++planned.injected;
      return "failed call";
   }
   if (planned.failures > 0) {
      --planned.failures;
      ++injected_;
      ++planned.injected;
      return planned.reason;
   }
   // The upper 53 bits are the fraction: unlike the distributions of the standard library, this
   // formula has the same results everywhere, so a seed replays on every platform.
   if (planned.rate > 0 && random_.fraction() < planned.rate) {
      ++injected_;
      ++planned.injected;
      return "injected fault";
   }
   return {};
}

Qor::Seconds Faults::extraLatency() {
   return slowIn_ > 0 && --slowIn_ == 0 ? slowBy_ : 0;
}

}  // namespace VelMroute
