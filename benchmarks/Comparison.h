// Comparisons: what an operation costs in the library, beside what its bare twin costs in the same
// run. A twin does the same work with flat arrays, an open-addressing table and virtual calls, and
// nothing else: no counted pointers, no notifications, no traces, no second users to think of.
//
// The two sides take turns, a round each, and a comparison is of the medians of the rounds: what
// else happens on the machine hits both alike. Absolute times are for orientation alone.
//
// Each comparison is a benchmark of Google Benchmark, with the counters `library`, `twin` and
// `ratio`, and `limit` where a target is set; Report.h prints them.
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

// What a comparison is held to.
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

   // What is held against the limit.
   double of(double library, double twin) const;
};

// The rounds of one comparison: the cost of one operation in each, of either side.
struct Rounds {
   std::vector<double> library;
   std::vector<double> twin;
};

// Registers a comparison. `measure` runs when it is due, once.
void comparison(std::string const& name, Target target, std::function<Rounds()> measure,
                char const* unit = "ns");

// How much is measured: all sizes, or with --quick none above 100,000.
struct Effort {
   bool quick = false;

   bool covers(std::size_t size) const { return !quick || size <= 100'000; }
   // An odd number, since the medians are taken: the fewer, the longer a round takes.
   unsigned rounds(std::size_t size) const;
};
Effort& effort();

inline double median(std::vector<double> values) {
   auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
   std::nth_element(values.begin(), middle, values.end());
   return *middle;
}

// The processor time of this thread so far, in nanoseconds: what others do on the machine in the
// meantime is not in it, except for what that does to the caches.
double processorTime();

// How long the work takes, in nanoseconds.
template <class Work>
double nanoseconds(Work const& work) {
   double const start = processorTime();
   work();
   return processorTime() - start;
}

// Lets the sides take turns. `library` and `twin` return the cost of one operation; a first round of
// each warms up and does not count.
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

// Several operations that are measured in the same rounds, when the first of them is asked for.
class JointRounds {
 public:
   // One round of one side: the cost of each operation.
   using OneRound = std::function<std::vector<double>()>;
   // Builds what both sides work on, and goes with them when the rounds are through.
   using Sides = std::function<std::pair<OneRound, OneRound>()>;

   // A first round of each side warms up and does not count, unless they are few because they are
   // long.
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

// A turn that repeats one cheap operation.
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

// The subjects, each in a source of its own.
void routeComparisons();
void notificationComparisons();
void collectionComparisons();
void agingComparisons();
void frrComparisons();
void traceComparisons();
void memoryComparisons();

// What `--resident KIND` does in a process of its own: prints the resident bytes that KIND takes
// for each of its entries. False for an unknown kind.
bool printResident(std::string const& kind);
// What `--once OPERATION` does, under a tool that counts instructions. False for an unknown one.
bool runOnce(std::string const& operation);

}  // namespace Bench
