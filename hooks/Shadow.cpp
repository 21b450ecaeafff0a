#include "hooks/Shadow.h"

#include <algorithm>
#include <utility>

namespace VelMroute {

using MrouteLib::PortVlan;
using MrouteLib::PortVlanSet;
using Qor::U32;
using Action = HookWrite::Action;

namespace {

std::vector<PortVlan> membersOf(PortVlanSet const& set) {
   std::vector<PortVlan> members;
   members.reserve(set.portVlan().size());
   for (auto const& [member, flag] : set.portVlan())
      members.push_back(member);
   return members;
}

}  // namespace

HookCall const* Shadow::lastCallOfSet(U32 index) const {
   Set const* const live = set(index);
   Set const* const known = live ? live : deletedSet(index);
   return known ? &known->lastCall : nullptr;
}

HookCall const* Shadow::lastCallOfEntry(RouteHandle handle) const {
   Entry const* const live = entry(handle);
   Entry const* const known = live ? live : deletedEntry(handle);
   return known ? &known->lastCall : nullptr;
}

Forwarded Shadow::forward(Packet const& packet,
                          std::function<bool(Lnet::IntfId)> const& isUp) const {
   Forwarded out = match(routeTable_, boundaryTable_, packet);
   if (!out.entry) return out;
   out.entry = handles_[*out.entry];
   if (out.result == Forwarding::bridged) return out;
   Entry const& hit = entries_.at(*out.entry).entry;
   if (!hit.set && !hit.drops) return out;
   static Set const nowhere;
   Set const* to = hit.drops ? &nowhere : set(*hit.set);
   if (!to && hit.set == 0u) to = &nowhere;
   auto const up = [&](PortVlan const& member) { return !isUp || isUp(member.intfId()); };
   if (to) replicate(*to, up, out);
   return out;
}

// ---- Sets. ----

void Shadow::setMade(U32 index, PortVlanSet const& set, bool fixed, HookCall const& call) {
   deletedSets_.erase(index);
   Set& made = sets_[index];
   made = {};
   made.fixed = fixed;
   ++emptySets_;
   notify(Action::makeSet, index, call);
   write(made, set, call);
}

void Shadow::setWritten(U32 index, PortVlanSet const& set, HookCall const& call) {
   notify(Action::writeSet, index, call);
   write(sets_.at(index), set, call);
}

void Shadow::write(Set& written, PortVlanSet const& set, HookCall const& call) {
   emptySets_ -= written.empty();
   written.members = membersOf(set);
   written.toCpu = set.toCpu();
   written.lastCall = call;
   emptySets_ += written.empty();
}

void Shadow::setShared(U32 index, HookCall const& call) {
   ++sets_.at(index).users;
   sets_.at(index).lastCall = call;
   notify(Action::shareSet, index, call);
}

void Shadow::setDeleted(U32 index, HookCall const& call) {
   auto const found = sets_.find(index);
   found->second.lastCall = call;
   notify(Action::deleteSet, index, call);
   if (--found->second.users > 0) return;
   emptySets_ -= found->second.empty();
   deletedSets_[index] = std::move(found->second);
   sets_.erase(found);
}

// Counts the entries that forward by a set. An entry that drops needs none.
void Shadow::count(Entry const& entry, int change) {
   auto const found = entry.set && !entry.drops ? sets_.find(*entry.set) : sets_.end();
   if (found != sets_.end()) found->second.entries += static_cast<U32>(change);
}

// ---- Entries. ----

// Puts an entry into its match table, unless an older entry matches the same packets there.
void Shadow::enter(U32 handle, Slot& slot) {
   Entry const& entry = slot.entry;
   TableEntry matching;
   matching.vrfId = entry.vrfId;
   matching.key = entry.key;
   matching.acceptingVlan = entry.vlan;
   U32 const number =
         freeNumbers_.empty() ? static_cast<U32>(handles_.size()) : freeNumbers_.back();
   if (!tableOf(entry).create(number, matching).empty()) {
      hidden_.push_back(handle);
      return;
   }
   if (freeNumbers_.empty()) {
      handles_.push_back(handle);
   } else {
      freeNumbers_.pop_back();
      handles_[number] = handle;
   }
   slot.number = number;
}

// Takes an entry out of its match table. An entry that it hid takes its place.
void Shadow::leave(Slot& slot) {
   if (!slot.number) return;
   static_cast<void>(tableOf(slot.entry).erase(*slot.number));
   freeNumbers_.push_back(*std::exchange(slot.number, std::nullopt));
   std::vector<U32> again;
   again.swap(hidden_);
   for (U32 const handle : again)
      enter(handle, entries_.at(handle));
}

void Shadow::entryMade(RouteHandle handle, Entry entry) {
   deletedEntries_.erase(handle.value());
   Slot& slot = entries_[handle.value()];
   slot.entry = std::move(entry);
   boundaries_ += slot.entry.boundary;
   count(slot.entry, 1);
   enter(handle.value(), slot);
   notify(Action::makeEntry, handle.value(), slot.entry);
}

void Shadow::entryPointed(RouteHandle handle, U32 index, HookCall const& call) {
   Entry& entry = entries_.at(handle.value()).entry;
   count(entry, -1);
   auto const before = std::exchange(entry.set, index);
   entry.lastCall = call;
   count(entry, 1);
   notify(Action::pointEntry, handle.value(), entry, before);
}

void Shadow::entryDeleted(RouteHandle handle, HookCall const& call) {
   auto const found = entries_.find(handle.value());
   Slot slot = std::move(found->second);
   entries_.erase(found);
   std::erase(hidden_, handle.value());
   leave(slot);
   count(slot.entry, -1);
   boundaries_ -= slot.entry.boundary;
   slot.entry.lastCall = call;
   notify(Action::deleteEntry, handle.value(), slot.entry);
   deletedEntries_[handle.value()] = std::move(slot.entry);
}

void Shadow::clear(HookCall const& call) {
   while (!entries_.empty())
      entryDeleted(RouteHandle(entries_.begin()->first), call);
   while (!sets_.empty()) {
      sets_.begin()->second.users = 1;
      setDeleted(sets_.begin()->first, call);
   }
}

}  // namespace VelMroute
