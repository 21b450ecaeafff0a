#include "programmer/Found.h"

namespace VelMroute {

using Qor::U32;

// ---- Entries ----

void FoundEntries::add(U32 number, Restart::Route const& route, std::optional<U32> group,
                       bool sends) {
   entries_.emplace(number, Entry{route, group, sends});
   left_.insert(number);
   byId_[idOf(route)].insert(number);
   if (!group) return;
   held_.emplace(number, *group);
   ++holders_[*group];
   ++awaited_[*group];
}

void FoundEntries::take(U32 number) {
   if (left_.erase(number) == 0) return;
   Entry const& entry = entries_.at(number);
   auto const same = byId_.find(idOf(entry.route));
   same->second.erase(number);
   if (same->second.empty()) byId_.erase(same);
   if (!entry.group) return;
   auto const awaited = awaited_.find(*entry.group);
   if (--awaited->second == 0) awaited_.erase(awaited);
}

std::optional<U32> FoundEntries::find(Vel::VrfId vrfId, RouteKey const& key,
                                      VlanIdOrNone vlan) const {
   auto const same = byId_.find({key, vlan, vrfId});
   if (same == byId_.end()) return std::nullopt;
   return *same->second.rbegin();
}

std::optional<U32> FoundEntries::groupOf(RouteKey const& key, VlanIdOrNone vlan) const {
   auto const first = byId_.lower_bound({key, vlan, Vel::VrfId()});
   if (first == byId_.end()) return std::nullopt;
   auto const& [theirKey, theirVlan, vrfId] = first->first;
   if (theirKey != key || theirVlan != vlan) return std::nullopt;
   return group(*first->second.rbegin());
}

bool FoundEntries::heldByOne(U32 group) const {
   auto const holders = holders_.find(group);
   return holders != holders_.end() && holders->second == 1;
}

void FoundEntries::release(U32 number) {
   auto const node = held_.extract(number);
   if (node.empty()) return;
   auto const holders = holders_.find(node.mapped());
   if (--holders->second == 0) holders_.erase(holders);
}

// ---- Groups ----

FoundGroups::Content FoundGroups::contentOf(MrouteLib::PortVlanSet const& set) {
   Content content;
   for (auto const& [member, flag] : set.portVlan())
      content.members.push_back(member);
   content.toCpu = set.toCpu();
   return content;
}

void FoundGroups::add(U32 id, Content content) {
   left_.insert(id);
   byContent_[content].insert(id);
   content_.insert_or_assign(id, std::move(content));
}

bool FoundGroups::carries(U32 id, Content const& content) const {
   auto const offered = content_.find(id);
   return offered != content_.end() && offered->second == content;
}

void FoundGroups::take(U32 id) {
   left_.erase(id);
   auto const node = content_.extract(id);
   if (node.empty()) return;  // the group was not offered
   auto const equal = byContent_.find(node.mapped());
   equal->second.erase(id);
   if (equal->second.empty()) byContent_.erase(equal);
}

void FoundGroups::giveBack(U32 id, std::optional<Content> content) {
   if (content) {
      add(id, std::move(*content));
   } else {
      left_.insert(id);
   }
}

// ---- Both ----

std::vector<Restart::Route> Found::listed() const {
   std::vector<Restart::Route> nowhere, sending;
   for (U32 const number : boundaries.left())
      sending.push_back(boundaries.route(number));
   for (U32 const number : entries.left())
      (entries.sends(number) ? sending : nowhere).push_back(entries.route(number));
   nowhere.insert(nowhere.end(), sending.begin(), sending.end());
   return nowhere;
}

bool Found::isFound(Restart::Route const& route) const {
   return (route.bridge ? boundaries : entries)
         .find(route.vrfId, route.key, route.vlan)
         .has_value();
}

}  // namespace VelMroute
