// The asynchronous platform of the simulated chip. A hook allocates groups and entries in software
// when it is called. The writes to the chip go through a queue, which applies them later, in order.
//
// Numbers. A multicast id is the number of a group in the replication table. A route handle is the
// number of an entry in the route table. The hook that deletes a group or an entry frees the number
// at once, although the deletion still waits in the queue. A later write with the same number is
// behind the deletion in the queue, so the chip never has two users of one number.
//
// Failed writes. The transaction of a failed write has the state "failed" and a reason. A write
// that depends on a failed one fails as well, with a reason of its own, and does not reach the
// chip: a missing entry is not pointed at a group, and no entry is pointed at a missing group. The
// deletion of a group or entry that was never created succeeds and writes nothing. A rewrite of an
// allocated group that was never created creates it. No caller sees the transaction of a deletion,
// so the platform repeats a failed deletion at once: the injected failure and the deletion take one
// place each in the queue.
//
// Adoption. A request for a group returns a found group with exactly the members of the set, if
// there is one. Of several such groups, the platform prefers the group at which the route's own
// found entry points. A request for an entry returns the found entry with the same VRF, key and
// accepting vlan; the entry is pointed only if it points at another group. A change that needs no
// write has a transaction that is complete at once. No write changes whether an entry bridges, or
// its RP index. A found entry that differs in one of these is therefore deleted, and a new entry is
// created. If a group is deleted while a found entry still holds it, the group stays on the chip
// and is found again.
//
// Fixed groups. A range of multicast ids is reserved for fixed groups. The first request for a
// fixed group creates the group; further requests rewrite it in place until it is deleted.
#pragma once

#include <string_view>
#include <unordered_map>
#include <vector>

#include "Vel/VelAsyncMrouteHelper.h"
#include "platform/sim/PlatformBase.h"
#include "platform/sim/XactQueue.h"

