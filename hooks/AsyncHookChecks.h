// The checks of the asynchronous path (hooks/HookChecks.h), inside the gate
// (hooks/AsyncHookGate.h). Each function is the hook of its name: it makes the call on the
// platform's hooks, checks it, and keeps the shadow.
//
// Duties that calls cannot show: whether a write has reached the chip when its transaction
// succeeds, in which order invisible writes are applied, whether a group is rewritten or an entry
// pointed without a gap in between, whether a deletion takes effect, and whether the hit times are
// true. These need packets and a reading of the tables. A transaction that is complete when it is
// first seen may be one object for all such writes, so the rule on stale transactions leaves it
// out.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <vector>

#include "Vel/VelAsyncMrouteHelper.h"
#include "hooks/HookChecks.h"

namespace VelMroute {

class AsyncHookChecks final : public HookChecks {
 public:
   using Hooks = VelHelper::AsyncMrouteHelper;
   using RouteHandle = MrouteLib::RouteHandle;
   using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   // The hooks outlive this object.
   AsyncHookChecks(Hooks& hooks, Options options);
   ~AsyncHookChecks() override;

   // An index is a multicast id here.
   Shadow const& shadow() const { return shadow_; }

   Qor::U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                             MrouteLib::OifSetPtr const& oifSet,
                                             Hux::XactPtr const& blockingXact,
                                             bool excludeEmptyMcid);
   Qor::U32 doAllocateFixedMulticastGroup(MrouteLib::OifSetPtr const& oifSet,
                                          Hux::XactPtr const& blockingXact, Qor::U32 mcastId);
   void doUpdateMulticastGroupInPlace(MrouteLib::OifSetPtr const& oifSet, Qor::U32 mcastId);
   Hux::XactPtr doGetXactForOifSet(Qor::U32 mcastId);
   Qor::String8 doGetXactFailureReason(Hux::XactPtr const& xact, VelHelper::MrouteXactType type);
   void doDeleteOifSet(Qor::U32 mcastId);
   RouteHandle doAllocateRoute(IpGenRouteKey const& routeKey,
                               Bridging::VlanIdOrNone acceptingVlanId, bool bridgeAction,
                               Wisp::Multicast::Fib::RpaIndex rpaId, Qor::U32 vrfId);
   void doSetMtableOifSet(RouteHandle handle, Qor::U32 mcastId, Hux::XactPtr const& blockingXact);
   Hux::XactPtr doGetXactForIngress(RouteHandle handle);
   void doDeleteRoute(RouteHandle handle);
   Qor::Seconds routeLastAccessedTime(RouteHandle handle);
   bool mcastIdIsValid(Qor::U32 mcastId);
   double doGetAdjustedPollingInterval(double interval);
   double doGetAdjustedActivityPollInterval(double interval);

 private:
   // Whether any write of a group has succeeded, and whether one has failed; the pointings of
   // entries at the group share it.
   struct Written {
      bool succeeded = false;
      bool failed = false;
   };
   // A set or an entry, in the texts of faults: "group 7", "handle 7".
   struct Target {
      bool isSet;
      Qor::U32 number;
   };
   friend std::ostream& operator<<(std::ostream& os, Target target) {
      return os << (target.isSet ? "group " : "handle ") << target.number;
   }
   static Target group(Qor::U32 id) { return {true, id}; }
   static Target entry(RouteHandle handle) { return {false, handle.value()}; }
   class Watch;
   // The transactions of a set or an entry. They stay behind when it is deleted, because a stale
   // transaction may come back under the same number.
   struct Writes {
      std::unique_ptr<Watch> latest;
      Hux::XactPtr before;           // the one before the latest, if it has been pending
      std::shared_ptr<Written> set;  // of the set; of an entry, the one it was last pointed at
      Qor::Seconds hit = 0.0;        // of an entry, as last read
      bool faulty = false;           // the transaction of the last write is a fault
   };
   using Intervals = std::set<double>;

   Qor::U32 groupAllocated(Qor::U32 id, MrouteLib::OifSetPtr const& oifSet,
                           Hux::XactPtr const& blockingXact, bool fixed, bool excludeEmptyMcid);
   bool isRefusal(Qor::U32 id);
   void refused(bool ofGroups);
   void denied(Qor::String why);
   bool knownSet(Qor::U32 id);
   bool knownEntry(RouteHandle handle);
   // The transaction of a target after a write: null and stale ones are faults.
   void written(Writes& writes, Hux::XactPtr const& xact, Hux::XactPtr const& blockingXact,
                Target target);
   void watch(Writes& writes, Hux::XactPtr const& xact, Hux::XactPtr const& blockingXact,
              Target target);
   void seen(Writes& writes, Hux::XactPtr const& xact, Target target);
   void drop(Writes& writes);
   void begins(char const* hook);
   double adjusted(double interval, double result, double again, Intervals& kept);

   Hooks& hooks_;
   Shadow shadow_;
   std::map<Qor::U32, Writes> sets_;               // by id
   std::map<Qor::U32, Writes> entries_;            // by handle
   std::map<Qor::U64, Watch*> pending_;            // by the number of the call that began the write
   std::vector<std::unique_ptr<Watch>> replaced_;  // that were pending when another one came
   std::size_t sweepAt_ = 16;                      // the size of `replaced_` at its next clean-up
   std::set<Qor::U32> valid_;                      // ids that have named a group
   std::optional<Qor::U32> denied_;             // the id of a refusal, if it is not the invalid id
   bool refusedByInvalid_ = false;              // a refusal had the invalid id
   Qor::Seconds deletedAt_ = -Qor::never;       // the last deletion of a group
   Qor::Seconds routeDeletedAt_ = -Qor::never;  // and of an entry
   Qor::U32 refusals_ = 0, routeRefusals_ = 0;  // in a row
   Intervals polling_, activity_;               // that the platform says it can keep
};

}  // namespace VelMroute
