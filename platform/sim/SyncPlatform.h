// The synchronous platform of the simulated chip. A hook writes at once, so its writes are on the
// chip when it returns. The latency in the configuration of the chip has no effect here. One
// platform serves one chip, which has the number `switchId`.
//
// Numbers, where G is the size of the replication table and R the size of the route table.
//   oif set index 0       no set: the hard-wired group that drops
//   oif set index 1 to G  a set with a group of the replication table. Without adoption index 1 has
//                         group 0, and so on.
//   oif set index > G     an empty set with an index of its own. Its group is hard-wired: the CPU's
//                         group if the set sends to the CPU, otherwise the group that drops. The
//                         set needs no room and no write.
//   handle < R            the entry of the route table with this number
//   handle >= R           the entry of the boundary table with the number handle - R
//
// Entries. A fastdrop entry points at the group that drops, with any oif set index. An entry that
// points at the requested group already is not written. Sets that only software replicates are
// ordinary sets here; the routing layer decides what to program for them.
//
// Adoption. A request for a group adopts a found group with exactly the members of the set. If
// there are several, the first entry with the index decides: the index then stands for the group at
// which this entry points already. A request for an entry adopts the found entry with the same VRF,
// key and accepting vlan; the entry is pointed only if it points at another group. A found entry
// with another RP index is deleted and created again. If a group is freed while found entries hold
// it, the group stays on the chip and is found again. The replication table is not full while found
// groups remain, because a request may adopt one of them. For room the platform deletes a found
// group at which no entry points.
//
// Failed writes. If the creation of a group or an entry fails, the hook allocates nothing and
// returns the invalid index or handle, and the ...Full() hooks still report room. A failed rewrite
// in place returns the invalid index and leaves the group unchanged. Pointings and deletions cannot
// report a failure to the caller; the platform repeats them at once, and the repetition succeeds. A
// slow write delays the return of the hook.
//
// Rewrites in place. The group of an index up to G takes any set, including an empty one. An empty
// set has no group of its own, so a rewrite succeeds only for a set with the same hard-wired group.
//
// Hit bits. A refresh determines the entries that were hit since the refresh before; a new entry
// was hit if it has any packets. An entry that is created after a refresh has no hit until the
// next.
//
// Counters. A counter counts the hits of all entries with its key in all VRFs, including deleted
// entries. The counter of the canonical catch-all key is the wildcard counter; it counts all hits
// of the chip. A change of the counter mode restarts all counters from 0.
//
// Life. The chip is in service from mrouteSwitchInit(true) to mrouteSwitchInit(false), which clears
// the chip. The indexes of that time may still be freed, until the next end of service. Deletions
// while the chip is out of service have no effect.
#pragma once

#include <string_view>
#include <vector>

#include "Vel/VelSyncMrouteHelper.h"
#include "platform/sim/PlatformBase.h"

namespace Sim {

struct SyncPlatformConfig {
   // The number of counters of the chip.
   Qor::U32 counters = 1024;
   // The seconds of virtual time that each call of a hook takes; 0 on real time.
   Qor::Seconds callCost = 0;
};

// The hooks in the order of their slots.
enum class SyncHook : unsigned char {
   mrouteInit,
   handleMulticastRouting,
   handleMrouteCounterMode,
   verifyMulticastRouting,
   mrouteSwitchInit,
   doAllocateMtableOifSet,
   doReallocateMtableOifSet,
   handleFreeMtableOifSet,
   doCreateMrouteCounter,
   doDeleteMrouteCounter,
   doClearMrouteCounter,
   doReadMrouteCounter,
   ageOutHwMcastCounter,
   doAllocateMroute,
   doAllocateMrouteNoRpf,
   doSetMtableOifSet,
   doDeleteMroute,
   doDeleteMrouteBoundary,
   doCommitMrouteBatch,
   mrouteFull,
   mrouteBoundaryFull,
   mtableFull,
   mrouteHitBit,
   mrouteHitBitCacheRefresh,
   mrouteHitBitCacheClear,
   triggerRouteAgingReview,
   verifyMroute,
   verifyMrouteBoundary,
};
inline constexpr std::size_t syncHooks = 28;
std::string_view nameOf(SyncHook hook);

class SyncPlatform : public VelHelper::MrouteSmHelper, public PlatformBase<SyncHook, syncHooks> {
 public:
   using CounterMode = Routing::Multicast::Fib::CounterMode;
   using RouteHandle = MrouteLib::RouteHandle;
   using VlanIdOrNone = Bridging::VlanIdOrNone;

   SyncPlatform(Qor::Name name, Qor::Ptr<Chip> chip, Qor::U32 switchId,
                SyncPlatformConfig config = {});

   // The numbers of allocated groups, indexes of empty sets, and entries. The found groups and
   // entries that remain count as allocated.
   Qor::U32 groupsAllocated() const { return groupPool_.taken(); }
   Qor::U32 emptySetsAllocated() const { return emptyPool_.taken(); }
   Qor::U32 routesAllocated() const { return routePool_.taken(); }
   Qor::U32 boundariesAllocated() const { return boundaryPool_.taken(); }

