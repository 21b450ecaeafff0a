// A table of match entries, as the chip's route and boundary tables are: numbered entries, each
// matching the packets of one VRF, route key and accepting vlan, and looked up by longest match.
//
// The table owns its entries. It refuses what a chip must not be asked for and changes nothing
// then; a refusal is a text, empty when the write was done. Look-up costs one hash look-up per
// combination of prefix lengths that is in use.
#pragma once

#include <optional>
#include <vector>

#include "Bridging/VlanId.h"
#include "Lnet/IpGenAddr.h"
#include "Qor/HashMap.h"
#include "Qor/Types.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"
#include "Wisp/Multicast/Fib/RpaIndex.h"

namespace Sim {

// Why a write was not done; empty when it was.
using Refusal = Qor::String;

// The number of no group.
inline constexpr Qor::U32 noGroup = 0xFFFFFFFF;

struct Traffic {
   Qor::U64 packets = 0;
   Qor::U64 bytes = 0;
};

struct Entry {
   // What it matches. An accepting vlan of none accepts from anywhere.
   Qor::U32 vrfId = 0;
   Routing::Multicast::Fib::IpGenRouteKey key;
   Bridging::VlanIdOrNone acceptingVlan;
   // Carried for the reader of the table; the chip forwards by the group alone.
   bool bridge = false;
   Wisp::Multicast::Fib::RpaIndex rpaIndex;
   // Where it forwards to; noGroup until it is pointed at a group.
   Qor::U32 group = noGroup;
   // What has hit it. `lastHit` is on the Qor::now() time base, 0.0 for never.
   Qor::Seconds lastHit = 0.0;
   Qor::U64 packets = 0;
   Qor::U64 bytes = 0;
};

class EntryTable {
 public:
   // `what` names an entry in texts: "route entry".
   EntryTable(char const* what, Qor::U32 capacity) : what_(what), capacity_(capacity) {}

   Qor::U32 capacity() const { return capacity_; }
   Qor::U32 size() const { return size_; }
   Qor::U32 peak() const { return peak_; }

   // Null when there is no such entry. Valid until the table's next create().
   Entry const* find(Qor::U32 index) const {
      return index < slots_.size() && slots_[index] ? &slots_[index]->entry : nullptr;
   }
   Entry* find(Qor::U32 index) { return const_cast<Entry*>(std::as_const(*this).find(index)); }

   // Refused: an index beyond the capacity or in use, an invalid key, and an entry that matches
   // exactly the packets of another one.
   [[nodiscard]] Refusal create(Qor::U32 index, Entry const& entry);
   // Refused: a missing entry.
   [[nodiscard]] Refusal erase(Qor::U32 index);

   // Whether a key whose entries all want another vlan ends the search, or is passed over for a
   // shorter match.
   enum class OtherVlan { ends, passed };
   struct Match {
      std::optional<Qor::U32> index;  // the matching entry
      bool keyFound = false;          // an entry has the key, though perhaps not the vlan
      unsigned groupLength = 0;       // how long the match is: first by the group,
      unsigned sourceLength = 0;      //    then by the source
   };
   // Within one key an entry of the packet's own vlan goes before one that accepts from anywhere.
   Match lookup(Qor::U32 vrfId, Lnet::IpGenAddr const& source, Lnet::IpGenAddr const& group,
                Bridging::VlanIdOrNone vlan, OtherVlan otherVlan) const;

   // Calls visit(index, entry) for every entry of the VRF and key, whatever its vlan.
   template <class Visit>
   void forEachOf(Qor::U32 vrfId, Routing::Multicast::Fib::IpGenRouteKey const& key,
                  Visit&& visit) const {
      auto const* const first = first_.find({vrfId, key});
      for (Qor::U32 index = first ? first->second : nowhere; index != nowhere;
           index = slots_[index]->next)
         visit(index, slots_[index]->entry);
   }

   // Calls visit(index, entry) for every entry in the order of the indexes.
   template <class Visit>
   void forEach(Visit&& visit) const {
      for (Qor::U32 index = 0; index < slots_.size(); ++index) {
         if (slots_[index]) visit(index, slots_[index]->entry);
      }
   }

   // Adds a text for each inconsistency between the entries and what looks them up.
   void audit(std::vector<Qor::String>& faults) const;

 private:
   struct Slot {
      Entry entry;
      Qor::U32 next;  // the next entry of the same VRF and key, or nowhere
   };
   struct VrfKey {
      Qor::U32 vrfId;
      Routing::Multicast::Fib::IpGenRouteKey key;
      Qor::U32 hash() const { return Qor::hashFold(Qor::hashMix(vrfId, key.hash())); }
      bool operator==(VrfKey const&) const = default;
   };
   // A combination of prefix lengths, and how many entries have it.
   struct Shape {
      Lnet::IpFamily family;
      unsigned groupLength;
      unsigned sourceLength;
      Qor::U32 entries;
   };
   static constexpr Qor::U32 nowhere = 0xFFFFFFFF;

   std::optional<Qor::U32> match(VrfKey const& key, Bridging::VlanIdOrNone vlan) const;
   std::vector<Shape>::iterator shapeOf(Routing::Multicast::Fib::IpGenRouteKey const& key);

   char const* const what_;
   Qor::U32 const capacity_;
   Qor::U32 size_ = 0;
   Qor::U32 peak_ = 0;
   std::vector<std::optional<Slot>> slots_;  // by index, as far as one has been used
   Qor::HashMap<VrfKey, Qor::U32> first_;    // the first entry of each VRF and key
   std::vector<Shape> shapes_;               // the longest match first
};

}  // namespace Sim
