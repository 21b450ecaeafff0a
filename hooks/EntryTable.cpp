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
   std::optional<U32> same;
   forEachOf(entry.vrfId, key, [&](U32 other, TableEntry const& there) {
      if (there.acceptingVlan == entry.acceptingVlan) same = other;
   });
   if (same) {
      return text(what_, ' ', index, " matches the same packets as ", *same, ": ", key, " vlan ",
                  entry.acceptingVlan, " vrf ", entry.vrfId);
   }

   if (index >= slots_.size()) slots_.resize(index + 1);
   slots_[index] = entry;
   index_.insert(hash(entry.vrfId, key), index);
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
   index_.vacate(index_.locate(hash(entry->vrfId, entry->key), index));
   auto const shape = shapeOf(entry->key);
   if (--shape->entries == 0) shapes_.erase(shape);
   slots_[index] = {};
   --size_;
   return {};
}

EntryTable::Match EntryTable::match(U32 vrfId, IpGenRouteKey const& key, VlanIdOrNone vlan) const {
   Match result;
   forEachOf(vrfId, key, [&](U32 index, TableEntry const& entry) {
      result.keyFound = true;
      bool const exact = entry.acceptingVlan == vlan;
      if (exact || (entry.acceptingVlan.isNone() && !result.index)) result.index = index;
   });
   result.groupLength = key.group().length();
   result.sourceLength = key.source().length();
   return result;
}

EntryTable::Match EntryTable::lookup(U32 vrfId, IpGenAddr const& source, IpGenAddr const& group,
                                     VlanIdOrNone vlan, OtherVlan otherVlan) const {
   if (source.family() != group.family()) return {};
   for (Shape const& shape : shapes_) {
      if (shape.family != group.family()) continue;
      IpGenRouteKey const key({source.masked(shape.sourceLength), shape.sourceLength},
                              {group.masked(shape.groupLength), shape.groupLength});
      Match const found = match(vrfId, key, vlan);
      if (found.index || (otherVlan == OtherVlan::ends && found.keyFound)) return found;
   }
   return {};
}

void EntryTable::audit(std::vector<Qor::String>& faults) const {
   U32 entries = 0;
   forEach([&](U32 index, TableEntry const& entry) {
      ++entries;
      if (match(entry.vrfId, entry.key, entry.acceptingVlan).index != index) {
         faults.push_back(text(what_, ' ', index, " is not found under its key ", entry.key));
      }
   });
   U32 shaped = 0;
   for (Shape const& shape : shapes_)
      shaped += shape.entries;
   if (entries != size_ || index_.size() != size_ || shaped != size_) {
      faults.push_back(text(what_, " count ", size_, " but ", entries, " present, ", index_.size(),
                            " in the index, ", shaped, " by prefix length"));
   }
}

}  // namespace VelMroute
