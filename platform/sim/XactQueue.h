// The hardware's write queue. Writes, deletions included, are applied one after the other in the
// order in which they were issued; each has a transaction that completes when it is applied.
//
// Time. A write takes the latency of the queue, and writes overlap: a write completes at the later
// of its issue plus latency and the completion of the one before. One clock drives the queue;
// completions that are due together happen in order in one firing, a thousand at most, and the rest
// in the next turn of the loop. Nothing completes inside issue(), whatever the latency.
//
// Blocking transactions. One that is still pending when the turn of its write comes holds the write
// back, and with it every write behind, until it has completed in whatever state. One of this queue
// never is, since it completes before.
//
// A watcher of a transaction may issue further writes, and may close the queue or let go of it.
#pragma once

#include <deque>
#include <functional>

#include "Hux/Xact.h"
#include "Qor/Clock.h"

namespace Sim {

// A transaction that knows why it failed.
class ChipXact final : public Hux::Xact {
 public:
   using Xact::Xact;

   // Empty while the transaction has not failed.
   Qor::String8 const& failureReason() const { return failureReason_; }

 private:
   friend class XactQueue;
   ~ChipXact() override;

   Qor::String8 failureReason_;
};

using ChipXactPtr = Qor::Ptr<ChipXact const>;

class XactQueue final : public Qor::RefCounted {
 public:
   // Does a write and returns an empty text, or does not and returns the reason.
   using Write = std::function<Qor::String8()>;

   explicit XactQueue(Qor::Seconds latency);

   // Takes a write into the queue. `blockingXact` may be null; `extraLatency` makes this write
   // slower than others.
   ChipXactPtr issue(Write write, Hux::XactPtr blockingXact = nullptr,
                     Qor::Seconds extraLatency = 0);

   // A transaction that is complete already, for a write that was not needed.
   static ChipXactPtr done();

   // Applies the first `applied` of the writes that are waiting, at once, whatever they wait for.
   void flush(Qor::U32 applied);
   // Drops what has not been applied, now and from now on, as a chip does whose driver goes away:
   // the transactions stay pending for ever and nobody is told, since those who would listen may be
   // going too.
   void close();

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
   // Bound to the transaction from elsewhere for which the first write waits.
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
      Qor::Seconds due;           // not before
      bool blocked() const { return blockingXact && blockingXact->pending(); }
   };

   static constexpr Qor::U32 completionsPerFiring = 1000;

   ~XactQueue() override;
   void handleClock();
   void complete(Pending const& change);
   // Sets the clock, or the watch on a blocking transaction, by the first write.
   void arm();

   Qor::Seconds const latency_;
   std::deque<Pending> pending_;
   Qor::U64 succeeded_ = 0;
   Qor::U64 failed_ = 0;
   bool closed_ = false;
   Qor::Ptr<Qor::Clock> const clock_;
   QorClock clockReactor_{this};
   QorBlockingXact blockingReactor_{this};
};

}  // namespace Sim
