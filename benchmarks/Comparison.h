// Comparisons: the cost of an operation in the library beside its cost in the twin, in one run. The
// twin does the same work with flat arrays, an open-addressing table and virtual calls. It has no
// counted pointers, no notifications, no traces, and no tables with a second purpose.
//
// The two sides alternate, one round each, so that other load on the machine affects both. A
// comparison uses the medians of the rounds. Absolute times are for orientation only.
//
// Each comparison is a benchmark of Google Benchmark with the counters `library`, `twin` and
// `ratio`. A comparison with a target also has `targetKind`, `limit` and `met`. Report.h prints the
// counters.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Qor/Types.h"

namespace Bench {

using Qor::U16;
using Qor::U32;
using Qor::U64;

// The target of a comparison: the quantity that is limited, and its limit.
struct Target {
   enum class Kind {
      none,
      ratio,    // library / twin
      added,    // library - twin, in the unit of the comparison
      library,  // library alone
   };
   Kind kind = Kind::none;
   double limit = 0;

   static Target ratio(double limit) { return {Kind::ratio, limit}; }
   static Target added(double limit) { return {Kind::added, limit}; }
   static Target library(double limit) { return {Kind::library, limit}; }

   // The quantity that is compared with the limit.
   double of(double library, double twin) const;
};

// The cost of one operation in each round of a comparison, for both sides.
struct Rounds {
   std::vector<double> library;
   std::vector<double> twin;
};

// Registers a comparison. Google Benchmark calls `measure` once if the name matches the filter.
// `unit` is the unit of the costs.
void comparison(std::string const& name, Target target, std::function<Rounds()> measure,
                char const* unit = "ns");

// The effort of the run: with --quick there are fewer rounds and no table above 100,000 entries.
struct Effort {
   bool quick = false;

   bool covers(std::size_t size) const { return !quick || size <= 100'000; }
   // The number of rounds for tables of this size: fewer for large tables, whose rounds take long.
   // The number is odd, so that one round is the median.
   unsigned rounds(std::size_t size) const;
};
Effort& effort();

inline double median(std::vector<double> values) {
   auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
   std::nth_element(values.begin(), middle, values.end());
   return *middle;
}

// The processor time of this thread so far, in nanoseconds. Other processes affect this time only
// through the caches.
double processorTime();

// The processor time of the work, in nanoseconds.
template <class Work>
double nanoseconds(Work const& work) {
   double const start = processorTime();
   work();
   return processorTime() - start;
}

// Alternates the rounds of the two sides. `library` and `twin` run one round and return the cost of
// one operation. The first round of each side warms the caches and is not recorded.
template <class Library, class Twin>
Rounds takeTurns(unsigned rounds, Library library, Twin twin) {
   Rounds result;
   library();
   twin();
   for (unsigned n = 0; n < rounds; ++n) {
      result.library.push_back(library());
      result.twin.push_back(twin());
   }
   return result;
}

// Several operations that are measured in the same rounds. The first call of of() measures them
// all.
class JointRounds {
 public:
   // Runs one round of one side and returns the cost of each operation.
   using OneRound = std::function<std::vector<double>()>;
   // Builds the tables of both sides. The returned functions own the tables.
   using Sides = std::function<std::pair<OneRound, OneRound>()>;

   // With more than three rounds, the first round of each side warms the caches and is not
   // recorded. The rounds of a large table are few and long, so they have no such round.
   JointRounds(unsigned rounds, Sides sides) : rounds_(rounds), sides_(std::move(sides)) {}

   Rounds const& of(std::size_t operation) {
      if (measured_.empty()) measure();
      return measured_[operation];
   }

 private:
   void measure();

   unsigned const rounds_;
   Sides const sides_;
   std::vector<Rounds> measured_;
};

// A round that repeats a cheap operation `times` times and returns the cost of one of them.
template <class Operation>
auto repeated(unsigned times, Operation operation) {
   return [times, operation = std::move(operation)]() mutable {
      return nanoseconds([&] {
                for (unsigned n = 0; n < times; ++n)
                   operation();
             }) /
             times;
   };
}

// Register the comparisons of one subject each.
void routeComparisons();
void programmerComparisons();
void notificationComparisons();
void collectionComparisons();
void agingComparisons();
void frrComparisons();
void turnComparisons();
void programmerTurnComparisons();
void traceComparisons();
void memoryComparisons();

// Implements `--resident KIND`, which runs in a process of its own: prints the resident bytes per
// entry of KIND. Returns false for an unknown kind.
bool printResident(std::string const& kind);
// Implements `--once OPERATION`, which runs under a tool that counts instructions: runs the
// operation and prints the number of its routes or groups. Returns false for an unknown operation.
bool runOnce(std::string const& operation);

}  // namespace Bench
