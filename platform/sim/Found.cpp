#include "platform/sim/Found.h"

namespace Sim {

using Bridging::VlanIdOrNone;
using Qor::U32;
using Routing::Multicast::Fib::IpGenRouteKey;

// ---- Entries ----

FoundEntries::FoundEntries(EntryTable const& table) : table_(table) {
   table.forEach([this](U32 index, Entry const& entry) {
      left_.insert(left_.end(), index);
      vrfs_.insert(entry.vrfId);
      if (entry.group == noGroup) return;
      held_.emplace_hint(held_.end(), index, entry.group);
      ++holders_[entry.group];
      ++awaited_[entry.group];
   });
}

void FoundEntries::take(U32 index) {
   if (left_.erase(index) == 0) return;
   // A remaining entry was not written, so the table still has the group that was counted.
   auto const awaited = awaited_.find(table_.find(index)->group);
   if (awaited != awaited_.end() && --awaited->second == 0) awaited_.erase(awaited);
}

std::optional<U32> FoundEntries::find(U32 vrfId, IpGenRouteKey const& key,
                                      VlanIdOrNone vlan) const {
   std::optional<U32> found;
   if (left_.empty()) return found;
   table_.forEachOf(vrfId, key, [&](U32 index, Entry const& entry) {
      if (entry.acceptingVlan == vlan && left_.contains(index)) found = index;
   });
   return found;
}

U32 FoundEntries::groupOf(IpGenRouteKey const& key, VlanIdOrNone vlan) const {
   // The hook that allocates a group does not get the VRF id of the route.
   for (U32 const vrfId : vrfs_) {
      if (auto const index = find(vrfId, key, vlan)) return table_.find(*index)->group;
   }
   return noGroup;
}

void FoundEntries::release(U32 index) {
   auto const node = held_.extract(index);
   if (node.empty()) return;
   auto const holders = holders_.find(node.mapped());
   if (--holders->second == 0) holders_.erase(holders);
}

// ---- Groups ----

FoundGroups::FoundGroups(Chip const& chip) : chip_(chip) {
   chip.forEachGroup([this](U32 id, Group const& group) {
      left_.insert(left_.end(), id);
      byContent_[contentOf(group)].insert(id);
   });
}

bool FoundGroups::carries(U32 id, MrouteLib::PortVlanSet const& set) const {
   auto const equal = byContent_.find(contentOf(set));
   return equal != byContent_.end() && equal->second.contains(id);
}

void FoundGroups::take(U32 id) {
   left_.erase(id);
   auto const equal = byContent_.find(contentOf(*chip_.group(id)));
   if (equal == byContent_.end()) return;  // the group was not offered
   equal->second.erase(id);
   if (equal->second.empty()) byContent_.erase(equal);
}

void FoundGroups::giveBack(U32 id, bool certain) {
   left_.insert(id);
   if (certain) byContent_[contentOf(*chip_.group(id))].insert(id);
}

// ---- Groups and entries ----

std::vector<FoundRoute> Found::listed(Chip const& chip) const {
   std::vector<FoundRoute> nowhere, all;
   for (U32 const index : boundaries.left()) {
      Entry const& entry = *chip.boundaries().find(index);
      all.push_back({entry.vrfId, entry.key, entry.acceptingVlan, true});
   }
   for (U32 const index : routes.left()) {
      Entry const& entry = *chip.routes().find(index);
      Group const* const group = chip.group(entry.group);
      bool const sends = group && (group->toCpu || !group->members.empty());
      (sends ? all : nowhere).push_back({entry.vrfId, entry.key, entry.acceptingVlan});
   }
   nowhere.insert(nowhere.end(), all.begin(), all.end());
   return nowhere;
}

}  // namespace Sim