namespace Sim {

struct AsyncPlatformConfig {
   // The range of fixed groups: `fixedGroups` ids, the lowest of which is `firstFixedGroup`.
   Qor::U32 firstFixedGroup = 0;
   Qor::U32 fixedGroups = 0;
   // The types of routes whose oif sets have fixed groups, and those without an ingress entry.
   std::vector<Routing::Multicast::Fib::RouteKeyType> fixedTypes;
   std::vector<Routing::Multicast::Fib::RouteKeyType> noIngressTypes;
   // The shortest polling interval that the platform allows, in seconds.
   Qor::Seconds minPollingInterval = 0;
   // The seconds of virtual time that each call of a hook takes; 0 on real time.
   Qor::Seconds callCost = 0;
};

// The hooks in the order of their slots.
enum class AsyncHook : unsigned char {
   handleMrouteCounterMode,
   handleWildcardCounter,
   doCreateMrouteCounter,
   doDeleteMrouteCounter,
   doAllocateSharableMulticastGroup,
   doAllocateFixedMulticastGroup,
   doUpdateMulticastGroupInPlace,
   doGetXactForOifSet,
   doGetXactFailureReason,
   doDeleteOifSet,
   doAllocateRoute,
   doSetMtableOifSet,
   doGetXactForIngress,
   doDeleteRoute,
   routeLastAccessedTime,
   needFixedOifSet,
   needIngressProgramming,
   mcastIdReusable,
   mcastIdIsValid,
   doGetAdjustedPollingInterval,
   doGetAdjustedActivityPollInterval,
   doScheduleVerify,
};
inline constexpr std::size_t asyncHooks = 22;
std::string_view nameOf(AsyncHook hook);

class AsyncPlatform : public VelHelper::AsyncMrouteHelper,
                      public PlatformBase<AsyncHook, asyncHooks> {
 public:
   using RouteKeyType = Routing::Multicast::Fib::RouteKeyType;

   // Throws RangeException "AsyncPlatformConfig::fixedGroups outside the groups of the chip not
   // allowed", also for fixed types without a fixed group.
   AsyncPlatform(Qor::Name name, Qor::Ptr<Chip> chip, AsyncPlatformConfig config = {},
                 Qor::Ptr<FlexCounters::CounterKeyTable> activeCounterKeyTable = nullptr,
                 Qor::Ptr<MrouteLib::MrouteCounterKeyMapTable> mrouteCounterKeyMapTable = nullptr);

   Qor::Ptr<XactQueue> const& queue() const { return queue_; }

   // The numbers of allocated groups and route entries, with fixed groups and with the found groups
   // and entries that remain.
   Qor::U32 groupsAllocated() const { return groupPool_.taken() + fixedAllocated_; }
   Qor::U32 routesAllocated() const { return routePool_.taken(); }

   // The agent crashes: the chip gets the first `applied` of the writes under way and none later.
   // The hooks that are called while the agent's objects are destroyed write nothing.
   void detach(Qor::U32 applied);
   // Deletes the remaining found entries and groups, when the routing layer has announced the end
   // of the replay. Returns false if a group remains because adopted entries still point at it,
   // and the writes that point them elsewhere are under way. The caller calls again when the queue
   // is empty.
   bool sweepUnadopted();

   // The faults of the platform and its chip, one text each. If the queue is empty, the audit also
   // compares the chip with the allocations whose writes succeeded.
   std::vector<Qor::String> audit() const;

   // ---- The hooks. ----

   void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) override;
   void handleWildcardCounter(bool allCounter) override;
   bool doCreateMrouteCounter(Vel::VrfId vrfId,
                              Routing::Multicast::Fib::IpGenRouteKey key) override;
   bool doDeleteMrouteCounter(Vel::VrfId vrfId,
                              Routing::Multicast::Fib::IpGenRouteKey key) override;
   // No two sets share a group, so every group can be rewritten in place.
   Qor::U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                             MrouteLib::OifSetPtr oifSet, Hux::XactPtr blockingXact,
                                             bool excludeEmptyMcid) override;
   // Returns the invalid id if `mcastId` is outside the range of fixed groups.
   Qor::U32 doAllocateFixedMulticastGroup(MrouteLib::OifSetPtr oifSet, Hux::XactPtr blockingXact,
                                          Qor::U32 mcastId) override;
   void doUpdateMulticastGroupInPlace(MrouteLib::OifSetPtr oifSet, Qor::U32 mcastId) override;
   Hux::XactPtr doGetXactForOifSet(Qor::U32 mcastId) override;
   Qor::String8 doGetXactFailureReason(Hux::XactPtr xact, VelHelper::MrouteXactType type) override;
   void doDeleteOifSet(Qor::U32 mcastId) override;
   MrouteLib::RouteHandle doAllocateRoute(Routing::Multicast::Fib::IpGenRouteKey const& routeKey,
                                          Bridging::VlanIdOrNone acceptingVlanId, bool bridgeAction,
                                          Wisp::Multicast::Fib::RpaIndex rpaId,
                                          Qor::U32 vrfId) override;
   void doSetMtableOifSet(MrouteLib::RouteHandle handle, Qor::U32 mcastId,
                          Hux::XactPtr blockingXact) override;
   // Returns null for a route that was never pointed at a group.
   Hux::XactPtr doGetXactForIngress(MrouteLib::RouteHandle handle) override;
   void doDeleteRoute(MrouteLib::RouteHandle handle) override;
   Qor::Seconds routeLastAccessedTime(MrouteLib::RouteHandle handle) override;
   bool needFixedOifSet(RouteKeyType type) override;
   bool needIngressProgramming(RouteKeyType type) override;
   bool mcastIdReusable(Qor::U32 mcastId) override;
   bool mcastIdIsValid(Qor::U32 mcastId) override;
   double doGetAdjustedPollingInterval(double const& interval) override;
   double doGetAdjustedActivityPollInterval(double const& interval) override;
   void doScheduleVerify() override;

 protected:
   ~AsyncPlatform() override;

 private:
   struct GroupState {
      bool allocated = false;
      bool onChip = false;  // the applied writes have created the group on the chip
      ChipXactPtr xact;     // the latest write of the group's members
   };
   // A write that has succeeded is replaced by XactQueue::done(), so that entries at rest have no
   // transactions of their own.
   struct RouteState {
      ChipXactPtr create;  // the creation of the entry; null if it is not allocated
      ChipXactPtr point;   // the latest write that points the entry at a group
   };

   bool isFixedGroup(Qor::U32 id) const {
      return id >= config_.firstFixedGroup && id - config_.firstFixedGroup < config_.fixedGroups;
   }
   bool groupAllocated(Qor::U32 id) const { return id < groups_.size() && groups_[id].allocated; }
   bool routeAllocated(MrouteLib::RouteHandle handle) const {
      return handle.value() < routes_.size() && routes_[handle.value()].create;
   }
   void claimGroup(Qor::U32 id);
   bool adoptRoute(Qor::U32 index, Entry const& wanted);
   void deleteFoundRoute(Qor::U32 index);
   Qor::String8 deleteFromChip(Qor::U32 index);
   Qor::String8 settled(Qor::U32 index, ChipXact const& xact, Qor::String8 refusal);
   ChipXactPtr issue(WriteKind kind, XactQueue::Write write, Hux::XactPtr blockingXact);
   void issueDelete(WriteKind kind, XactQueue::Write write);
   void writeGroup(WriteKind kind, Qor::U32 id, MrouteLib::OifSetPtr oifSet,
                   Hux::XactPtr blockingXact);
   Qor::String8 applyGroup(Qor::U32 id, MrouteLib::PortVlanSet const& set);

   AsyncPlatformConfig const config_;
   Qor::Ptr<XactQueue> const queue_;
   IdPool groupPool_;
   IdPool routePool_;
   Qor::U32 fixedAllocated_ = 0;
   std::vector<GroupState> groups_;  // by id, up to the highest id used so far
   std::vector<RouteState> routes_;  // by handle, up to the highest handle used so far
   // The group of an adopted entry until its first pointing, by handle.
   std::unordered_map<Qor::U32, Qor::U32> adoptedAt_;
   // The results of the last readings, by handle; empty until the first reading.
   std::vector<Qor::Seconds> lastAccessed_;
};

}  // namespace Sim
