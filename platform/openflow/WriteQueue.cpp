#include "platform/openflow/WriteQueue.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace OpenFlow {

namespace {

constexpr std::size_t batchBytes = 1 << 16;
constexpr std::size_t unsentBytes = 1 << 18;

// Xids wrap around.
bool before(U32 a, U32 b) {
   return static_cast<std::int32_t>(a - b) < 0;
}

}  // namespace

WriteXact::~WriteXact() = default;

void WriteXact::complete(Qor::String8 reason) {
   failureReason_ = std::move(reason);
   stateIs(failureReason_.empty() ? State::succeeded : State::failed);
}

// The own transactions are dropped here, since their writes are ahead in any case.
void WriteQueue::issue(Write write) {
   if (dynamic_cast<WriteXact const*>(write.blocking.get())) write.blocking = nullptr;
   waitingBytes_ += write.message.size();
   waiting_.push_back(std::move(write));
   if (waitingBytes_ < batchBytes || !owner_.sends()) return;
   pump();
   owner_.flush();
}

void WriteQueue::issueFirst(Write write) {
   transmit(std::move(write));
}

void WriteQueue::transmit(Write write) {
   // A write that cannot be sent completes in its turn behind the last one, with its barrier.
   write.xid = write.message.empty() ? owner_.nextXid() : owner_.send(write.message);
   batch_ += write.message.size();
   batchOpen_ = true;
   write.message = {};
   sent_.push_back(std::move(write));
   if (batch_ >= batchBytes) barrier();
}

void WriteQueue::barrier() {
   barriers_.push_back({owner_.sendBarrier(), Qor::now()});
   ++barriersSent_;
   batch_ = 0;
   batchOpen_ = false;
}

void WriteQueue::pump() {
   while (!waiting_.empty() && owner_.unsent() < unsentBytes) {
      if (waiting_.front().blocking && waiting_.front().blocking->pending()) return;
      Write first = std::move(waiting_.front());
      waiting_.pop_front();
      waitingBytes_ -= first.message.size();
      transmit(std::move(first));
   }
}

void WriteQueue::turnEnds() {
   pump();
   if (batchOpen_) barrier();
}

bool WriteQueue::errorIs(U32 xid, Error error) {
   auto const write =
         std::lower_bound(sent_.begin(), sent_.end(), xid,
                          [](Write const& w, U32 wanted) { return before(w.xid, wanted); });
   if (write == sent_.end() || write->xid != xid) return false;
   if (write->reason.empty()) {
      write->reason = textOf(error);
      write->error = error;
   }
   return true;
}

// A reactor of a transaction may issue writes, and may end the connection.
bool WriteQueue::barrierAnswered(U32 xid) {
   if (barriers_.empty() || barriers_.front().xid != xid) return false;
   lastBarrier_ = Qor::now() - barriers_.front().sent;
   barriers_.pop_front();
   while (!sent_.empty() && before(sent_.front().xid, xid)) {
      Write write = std::move(sent_.front());
      sent_.pop_front();
      owner_.completes(write);
      for (WriteXactPtr const& xact : write.xacts)
         xact->complete(write.reason);
   }
   return true;
}

Qor::Seconds WriteQueue::waitingForBarrier() const {
   return barriers_.empty() ? 0 : Qor::now() - barriers_.front().sent;
}

std::vector<Write> WriteQueue::takeAll() {
   std::vector<Write> all(std::make_move_iterator(sent_.begin()),
                          std::make_move_iterator(sent_.end()));
   all.insert(all.end(), std::make_move_iterator(waiting_.begin()),
              std::make_move_iterator(waiting_.end()));
   sent_.clear();
   waiting_.clear();
   waitingBytes_ = 0;
   barriers_.clear();
   batch_ = 0;
   batchOpen_ = false;
   return all;
}

}  // namespace OpenFlow
