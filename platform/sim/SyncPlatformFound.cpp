// The synchronous platform: what an agent that has crashed left on the chip.
#include <utility>

#include "platform/sim/SyncPlatform.h"

namespace Sim {

using MrouteLib::RouteHandle;
using Qor::U32;

// Packets from before are no hits: it is not known when they came.
SyncPlatform::EntryState SyncPlatform::foundState(Entry const& entry) {
   EntryState state;
   state.packetsCached = entry.packets;
   state.found = true;
   return state;
}

// An index for a found group with the set's members.
std::optional<U32> SyncPlatform::adoptGroup(MrouteLib::OifSetPtr const& oifSet) {
   auto const group = found_.groups.like(oifSet->portVlanSet());
   if (!group) return std::nullopt;
   found_.groups.take(*group);
   ++found_.adopted;
   U32 const index = *indexPool_.take() + 1;
   sets_.insert(index, {oifSet->serial(), *group, true});
   return index;
}

// The index is about to be given to an entry that points at this group: where nobody has asked for
// it, and it has the same members, it becomes the group of the index.
void SyncPlatform::settleGroup(U32 oifSetIndex, U32 pointedAt) {
   auto* const set = sets_.find(oifSetIndex);
   if (!set || !set->second.open || !found_.groups.contains(pointedAt)) return;
   Group const& mine = *chip_->group(set->second.group);
   Group const& its = *chip_->group(pointedAt);
   if (mine.members != its.members || mine.toCpu != its.toCpu) return;
   found_.groups.take(pointedAt);
   found_.groups.giveBack(std::exchange(set->second.group, pointedAt), true);
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
   if (!state.fastDrop) settleGroup(state.oifSetIndex, there.group);
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