   // The number of the index's group on the chip; noGroup if the index is not allocated.
   Qor::U32 groupOf(Qor::U32 oifSetIndex) const;
   // The table of a handle, and the number of the entry in that table.
   bool isBoundary(RouteHandle handle) const { return handle.value() >= chip_->config().routes; }
   Qor::U32 entryOf(RouteHandle handle) const {
      return isBoundary(handle) ? handle.value() - chip_->config().routes : handle.value();
   }

   // The agent crashes. The hooks that are called while its objects are destroyed write nothing.
   void detach() { detached_ = true; }
   // Deletes the remaining found entries and groups, entries first, when the routing layer has
   // announced the end of the replay.
   void sweepUnadopted();

   // The number of comparisons that the verify hooks made, and the differences that they found. A
   // difference is not a violation: the caller of the hook did nothing wrong.
   Qor::U64 verified() const { return verified_; }
   Violations const& differences() const { return differences_; }

   // The faults of the platform and its chip, one text each. The audit also compares the chip with
   // the allocations, and the group of each entry with its oif set index.
   std::vector<Qor::String> audit() const;

   // ---- The hooks. A call for another chip does nothing and is a violation. ----

   void mrouteInit(bool start) override;
   void handleMulticastRouting(bool enabled) override;
   void handleMrouteCounterMode(CounterMode mode) override;
   void verifyMulticastRouting(bool enabled) override;
   void mrouteSwitchInit(Qor::U32 switchId, bool start) override;
   Qor::U32 doAllocateMtableOifSet(Qor::U32 switchId, Qor::U32 oifSetIndex,
                                   MrouteLib::OifSetPtr oifSet) override;
   Qor::U32 doReallocateMtableOifSet(Qor::U32 switchId, Qor::U32 oifSetIndex,
                                     MrouteLib::OifSetPtr oifSet) override;
   void handleFreeMtableOifSet(Qor::U32 switchId, Qor::Ptr<Vel::MtableOifSet> record) override;
   Qor::U32 doCreateMrouteCounter(Qor::U16 vrfId, IpGenRouteKey const& key) override;
   void doDeleteMrouteCounter(IpGenRouteKey const& key) override;
   void doClearMrouteCounter(IpGenRouteKey const& key) override;
   Qor::U64 doReadMrouteCounter(IpGenRouteKey const& key) override;
   void ageOutHwMcastCounter(IpGenRouteKey const& key) override;
   RouteHandle doAllocateMroute(Qor::U32 switchId, Qor::U16 vrfId, IpGenRouteKey const& key,
                                VlanIdOrNone acceptingVlanId, bool bridge, Qor::U32 oifSetIndex,
                                bool fastDrop, Qor::U16 rpaId) override;
   RouteHandle doAllocateMrouteNoRpf(Qor::U32 switchId, Qor::U16 vrfId, IpGenRouteKey const& key,
                                     bool bridge, Qor::U32 oifSetIndex, bool fastDrop,
                                     Qor::U16 rpaId) override;
   void doSetMtableOifSet(Qor::U32 switchId, Qor::U16 vrfId, RouteHandle handle,
                          Qor::Ptr<Vel::Route const> route, Qor::U32 oifSetIndex) override;
   void doDeleteMroute(Qor::U32 switchId, Qor::U16 vrfId, RouteHandle handle,
                       Qor::Ptr<Vel::Route const> route) override;
   void doDeleteMrouteBoundary(Qor::U32 switchId, Qor::U16 vrfId, RouteHandle handle,
                               Qor::Ptr<Vel::Boundary const> boundary) override;
   void doCommitMrouteBatch() override;
   bool mrouteFull(Qor::U32 switchId) override;
   bool mrouteBoundaryFull(Qor::U32 switchId) override;
   bool mtableFull(Qor::U32 switchId) override;
   bool mrouteHitBit(Qor::U32 switchId, Qor::U16 vrfId, IpGenRouteKey const& key,
                     VlanIdOrNone acceptingVlanId, bool boundary) override;
   Qor::U8 mrouteHitBitCacheRefresh(Qor::U32 switchId) override;
   void mrouteHitBitCacheClear(Qor::U32 switchId) override;
   void triggerRouteAgingReview() override;
   void verifyMroute(Qor::U32 switchId, Qor::U16 vrfId, Qor::Ptr<Vel::Route const> route) override;
   void verifyMrouteBoundary(Qor::U32 switchId, Qor::U16 vrfId,
                             Qor::Ptr<Vel::Boundary const> boundary) override;

 protected:
   ~SyncPlatform() override;

