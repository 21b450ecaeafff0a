// The synchronous platform of the simulated chip: a driver whose hooks write at once, so that what
// a hook has returned from is on the chip. The latency of the chip's configuration is that of a
// queue, and counts for nothing here. One object serves one chip, whose number it is given.
//
// Numbers.
//   oif set index 0          no set: the hard-wired group that drops
//   index 1 to the groups    a group of the replication table; index 1 is group 0, and so on, where
//                            nothing has been adopted
//   index beyond             an empty set, each its own: a hard-wired group, the CPU's for a set
//                            that goes to the CPU. Costs no room, and needs no write.
//   handle below the routes  the entry of the route table
//   handle from there on     an entry of the boundary table: handle less the size of the route table
//
// Entries. A fast-drop entry points at the group that drops, whatever its index. An entry that
// points at the group already is not written. What is wanted of the hardware for sets that are for
// software alone is up to the routing layer: they are sets like others here.
//
// Adoption. A group is adopted for a set with exactly its members. Which one, if there are several,
// is settled by the first entry that is adopted with the index: the index then stands for the group
// that this entry points at already. An entry is adopted for the same VRF, key and vlan, and pointed
// only where it does not point at the right group already; one with another RP index is deleted
// first. A group that is freed while found entries point at it stays, found once more. While there
// are found groups the replication table counts as having room: one of them may be asked for. Those
// that no entry points at are given up for room, as zombies are.
//
// Failed writes. A group or an entry that could not be created is not allocated: the invalid number
// is the answer, while the ...Full() hooks find room. A rewrite in place that failed answers the
// invalid index, and the group is as it was. Pointings and deletions have nobody to tell, so they
// are tried again at once and always succeed. A slow write keeps its caller waiting.
//
// Rewrites in place. An index of the table takes any set, an empty one too. An index of an empty
// set has no group to write: it can only stay what it is.
//
// Hit bits. A refresh finds which entries have been hit since the refresh before, a new one by any
// packet. Entries that are made later have not been hit until the next.
//
// Counters count what hits the routes of a key in all VRFs, also those deleted meanwhile; the one
// under the canonical catch-all key is the wildcard counter, and counts whatever hits an entry of
// the chip. A change of the counter mode starts all of them anew.
//
// Life. The chip is in service from mrouteSwitchInit(true) to mrouteSwitchInit(false), which
// clears it. Frees of what was there before then are accepted until the next end; what is freed
// while out of service means nothing.
#pragma once

#include <string_view>
#include <vector>

#include "Vel/VelSyncMrouteHelper.h"
#include "platform/sim/IdPool.h"
#include "platform/sim/PlatformBase.h"

namespace Sim {

struct SyncPlatformConfig {
   // How many counters there are.
   Qor::U32 counters = 1024;
   // What each hook call costs. Not 0 only on virtual time.
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

class SyncPlatform final : public VelHelper::MrouteSmHelper,
                           public PlatformBase<SyncHook, syncHooks> {
 public:
   using CounterMode = Routing::Multicast::Fib::CounterMode;
   using RouteHandle = MrouteLib::RouteHandle;
   using VlanIdOrNone = Bridging::VlanIdOrNone;

   SyncPlatform(Qor::Name name, Qor::Ptr<Chip> chip, Qor::U32 switchId,
                SyncPlatformConfig config = {});

   Qor::U32 switchId() const { return switchId_; }
   bool inService() const { return inService_; }
   bool multicastRouting() const { return multicastRouting_; }
   CounterMode counterMode() const { return counterMode_; }

   // What is allocated at present, what has been found included; empty sets apart.
   Qor::U32 groupsAllocated() const { return groupPool_.taken(); }
   Qor::U32 emptySetsAllocated() const { return emptyPool_.taken(); }
   Qor::U32 routesAllocated() const { return routePool_.taken(); }
   Qor::U32 boundariesAllocated() const { return boundaryPool_.taken(); }
   Qor::U32 countersAllocated() const { return counterPool_.taken(); }

   // The chip's number for an index, noGroup for one that is not allocated; and for a handle, the
   // number in its table.
   Qor::U32 groupOf(Qor::U32 oifSetIndex) const;
   bool isBoundary(RouteHandle handle) const { return handle.value() >= chip_->config().routes; }
   Qor::U32 entryOf(RouteHandle handle) const {
      return isBoundary(handle) ? handle.value() - chip_->config().routes : handle.value();
   }

   // The agent crashes: nothing reaches the chip from now on, whatever is cleared on the way down.
   void detach() { detached_ = true; }
   // The routing layer has told all that it wants: deletes what was found and not asked for,
   // entries first.
   void sweepUnadopted();

   // How many comparisons with the chip the verify hooks have been asked for, and what was found to
   // differ. No fault of who asks.
   Qor::U64 verified() const { return verified_; }
   Violations const& differences() const { return differences_; }

   // What is wrong with the platform and its chip; empty when nothing is. The chip holds exactly
   // what is allocated, and each entry points where its index says.
   std::vector<Qor::String> audit() const;

   // ---- The hooks. Calls for another chip do nothing and are violations. ----

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

 private:
   struct SetState {
      Qor::U64 owner;  // the serial of the oif set that it was allocated for
      Qor::U32 group;
      bool open = false;        // adopted, and no entry has it yet: an equal group would do as well
      bool reroutable = false;  // if open: the group may be rewritten for a failed input
   };
   struct EntryState {
      Qor::U32 oifSetIndex = 0;
      bool fastDrop = false;
      bool hit = false;            // by the cached hit bits
      Qor::U64 packetsCached = 0;  // when these were read
      bool found = false;          // and not asked for; the group is not known by an index
   };
   struct Counter {
      Qor::U32 number;
      Traffic gone;  // of deleted routes
      Traffic read;  // up to the last reading
   };

   ~SyncPlatform() override;

   bool isMine(Hook hook, Qor::U32 switchId);
   bool isServed(Hook hook, Qor::U32 switchId);
   // A write that may fail: whether it was done.
   template <class Write>
   bool attempt(WriteKind kind, Write&& write) {
      if (detached_) return false;
      spend(faults_.extraLatency());
      return faults_.failure(kind).empty() && write().empty();
   }
   // A write that is tried again when it fails. Not done only when the chip refuses it.
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

   // Keeps a text when the two differ.
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
   Qor::HashMap<Qor::U32, Qor::U64> ended_;      // owners by index, at the last end of service
   Qor::HashMap<Qor::U32, Qor::U32> vrfs_;       // how many routes each VRF has
   Qor::HashMap<IpGenRouteKey, Counter> counters_;
   IdPool groupPool_;
   IdPool indexPool_;  // of sets in the table, less one
   IdPool emptyPool_;
   IdPool routePool_;
   IdPool boundaryPool_;
   IdPool counterPool_;
   Qor::U64 verified_ = 0;
   Violations differences_;
};

}  // namespace Sim
