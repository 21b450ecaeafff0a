#include "hooks/HookFault.h"

#include <algorithm>
#include <utility>

#include "hooks/internal/Text.h"

namespace VelMroute {

namespace {

using enum HookDuty;
constexpr HookPath async = HookPath::async, sync = HookPath::sync;

constexpr char const* order =
      "This holds if the platform applies the changes, deletions included, in the order of the "
      "calls.";
constexpr char const* sharable =
      "Chooses a free multicast id, starts programming its group with `oifSet` and returns the id; "
      "returns an invalid id if no group is free.";
constexpr char const* reason =
      "Returns the reason why `xact` failed; empty while `xact` has not failed.";
constexpr char const* hitTime =
      "Returns the time at which a packet last hit the entry, in seconds on the Qor::now() time "
      "base; 0.0 for an entry that no packet has hit.";
constexpr char const* handles =
      "No two entries of a chip have the same handle, neither within a table nor across the two "
      "tables.";
constexpr char const* full = "True if the route, boundary or replication table has no room.";
constexpr char const* emptySets =
      "An empty set has no outgoing ports and does not count against the replication table: each "
      "empty set gets an index of its own outside the table, and never the invalid index.";

constexpr HookRule rules[] = {
      {setTwice, async, "set-twice", false,
       "doAllocateSharableMulticastGroup, doAllocateFixedMulticastGroup", sharable},
      {setShared, async, "set-shared", false, "doAllocateSharableMulticastGroup",
       "`excludeEmptyMcid` is true for a fast-reroute route: the group of such a route is "
       "rewritten in place, so it must not be a group that all empty sets share."},
      {setValidity, async, "set-validity", false, "mcastIdIsValid",
       "Returns whether the id names a group; no other place decides this."},
      {entryTwice, async, "entry-twice", false, "doAllocateRoute",
       "Reserves an entry for the route and returns its handle; returns the invalid handle if no "
       "entry is free."},
      {xactNull, async, "xact-null", false, "doGetXactForOifSet, doGetXactForIngress",
       "It must not be null for a group that has been allocated and not deleted."},
      {xactStale, async, "xact-stale", false, "doGetXactForOifSet, doGetXactForIngress",
       "Returns the latest transaction that programs the group's members."},
      {xactTwice, async, "xact-twice", false, "transactions",
       "For the platform alone, which completes a transaction once."},
      {xactNever, async, "xact-never", false, "transactions",
       "A change that fails later is reported by the state of its transaction; "
       "doGetXactFailureReason returns the text."},
      {xactThread, async, "xact-thread", false, "transactions",
       "The platform must change its transactions and these collections on the same thread; a "
       "completion on another thread enters the loop through Qor/Inbox.h."},
      {blockingIgnored, async, "blocking-ignored", false,
       "doAllocateSharableMulticastGroup, doAllocateFixedMulticastGroup, doSetMtableOifSet",
       "A blocking transaction, where one is passed, must complete before the new change is "
       "applied."},
      {pointedAtFailedSet, async, "pointed-at-failed-set", false, "doSetMtableOifSet", order},
      {reasonMissing, async, "reason-missing", false, "doGetXactFailureReason", reason},
      {reasonEarly, async, "reason-early", false, "doGetXactFailureReason", reason},
      {hitAhead, async, "hit-ahead", false, "routeLastAccessedTime", hitTime},
      {hitBack, async, "hit-back", false, "routeLastAccessedTime", hitTime},
      {interval, async, "interval", false,
       "doGetAdjustedPollingInterval, doGetAdjustedActivityPollInterval",
       "Return the interval, in seconds, that the platform can keep and that is nearest to "
       "`interval`"},
      {throws, async, "throws", false, "all hooks",
       "Report a chip without room by an invalid result, and a failed change by its transaction, "
       "not by an error."},
      {deletionThrows, async, "deletion-throws", false, "doDeleteOifSet, doScheduleVerify",
       "They must not throw there: the process is terminated."},
      {setUnknown, async, "set-unknown", true,
       "doUpdateMulticastGroupInPlace, doGetXactForOifSet, doDeleteOifSet, doSetMtableOifSet",
       "doDeleteOifSet(id) ends the group: the platform may give the id to another group from then "
       "on."},
      {setInUse, async, "set-in-use", true, "doDeleteOifSet",
       "No route points at the group once the changes issued before have been applied."},
      {entryUnknown, async, "entry-unknown", true,
       "doSetMtableOifSet, doGetXactForIngress, doDeleteRoute, routeLastAccessedTime",
       "Deletes the route's entry; the platform may give out its handle again from then on."},
      {service, async, "service", true, "allocations and changes through a shut gate",
       "The switch and the reactor each hold the hooks, so the hooks outlive both."},
      {callerThread, async, "caller-thread", true, "the hooks of the other rules",
       "The library calls all hooks on the thread that drives the activity loop."},
      {refusedWhenEmpty, async, "refused-when-empty", false,
       "doAllocateSharableMulticastGroup, doAllocateRoute",
       "An invalid id or handle reports at once that no group or entry is free."},

      {setTwice, sync, "set-twice", false, "doAllocateMtableOifSet",
       "With the hint 0 or freshOifSetIndex the platform allocates a new index and returns that "
       "index."},
      {setZero, sync, "set-zero", false, "doAllocateMtableOifSet",
       "The index 0 means \"no set\", so no non-empty set has the index 0."},
      {setHint, sync, "set-hint", false, "doAllocateMtableOifSet",
       "The value 0xFFFFFFFE is a hint and never an index."},
      {emptySetRefused, sync, "empty-set-refused", false, "doAllocateMtableOifSet", emptySets},
      {emptySetTakesRoom, sync, "empty-set-takes-room", false, "mtableFull", emptySets},
      {rewriteMoves, sync, "rewrite-moves", false,
       "doAllocateMtableOifSet, doReallocateMtableOifSet",
       "With any other `oifSetIndex` it rewrites the index in place, so that every route with that "
       "index forwards to `oifSet` from then on, and returns the same index."},
      {entryTwice, sync, "entry-twice", false, "doAllocateMroute, doAllocateMrouteNoRpf", handles},
      {entryInOtherTable, sync, "entry-in-other-table", false,
       "doAllocateMroute, doAllocateMrouteNoRpf", handles},
      {refusedWithRoom, sync, "refused-with-room", false,
       "mtableFull, mrouteFull, mrouteBoundaryFull", full},
      {fullWhenEmpty, sync, "full-when-empty", false, "mtableFull, mrouteFull, mrouteBoundaryFull",
       full},
      {hitWithoutEntry, sync, "hit-without-entry", false, "mrouteHitBit",
       "True if packets have hit the route since the review before, by the hit bits cached for "
       "this review."},
      {hitCacheResult, sync, "hit-cache-result", false, "mrouteHitBitCacheRefresh",
       "Returns hitBitCacheRefreshed (the default) if the cache holds the hit bits, or "
       "hitBitCacheBusy while the hardware still collects them."},
      {deletionThrows, sync, "deletion-throws", false,
       "handleFreeMtableOifSet, mrouteSwitchInit(switchId, false)",
       "They must not throw: an exception there terminates the process."},
      {setUnknown, sync, "set-unknown", true,
       "doAllocateMtableOifSet, doReallocateMtableOifSet, handleFreeMtableOifSet, "
       "doAllocateMroute, doAllocateMrouteNoRpf, doSetMtableOifSet",
       "The platform frees the record's index; no route of the chip uses that index any more."},
      {setInUse, sync, "set-in-use", true, "handleFreeMtableOifSet",
       "The platform frees the record's index; no route of the chip uses that index any more."},
      {entryUnknown, sync, "entry-unknown", true,
       "doSetMtableOifSet, doDeleteMroute, doDeleteMrouteBoundary, verifyMroute, "
       "verifyMrouteBoundary",
       "A handle stands for an entry of the route table or of the boundary table."},
      {arguments, sync, "arguments", true, "doAllocateMroute, doAllocateMrouteNoRpf",
       "With `bridge` the hook programs a boundary entry in the boundary table; then the vlan is 1 "
       "to 4094, and the last three arguments are 0 and false."},
      {service, sync, "service", true,
       "all hooks of a chip before mrouteSwitchInit(true), after mrouteSwitchInit(false), and "
       "through a shut gate",
       "The chip's programmer starts (`start` true) or ends (false)."},
      {callerThread, sync, "caller-thread", true, "the hooks of the other rules",
       "The thread of the activity loop calls all hooks."},
};

}  // namespace

std::span<HookRule const> hookRules() {
   return rules;
}

std::ostream& operator<<(std::ostream& os, HookPath path) {
   return os << (path == HookPath::async ? "async" : "sync");
}

std::ostream& operator<<(std::ostream& os, HookCall const& call) {
   return os << call.hook << ", call " << call.number;
}

std::ostream& operator<<(std::ostream& os, HookFault const& fault) {
   HookRule const& rule = *fault.rule;
   return os << fault.call << " at " << fault.call.time << " s: rule " << rule.number() << ' '
             << rule.id << ": " << fault.text << " ("
             << (rule.byCaller ? "the caller of the hook" : "the platform") << ')';
}

HookFaults::~HookFaults() = default;

void HookFaults::add(HookFault fault) {
   ++count_;
   if (observer_) observer_(fault);
   auto const ofRule =
         std::ranges::count_if(list_, [&](auto const& kept) { return kept.rule == fault.rule; });
   if (static_cast<std::size_t>(ofRule) < kept_) list_.push_back(std::move(fault));
}

HookFaultError::HookFaultError(HookFault fault)
      : Exception(text(fault)), fault_(std::move(fault)) {}

HookFaultError::~HookFaultError() = default;

}  // namespace VelMroute
