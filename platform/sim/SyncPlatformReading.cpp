// The synchronous platform: reading the chip for hit bits, counters, verification and the audit.
#include <utility>

#include "platform/Format.h"
#include "platform/sim/SyncPlatform.h"

namespace Sim {

using Bridging::VlanIdOrNone;
using MrouteLib::PortVlanSet;
using Qor::U16;
using Qor::U32;
using Qor::U64;
using Routing::Multicast::Fib::IpGenRouteKey;
using Wisp::Multicast::Fib::RpaIndex;

// ---- Hit bits ----

bool SyncPlatform::mrouteHitBit(U32 switchId, U16 vrfId, IpGenRouteKey const& key,
                                VlanIdOrNone acceptingVlanId, bool boundary) {
   called(Hook::mrouteHitBit);
   if (!isMine(Hook::mrouteHitBit, switchId) || !hitBitsCached_ || faults_.refused()) return false;
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
   // A counter has a key and no VRF, so the entries of all VRFs count.
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
   // Readings in different units have no meaningful difference, so all counters restart.
   for (auto& [key, counter] : counters_)
      counter.read = trafficOf(key, counter);
}

U32 SyncPlatform::doCreateMrouteCounter(U16, IpGenRouteKey const& key) {
   called(Hook::doCreateMrouteCounter);
   if (auto const* const there = counters_.find(key)) return there->second.number;
   if (faults_.refused()) return 0;
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
   if (!counter || counterMode_ == CounterMode::disabled || faults_.refused()) return 0;
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
   differences_.add(
         fmt::format("{}: {} {} on the chip, recorded {}", name, what, onChip, recorded));
}

// Compares the match of the entry with the chip. Returns the entry on the chip, or null if missing.
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

// Fast reroute gives the group of a dirty record other members than its set, so these members are
// not compared.
void SyncPlatform::verifyMroute(U32 switchId, U16 vrfId, Qor::Ptr<Vel::Route const> route) {
   called(Hook::verifyMroute);
   if (!isMine(Hook::verifyMroute, switchId)) return;
   Qor::String const name = fmt::format("route {} {}", route->handle(), route->key());
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
      differences_.add(fmt::format("{}: group {} differs from {}", name, groupName(group), set));
   }
}

void SyncPlatform::verifyMrouteBoundary(U32 switchId, U16 vrfId,
                                        Qor::Ptr<Vel::Boundary const> boundary) {
   called(Hook::verifyMrouteBoundary);
   if (!isMine(Hook::verifyMrouteBoundary, switchId)) return;
   compareEntry(boundary->handle(), boundary->key(), vrfId, boundary->vlanId(),
                fmt::format("boundary {} {}", boundary->handle(), boundary->key()));
}

std::vector<Qor::String> SyncPlatform::audit() const {
   std::vector<Qor::String> faults = auditChip();
   U32 inTables = static_cast<U32>(found_.groups.left().size());
   U32 emptySets = 0;
   for (auto const& [index, state] : sets_) {
      ++(inTable(state.group) ? inTables : emptySets);
      if (chip_->group(state.group)) continue;
      faults.push_back(fmt::format("oif set index {} has a group that is not on the chip", index));
   }
   for (auto const& [handle, state] : entries_)
      auditEntry(RouteHandle(handle), state, faults);

   auto const count = [&](char const* what, U32 pool, U32 known, U32 onChip) {
      if (pool == known && known == onChip) return;
      faults.push_back(fmt::format("{}: {} numbers taken, {} allocated, {} on the chip", what, pool,
                                   known, onChip));
   };
   U32 const boundaries = boundariesAllocated();
   count("groups", groupsAllocated(), inTables, chip_->groups());
   count("empty sets", emptySetsAllocated(), emptySets, emptySetsAllocated());
   count("routes", routesAllocated(), entries_.size() - boundaries, chip_->routes().size());
   count("boundaries", boundaries, entries_.size() - routesAllocated(), chip_->boundaries().size());
   return faults;
}

void SyncPlatform::auditEntry(RouteHandle handle, EntryState const& state,
                              std::vector<Qor::String>& faults) const {
   char const* const what = isBoundary(handle) ? "boundary " : "route ";
   Entry const* const entry = onChip(handle);
   if (!entry) {
      faults.push_back(fmt::format("{}{} is allocated, but not on the chip", what, handle));
   } else if (!isBoundary(handle) && !state.found && entry->group != groupOf(state)) {
      faults.push_back(fmt::format("{}{} points at group {} instead of {}", what, handle,
                                   groupName(entry->group), groupName(groupOf(state))));
   }
}

}  // namespace Sim
