// The synchronous platform: adoption and sweep of the groups and entries from before a crash.
#include <utility>

#include "platform/sim/SyncPlatform.h"

namespace Sim {

using MrouteLib::PortVlanSet;
using Qor::U32;

// Packets from before the crash are not hits, because the times of their arrival are unknown.
SyncPlatform::EntryState SyncPlatform::foundState(Entry const& entry) {
   EntryState state;
   state.packetsCached = entry.packets;
   state.found = true;
   return state;
}

// An index for any found group with the members of the set. settleGroup() may choose another equal
// group when an entry uses the index for the first time.
std::optional<U32> SyncPlatform::adoptGroup(MrouteLib::OifSetPtr const& oifSet) {
   PortVlanSet const& set = oifSet->portVlanSet();
   auto const content = FoundGroups::contentOf(set);
   auto const group = found_.groups.like(content, std::nullopt, [](U32) { return true; });
   if (!group) return std::nullopt;
   found_.groups.take(*group);
   ++found_.adopted;
   U32 const index = *indexPool_.take() + 1;
   sets_.insert(index, {oifSet->serial(), *group, true, !set.portVlanFrr().empty()});
   return index;
}

// The number for a new group: a free number, or the number of a found group without entries, which
// is deleted for room. Nothing if there is no room.
std::optional<U32> SyncPlatform::takeGroup() {
   if (faults_.groupsExhausted()) return std::nullopt;
   if (auto const free = groupPool_.take()) return free;
   for (U32 const id : found_.groups.left()) {
      if (found_.entries.holds(id)) continue;
      found_.groups.take(id);
      insist(WriteKind::groupDelete, [&] { return chip_->groupDelete(id); });
      ++found_.swept;
      return id;
   }
   return std::nullopt;
}

// A group with this content for one entry alone: a new group, or without room the group at which
// the entry points. The latter is rewritten in place, if no other entry points at it.
std::optional<U32> SyncPlatform::groupForOne(FoundGroups::Content const& content, U32 pointedAt) {
   if (auto const fresh = takeGroup()) {
      auto const create = [&] {
         return chip_->groupCreate(*fresh, content.members, content.toCpu);
      };
      if (attempt(WriteKind::groupCreate, create)) return fresh;
      groupPool_.give(*fresh);
      return std::nullopt;
   }
   if (!found_.groups.contains(pointedAt) || !found_.entries.heldByOne(pointedAt)) {
      return std::nullopt;
   }
   found_.groups.take(pointedAt);
   auto const update = [&] {
      return chip_->groupUpdate(pointedAt, content.members, content.toCpu);
   };
   if (attempt(WriteKind::groupUpdate, update)) return pointedAt;
   found_.groups.giveBack(pointedAt, contentOf(*chip_->group(pointedAt)));
   return std::nullopt;
}

// Decides on the group of an adopted set before its first entry is pointed. If the entry points at
// an equal group, the set takes that group, so that the entry needs no write. Otherwise a set with
// backup pairs should not have a group at which other found entries point, because a reroute of the
// set also reroutes these entries. The set keeps such a group only if no other one is available.
void SyncPlatform::settleGroup(SetState& set, U32 pointedAt) {
   set.open = false;
   if (pointedAt == set.group) return;
   auto const content = contentOf(*chip_->group(set.group));
   auto const awaited = [&](U32 id) { return set.reroutable && found_.entries.awaits(id); };
   auto const usable = [&](U32 id) { return awaited(set.group) && !awaited(id); };
   if (auto const better = found_.groups.like(content, pointedAt, usable)) {
      found_.groups.take(*better);
      U32 const before = std::exchange(set.group, *better);
      found_.groups.giveBack(before, contentOf(*chip_->group(before)));
      return;
   }
   if (!awaited(set.group)) return;
   auto const own = groupForOne(content, pointedAt);
   if (!own) return;
   --found_.adopted;  // the set uses no found group any more
   U32 const before = std::exchange(set.group, *own);
   found_.groups.giveBack(before, contentOf(*chip_->group(before)));
}

// Adopts a found entry. An entry with another RP index is deleted instead, and false is returned.
bool SyncPlatform::adoptRoute(U32 number, Entry const& wanted, EntryState const& state) {
   Entry const& there = *chip_->routes().find(number);
   found_.entries.take(number);
   if (there.rpaIndex != wanted.rpaIndex) {
      removeFromChip(RouteHandle(number));
      entries_.take(number);
      return false;
   }
   EntryState& mine = entries_.find(number)->second;
   mine.oifSetIndex = state.oifSetIndex;
   mine.fastDrop = state.fastDrop;
   mine.found = false;
   ++found_.adopted;
   point(number, mine);
   return true;
}

void SyncPlatform::sweepEntries() {
   U32 const routes = chip_->config().routes;
   auto const sweep = [this](FoundEntries& entries, U32 firstHandle) {
      auto const left = entries.left();  // a copy, since take() changes the original
      for (U32 const number : left) {
         entries.take(number);
         removeFromChip(RouteHandle(firstHandle + number));
         entries_.take(firstHandle + number);
         ++found_.swept;
      }
   };
   sweep(found_.entries, 0);
   sweep(found_.boundaries, routes);
}

void SyncPlatform::sweepUnadopted() {
   sweepEntries();
   auto const groups = found_.groups.left();
   for (U32 const id : groups) {
      found_.groups.take(id);
      insist(WriteKind::groupDelete, [&] { return chip_->groupDelete(id); });
      groupPool_.give(id);
      ++found_.swept;
   }
}

}  // namespace Sim
