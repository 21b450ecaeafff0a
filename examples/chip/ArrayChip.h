// An imaginary switch chip: an array of replication groups, an array of route entries, and eight
// ports. It stands for the registers and the vendor's software of a real chip.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "Bridging/VlanId.h"
#include "Lnet/IpGenAddr.h"
#include "MrouteLib/PortVlanSet.h"
#include "Qor/Clock.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"

struct ArrayChip {
   using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   // Two groups outside the array, which are always there.
   static constexpr unsigned dropGroup = 254, cpuGroup = 255;

   struct Group {
      std::vector<MrouteLib::PortVlan> members;
      bool cpu = false;
   };
   struct Entry {
      Qor::U32 vrfId = 0;
      RouteKey key;
      Bridging::VlanIdOrNone vlan;  // in which the entry accepts packets
      unsigned group = dropGroup;
      bool hit = false;  // since the bit was read last
      Qor::Seconds lastHit = 0;
      Qor::U64 packets = 0;
   };
   struct Packet {
      Qor::U32 vrfId;
      Lnet::IpGenAddr source, group;
      Bridging::VlanIdOrNone vlan;
   };

   std::array<std::optional<Group>, 24> groups;
   std::array<std::optional<Entry>, 48> entries;

   // The number of the first free place; none if there is none.
   template <class Array>
   static std::optional<unsigned> freePlace(Array const& array) {
      for (unsigned i = 0; i < array.size(); ++i) {
         if (!array[i]) return i;
      }
      return std::nullopt;
   }

   static Group contentOf(MrouteLib::PortVlanSet const& set) {
      Group group;
      for (auto const& [member, flag] : set.portVlan())
         group.members.push_back(member);
      group.cpu = set.toCpu();
      return group;
   }

   // Forwards a packet: the entry of its source and group decides, otherwise the one of its group
   // and any source. If that entry accepts in other vlans, the packet is dropped.
   Group forward(Packet const& packet) {
      for (Lnet::IpGenPrefix const& source : {Lnet::IpGenPrefix::host(packet.source),
                                              Lnet::IpGenPrefix::any(packet.source.family())}) {
         RouteKey const key(source, Lnet::IpGenPrefix::host(packet.group));
         bool otherVlan = false;
         for (auto& entry : entries) {
            if (!entry || entry->vrfId != packet.vrfId || entry->key != key) continue;
            if (entry->vlan != packet.vlan) {
               otherVlan = true;
               continue;
            }
            entry->hit = true;
            entry->lastHit = Qor::now();
            ++entry->packets;
            if (entry->group >= groups.size()) return {{}, entry->group == cpuGroup};
            return groups[entry->group].value_or(Group());
         }
         if (otherVlan) return {};
      }
      return {};
   }
};

// The mistakes that the platform of this chip can make on purpose.
enum class Mistake {
   none,
   handleTwice,     // gives out the handle of an entry that is in use
   rewriteIgnored,  // rewrites no group in place
   freeIgnored,     // frees no group
};
