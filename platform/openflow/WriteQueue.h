// The writes to a bridge in the order of their issue, each with a transaction that completes when
// the barrier behind it is answered.
//
// Batches. Writes wait until the end of a turn, or until 64 KB of them have gathered, and one
// barrier follows each batch. The queue passes no more to the connection than it can soon send.
//
// Errors. An error of the bridge carries the xid of its write. The write fails when its barrier is
// answered, so that writes complete in their order.
//
// Blocking transactions. A write whose blocking transaction is pending holds up all writes behind
// it. A blocking transaction of this queue never holds up a write, since its own write is ahead.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "Hux/Xact.h"
#include "Qor/Clock.h"
#include "platform/Faults.h"
#include "platform/openflow/Message.h"

namespace OpenFlow {

class WriteXact final : public Hux::Xact {
 public:
   using Xact::Xact;
   Qor::String8 const& failureReason() const { return failureReason_; }
   void complete(Qor::String8 reason);

 private:
   ~WriteXact() override;
   Qor::String8 failureReason_;
};
using WriteXactPtr = Qor::Ptr<WriteXact>;

struct Write {
   // Nothing for the pipeline of the platform itself.
   std::optional<VelMroute::WriteKind> kind;
   U32 number = 0;            // of the group or entry
   U32 group = 0;             // where a flow points
   std::string message;       // empty: the write does not reach the bridge
   Qor::String8 reason = {};  // of its failure, or empty
   std::optional<Error> error = {};
   std::vector<WriteXactPtr> xacts = {};
   Hux::XactPtr blocking = nullptr;
   U32 xid = 0;
};

class WriteQueue {
 public:
   class Owner {
    public:
      virtual U32 send(std::string const& message) = 0;  // returns the xid
      virtual U32 sendBarrier() = 0;
      virtual U32 nextXid() = 0;  // for a write that is not sent
      virtual std::size_t unsent() const = 0;
      virtual bool sends() const = 0;  // there is a bridge whose tables have been read
      virtual void flush() = 0;        // gives the system what it takes of the output
      // A write completes; the owner may give it a better reason.
      virtual void completes(Write& write) = 0;

    protected:
      ~Owner() = default;
   };

   explicit WriteQueue(Owner& owner) : owner_(owner) {}

   bool empty() const { return sent_.empty() && waiting_.empty(); }

   // A batch that is complete is sent at once, so that the bridge works on it during a long turn.
   void issue(Write write);
   // Sends the write ahead of all that wait.
   void issueFirst(Write write);
   // Sends the writes that no transaction and no full output holds up.
   void pump();
   void turnEnds();

   // Returns whether the xid is that of a write.
   bool errorIs(U32 xid, Error error);
   // Returns false for a barrier that nobody waits for.
   bool barrierAnswered(U32 xid);
   // The time since the oldest barrier without an answer was sent; 0 if there is none.
   Qor::Seconds waitingForBarrier() const;
   Qor::Seconds lastBarrier() const { return lastBarrier_; }
   U64 barriers() const { return barriersSent_; }

   // Removes and returns all writes that have not completed.
   std::vector<Write> takeAll();

 private:
   struct Barrier {
      U32 xid;
      Qor::Seconds sent;
   };

   void transmit(Write write);
   void barrier();

   Owner& owner_;
   std::deque<Write> waiting_;
   std::deque<Write> sent_;
   std::deque<Barrier> barriers_;
   std::size_t waitingBytes_ = 0;
   std::size_t batch_ = 0;   // bytes since the last barrier
   bool batchOpen_ = false;  // there are writes behind the last barrier
   Qor::Seconds lastBarrier_ = 0;
   U64 barriersSent_ = 0;
};

}  // namespace OpenFlow
