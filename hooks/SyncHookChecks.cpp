#include "hooks/SyncHookChecks.h"

#include <utility>

#include "hooks/HookQuestion.h"
#include "hooks/internal/Text.h"

namespace VelMroute {

using Bridging::VlanIdOrNone;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Qor::U16;
using Qor::U32;
using Routing::Multicast::Fib::IpGenRouteKey;

namespace {

Shadow::Entry entryFor(HookCall const& call, U16 vrfId, IpGenRouteKey const& key, VlanIdOrNone vlan,
                       bool bridge, U32 oifSetIndex, bool fastDrop, U16 rpaId) {
   Shadow::Entry entry;
   entry.vrfId = vrfId;
   entry.key = key;
   entry.vlan = vlan;
   entry.boundary = entry.bridge = bridge;
   entry.drops = fastDrop;
   entry.rpa = Wisp::Multicast::Fib::RpaIndex(rpaId);
   entry.set = oifSetIndex;
   entry.lastCall = call;
   return entry;
}

}  // namespace

SyncHookChecks::SyncHookChecks(Hooks& hooks, Options options)
      : HookChecks(HookPath::sync, std::move(options)), hooks_(hooks) {}

SyncHookChecks::~SyncHookChecks() = default;

Shadow const* SyncHookChecks::shadow(U32 switchId) const {
   auto const found = chips_.find(switchId);
   return found == chips_.end() ? nullptr : &found->second.shadow;
}

// ---- Service. ----

SyncHookChecks::Chip& SyncHookChecks::chip(char const* hook, U32 switchId) {
   begins(hook);
   Chip& of = chips_[switchId];
   of.shadow.observerIs(options().observer.get());
   return of;
}

SyncHookChecks::Chip& SyncHookChecks::served(char const* hook, U32 switchId) {
   Chip& of = chip(hook, switchId);
   if (!of.inService) fault(HookDuty::service, text("switch ", switchId, " is not in service"));
   return of;
}

void SyncHookChecks::mrouteSwitchInit(U32 switchId, bool start) {
   Chip& of = chip("mrouteSwitchInit", switchId);
   if (start && of.inService) {
      fault(HookDuty::service, text("switch ", switchId, " is started, and in service"));
   }
   if (!start) of.ended = of.owners;
   of.owners.clear();
   of.shadow.clear(call());
   of.refusals = {};
   of.inService = start;
   hooks_.mrouteSwitchInit(switchId, start);
   if (!start || !options().startsEmpty) return;
   HookQuestion const question;
   of.hadRoom = !replicationFull(of, switchId);
}

// ---- Room. ----

// A refused allocation is a failed write or a full table. A table without room says so.
void SyncHookChecks::refused(Chip& chip, U32 switchId, Table table) {
   static constexpr char const* hooks[] = {"mtableFull", "mrouteFull", "mrouteBoundaryFull"};
   bool const full = HookQuestion::ask([&] {
      return table == sets     ? hooks_.mtableFull(switchId)
             : table == routes ? hooks_.mrouteFull(switchId)
                               : hooks_.mrouteBoundaryFull(switchId);
   });
   U32& inRow = chip.refusals[table];
   inRow = full || roomLost() ? 0 : inRow + 1;
   if (inRow == 0 || inRow != options().refusals) return;
   fault(HookDuty::refusedWithRoom, text(inRow, " allocations in a row are refused, while ",
                                         hooks[table], "() returns false each time"));
   inRow = 0;
}

bool SyncHookChecks::fullWhen(bool full, bool empty, char const* what) {
   if (full && empty && options().startsEmpty && !roomLost()) {
      fault(HookDuty::fullWhenEmpty, text("returns true while ", what));
   }
   return full;
}

// A table that had room with no set, and has none with empty sets alone, is filled by these.
bool SyncHookChecks::replicationFull(Chip const& chip, U32 switchId) {
   U32 const emptySets = chip.shadow.emptySets();
   bool const full = hooks_.mtableFull(switchId);
   bool const empty = chip.shadow.sets() == emptySets;
   if (!full || !empty || emptySets == 0 || !chip.hadRoom || roomLost()) {
      return fullWhen(full, empty, "no set with members is allocated");
   }
   fault(HookDuty::emptySetTakesRoom,
         text("returns true while ", emptySets, " empty sets are the only ones"));
   return full;
}

bool SyncHookChecks::mtableFull(U32 switchId) {
   return replicationFull(chip("mtableFull", switchId), switchId);
}

// The two tables of entries may have their room in common.
bool SyncHookChecks::mrouteFull(U32 switchId) {
   Shadow const& shadow = chip("mrouteFull", switchId).shadow;
   bool const empty = shadow.routes() + shadow.boundaries() == 0;
   return fullWhen(hooks_.mrouteFull(switchId), empty, "no entry is allocated");
}

bool SyncHookChecks::mrouteBoundaryFull(U32 switchId) {
   Shadow const& shadow = chip("mrouteBoundaryFull", switchId).shadow;
   bool const empty = shadow.routes() + shadow.boundaries() == 0;
   return fullWhen(hooks_.mrouteBoundaryFull(switchId), empty, "no entry is allocated");
}

// ---- Sets. ----

bool SyncHookChecks::knownSet(Chip const& chip, U32 index) {
   aboutSet(index);
   if (index == 0 || chip.shadow.set(index)) return true;
   fault(HookDuty::setUnknown, text("index ", index, " is not allocated"));
   return false;
}

U32 SyncHookChecks::doAllocateMtableOifSet(U32 switchId, U32 oifSetIndex, OifSetPtr const& oifSet) {
   Chip& of = served("doAllocateMtableOifSet", switchId);
   bool const isNew = oifSetIndex == 0 || oifSetIndex == Hooks::freshOifSetIndex;
   if (!isNew) knownSet(of, oifSetIndex);
   U32 const index = hooks_.doAllocateMtableOifSet(switchId, oifSetIndex, oifSet);
   if (!isNew) return rewritten(of, oifSetIndex, index, oifSet);

   bool const empty = oifSet->portVlanSet().portVlan().empty();
   if (index == Hooks::invalidOifSetIndex) {
      if (empty) {
         stop(HookDuty::emptySetRefused, "an empty set gets no index");
      } else {
         refused(of, switchId, sets);
      }
      return index;
   }
   aboutSet(index);
   if (index == 0 && !empty) stop(HookDuty::setZero, "a set with members gets the index 0");
   if (index == Hooks::freshOifSetIndex) {
      stop(HookDuty::setHint, text("a set gets the hint ", index, " as its index"));
   }
   if (Shadow::Set const* const live = of.shadow.set(index)) {
      stop(HookDuty::setTwice,
           text("index ", index, " is given out, and in use since ", live->lastCall));
      return index;
   }
   of.refusals[sets] = 0;
   of.shadow.setMade(index, oifSet->portVlanSet(), false, call());
   of.owners[index] = oifSet->serial();
   return index;
}

U32 SyncHookChecks::doReallocateMtableOifSet(U32 switchId, U32 oifSetIndex,
                                             OifSetPtr const& oifSet) {
   Chip& of = served("doReallocateMtableOifSet", switchId);
   knownSet(of, oifSetIndex);
   return rewritten(of, oifSetIndex, hooks_.doReallocateMtableOifSet(switchId, oifSetIndex, oifSet),
                    oifSet);
}

// The invalid index reports a failed rewrite, and leaves the set as it was.
U32 SyncHookChecks::rewritten(Chip& chip, U32 index, U32 result, OifSetPtr const& oifSet) {
   if (result != index && result != Hooks::invalidOifSetIndex) {
      roomLostIs();
      fault(HookDuty::rewriteMoves,
            text("the rewrite of index ", index, " returns the index ", result));
   }
   if (result == index && chip.shadow.set(index)) {
      chip.shadow.setWritten(index, oifSet->portVlanSet(), call());
   }
   return result;
}

// A record that outlives the end of service is freed afterwards. A new set may have its index then.
void SyncHookChecks::handleFreeMtableOifSet(U32 switchId,
                                            Qor::Ptr<Vel::MtableOifSet> const& record) {
   Chip& of = chip("handleFreeMtableOifSet", switchId);
   U32 const index = record->oifSetIndex();
   aboutSet(index);
   Qor::U64 const owner = record->oifSet()->serial();
   Shadow::Set const* const set = of.shadow.set(index);
   if (set && of.owners[index] == owner) {
      if (set->entries > 0) {
         fault(HookDuty::setInUse,
               text("index ", index, " is freed, and ", set->entries, " entries point at it"));
      }
      of.owners.erase(index);
      of.shadow.setDeleted(index, call());
   } else if (auto const ended = of.ended.find(index);
              ended != of.ended.end() && ended->second == owner) {
      of.ended.erase(ended);
   } else {
      fault(HookDuty::setUnknown, text("index ", index, " is not allocated for this set"));
   }
   hooks_.handleFreeMtableOifSet(switchId, record);
}

// ---- Entries. ----

bool SyncHookChecks::knownEntry(Chip const& chip, RouteHandle handle, bool boundary) {
   aboutEntry(handle);
   Shadow::Entry const* const entry = chip.shadow.entry(handle);
   if (entry && entry->boundary == boundary) return true;
   fault(HookDuty::entryUnknown, text("handle ", handle, " is not allocated in the ",
                                      boundary ? "boundary" : "route", " table"));
   return false;
}

// Whether the hardware may share the handle between two routes of one range.
bool SyncHookChecks::isShared(Shadow::Entry const& live, Shadow::Entry const& entry) const {
   bool const range = entry.key.kind() == IpGenRouteKey::kindGroupRange ||
                      entry.key.kind() == IpGenRouteKey::kindCatchAll;
   bool const shared = options().status && options().status->rangeRouteHandleShared();
   return shared && range && !live.boundary && !entry.boundary && live.key == entry.key &&
          live.vlan == entry.vlan;
}

RouteHandle SyncHookChecks::allocated(Chip& chip, U32 switchId, RouteHandle handle,
                                      Shadow::Entry entry) {
   Table const table = entry.boundary ? boundaries : routes;
   if (handle.isNull()) {
      refused(chip, switchId, table);
      return handle;
   }
   aboutEntry(handle);
   entry.lastCall = call();
   if (Shadow::Entry const* const live = chip.shadow.entry(handle)) {
      if (isShared(*live, entry)) {
         chip.shadow.entryDeleted(handle, call());
         chip.shadow.entryMade(handle, std::move(entry));
         return handle;
      }
      stop(live->boundary == entry.boundary ? HookDuty::entryTwice : HookDuty::entryInOtherTable,
           text("handle ", handle, " is given out for ", entry.key, ", and in use for ",
                live->boundary ? "the boundary entry " : "", live->key, " since ", live->lastCall));
      return handle;
   }
   chip.refusals[table] = 0;
   chip.shadow.entryMade(handle, std::move(entry));
   return handle;
}

RouteHandle SyncHookChecks::doAllocateMroute(U32 switchId, U16 vrfId, IpGenRouteKey const& key,
                                             VlanIdOrNone acceptingVlanId, bool bridge,
                                             U32 oifSetIndex, bool fastDrop, U16 rpaId) {
   Chip& of = served("doAllocateMroute", switchId);
   if (bridge && (acceptingVlanId.isNone() || oifSetIndex != 0 || fastDrop || rpaId != 0)) {
      fault(HookDuty::arguments, text("a boundary entry with vlan ", acceptingVlanId, ", index ",
                                      oifSetIndex, ", fastDrop ", fastDrop, " and rpa ", rpaId));
   }
   knownSet(of, oifSetIndex);
   RouteHandle const handle = hooks_.doAllocateMroute(switchId, vrfId, key, acceptingVlanId, bridge,
                                                      oifSetIndex, fastDrop, rpaId);
   return allocated(
         of, switchId, handle,
         entryFor(call(), vrfId, key, acceptingVlanId, bridge, oifSetIndex, fastDrop, rpaId));
}

RouteHandle SyncHookChecks::doAllocateMrouteNoRpf(U32 switchId, U16 vrfId, IpGenRouteKey const& key,
                                                  bool bridge, U32 oifSetIndex, bool fastDrop,
                                                  U16 rpaId) {
   Chip& of = served("doAllocateMrouteNoRpf", switchId);
   if (bridge) fault(HookDuty::arguments, "a boundary entry without a vlan");
   knownSet(of, oifSetIndex);
   RouteHandle const handle =
         hooks_.doAllocateMrouteNoRpf(switchId, vrfId, key, bridge, oifSetIndex, fastDrop, rpaId);
   return allocated(of, switchId, handle,
                    entryFor(call(), vrfId, key, {}, bridge, oifSetIndex, fastDrop, rpaId));
}

void SyncHookChecks::doSetMtableOifSet(U32 switchId, U16 vrfId, RouteHandle handle,
                                       Qor::Ptr<Vel::Route const> const& route, U32 oifSetIndex) {
   Chip& of = served("doSetMtableOifSet", switchId);
   bool const set = knownSet(of, oifSetIndex);
   bool const known = knownEntry(of, handle, false);
   hooks_.doSetMtableOifSet(switchId, vrfId, handle, route, oifSetIndex);
   if (known && set) of.shadow.entryPointed(handle, oifSetIndex, call());
}

// A deletion that throws leaves the entry recorded as before.
void SyncHookChecks::deleted(Chip& chip, RouteHandle handle, bool known) {
   if (known) chip.shadow.entryDeleted(handle, call());
}

void SyncHookChecks::doDeleteMroute(U32 switchId, U16 vrfId, RouteHandle handle,
                                    Qor::Ptr<Vel::Route const> const& route) {
   Chip& of = served("doDeleteMroute", switchId);
   bool const known = knownEntry(of, handle, false);
   hooks_.doDeleteMroute(switchId, vrfId, handle, route);
   deleted(of, handle, known);
}

void SyncHookChecks::doDeleteMrouteBoundary(U32 switchId, U16 vrfId, RouteHandle handle,
                                            Qor::Ptr<Vel::Boundary const> const& boundary) {
   Chip& of = served("doDeleteMrouteBoundary", switchId);
   bool const known = knownEntry(of, handle, true);
   hooks_.doDeleteMrouteBoundary(switchId, vrfId, handle, boundary);
   deleted(of, handle, known);
}

// ---- Reading. ----

bool SyncHookChecks::mrouteHitBit(U32 switchId, U16 vrfId, IpGenRouteKey const& key,
                                  VlanIdOrNone acceptingVlanId, bool boundary) {
   Shadow const& shadow = served("mrouteHitBit", switchId).shadow;
   bool const hit = hooks_.mrouteHitBit(switchId, vrfId, key, acceptingVlanId, boundary);
   if (!hit || !options().startsEmpty) return hit;
   // A chip may have one table for all VRFs and vlans, so the key alone decides.
   bool there = false;
   auto const look = [&](RouteHandle, Shadow::Entry const& entry) {
      there = there || (entry.boundary == boundary && entry.key == key);
   };
   shadow.forEachEntryOf(vrfId, key, look);
   if (!there) shadow.forEachEntry(look);
   if (!there) fault(HookDuty::hitWithoutEntry, text("a hit of ", key, ", which has no entry"));
   return hit;
}

Qor::U8 SyncHookChecks::mrouteHitBitCacheRefresh(U32 switchId) {
   served("mrouteHitBitCacheRefresh", switchId);
   Qor::U8 const result = hooks_.mrouteHitBitCacheRefresh(switchId);
   if (result != Hooks::hitBitCacheRefreshed && result != Hooks::hitBitCacheBusy) {
      fault(HookDuty::hitCacheResult, text("the result is ", unsigned{result}));
   }
   return result;
}

void SyncHookChecks::verifyMroute(U32 switchId, U16 vrfId,
                                  Qor::Ptr<Vel::Route const> const& route) {
   knownEntry(served("verifyMroute", switchId), route->handle(), false);
   hooks_.verifyMroute(switchId, vrfId, route);
}

void SyncHookChecks::verifyMrouteBoundary(U32 switchId, U16 vrfId,
                                          Qor::Ptr<Vel::Boundary const> const& boundary) {
   knownEntry(served("verifyMrouteBoundary", switchId), boundary->handle(), true);
   hooks_.verifyMrouteBoundary(switchId, vrfId, boundary);
}

}  // namespace VelMroute
