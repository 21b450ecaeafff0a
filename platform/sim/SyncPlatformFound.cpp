// The synchronous platform: what an agent that has crashed left on the chip.
#include <utility>

#include "platform/sim/SyncPlatform.h"

namespace Sim {

using MrouteLib::PortVlanSet;
using MrouteLib::RouteHandle;
using Qor::U32;

// Packets from before are no hits: it is not known when they came.
SyncPlatform::EntryState SyncPlatform::foundState(Entry const& entry) {
   EntryState state;
   state.packetsCached = entry.packets;
   state.found = true;
   return state;
}

// An index for a found group with the set's members: any, until an entry gets the index.
std::optional<U32> SyncPlatform::adoptGroup(MrouteLib::OifSetPtr const& oifSet) {
   PortVlanSet const& set = oifSet->portVlanSet();
   auto const content = FoundGroups::contentOf(set);
   auto const group = found_.groups.like(content, noGroup, [](U32) { return true; });
   if (!group) return std::nullopt;
   found_.groups.take(*group);
   ++found_.adopted;
   U32 const index = *indexPool_.take() + 1;
   sets_.insert(index, {oifSet->serial(), *group, true, !set.portVlanFrr().empty()});
   return index;
}

// The number of a group to be created: a free one, or that of a found group which is given up.
std::optional<U32> SyncPlatform::takeGroup() {
   if (faults_.groupsExhausted()) return std::nullopt;
   if (auto const free = groupPool_.take()) return free;
   for (U32 const id : found_.groups.left()) {
      if (found_.routes.holds(id)) continue;
      found_.groups.take(id);
      insist(WriteKind::groupDelete, [&] { return chip_->groupDelete(id); });
      ++found_.swept;
      return id;
   }
   return std::nullopt;
}

// A group of this content that no other entry points at: a new one; without room the one that the
// entry points at is rewritten in place, if it is this entry's alone.
std::optional<U32> SyncPlatform::groupForOne(FoundGroups::Content const& content, U32 pointedAt) {
   if (auto const fresh = takeGroup()) {
      auto const create = [&] { return chip_->groupCreate(*fresh, content.first, content.second); };
      if (attempt(WriteKind::groupCreate, create)) return fresh;
      groupPool_.give(*fresh);
      return std::nullopt;
   }
   if (!found_.groups.contains(pointedAt) || !found_.routes.heldByOne(pointedAt)) {
      return std::nullopt;
   }
   found_.groups.take(pointedAt);
   auto const update = [&] { return chip_->groupUpdate(pointedAt, content.first, content.second); };
   if (attempt(WriteKind::groupUpdate, update)) return pointedAt;
   found_.groups.giveBack(pointedAt, true);
   return std::nullopt;
}

// The first entry is about to be pointed at the set's group. Where the one it points at is as good,
// that becomes the group of the set; else, if the group may be rewritten, one that no other found
// entry points at. Where there is none the set keeps the group, and what is rewritten for the one
// set is so for those entries, too.
void SyncPlatform::settleGroup(SetState& set, U32 pointedAt) {
   set.open = false;
   if (pointedAt == set.group) return;
   auto const content = FoundGroups::contentOf(*chip_->group(set.group));
   auto const awaited = [&](U32 id) { return set.reroutable && found_.routes.awaits(id); };
   auto const mayBeHad = [&](U32 id) { return awaited(set.group) && !awaited(id); };
   if (auto const better = found_.groups.like(content, pointedAt, mayBeHad)) {
      found_.groups.take(*better);
      found_.groups.giveBack(std::exchange(set.group, *better), true);
      return;
   }
   if (!awaited(set.group)) return;
   auto const own = groupForOne(content, pointedAt);
   if (!own) return;
   --found_.adopted;
   found_.groups.giveBack(std::exchange(set.group, *own), true);
}

// Takes over a found entry. False: it has another RP index, and was deleted.
bool SyncPlatform::adoptRoute(U32 number, Entry const& wanted, EntryState const& state) {
   Entry const& there = *chip_->routes().find(number);
   found_.routes.take(number);
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
      auto const left = entries.left();
      for (U32 const number : left) {
         entries.take(number);
         removeFromChip(RouteHandle(firstHandle + number));
         entries_.take(firstHandle + number);
         ++found_.swept;
      }
   };
   sweep(found_.routes, 0);
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
