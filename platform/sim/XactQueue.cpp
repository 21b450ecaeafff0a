#include "platform/sim/XactQueue.h"

#include <algorithm>
#include <utility>

namespace Sim {

ChipXact::~ChipXact() = default;

XactQueue::XactQueue(Qor::Seconds latency)
      : latency_(latency), clock_(Qor::make<Qor::Clock>("chip transactions")) {
   clockReactor_.notifierIs(clock_);
}

XactQueue::~XactQueue() {
   close();
}

ChipXactPtr XactQueue::issue(Write write, Hux::XactPtr blockingXact, Qor::Seconds extraLatency) {
   auto const xact = Qor::make<ChipXact>();
   if (closed_) return xact;
   Qor::Seconds const due = Qor::now() + latency_ + extraLatency;
   pending_.push_back({std::move(write), xact, std::move(blockingXact), due});
   if (pending_.size() == 1) arm();
   return xact;
}

void XactQueue::flush(Qor::U32 applied) {
   for (Qor::U32 left = std::min(pending(), applied); left > 0 && !pending_.empty(); --left) {
      Pending const change = std::move(pending_.front());
      pending_.pop_front();
      complete(change);
   }
   arm();
}

void XactQueue::close() {
   closed_ = true;
   // The destruction of a write may release objects that call the queue, so the queue is empty
   // first.
   std::deque<Pending> dropped;
   dropped.swap(pending_);
   arm();
}

void XactQueue::arm() {
   if (pending_.empty()) {
      blockingReactor_.notifierIs(nullptr);
      clock_->timeMinIs(Qor::never);
      return;
   }
   // Only the first write can complete next. The clock is off while a transaction blocks this
   // write; the completion of that transaction arms the clock.
   Pending const& first = pending_.front();
   bool const blocked = first.blocked();
   blockingReactor_.notifierIs(blocked ? first.blockingXact : nullptr);
   Qor::Seconds due = first.due;
   if (blocked) due = Qor::never;
   clock_->timeMinIs(due);
}

// The number of pending writes is taken first: a write that a reactor issues during this firing
// waits for the next one, even with a latency of 0. A reactor may also release the queue.
void XactQueue::handleClock() {
   auto const self = hold();
   Qor::U32 left = std::min(pending(), completionsPerFiring);
   while (left-- > 0 && !pending_.empty()) {
      if (pending_.front().due > Qor::now() || pending_.front().blocked()) break;
      Pending const change = std::move(pending_.front());
      pending_.pop_front();
      complete(change);
   }
   arm();
}

void XactQueue::complete(Pending const& change) {
   change.xact->failureReason_ = change.write(*change.xact);
   bool const done = change.xact->failureReason_.empty();
   ++(done ? succeeded_ : failed_);
   change.xact->stateIs(done ? Hux::Xact::State::succeeded : Hux::Xact::State::failed);
}

}  // namespace Sim
