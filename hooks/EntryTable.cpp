#include "hooks/EntryTable.h"

#include <algorithm>
#include <tuple>

#include "hooks/internal/Text.h"

namespace VelMroute {

using Bridging::VlanIdOrNone;
using Lnet::IpGenAddr;
using Qor::U32;
using Routing::Multicast::Fib::IpGenRouteKey;

// The shape of the key, or the position at which the shape is to be inserted.
std::vector<EntryTable::Shape>::iterator EntryTable::shapeOf(IpGenRouteKey const& key) {
   Shape const shape{key.group().family(), key.group().length(), key.source().length(), 0};
   return std::lower_bound(shapes_.begin(), shapes_.end(), shape, [](auto& a, auto& b) {
      return std::tie(a.groupLength, a.sourceLength, a.family) >
             std::tie(b.groupLength, b.sourceLength, b.family);
   });
}

EntryTable::Refusal EntryTable::create(U32 index, TableEntry const& entry) {
   if (index >= capacity_) {
      return text(what_, ' ', index, " is beyond the ", capacity_, " entries of the chip");
   }
   if (TableEntry const* const there = find(index)) {
      return text(what_, ' ', index, " exists already: ", there->key, " vlan ",
                  there->acceptingVlan, " vrf ", there->vrfId);
   }
   IpGenRouteKey const& key = entry.key;
   if (key.isNull()) return text(what_, ' ', index, " has an invalid key");
   VrfKey const vrfKey{entry.vrfId, key};
   auto* const first = first_.find(vrfKey);
   U32 const next = first ? first->second : nowhere;
   for (U32 other = next; other != nowhere; other = slots_[other]->next) {
      if (slots_[other]->entry.acceptingVlan == entry.acceptingVlan) {
         return text(what_, ' ', index, " matches the same packets as ", other, ": ", key, " vlan ",
                     entry.acceptingVlan, " vrf ", entry.vrfId);
      }
   }

   if (first) {
      first->second = index;
   } else {
      first_.insert(vrfKey, index);
   }
   if (index >= slots_.size()) slots_.resize(index + 1);
   slots_[index] = Slot{entry, next};
   auto const at = shapeOf(key);
   if (at != shapes_.end() && at->family == key.group().family() &&
       at->groupLength == key.group().length() && at->sourceLength == key.source().length()) {
      ++at->entries;
   } else {
      shapes_.insert(at, {key.group().family(), key.group().length(), key.source().length(), 1});
   }
   peak_ = std::max(peak_, ++size_);
   return {};
}

EntryTable::Refusal EntryTable::erase(U32 index) {
   TableEntry const* const entry = find(index);
   if (!entry) return text(what_, ' ', index, " does not exist");
   VrfKey const vrfKey{entry->vrfId, entry->key};
   // first_ has the head of the key's list. With the last entry of the list, the key is removed
   // from first_.
   U32* link = &first_.find(vrfKey)->second;
   bool const isFirst = *link == index;
   while (*link != index)
      link = &slots_[*link]->next;
   *link = slots_[index]->next;
   if (isFirst && *link == nowhere) first_.take(vrfKey);

   auto const shape = shapeOf(vrfKey.key);
   if (--shape->entries == 0) shapes_.erase(shape);
   slots_[index].reset();
   --size_;
   return {};
}

std::optional<U32> EntryTable::match(VrfKey const& key, VlanIdOrNone vlan) const {
   auto const* const first = first_.find(key);
   std::optional<U32> anywhere;
   for (U32 index = first ? first->second : nowhere; index != nowhere;
        index = slots_[index]->next) {
      VlanIdOrNone const accepting = slots_[index]->entry.acceptingVlan;
      if (accepting == vlan) return index;
      // The entry for the packet's own vlan may follow in the list.
      if (accepting.isNone()) anywhere = index;
   }
   return anywhere;
}

EntryTable::Match EntryTable::lookup(U32 vrfId, IpGenAddr const& source, IpGenAddr const& group,
                                     VlanIdOrNone vlan, OtherVlan otherVlan) const {
   if (source.family() != group.family()) return {};
   for (Shape const& shape : shapes_) {
      if (shape.family != group.family()) continue;
      VrfKey const key{vrfId,
                       {{source.masked(shape.sourceLength), shape.sourceLength},
                        {group.masked(shape.groupLength), shape.groupLength}}};
      auto const index = match(key, vlan);
      if (index || (otherVlan == OtherVlan::ends && first_.find(key))) {
         return {index, true, shape.groupLength, shape.sourceLength};
      }
   }
   return {};
}

void EntryTable::audit(std::vector<Qor::String>& faults) const {
   U32 entries = 0;
   forEach([&](U32 index, TableEntry const& entry) {
      ++entries;
      if (match({entry.vrfId, entry.key}, entry.acceptingVlan) != index) {
         faults.push_back(text(what_, ' ', index, " is not found under its key ", entry.key));
      }
   });
   // The bound on `linked` ends the loop if the links form a circle.
   U32 linked = 0;
   for (auto const& [key, first] : first_) {
      for (U32 index = first; index != nowhere && linked <= size_; ++linked)
         index = slots_[index]->next;
   }
   U32 shaped = 0;
   for (Shape const& shape : shapes_)
      shaped += shape.entries;
   if (entries != size_ || linked != size_ || shaped != size_) {
      faults.push_back(text(what_, " count ", size_, " but ", entries, " present, ", linked,
                            " linked, ", shaped, " by prefix length"));
   }
}

}  // namespace VelMroute
