// The write queue of the hardware. The queue applies writes, deletions included, one by one in the
// order of their issue. Each write has a transaction that completes when the write is applied.
//
// Time. Writes overlap: a write completes at its issue plus the latency of the queue, but not
// before the preceding write completes. One clock drives the queue. One firing of the clock
// completes up to 1000 due writes in order; the next turn of the loop completes the rest. No write
// completes inside issue(), even with a latency of 0.
//
// Blocking transactions. A write with a blocking transaction is applied after that transaction has
// succeeded or failed. Until then the write holds up all writes behind it. A blocking transaction
// of the same queue never causes a wait, since its write is applied earlier.
//
// A reactor of a transaction may issue writes, close the queue, and release the queue.
#pragma once

#include <deque>
#include <functional>

#include "Hux/Xact.h"
#include "Qor/Clock.h"
#include "Qor/Pool.h"

namespace Sim {

// A transaction of a write to the chip, with the reason of its failure.
class ChipXact final : public Hux::Xact, public Qor::Pooled {
 public:
   using Xact::Xact;

   // Empty unless the transaction failed.
   Qor::String8 const& failureReason() const { return failureReason_; }

 private:
   friend class XactQueue;
   ~ChipXact() override;

   Qor::String8 failureReason_;
};

using ChipXactPtr = Qor::Ptr<ChipXact const>;

class XactQueue final : public Qor::RefCounted {
 public:
   // A function that applies a write. It returns an empty text, or the reason of the failure. The
   // argument is the transaction of the write, which is still pending.
   using Write = std::function<Qor::String8(ChipXact const&)>;

   explicit XactQueue(Qor::Seconds latency);

   // Appends a write. `blockingXact` may be null; `extraLatency` is added to the latency, in
   // seconds. A closed queue drops the write, and its transaction stays pending.
   ChipXactPtr issue(Write write, Hux::XactPtr blockingXact = nullptr,
                     Qor::Seconds extraLatency = 0);

   // A transaction that has succeeded, for a change that needs no write. All such changes have one.
   ChipXactPtr const& done() const { return done_; }

   // Applies the first `applied` waiting writes at once, ahead of their time and of their blocking
   // transactions.
   void flush(Qor::U32 applied);
   // Drops all waiting writes and all later ones: the driver of the chip is gone. The transactions
   // stay pending, and their reactors are not notified, since these may be in destruction as well.
   void close();

   // The number of waiting writes, and the numbers of writes that succeeded and failed so far.
   Qor::U32 pending() const { return static_cast<Qor::U32>(pending_.size()); }
   Qor::U64 succeeded() const { return succeeded_; }
   Qor::U64 failed() const { return failed_; }

 private:
   class QorClock final : public Qor::Clock::Notifiee {
    public:
      explicit QorClock(XactQueue* queue) : queue_(queue) {}
      void onTime() override { queue_->handleClock(); }

    private:
      XactQueue* const queue_;
   };
   // Bound to the blocking transaction for which the first write waits.
   class QorBlockingXact final : public Hux::Xact::Notifiee {
    public:
      explicit QorBlockingXact(XactQueue* queue) : queue_(queue) {}
      void onState() override { queue_->arm(); }

    private:
      XactQueue* const queue_;
   };
   struct Pending {
      Write write;
      Qor::Ptr<ChipXact> xact;
      Hux::XactPtr blockingXact;  // or null
      Qor::Seconds due;           // the earliest time of completion
      bool blocked() const { return blockingXact && blockingXact->pending(); }
   };

   static constexpr Qor::U32 completionsPerFiring = 1000;

   ~XactQueue() override;
   void handleClock();
   void complete(Pending const& change);
   // Sets the clock to the first write, or binds the reactor to its blocking transaction.
   void arm();

   Qor::Seconds const latency_;
   ChipXactPtr const done_ = Qor::make<ChipXact>(Hux::Xact::State::succeeded);
   std::deque<Pending> pending_;
   Qor::U64 succeeded_ = 0;
   Qor::U64 failed_ = 0;
   bool closed_ = false;
   Qor::Ptr<Qor::Clock> const clock_;
   QorClock clockReactor_{this};
   QorBlockingXact blockingReactor_{this};
};

}  // namespace Sim
