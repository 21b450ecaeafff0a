// The asynchronous platform of the simulated chip: a driver that allocates groups and entries in
// software, at the call, and writes them through a queue that applies them later, in order.
//
// Numbers. A multicast id is the number of a group in the replication table, a route handle that
// of an entry in the route table. Both come back into use at the call that deletes their group or
// entry, although the deletion is still in the queue: whatever is written under the number again
// is behind that deletion in the queue, and is applied after it.
//
// Failed writes. The transaction tells. A write that needs an earlier one that failed fails too,
// with a reason of its own, and never reaches the chip: a route entry that was not created is not
// pointed and not deleted, a group that was not created is not deleted, and no route is pointed at
// it. Where members are written to an allocated group that was not created, it is created.
// Deletions have no transaction that anyone sees, so a deletion that fails is tried again at once
// until done: with an injected fault it takes a second place in the queue.
//
// Adoption. A group is adopted for a set with exactly its members: the one that the route's own
// found entry points at, if that is one of them. An entry is adopted for the same VRF, key and vlan,
// and pointed only where it does not point at the right group already. The transactions of what was
// not written are complete at once. A found entry that differs in what cannot be changed, whether it
// bridges and its RP index, is deleted first. A group that is deleted while found entries point at
// it stays, found once more.
//
// Fixed groups are a range of the replication table that is set aside. A fixed group is created
// the first time it is asked for, and rewritten in place from then on until it is deleted.
#pragma once

#include <string_view>
#include <vector>

#include "Vel/VelAsyncMrouteHelper.h"
#include "platform/sim/IdPool.h"
#include "platform/sim/PlatformBase.h"
#include "platform/sim/XactQueue.h"

namespace Sim {

struct AsyncPlatformConfig {
   // The fixed groups: `fixedGroups` ids from `firstFixedGroup` on.
   Qor::U32 firstFixedGroup = 0;
   Qor::U32 fixedGroups = 0;
   // The types whose oif sets live in fixed groups, and those that need no ingress entry.
   std::vector<Routing::Multicast::Fib::RouteKeyType> fixedTypes;
   std::vector<Routing::Multicast::Fib::RouteKeyType> noIngressTypes;
   // The shortest interval at which activity can be polled.
   Qor::Seconds minPollingInterval = 0;
   // What each hook call costs. Not 0 only on virtual time.
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

class AsyncPlatform final : public VelHelper::AsyncMrouteHelper,
                            public PlatformBase<AsyncHook, asyncHooks> {
 public:
   using RouteKeyType = Routing::Multicast::Fib::RouteKeyType;

   // RangeException "AsyncPlatformConfig::fixedGroups outside the groups of the chip not allowed".
   AsyncPlatform(Qor::Name name, Qor::Ptr<Chip> chip, AsyncPlatformConfig config = {},
                 Qor::Ptr<FlexCounters::CounterKeyTable> activeCounterKeyTable = nullptr,
                 Qor::Ptr<MrouteLib::MrouteCounterKeyMapTable> mrouteCounterKeyMapTable = nullptr);

   Qor::Ptr<XactQueue> const& queue() const { return queue_; }

   // What is allocated at present, fixed groups and what has been found included.
   Qor::U32 groupsAllocated() const { return groupPool_.taken() + fixedAllocated_; }
   Qor::U32 routesAllocated() const { return routePool_.taken(); }

   // The agent crashes. Of the writes under way the first `applied` still reach the chip, and
   // nothing else does from now on, whatever is deleted on the way down.
   void detach(Qor::U32 applied);
   // The routing layer has told all that it wants: deletes what was found and not asked for,
   // entries first. False: groups had to stay, since writes are under way that take entries away
   // from them; sweep again when these are through.
   bool sweepUnadopted();

   // What is wrong with the platform and its chip; empty when nothing is. With an empty queue the
   // chip also holds exactly what is allocated and has not failed.
   std::vector<Qor::String> audit() const;

   // ---- The hooks. ----

   void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) override;
   void handleWildcardCounter(bool allCounter) override;
   bool doCreateMrouteCounter(Vel::VrfId vrfId,
                              Routing::Multicast::Fib::IpGenRouteKey key) override;
   bool doDeleteMrouteCounter(Vel::VrfId vrfId,
                              Routing::Multicast::Fib::IpGenRouteKey key) override;
   // Each group is one set's own, so that every group can be rewritten in place.
   Qor::U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                             MrouteLib::OifSetPtr oifSet, Hux::XactPtr blockingXact,
                                             bool excludeEmptyMcid) override;
   // The invalid id for an id that is not that of a fixed group.
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
   // Null for a route that has not been pointed at a group.
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

 private:
   struct GroupState {
      bool allocated = false;
      bool onChip = false;  // as far as the queue has been applied
      ChipXactPtr xact;     // the latest that writes its members
   };
   struct RouteState {
      ChipXactPtr create;            // null when not allocated
      ChipXactPtr point;             // the latest that points it
      Qor::U32 adoptedAt = noGroup;  // where it has pointed since before it was adopted
   };

   ~AsyncPlatform() override;

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
   ChipXactPtr issue(XactQueue::Write write, Hux::XactPtr blockingXact);
   void issueDelete(WriteKind kind, XactQueue::Write write);
   void writeGroup(WriteKind kind, Qor::U32 id, MrouteLib::OifSetPtr oifSet,
                   Hux::XactPtr blockingXact);
   Qor::String8 applyGroup(Qor::U32 id, MrouteLib::PortVlanSet const& set);

   AsyncPlatformConfig const config_;
   Qor::Ptr<XactQueue> const queue_;
   IdPool groupPool_;
   IdPool routePool_;
   Qor::U32 fixedAllocated_ = 0;
   std::vector<GroupState> groups_;  // by id, as far as one has been used
   std::vector<RouteState> routes_;  // by handle, likewise
};

}  // namespace Sim
