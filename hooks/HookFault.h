// The faults that checked hooks find, and the rules that the faults break.
//
// A rule is one duty of the contract between the library and a platform, as a sentence of a header
// states it (Vel/VelAsyncMrouteHelper.h, Vel/VelSyncMrouteHelper.h, Hux/Xact.h). Its number and its
// id never change. docs/bring-up.md lists the rules, and the duties that calls alone cannot show.
#pragma once

#include <cstddef>
#include <functional>
#include <ostream>
#include <span>
#include <vector>

#include "Qor/Exception.h"
#include "Qor/Ptr.h"
#include "Qor/Types.h"

namespace VelMroute {

enum class HookPath : unsigned char { async, sync };

std::ostream& operator<<(std::ostream& os, HookPath path);  // "async"

// The rules; hookRules() has the sentence of each for the paths on which it is checked.
enum class HookDuty : unsigned char {
   setTwice = 1,
   setShared,
   setValidity,
   setZero,
   setHint,
   emptySetRefused,
   emptySetTakesRoom,
   rewriteMoves,
   entryTwice,
   entryInOtherTable,
   refusedWithRoom,
   fullWhenEmpty,
   xactNull,
   xactStale,
   xactTwice,
   xactNever,
   xactThread,
   blockingIgnored,
   pointedAtFailedSet,
   reasonMissing,
   reasonEarly,
   hitAhead,
   hitBack,
   hitWithoutEntry,
   hitCacheResult,
   interval,
   throws,
   deletionThrows,
   // Duties of the caller of the hooks: the library, or a program that calls the hooks itself.
   setUnknown,
   setInUse,
   entryUnknown,
   arguments,
   service,
   callerThread,
   refusedWhenEmpty,  // of the platform
};

struct HookRule {
   HookDuty duty;
   HookPath path;
   char const* id;  // "set-twice"
   bool byCaller;   // the caller of the hooks is at fault; otherwise the platform is
   char const* hooks;
   char const* sentence;  // of the header, letter by letter

   unsigned number() const { return static_cast<unsigned>(duty); }
};

// All rules: those of the asynchronous path by ascending number, then those of the synchronous
// path. A duty that both paths have stands twice, with the same number and id.
std::span<HookRule const> hookRules();

// The set or the entry that a call is about.
struct HookTarget {
   enum class Kind : unsigned char { none, set, entry };
   Kind kind = Kind::none;
   Qor::U32 number = 0;  // a multicast id or an oif set index, or the value of a handle

   friend bool operator==(HookTarget const&, HookTarget const&) = default;
};

// One call of a hook.
struct HookCall {
   char const* hook = "";    // "doAllocateRoute"; valid for ever
   Qor::U64 number = 0;      // of the call, from 1, over all gates with one list of faults
   Qor::Seconds time = 0.0;  // of the call, as of Qor::now()
   HookTarget target = {};   // of an allocation: its result
};

std::ostream& operator<<(std::ostream& os, HookCall const& call);  // "doAllocateRoute, call 7"

struct HookFault {
   HookRule const* rule;  // of hookRules()
   HookCall call;         // the call that showed the fault
   Qor::String text;      // the fault with the numbers concerned: "handle 7 is in use: ..."
};

// "doAllocateRoute, call 7 at 0.25 s: rule 9 entry-twice: handle 7 ... (the platform)"
std::ostream& operator<<(std::ostream& os, HookFault const& fault);

// A list of faults, in the order of their finding. Several gates may share a list, for example
// those of the chips of one hook object. The list keeps the first faults of each rule, so that a
// fault in each call does not hide the others, and counts all of them.
class HookFaults final : public Qor::RefCounted {
 public:
   // `kept`: the number of faults that the list keeps of one rule.
   explicit HookFaults(std::size_t kept = 10) : kept_(kept) {}

   std::vector<HookFault> const& list() const { return list_; }
   Qor::U64 count() const { return count_; }
   // Calls the observer for each fault from now on, also for those that are not kept. The call may
   // come from inside a destructor, so the observer must not throw; it must not call hooks.
   void onFault(std::function<void(HookFault const&)> observer) { observer_ = std::move(observer); }

   // For the gates: the number of the next call, and a fault.
   Qor::U64 nextCall() { return ++calls_; }
   void add(HookFault fault);

 private:
   ~HookFaults() override;

   std::size_t const kept_;
   std::vector<HookFault> list_;
   Qor::U64 count_ = 0;
   Qor::U64 calls_ = 0;
   std::function<void(HookFault const&)> observer_;
};

// The error that ends an allocation whose result breaks the contract, before the library sees the
// result. The text is that of the fault.
class HookFaultError final : public Qor::Exception {
 public:
   explicit HookFaultError(HookFault fault);
   ~HookFaultError() override;
   HookFault const& fault() const { return fault_; }

 private:
   HookFault fault_;
};

}  // namespace VelMroute
