// The faults that a program injects into a platform: failed and slow writes, full tables, busy hit
// bits, and refused calls of hooks. A seed alone determines the random faults.
//
// The program plans faults; the platform asks for the fault of a write once, when it issues the
// write. A platform owns an object of this class if it can inject faults (Platform::faults()), and
// asks it in each of its hooks.
#pragma once

#include <array>
#include <memory>
#include <ostream>

#include "Qor/Types.h"

namespace VelMroute {

// The kinds of writes to the tables of a chip.
enum class WriteKind : unsigned char {
   groupCreate,
   groupUpdate,
   groupDelete,
   routeCreate,
   routePoint,
   routeDelete,
   boundaryCreate,
   boundaryDelete,
};
inline constexpr std::size_t writeKinds = 8;

std::ostream& operator<<(std::ostream& os, WriteKind kind);  // "groupCreate"

class Faults {
 public:
   // ---- Planning, by the program. ----

   // The next `count` writes of the kind fail with this reason, which must not be empty. The call
   // replaces the earlier plan for the kind.
   void failNext(WriteKind kind, Qor::String8 reason, Qor::U32 count = 1);
   // Each write of the kind fails with this probability, 0 to 1. The reason is "injected fault".
   void rateIs(WriteKind kind, double probability);
   void seedIs(Qor::U64 seed) { random_.seedIs(seed); }
   // The n-th write from now on, of any kind and counted from 1, takes `extra` more seconds.
   void slowNext(Qor::U32 n, Qor::Seconds extra);
   // The table has no room for allocations, although its capacity is not reached.
   void groupsExhaustedIs(bool v) { groupsExhausted_ = v; }
   void routesExhaustedIs(bool v) { routesExhausted_ = v; }
   void boundariesExhaustedIs(bool v) { boundariesExhausted_ = v; }
   // The next `count` readings of the hit bits find the hardware busy.
   void hitBitsBusyNext(Qor::U32 count) { hitBitsBusy_ = count; }

   // Selects one call of a hook that fails.
   struct FailedCall {
      // The number of the call among the calls of all hooks, counted from 1; 0 for none.
      Qor::U64 number = 0;
      // The hook allocates no group, entry or counter and reads no hit bits. No effect on a hook
      // without a result.
      bool refused = false;
      // The writes of the call fail with the reason "failed call".
      bool writeFails = false;
      // The number of further calls of the same hook that fail in the same way.
      Qor::U32 again = 0;
      // The next deletion of each kind fails once with the reason "failed undo": the deletions that
      // undo the failed change.
      bool undoFails = false;
   };
   void failCallIs(FailedCall const& call) { failedCall_ = call; }

   // ---- Questions of the platform. ----

   // The platform announces each call of a hook, by the number of the hook. refused() returns
   // whether this call is refused, until the next call.
   void callBegins(Qor::U32 hook);
   bool refused() const { return refused_; }
   Qor::U64 calls() const { return calls_; }  // announced calls so far

   bool groupsExhausted() const { return groupsExhausted_ || refused_; }
   bool routesExhausted() const { return routesExhausted_ || refused_; }
   bool boundariesExhausted() const { return boundariesExhausted_ || refused_; }
   // Called once per reading of the hit bits, since a call counts as a reading.
   bool hitBitsBusy() { return refused_ || (hitBitsBusy_ > 0 && hitBitsBusy_-- > 0); }
   // The reason why the write that is being issued fails; empty if it succeeds.
   Qor::String8 failure(WriteKind kind);
   // The seconds that the write takes in addition.
   Qor::Seconds extraLatency();

   // The number of failed writes and refused calls so far, and of failed writes of one kind.
   Qor::U64 injected() const { return injected_; }
   Qor::U64 injected(WriteKind kind) const {
      return planned_[static_cast<std::size_t>(kind)].injected;
   }

 private:
   // The random numbers. The generator is in the source, because <random> is slow to compile.
   class Random {
    public:
      Random();
      ~Random();
      Random(Random const& other);
      Random& operator=(Random const& other);

      void seedIs(Qor::U64 seed);
      double fraction();  // at least 0 and less than 1

    private:
      struct Generator;
      std::unique_ptr<Generator> generator_;
   };
   struct Planned {
      Qor::U32 failures = 0;
      Qor::String8 reason;
      double rate = 0;
      Qor::U64 injected = 0;
   };

   std::array<Planned, writeKinds> planned_;
   Random random_;
   Qor::U32 slowIn_ = 0;      // the number of writes up to the slow one, 0 for none
   Qor::Seconds slowBy_ = 0;  // the additional seconds of the slow write
   bool groupsExhausted_ = false;
   bool routesExhausted_ = false;
   bool boundariesExhausted_ = false;
   Qor::U32 hitBitsBusy_ = 0;
   Qor::U64 injected_ = 0;
   FailedCall failedCall_;
   Qor::U64 calls_ = 0;
   Qor::U32 failingHook_ = 0;
   Qor::U32 failingCalls_ = 0;  // the number of further calls of failingHook_ that fail
   bool refused_ = false;       // the present call is refused
   bool writeFails_ = false;    // the writes of the present call fail
};

}  // namespace VelMroute
