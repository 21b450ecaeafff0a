// The faults that a platform of the simulated chip is told to have: writes that fail, writes that
// take long, tables that claim to be full, hit bits that cannot be read yet. What is random follows from a seed alone.
//
// A platform asks once for each write, when the write is issued.
#pragma once

#include <array>
#include <random>

#include "platform/sim/Chip.h"

namespace Sim {

class Faults {
 public:
   // ---- What shall go wrong. ----

   // The next `count` writes of the kind fail with this reason, which is not empty. The latest
   // call for a kind is the one that counts.
   void failNext(WriteKind kind, Qor::String8 reason, Qor::U32 count = 1);
   // Each write of the kind fails with this probability, with the reason "injected fault".
   void rateIs(WriteKind kind, double probability);
   void seedIs(Qor::U64 seed) { random_.seed(seed); }
   // The n-th write from now, of any kind and counted from 1, takes `extra` seconds longer.
   void slowNext(Qor::U32 n, Qor::Seconds extra);
   // There is no group, no route entry, no boundary entry to be had, although there is room.
   void groupsExhaustedIs(bool v) { groupsExhausted_ = v; }
   void routesExhaustedIs(bool v) { routesExhausted_ = v; }
   void boundariesExhaustedIs(bool v) { boundariesExhausted_ = v; }
   // The hardware is busy the next `count` times that the hit bits are to be read.
   void hitBitsBusyNext(Qor::U32 count) { hitBitsBusy_ = count; }

   // One call of a hook, of any, counted from 1, fails in the way it can.
   struct FailedCall {
      Qor::U64 number = 0;  // 0: none
      // What it asks for is not to be had: no group, no entry, no counter, no hit bits. A hook that
      // gives nothing has nothing to refuse.
      bool refused = false;
      // What it writes fails.
      bool writeFails = false;
      // So do the same hook's next calls, so many.
      Qor::U32 again = 0;
      // And so does the next deletion of each kind: what is being undone then.
      bool undoFails = false;
   };
   void failCallIs(FailedCall const& call) { failedCall_ = call; }

   // ---- What a platform asks. ----

   // A hook is called, given by its number. Until the next is, refused() says whether it fails so.
   void callBegins(Qor::U32 hook);
   bool refused() const { return refused_; }
   Qor::U64 calls() const { return calls_; }  // of hooks, so far

   bool groupsExhausted() const { return groupsExhausted_ || refused_; }
   bool routesExhausted() const { return routesExhausted_ || refused_; }
   bool boundariesExhausted() const { return boundariesExhausted_ || refused_; }
   // Asked once for each reading of the hit bits.
   bool hitBitsBusy() { return refused_ || (hitBitsBusy_ > 0 && hitBitsBusy_-- > 0); }
   // Why the write that is being issued shall fail; empty when it shall not.
   Qor::String8 failure(WriteKind kind);
   // How much longer it shall take.
   Qor::Seconds extraLatency();

   // How many writes have been made to fail, and calls to refuse; and writes of one kind.
   Qor::U64 injected() const { return injected_; }
   Qor::U64 injected(WriteKind kind) const {
      return planned_[static_cast<std::size_t>(kind)].injected;
   }

 private:
   struct Planned {
      Qor::U32 failures = 0;
      Qor::String8 reason;
      double rate = 0;
      Qor::U64 injected = 0;
   };

   std::array<Planned, writeKinds> planned_;
   std::mt19937_64 random_{1};
   Qor::U32 slowIn_ = 0;  // how many writes until the slow one, 0 for none
   Qor::Seconds slowBy_ = 0;
   bool groupsExhausted_ = false;
   bool routesExhausted_ = false;
   bool boundariesExhausted_ = false;
   Qor::U32 hitBitsBusy_ = 0;
   Qor::U64 injected_ = 0;
   FailedCall failedCall_;
   Qor::U64 calls_ = 0;
   Qor::U32 failingHook_ = 0;
   Qor::U32 failingCalls_ = 0;  // of that hook, still to come
   bool refused_ = false;       // the present call
   bool writeFails_ = false;    // likewise
};

}  // namespace Sim
