#include "Comparison.h"

#include <ctime>
#include <utility>

namespace Bench {

double processorTime() {
   timespec time{};
   clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
   return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

double Target::of(double library, double twin) const {
   switch (kind) {
      case Kind::ratio:
         return library / twin;
      case Kind::added:
         return library - twin;
      default:
         return library;
   }
}

unsigned Effort::rounds(std::size_t size) const {
   unsigned const full = size >= 1'000'000 ? 3 : size >= 100'000 ? 7 : size >= 10'000 ? 15 : 41;
   return quick ? (full + 2) / 3 | 1 : full;
}

Effort& effort() {
   static Effort instance;
   return instance;
}

void JointRounds::measure() {
   auto const [library, twin] = sides_();
   if (rounds_ > 3) {
      library();
      twin();
   }
   for (unsigned round = 0; round < rounds_; ++round) {
      std::vector<double> const libraryCosts = library();
      std::vector<double> const twinCosts = twin();
      measured_.resize(libraryCosts.size());
      for (std::size_t n = 0; n < measured_.size(); ++n) {
         measured_[n].library.push_back(libraryCosts[n]);
         measured_[n].twin.push_back(twinCosts[n]);
      }
   }
}

void comparison(std::string const& name, Target target, std::function<Rounds()> measure,
                char const* unit) {
   auto const run = [target, measure = std::move(measure), unit](benchmark::State& state) {
      for (auto _ : state) {
         Rounds const rounds = measure();
         double const library = median(rounds.library);
         double const twin = median(rounds.twin);
         state.SetIterationTime(library * 1e-9);
         state.SetLabel(unit);
         state.counters["library"] = library;
         state.counters["twin"] = twin;
         state.counters["ratio"] = library / twin;
         if (target.kind == Target::Kind::none) continue;
         state.counters["targetKind"] = static_cast<double>(target.kind);
         state.counters["limit"] = target.limit;
         state.counters["met"] = target.of(library, twin) <= target.limit;
      }
   };
   benchmark::RegisterBenchmark(name.c_str(), run)->Iterations(1)->UseManualTime();
}

}  // namespace Bench
