#include "platform/sim/SyncPlatform.h"

#include <iterator>
#include <utility>

namespace Sim {

using Bridging::VlanIdOrNone;
using MrouteLib::OifSetPtr;
using MrouteLib::PortVlanSet;
using MrouteLib::RouteHandle;
using Qor::U16;
using Qor::U32;
using Qor::U64;
using Routing::Multicast::Fib::IpGenRouteKey;
using Wisp::Multicast::Fib::RpaIndex;

namespace {

// The group of a set without outgoing ports.
U32 hardWired(PortVlanSet const& set) {
   return set.toCpu() ? cpuGroup : dropGroup;
}

Entry entryFor(U16 vrfId, IpGenRouteKey const& key, VlanIdOrNone vlan, bool bridge, U16 rpaId) {
   Entry entry;
   entry.vrfId = vrfId;
   entry.key = key;
   entry.acceptingVlan = vlan;
   entry.bridge = bridge;
   entry.rpaIndex = RpaIndex(rpaId);
   return entry;
}

}  // namespace

std::string_view nameOf(SyncHook hook) {
   static constexpr std::string_view names[] = {
         "mrouteInit",
         "handleMulticastRouting",
         "handleMrouteCounterMode",
         "verifyMulticastRouting",
         "mrouteSwitchInit",
         "doAllocateMtableOifSet",
         "doReallocateMtableOifSet",
         "handleFreeMtableOifSet",
         "doCreateMrouteCounter",
         "doDeleteMrouteCounter",
         "doClearMrouteCounter",
         "doReadMrouteCounter",
         "ageOutHwMcastCounter",
         "doAllocateMroute",
         "doAllocateMrouteNoRpf",
         "doSetMtableOifSet",
         "doDeleteMroute",
         "doDeleteMrouteBoundary",
         "doCommitMrouteBatch",
         "mrouteFull",
         "mrouteBoundaryFull",
         "mtableFull",
         "mrouteHitBit",
         "mrouteHitBitCacheRefresh",
         "mrouteHitBitCacheClear",
         "triggerRouteAgingReview",
         "verifyMroute",
         "verifyMrouteBoundary",
   };
   static_assert(std::size(names) == syncHooks);
   return names[static_cast<std::size_t>(hook)];
}

SyncPlatform::SyncPlatform(Qor::Name name, Qor::Ptr<Chip> chip, U32 switchId,
                           SyncPlatformConfig config)
      : MrouteSmHelper(std::move(name)),
        PlatformBase(std::move(chip), config.callCost),
        switchId_(switchId),
        groupPool_(chip_->config().groups),
        emptyPool_(freshOifSetIndex - firstEmptyIndex()),
        routePool_(chip_->config().routes),
        boundaryPool_(chip_->config().boundaries),
        counterPool_(config.counters) {}

SyncPlatform::~SyncPlatform() = default;

bool SyncPlatform::isMine(Hook hook, U32 switchId) {
   if (switchId != switchId_) misused(hook, "switch", switchId, "is another");
   return switchId == switchId_;
}

bool SyncPlatform::isServed(Hook hook, U32 switchId) {
   if (!isMine(hook, switchId)) return false;
   if (!inService_) misused(hook, "switch", switchId, "is not in service");
   return inService_;
}

// A write that may fail: whether it was done.
template <class Write>
bool SyncPlatform::attempt(WriteKind kind, Write&& write) {
   spend(faults_.extraLatency());
   return faults_.failure(kind).empty() && write().empty();
}

// A write that is tried again when it fails. Not done only when the chip refuses it.
template <class Write>
bool SyncPlatform::insist(WriteKind kind, Write&& write) {
   spend(faults_.extraLatency());
   if (!faults_.failure(kind).empty()) spend(faults_.extraLatency());
   return write().empty();
}

// ---- The chip as a whole ----

void SyncPlatform::mrouteInit(bool) {
   called(Hook::mrouteInit);
}

void SyncPlatform::handleMulticastRouting(bool enabled) {
   called(Hook::handleMulticastRouting);
   multicastRouting_ = enabled;
}

// The end may be told again when it has come.
void SyncPlatform::mrouteSwitchInit(U32 switchId, bool start) {
   called(Hook::mrouteSwitchInit);
   if (!isMine(Hook::mrouteSwitchInit, switchId)) return;
   if (start && inService_) {
      return misused(Hook::mrouteSwitchInit, "switch", switchId, "is in service already");
   }
   if (inService_) clearChip();
   inService_ = start;
}

// Entries go first: no group is deleted while a route points at it.
void SyncPlatform::clearChip() {
   for (auto const& [handle, state] : entries_)
      removeFromChip(RouteHandle(handle));
   entries_.clear();
   ended_.clear();
   for (auto const& [index, state] : sets_) {
      ended_.insert(index, state.owner);
      freeSet(index, state.group);
   }
   sets_.clear();
   hitBitsCached_ = false;
}

void SyncPlatform::doCommitMrouteBatch() {
   called(Hook::doCommitMrouteBatch);
}

void SyncPlatform::triggerRouteAgingReview() {
   called(Hook::triggerRouteAgingReview);
}

bool SyncPlatform::mrouteFull(U32 switchId) {
   called(Hook::mrouteFull);
   return isMine(Hook::mrouteFull, switchId) && routesFull();
}

bool SyncPlatform::mrouteBoundaryFull(U32 switchId) {
   called(Hook::mrouteBoundaryFull);
   return isMine(Hook::mrouteBoundaryFull, switchId) && boundariesFull();
}

bool SyncPlatform::mtableFull(U32 switchId) {
   called(Hook::mtableFull);
   return isMine(Hook::mtableFull, switchId) && groupsFull();
}

// ---- Oif sets ----

U32 SyncPlatform::groupOf(U32 oifSetIndex) const {
   if (oifSetIndex == 0) return dropGroup;
   auto const* const set = sets_.find(oifSetIndex);
   return set ? set->second.group : noGroup;
}

// An empty set gets its index whatever is wrong: its caller is promised one.
U32 SyncPlatform::doAllocateMtableOifSet(U32 switchId, U32 oifSetIndex, OifSetPtr oifSet) {
   Hook const hook = Hook::doAllocateMtableOifSet;
   called(hook);
   PortVlanSet const& set = oifSet->portVlanSet();
   if (oifSetIndex != 0 && oifSetIndex != freshOifSetIndex) {
      return rewrite(hook, switchId, oifSetIndex, set);
   }
   bool const served = isServed(hook, switchId);
   if (set.portVlan().empty()) {
      auto const number = emptyPool_.take();
      QOR_ASSERT(number);
      U32 const index = firstEmptyIndex() + *number;
      sets_.insert(index, {oifSet->serial(), hardWired(set)});
      return index;
   }
   if (!served || groupsFull()) return invalidOifSetIndex;
   U32 const group = *groupPool_.take();
   auto const create = [&] { return chip_->groupCreate(group, membersOf(set), set.toCpu()); };
   if (!attempt(WriteKind::groupCreate, create)) {
      groupPool_.give(group);
      return invalidOifSetIndex;
   }
   sets_.insert(group + 1, {oifSet->serial(), group});
   return group + 1;
}

U32 SyncPlatform::doReallocateMtableOifSet(U32 switchId, U32 oifSetIndex, OifSetPtr oifSet) {
   called(Hook::doReallocateMtableOifSet);
   return rewrite(Hook::doReallocateMtableOifSet, switchId, oifSetIndex, oifSet->portVlanSet());
}

U32 SyncPlatform::rewrite(Hook hook, U32 switchId, U32 index, PortVlanSet const& set) {
   if (!isServed(hook, switchId)) return invalidOifSetIndex;
   auto const* const state = sets_.find(index);
   if (!state) {
      notAllocated(hook, "oif set index", index);
      return invalidOifSetIndex;
   }
   U32 const group = state->second.group;
   auto const update = [&] { return chip_->groupUpdate(group, membersOf(set), set.toCpu()); };
   bool const done = inTable(group) ? attempt(WriteKind::groupUpdate, update)
                                    : set.portVlan().empty() && hardWired(set) == group;
   return done ? index : invalidOifSetIndex;
}

// The index may be another set's by now when the record is of an earlier service.
void SyncPlatform::handleFreeMtableOifSet(U32 switchId, Qor::Ptr<Vel::MtableOifSet> record) {
   Hook const hook = Hook::handleFreeMtableOifSet;
   called(hook);
   if (!isMine(hook, switchId)) return;
   U32 const index = record->oifSetIndex();
   U64 const owner = record->oifSet()->serial();
   auto const* const state = sets_.find(index);
   if (state && state->second.owner == owner) {
      if (freeSet(index, state->second.group)) sets_.take(index);
      return;
   }
   auto const* const ended = ended_.find(index);
   if (ended && ended->second == owner) {
      ended_.take(index);
   } else if (inService_) {
      notAllocated(hook, "oif set index", index);
   }
}

bool SyncPlatform::freeSet(U32 index, U32 group) {
   if (!inTable(group)) {
      emptyPool_.give(index - firstEmptyIndex());
      return true;
   }
   if (!insist(WriteKind::groupDelete, [&] { return chip_->groupDelete(group); })) return false;
   groupPool_.give(group);
   return true;
}

// ---- Entries ----

RouteHandle SyncPlatform::doAllocateMroute(U32 switchId, U16 vrfId, IpGenRouteKey const& key,
                                           VlanIdOrNone acceptingVlanId, bool bridge,
                                           U32 oifSetIndex, bool fastDrop, U16 rpaId) {
   called(Hook::doAllocateMroute);
   Entry const entry = entryFor(vrfId, key, acceptingVlanId, bridge, rpaId);
   return bridge ? allocateBoundary(Hook::doAllocateMroute, switchId, entry)
                 : allocateRoute(Hook::doAllocateMroute, switchId, entry, oifSetIndex, fastDrop);
}

RouteHandle SyncPlatform::doAllocateMrouteNoRpf(U32 switchId, U16 vrfId, IpGenRouteKey const& key,
                                                bool bridge, U32 oifSetIndex, bool fastDrop,
                                                U16 rpaId) {
   called(Hook::doAllocateMrouteNoRpf);
   return allocateRoute(Hook::doAllocateMrouteNoRpf, switchId,
                        entryFor(vrfId, key, {}, bridge, rpaId), oifSetIndex, fastDrop);
}

RouteHandle SyncPlatform::allocateRoute(Hook hook, U32 switchId, Entry const& entry,
                                        U32 oifSetIndex, bool fastDrop) {
   if (!isServed(hook, switchId)) return RouteHandle();
   EntryState const state{oifSetIndex, fastDrop};
   if (groupOf(oifSetIndex) == noGroup) {
      notAllocated(hook, "oif set index", oifSetIndex);
      return RouteHandle();
   }
   if (routesFull()) return RouteHandle();
   U32 const number = *routePool_.take();
   if (!attempt(WriteKind::routeCreate, [&] { return chip_->routeCreate(number, entry); })) {
      routePool_.give(number);
      return RouteHandle();
   }
   insist(WriteKind::routePoint, [&] { return chip_->routePoint(number, groupOf(state)); });
   entries_.insert(number, state);
   ++vrfs_.insert(entry.vrfId, 0).first->second;
   return RouteHandle(number);
}

RouteHandle SyncPlatform::allocateBoundary(Hook hook, U32 switchId, Entry const& entry) {
   if (!isServed(hook, switchId) || boundariesFull()) return RouteHandle();
   U32 const number = *boundaryPool_.take();
   if (!attempt(WriteKind::boundaryCreate, [&] { return chip_->boundaryCreate(number, entry); })) {
      boundaryPool_.give(number);
      return RouteHandle();
   }
   RouteHandle const handle(chip_->config().routes + number);
   entries_.insert(handle.value(), {});
   return handle;
}

void SyncPlatform::doSetMtableOifSet(U32 switchId, U16, RouteHandle handle,
                                     Qor::Ptr<Vel::Route const>, U32 oifSetIndex) {
   Hook const hook = Hook::doSetMtableOifSet;
   called(hook);
   if (!isServed(hook, switchId)) return;
   auto* const entry = isBoundary(handle) ? nullptr : entries_.find(handle.value());
   if (!entry) return notAllocated(hook, "route", handle.value());
   if (groupOf(oifSetIndex) == noGroup) return notAllocated(hook, "oif set index", oifSetIndex);
   EntryState& state = entry->second;
   state.oifSetIndex = oifSetIndex;
   U32 const group = groupOf(state);
   if (onChip(handle)->group == group) return;
   insist(WriteKind::routePoint, [&] { return chip_->routePoint(entryOf(handle), group); });
}

void SyncPlatform::doDeleteMroute(U32 switchId, U16, RouteHandle handle,
                                  Qor::Ptr<Vel::Route const>) {
   called(Hook::doDeleteMroute);
   deleteEntry(Hook::doDeleteMroute, switchId, handle, false);
}

void SyncPlatform::doDeleteMrouteBoundary(U32 switchId, U16, RouteHandle handle,
                                          Qor::Ptr<Vel::Boundary const>) {
   called(Hook::doDeleteMrouteBoundary);
   deleteEntry(Hook::doDeleteMrouteBoundary, switchId, handle, true);
}

void SyncPlatform::deleteEntry(Hook hook, U32 switchId, RouteHandle handle, bool boundary) {
   if (!isMine(hook, switchId) || !inService_) return;
   if (isBoundary(handle) != boundary || !entries_.find(handle.value())) {
      return notAllocated(hook, boundary ? "boundary" : "route", handle.value());
   }
   removeFromChip(handle);
   entries_.take(handle.value());
}

// Deletes an entry whose state the caller lets go of.
void SyncPlatform::removeFromChip(RouteHandle handle) {
   U32 const number = entryOf(handle);
   if (isBoundary(handle)) {
      insist(WriteKind::boundaryDelete, [&] { return chip_->boundaryDelete(number); });
      boundaryPool_.give(number);
      return;
   }
   Entry const& entry = *onChip(handle);
   if (auto* const counter = counters_.find(entry.key)) {
      counter->second.gone.packets += entry.packets;
      counter->second.gone.bytes += entry.bytes;
   }
   auto* const vrf = vrfs_.find(entry.vrfId);
   if (--vrf->second == 0) vrfs_.take(entry.vrfId);
   insist(WriteKind::routeDelete, [&] { return chip_->routeDelete(number); });
   routePool_.give(number);
}

// ---- Hit bits ----

bool SyncPlatform::mrouteHitBit(U32 switchId, U16 vrfId, IpGenRouteKey const& key,
                                VlanIdOrNone acceptingVlanId, bool boundary) {
   called(Hook::mrouteHitBit);
   if (!isMine(Hook::mrouteHitBit, switchId) || !hitBitsCached_) return false;
   bool hit = false;
   EntryTable const& table = boundary ? chip_->boundaries() : chip_->routes();
   table.forEachOf(vrfId, key, [&](U32 number, Entry const& entry) {
      if (entry.acceptingVlan != acceptingVlanId) return;
      hit = entries_.find(boundary ? chip_->config().routes + number : number)->second.hit;
   });
   return hit;
}

Qor::U8 SyncPlatform::mrouteHitBitCacheRefresh(U32 switchId) {
   called(Hook::mrouteHitBitCacheRefresh);
   if (!isMine(Hook::mrouteHitBitCacheRefresh, switchId)) return hitBitCacheRefreshed;
   if (faults_.hitBitsBusy()) return hitBitCacheBusy;
   for (auto& [handle, state] : entries_) {
      U64 const packets = onChip(RouteHandle(handle))->packets;
      state.hit = packets > std::exchange(state.packetsCached, packets);
   }
   hitBitsCached_ = true;
   return hitBitCacheRefreshed;
}

void SyncPlatform::mrouteHitBitCacheClear(U32 switchId) {
   called(Hook::mrouteHitBitCacheClear);
   if (isMine(Hook::mrouteHitBitCacheClear, switchId)) hitBitsCached_ = false;
}

// ---- Counters ----

Traffic SyncPlatform::trafficOf(IpGenRouteKey const& key, Counter const& counter) const {
   if (key == Routing::Multicast::Fib::canonicalCatchAllKey()) return chip_->hits();
   Traffic sum = counter.gone;
   for (auto const& [vrfId, routes] : vrfs_) {
      chip_->routes().forEachOf(vrfId, key, [&](U32, Entry const& entry) {
         sum.packets += entry.packets;
         sum.bytes += entry.bytes;
      });
   }
   return sum;
}

void SyncPlatform::handleMrouteCounterMode(CounterMode mode) {
   called(Hook::handleMrouteCounterMode);
   if (mode == counterMode_) return;
   counterMode_ = mode;
   for (auto& [key, counter] : counters_)
      counter.read = trafficOf(key, counter);
}

U32 SyncPlatform::doCreateMrouteCounter(U16, IpGenRouteKey const& key) {
   called(Hook::doCreateMrouteCounter);
   if (auto const* const there = counters_.find(key)) return there->second.number;
   auto const number = counterPool_.take();
   if (!number) return 0;
   Counter counter{*number + 1, {}, {}};
   counter.read = trafficOf(key, counter);
   counters_.insert(key, counter);
   return counter.number;
}

void SyncPlatform::removeCounter(IpGenRouteKey const& key) {
   if (auto const counter = counters_.take(key)) counterPool_.give(counter->number - 1);
}

void SyncPlatform::doDeleteMrouteCounter(IpGenRouteKey const& key) {
   called(Hook::doDeleteMrouteCounter);
   removeCounter(key);
}

void SyncPlatform::ageOutHwMcastCounter(IpGenRouteKey const& key) {
   called(Hook::ageOutHwMcastCounter);
   removeCounter(key);
}

void SyncPlatform::doClearMrouteCounter(IpGenRouteKey const& key) {
   called(Hook::doClearMrouteCounter);
   if (auto* const counter = counters_.find(key)) {
      counter->second.read = trafficOf(key, counter->second);
   }
}

U64 SyncPlatform::doReadMrouteCounter(IpGenRouteKey const& key) {
   called(Hook::doReadMrouteCounter);
   auto* const counter = counters_.find(key);
   if (!counter || counterMode_ == CounterMode::disabled) return 0;
   Traffic const now = trafficOf(key, counter->second);
   Traffic const before = std::exchange(counter->second.read, now);
   return counterMode_ == CounterMode::bytes ? now.bytes - before.bytes
                                             : now.packets - before.packets;
}

// ---- Comparing with the chip ----

void SyncPlatform::verifyMulticastRouting(bool enabled) {
   called(Hook::verifyMulticastRouting);
   ++verified_;
   compare("multicast routing", "enabled", multicastRouting_, enabled);
}

template <class Value>
void SyncPlatform::compare(Qor::String const& name, char const* what, Value const& onChip,
                           Value const& recorded) {
   if (onChip == recorded) return;
   differences_.add(text(name, ": ", what, ' ', onChip, " on the chip, recorded ", recorded));
}

// The entry on the chip after the comparison of what it matches; null when it is not there.
Entry const* SyncPlatform::compareEntry(RouteHandle handle, IpGenRouteKey const& key, U16 vrfId,
                                        VlanIdOrNone vlan, Qor::String const& name) {
   ++verified_;
   Entry const* const entry = onChip(handle);
   if (!entry) {
      differences_.add(name + ": not on the chip");
      return nullptr;
   }
   compare(name, "key", entry->key, key);
   compare(name, "vlan", entry->acceptingVlan, vlan);
   compare(name, "vrf", entry->vrfId, U32{vrfId});
   return entry;
}

// The members of a dirty record's group are meant to be other than its set's.
void SyncPlatform::verifyMroute(U32 switchId, U16 vrfId, Qor::Ptr<Vel::Route const> route) {
   called(Hook::verifyMroute);
   if (!isMine(Hook::verifyMroute, switchId)) return;
   Qor::String const name = text("route ", route->handle(), ' ', route->key());
   Entry const* const entry =
         compareEntry(route->handle(), route->key(), vrfId, route->acceptingVlanId(), name);
   if (!entry) return;
   compare(name, "rpa", entry->rpaIndex, RpaIndex(route->rpaId()));
   auto const record = route->mtableOifSet();
   if (!record && !route->fastdrop()) return;
   U32 const group = route->fastdrop() ? dropGroup : groupOf(record->oifSetIndex());
   compare(name, "group", groupName(entry->group), groupName(group));
   if (group == dropGroup || record->dirty() || !chip_->group(group)) return;
   PortVlanSet const& set = record->oifSet()->portVlanSet();
   compare(name, "to CPU", chip_->group(group)->toCpu, set.toCpu());
   if (chip_->group(group)->members != membersOf(set)) {
      differences_.add(text(name, ": group ", groupName(group), " differs from ", set));
   }
}

void SyncPlatform::verifyMrouteBoundary(U32 switchId, U16 vrfId,
                                        Qor::Ptr<Vel::Boundary const> boundary) {
   called(Hook::verifyMrouteBoundary);
   if (!isMine(Hook::verifyMrouteBoundary, switchId)) return;
   compareEntry(boundary->handle(), boundary->key(), vrfId, boundary->vlanId(),
                text("boundary ", boundary->handle(), ' ', boundary->key()));
}

std::vector<Qor::String> SyncPlatform::audit() const {
   std::vector<Qor::String> faults = auditChip();
   U32 inTables = 0;
   for (auto const& [index, state] : sets_) {
      if (inTable(state.group)) ++inTables;
      if (chip_->group(state.group)) continue;
      faults.push_back(text("oif set index ", index, " is allocated, its group not on the chip"));
   }
   for (auto const& [handle, state] : entries_)
      auditEntry(RouteHandle(handle), state, faults);

   auto const count = [&](char const* what, U32 pool, U32 known, U32 onChip) {
      if (pool == known && known == onChip) return;
      faults.push_back(text(what, ": ", pool, " numbers out, ", known, " allocated, ", onChip,
                            " on the chip"));
   };
   U32 const boundaries = boundariesAllocated();
   count("groups", groupsAllocated(), inTables, chip_->groups());
   count("empty sets", emptySetsAllocated(), sets_.size() - inTables, emptySetsAllocated());
   count("routes", routesAllocated(), entries_.size() - boundaries, chip_->routes().size());
   count("boundaries", boundaries, entries_.size() - routesAllocated(), chip_->boundaries().size());
   return faults;
}

void SyncPlatform::auditEntry(RouteHandle handle, EntryState const& state,
                              std::vector<Qor::String>& faults) const {
   char const* const what = isBoundary(handle) ? "boundary " : "route ";
   Entry const* const entry = onChip(handle);
   if (!entry) {
      faults.push_back(text(what, handle, " is allocated and not on the chip"));
   } else if (!isBoundary(handle) && entry->group != groupOf(state)) {
      faults.push_back(text(what, handle, " points at group ", groupName(entry->group),
                            " instead of ", groupName(groupOf(state))));
   }
}

}  // namespace Sim
