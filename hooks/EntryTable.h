// A table of numbered match entries: the type of a chip's route and boundary tables, both of the
// simulated chip and of the shadow of a real one (hooks/Shadow.h). An entry matches the packets of
// one VRF, route key and accepting vlan; the longest match is looked up.
//
// The table owns its entries. A refused write changes nothing and returns the reason; a completed
// write returns an empty text. A look-up costs one hash look-up per combination of prefix lengths
// in use. An entry takes 80 bytes, and 16 to 32 bytes in the index.
#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "Bridging/VlanId.h"
#include "Lnet/IpGenAddr.h"
#include "Qor/HashIndex.h"
#include "Qor/Types.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"
#include "Wisp/Multicast/Fib/RpaIndex.h"

namespace VelMroute {

// The group number of an entry that points at no group.
inline constexpr Qor::U32 noGroup = 0xFFFFFFFF;

struct Traffic {
   Qor::U64 packets = 0;
   Qor::U64 bytes = 0;
};

// The order of the members leaves no room between them, since a chip has very many entries.
struct TableEntry {
   // The packets that the entry matches. An accepting vlan of none accepts packets of all vlans.
   Routing::Multicast::Fib::IpGenRouteKey key;
   Qor::U32 vrfId = 0;
   // The group at which the entry points; an entry with noGroup forwards nothing.
   Qor::U32 group = noGroup;
   // The hits of the entry. `lastHit` is on the Qor::now() time base, and 0.0 before the first hit.
   Qor::Seconds lastHit = 0.0;
   Qor::U64 packets = 0;
   Qor::U64 bytes = 0;
   Bridging::VlanIdOrNone acceptingVlan;
   // Properties that a driver writes and reads back. They do not influence forwarding.
   Wisp::Multicast::Fib::RpaIndex rpaIndex;
   bool bridge = false;
};

class EntryTable {
 public:
   // The reason why a write was refused; empty if the write was done.
   using Refusal = Qor::String;

   // `what` is the noun for an entry in the texts of the table, such as "route entry". The string
   // must outlive the table.
   EntryTable(char const* what, Qor::U32 capacity) : what_(what), capacity_(capacity) {}

   Qor::U32 capacity() const { return capacity_; }
   Qor::U32 size() const { return size_; }
   Qor::U32 peak() const { return peak_; }  // the largest size so far

   // The entry with this number, or null. The pointer is valid until the table's next create().
   TableEntry const* find(Qor::U32 index) const {
      return index < slots_.size() && !slots_[index].key.isNull() ? &slots_[index] : nullptr;
   }
   TableEntry* find(Qor::U32 index) {
      return const_cast<TableEntry*>(std::as_const(*this).find(index));
   }

   // Refuses an index beyond the capacity or in use, an invalid key, and an entry with the VRF, key
   // and accepting vlan of another entry.
   [[nodiscard]] Refusal create(Qor::U32 index, TableEntry const& entry);
   // Refuses an index without an entry.
   [[nodiscard]] Refusal erase(Qor::U32 index);

   // The effect of a matching key whose entries all accept from other vlans: the look-up ends
   // without an entry, or goes on to shorter matches.
   enum class OtherVlan { ends, passed };
   struct Match {
      std::optional<Qor::U32> index;  // the matching entry
      bool keyFound = false;          // an entry matches the key, but perhaps not the vlan
      unsigned groupLength = 0;       // the prefix length of the group, compared first
      unsigned sourceLength = 0;      // the prefix length of the source
   };
   // Finds the longest match of a packet. Of the entries with one key, the entry that accepts from
   // the packet's vlan takes precedence over the entry that accepts from all vlans.
   Match lookup(Qor::U32 vrfId, Lnet::IpGenAddr const& source, Lnet::IpGenAddr const& group,
                Bridging::VlanIdOrNone vlan, OtherVlan otherVlan) const;

   // Calls visit(index, entry) for every entry of the VRF and key, with any accepting vlan.
   template <class Visit>
   void forEachOf(Qor::U32 vrfId, Routing::Multicast::Fib::IpGenRouteKey const& key,
                  Visit&& visit) const {
      // The search ends at no entry, so it visits all of them.
      index_.locate(hash(vrfId, key), [&](Qor::U32 index) {
         TableEntry const& entry = slots_[index];
         if (entry.key == key && entry.vrfId == vrfId) visit(index, entry);
         return false;
      });
   }

   // Calls visit(index, entry) for every entry, by ascending index.
   template <class Visit>
   void forEach(Visit&& visit) const {
      for (Qor::U32 index = 0; index < slots_.size(); ++index) {
         if (auto const* const entry = find(index)) visit(index, *entry);
      }
   }

   // Appends a text for each inconsistency between the entries and the indexes of the look-up.
   void audit(std::vector<Qor::String>& faults) const;

 private:
   // A combination of prefix lengths and the number of its entries.
   struct Shape {
      Lnet::IpFamily family;
      unsigned groupLength;
      unsigned sourceLength;
      Qor::U32 entries;
   };

   static Qor::U32 hash(Qor::U32 vrfId, Routing::Multicast::Fib::IpGenRouteKey const& key) {
      return Qor::hashFold(Qor::hashMix(vrfId, key.hash()));
   }
   // Of the entries with the VRF and key, the one that takes packets of the vlan.
   Match match(Qor::U32 vrfId, Routing::Multicast::Fib::IpGenRouteKey const& key,
               Bridging::VlanIdOrNone vlan) const;
   std::vector<Shape>::iterator shapeOf(Routing::Multicast::Fib::IpGenRouteKey const& key);

   char const* const what_;
   Qor::U32 const capacity_;
   Qor::U32 size_ = 0;
   Qor::U32 peak_ = 0;
   // By number, up to the highest number used so far. A free slot has the invalid key.
   std::vector<TableEntry> slots_;
   Qor::HashIndex index_;       // the entries by VRF and key; several entries may have both
   std::vector<Shape> shapes_;  // in the order of the look-up: longest match first
};

}  // namespace VelMroute
