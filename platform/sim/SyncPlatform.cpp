// The synchronous platform: its life, oif sets and entries.
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
        indexPool_(chip_->config().groups),
        emptyPool_(freshOifSetIndex - firstEmptyIndex()),
        routePool_(chip_->config().routes),
        boundaryPool_(chip_->config().boundaries),
        counterPool_(config.counters) {
   for (U32 const id : found_.groups.left())
      groupPool_.takeFound(id);
   for (U32 const number : found_.entries.left()) {
      Entry const& entry = *chip_->routes().find(number);
      routePool_.takeFound(number);
      entries_.insert(number, foundState(entry));
      ++vrfs_.insert(entry.vrfId, 0).first->second;
   }
   for (U32 const number : found_.boundaries.left()) {
      boundaryPool_.takeFound(number);
      entries_.insert(chip_->config().routes + number,
                      foundState(*chip_->boundaries().find(number)));
   }
}

SyncPlatform::~SyncPlatform() = default;

bool SyncPlatform::isMine(Hook hook, U32 switchId) {
   if (switchId != switchId_) misused(hook, "switch", switchId, "is not the one of this platform");
   return switchId == switchId_;
}

bool SyncPlatform::isServed(Hook hook, U32 switchId) {
   if (!isMine(hook, switchId)) return false;
   if (!inService_) misused(hook, "switch", switchId, "is not in service");
   return inService_;
}

// ---- The chip as a whole ----

void SyncPlatform::mrouteInit(bool) {
   called(Hook::mrouteInit);
}

void SyncPlatform::handleMulticastRouting(bool enabled) {
   called(Hook::handleMulticastRouting);
   multicastRouting_ = enabled;
}

// A second end of service is harmless, and not a violation.
void SyncPlatform::mrouteSwitchInit(U32 switchId, bool start) {
   called(Hook::mrouteSwitchInit);
   if (!isMine(Hook::mrouteSwitchInit, switchId)) return;
   if (start && inService_) {
      return misused(Hook::mrouteSwitchInit, "switch", switchId, "is in service already");
   }
   if (inService_) clearChip();
   inService_ = start;
}

// Entries go first, because the chip refuses to delete a group while an entry points at it.
void SyncPlatform::clearChip() {
   sweepEntries();
   for (auto const& [handle, state] : entries_)
      removeFromChip(RouteHandle(handle));
   entries_.clear();
   ended_.clear();
   for (auto const& [index, state] : sets_) {
      ended_.insert(index, state.owner);
      freeSet(index, state.group);
   }
   sets_.clear();
   sweepUnadopted();
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
   return isMine(Hook::mtableFull, switchId) && groupsFull() && found_.groups.left().empty();
}

// ---- Oif sets ----

U32 SyncPlatform::groupOf(U32 oifSetIndex) const {
   if (oifSetIndex == 0) return dropGroup;
   auto const* const set = sets_.find(oifSetIndex);
   return set ? set->second.group : noGroup;
}

// An empty set always gets an index, even for a wrong call: the caller relies on that.
U32 SyncPlatform::doAllocateMtableOifSet(U32 switchId, U32 oifSetIndex, OifSetPtr oifSet) {
   Hook const hook = Hook::doAllocateMtableOifSet;
   called(hook);
   PortVlanSet const& set = oifSet->portVlanSet();
   // Any other value is the index of the set whose group is to be rewritten in place.
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
   if (!served) return invalidOifSetIndex;
   if (auto const adopted = adoptGroup(oifSet)) return *adopted;
   auto const group = takeGroup();
   if (!group) return invalidOifSetIndex;
   auto const create = [&] { return chip_->groupCreate(*group, membersOf(set), set.toCpu()); };
   if (!attempt(WriteKind::groupCreate, create)) {
      groupPool_.give(*group);
      return invalidOifSetIndex;
   }
   U32 const index = *indexPool_.take() + 1;
   sets_.insert(index, {oifSet->serial(), *group});
   return index;
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
   // A hard-wired group cannot be written, so an empty set can only keep its group.
   U32 const group = state->second.group;
   auto const update = [&] { return chip_->groupUpdate(group, membersOf(set), set.toCpu()); };
   bool const done = inTable(group) ? attempt(WriteKind::groupUpdate, update)
                                    : set.portVlan().empty() && hardWired(set) == group;
   return done ? index : invalidOifSetIndex;
}

// A record from before the last end of service may have an index that now belongs to another set,
// so the owner of the index is compared.
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
   // A found entry still points at the group, so the chip would refuse the deletion.
   if (found_.entries.holds(group)) {
      found_.groups.giveBack(group, contentOf(*chip_->group(group)));
   } else if (insist(WriteKind::groupDelete, [&] { return chip_->groupDelete(group); })) {
      groupPool_.give(group);
   } else {
      return false;
   }
   indexPool_.give(index - 1);
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
   if (auto const found =
             found_.entries.find(Vel::VrfId(entry.vrfId), entry.key, entry.acceptingVlan);
       found && adoptRoute(*found, entry, state)) {
      return RouteHandle(*found);
   }
   if (routesFull()) return RouteHandle();
   U32 const number = *routePool_.take();
   if (!attempt(WriteKind::routeCreate, [&] { return chip_->routeCreate(number, entry); })) {
      routePool_.give(number);
      return RouteHandle();
   }
   point(number, state);
   entries_.insert(number, state);
   ++vrfs_.insert(entry.vrfId, 0).first->second;
   return RouteHandle(number);
}

RouteHandle SyncPlatform::allocateBoundary(Hook hook, U32 switchId, Entry const& entry) {
   if (!isServed(hook, switchId)) return RouteHandle();
   if (auto const found =
             found_.boundaries.find(Vel::VrfId(entry.vrfId), entry.key, entry.acceptingVlan)) {
      RouteHandle const handle(chip_->config().routes + *found);
      found_.boundaries.take(*found);
      entries_.find(handle.value())->second.found = false;
      ++found_.adopted;
      return handle;
   }
   if (boundariesFull()) return RouteHandle();
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
   point(entryOf(handle), state);
}

// Points the route entry at the group of its state, unless it points there already. The first entry
// of an adopted set decides between equal groups before that.
void SyncPlatform::point(U32 number, EntryState const& state) {
   U32 const pointedAt = chip_->routes().find(number)->group;
   if (auto* const set = sets_.find(state.oifSetIndex); set && set->second.open && !state.fastDrop)
      settleGroup(set->second, pointedAt);
   U32 const group = groupOf(state);
   found_.entries.release(number);
   if (pointedAt == group) return;
   insist(WriteKind::routePoint, [&] { return chip_->routePoint(number, group); });
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

// Deletes an entry from the chip. The caller removes its state, because clearChip() iterates over
// the states.
void SyncPlatform::removeFromChip(RouteHandle handle) {
   U32 const number = entryOf(handle);
   if (isBoundary(handle)) {
      insist(WriteKind::boundaryDelete, [&] { return chip_->boundaryDelete(number); });
      boundaryPool_.give(number);
      return;
   }
   Entry const& entry = *onChip(handle);
   // The chip forgets the counts of a deleted entry, but the route's counter must not decrease.
   if (auto* const counter = counters_.find(entry.key)) {
      counter->second.gone.packets += entry.packets;
      counter->second.gone.bytes += entry.bytes;
   }
   auto* const vrf = vrfs_.find(entry.vrfId);
   if (--vrf->second == 0) vrfs_.take(entry.vrfId);
   found_.entries.release(number);
   insist(WriteKind::routeDelete, [&] { return chip_->routeDelete(number); });
   routePool_.give(number);
}

}  // namespace Sim
