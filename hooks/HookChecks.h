// The checks in the gates in front of a platform's hooks: the common part of both paths. An
// embedder turns them on with one argument of a gate, or of a table programmer's inputs:
//
//    auto const gate = Qor::make<VelMroute::AsyncHookGate>(hooks, HookChecks::Options{});
//
// Each call that passes the gate is compared with the calls before it. A result or a call that
// breaks the contract is a fault (hooks/HookFault.h).
//
//  - An allocation of the platform that the library cannot use is stopped: the gate throws
//    HookFaultError, and the library has recorded nothing. The programmer then fails the route with
//    the text of the fault, and tries again later.
//  - All other faults are recorded, and the call goes on as without checks.
//
// Results that were stopped. An index or a handle that is in use stays with its first owner: the
// gate does not delete it, because the owner would lose it. The chip may have the second write
// under it, so the fault is not undone by dropping the route. A group without a transaction is
// deleted again. An index that a rewrite moved to, and one that the library cannot use (0, a hint),
// stays allocated on the platform: the library has no call that would free it. The platform may
// have lost room by then, so from the first stopped allocation, moved index or deletion that threw
// on, the rules on full tables rest.
//
// Questions to the platform. The checks call hooks that only read, beside the calls of the library:
// mcastIdIsValid, doGetXactForOifSet and doGetXactForIngress after a write, the interval hooks with
// their own result, ...Full() after a refusal, and mtableFull() after the start of a chip. The
// platform sees more of these calls than without checks.
//
// Shut gates. A call that a shut gate stops does not change the shadow.
//
// Environment. With VEL_NOOP_AGENT hooks may return anything, so the gates check nothing then.
#pragma once

#include <functional>

#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "hooks/HookFault.h"
#include "hooks/Shadow.h"

namespace VelMroute {

class HookChecks {
 public:
   struct Options {
      // The list of faults; null: the gate makes one. Gates that share a list number their calls
      // together.
      Qor::Ptr<HookFaults> faults = {};
      // Whether an allocation is stopped. Without it the library gets the bad result, and may stop
      // the process in an assertion.
      bool stops = true;
      // The tables of the chip are empty at the first call, and no other program uses them. Set it
      // to false for a chip that keeps its tables over a restart, or shares them.
      bool startsEmpty = true;
      // The number of allocations refused in a row that is a fault. Counted are refusals while
      // ...Full() returns false, and on the asynchronous path while nothing is allocated. A single
      // one is none, because a failed write may be refused likewise. A chip on which a large set or
      // an IPv6 entry finds no room where a smaller one does needs another number. 0: all rules on
      // full tables rest, for a program that injects refusals.
      Qor::U32 refusals = 3;
      // The seconds after which a pending transaction is a fault, unless a later write or a
      // deletion has replaced its write; 0: never. The gate looks at its oldest transaction in each
      // call. A deletion is expected to make room within this time.
      Qor::Seconds patience = 60;
      // Says whether route handles of ranges are shared (rangeRouteHandleShared); null: they are
      // not. The programmer passes its own.
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status const> status = {};
      // Notified of the changes of the tables (hooks/HookObserver.h); null: none.
      Qor::Ptr<HookObserver> observer = {};
   };

   HookChecks(HookChecks const&) = delete;
   HookChecks& operator=(HookChecks const&) = delete;
   virtual ~HookChecks();

   Options const& options() const { return options_; }
   Qor::Ptr<HookFaults> const& faults() const { return options_.faults; }

   // For the gates: a hook of the platform threw, in a destructor or not; a hook was called while
   // the gate was shut.
   void threw(char const* hook, char const* error, bool inDestructor);
   void calledShut(char const* hook);

 protected:
   HookChecks(HookPath path, Options options);

   // A call begins. The call is the one of the faults that follow.
   HookCall const& begins(char const* hook);
   HookCall const& call() const { return call_; }
   // The set or entry that the present call is about.
   void aboutSet(Qor::U32 index) { call_.target = {HookTarget::Kind::set, index}; }
   void aboutEntry(MrouteLib::RouteHandle handle) {
      call_.target = {HookTarget::Kind::entry, handle.value()};
   }
   bool onHomeThread() const { return thisThread() == home_; }
   void fault(HookDuty duty, Qor::String text) { fault(duty, call_, std::move(text)); }
   void fault(HookDuty duty, HookCall const& call, Qor::String text);
   // Records the fault and throws it, unless options().stops is false.
   void stop(HookDuty duty, Qor::String text);
   // Whether the platform may have lost room, by a fault.
   bool roomLost() const { return roomLost_; }
   void roomLostIs() { roomLost_ = true; }

 private:
   HookRule const& rule(HookDuty duty) const;
   // Identifies the calling thread.
   static void const* thisThread();

   HookPath const path_;
   Options options_;
   void const* const home_ = thisThread();
   HookCall call_;
   bool roomLost_;
};

}  // namespace VelMroute