 private:
   struct SetState {
      Qor::U64 owner;  // the serial of the oif set
      Qor::U32 group;
      // The set has adopted its group, and no entry has used the set so far. settleGroup() may
      // still replace the group by another one with the same members.
      bool open = false;
      bool reroutable = false;  // an open set has backup pairs, so a reroute may rewrite its group
   };
   struct EntryState {
      Qor::U32 oifSetIndex = 0;
      bool fastDrop = false;
      bool hit = false;            // the hit bit as of its last refresh
      Qor::U64 packetsCached = 0;  // packets of the entry at that refresh
      bool found = false;          // the entry is not adopted so far, and has no oif set index
   };
   struct Counter {
      Qor::U32 number;
      Traffic gone;  // the traffic of deleted entries
      Traffic read;  // the traffic of all entries up to the last reading
   };

   // Whether the call is for this chip, or for this chip in service. A wrong call is a violation.
   bool isMine(Hook hook, Qor::U32 switchId);
   bool isServed(Hook hook, Qor::U32 switchId);
   // Makes a write that may fail, and returns whether it was made.
   template <class Write>
   bool attempt(WriteKind kind, Write&& write) {
      if (detached_) return false;
      spend(faults_.extraLatency());
      return faults_.failure(kind).empty() && write().empty();
   }
   // Makes a write, and repeats it after an injected failure. Returns false only if the chip
   // refuses the write.
   template <class Write>
   bool insist(WriteKind kind, Write&& write) {
      if (detached_) return true;
      spend(faults_.extraLatency());
      if (!faults_.failure(kind).empty()) spend(faults_.extraLatency());
      return write().empty();
   }

   bool groupsFull() const { return faults_.groupsExhausted() || groupPool_.full(); }
   bool routesFull() const { return faults_.routesExhausted() || routePool_.full(); }
   bool boundariesFull() const { return faults_.boundariesExhausted() || boundaryPool_.full(); }
   EntryTable const& tableOf(RouteHandle handle) const {
      return isBoundary(handle) ? chip_->boundaries() : chip_->routes();
   }
   Entry const* onChip(RouteHandle handle) const { return tableOf(handle).find(entryOf(handle)); }
   Qor::U32 groupOf(EntryState const& state) const {
      return state.fastDrop ? dropGroup : groupOf(state.oifSetIndex);
   }
   bool inTable(Qor::U32 group) const { return group < chip_->config().groups; }
   Qor::U32 firstEmptyIndex() const { return chip_->config().groups + 1; }

   void clearChip();
   static EntryState foundState(Entry const& entry);
   std::optional<Qor::U32> adoptGroup(MrouteLib::OifSetPtr const& oifSet);
   void settleGroup(SetState& set, Qor::U32 pointedAt);
   std::optional<Qor::U32> takeGroup();
   std::optional<Qor::U32> groupForOne(FoundGroups::Content const& content, Qor::U32 pointedAt);
   bool adoptRoute(Qor::U32 number, Entry const& wanted, EntryState const& state);
   void point(Qor::U32 number, EntryState const& state);
   void sweepEntries();
   Qor::U32 rewrite(Hook hook, Qor::U32 switchId, Qor::U32 index,
                    MrouteLib::PortVlanSet const& set);
   bool freeSet(Qor::U32 index, Qor::U32 group);
   RouteHandle allocateRoute(Hook hook, Qor::U32 switchId, Entry const& entry, Qor::U32 oifSetIndex,
                             bool fastDrop);
   RouteHandle allocateBoundary(Hook hook, Qor::U32 switchId, Entry const& entry);
   void deleteEntry(Hook hook, Qor::U32 switchId, RouteHandle handle, bool boundary);
   void removeFromChip(RouteHandle handle);

   Traffic trafficOf(IpGenRouteKey const& key, Counter const& counter) const;
   void removeCounter(IpGenRouteKey const& key);

   // Adds a text to the differences if the two values differ.
   template <class Value>
   void compare(Qor::String const& name, char const* what, Value const& onChip,
                Value const& recorded);
   Entry const* compareEntry(RouteHandle handle, IpGenRouteKey const& key, Qor::U16 vrfId,
                             VlanIdOrNone vlan, Qor::String const& name);
   void auditEntry(RouteHandle handle, EntryState const& state,
                   std::vector<Qor::String>& faults) const;

   Qor::U32 const switchId_;
   bool inService_ = false;
   bool multicastRouting_ = false;
   bool hitBitsCached_ = false;
   CounterMode counterMode_ = CounterMode::packets;
   Qor::HashMap<Qor::U32, SetState> sets_;       // by index
   Qor::HashMap<Qor::U32, EntryState> entries_;  // by handle, of both tables
   Qor::HashMap<Qor::U32, Qor::U64> ended_;      // by index, the owner at the last end of service
   Qor::HashMap<Qor::U32, Qor::U32> vrfs_;       // by VRF id, the number of route entries
   Qor::HashMap<IpGenRouteKey, Counter> counters_;
   IdPool groupPool_;
   IdPool indexPool_;  // the number N stands for the oif set index N + 1
   IdPool emptyPool_;
   IdPool routePool_;
   IdPool boundaryPool_;
   IdPool counterPool_;
   Qor::U64 verified_ = 0;
   Violations differences_;
};

}  // namespace Sim
