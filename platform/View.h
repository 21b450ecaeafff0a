// Reads the tables of a chip back. The answers are those of the last refresh.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "Lnet/IntfId.h"
#include "MrouteLib/PortVlanSet.h"
#include "MrouteLib/RouteHandle.h"
#include "platform/Faults.h"
#include "programmer/Restart.h"

namespace VelMroute {

class View {
 public:
   using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   struct Group {
      std::vector<MrouteLib::PortVlan> members;  // ascending
      bool cpu = false;
      // The group exists outside the replication table: it needs no room and cannot be written. Such
      // a group has no members, and sends to the CPU or nowhere.
      bool hardWired = false;
   };
   struct Entry {
      MrouteLib::RouteHandle handle;
      Qor::U32 number = 0;            // the place in the table
      Restart::Route route;           // `bridge`: the entry is in the boundary table
      bool drops = false;             // the entry discards its packets on purpose
      std::optional<Qor::U32> group;  // the number of its group; none: the entry points at none
      std::optional<Qor::U64> packets, bytes;  // since its making; none: not counted
   };
   // The places of a table. A member without a value is not known.
   struct Use {
      Qor::U32 used = 0;  // taken on the chip
      std::optional<Qor::U32> size;
      // Given out by hooks and not taken back, whether or not the writes are complete. Found groups
      // and entries that remain are included; empty sets and hard-wired groups are not.
      std::optional<Qor::U32> allocated;
      std::optional<Qor::U32> peak;  // the highest `used` so far
   };

   virtual ~View() = default;
   // Reads the tables, and calls `done` with the success: at once, or in a later turn of the loop.
   // After a failure the earlier answers stay.
   virtual void refresh(std::function<void(bool read)> const& done) = 0;
   // The time of the answers, as of Qor::now().
   virtual Qor::Seconds asOf() const = 0;

   // The number of the group behind a multicast id or an oif set index that a hook returned, also
   // before the group is written. Nothing for other numbers.
   virtual std::optional<Qor::U32> groupOf(Qor::U32 index) const = 0;
   // The group with this number; nothing if the chip has none.
   virtual std::optional<Group> group(Qor::U32 number) const = 0;
   virtual std::optional<Entry> entry(MrouteLib::RouteHandle handle) const = 0;
   // Visits the entries of the route table and then those of the boundary table, each by ascending
   // number.
   virtual void forEachEntry(std::function<void(Entry const&)> const& visit) const = 0;
   // Visits the entries of both tables with this VRF and key, of any vlan. The default looks at all
   // entries.
   virtual void forEachEntryOf(Vel::VrfId vrfId, RouteKey const& key,
                               std::function<void(Entry const&)> const& visit) const {
      forEachEntry([&](Entry const& entry) {
         if (entry.route.vrfId == vrfId && entry.route.key == key) visit(entry);
      });
   }
   // Visits the groups of the replication table by ascending number.
   virtual void forEachGroup(
         std::function<void(Qor::U32 number, Group const& group)> const& visit) const = 0;
   virtual Use use(Table table) const = 0;
   // The number of completed writes of the kind; nothing if they are not counted.
   virtual std::optional<Qor::U64> writes(WriteKind) const { return std::nullopt; }
   // Nothing for an interface without a port.
   virtual std::optional<bool> linkUp(Lnet::IntfId intf) const = 0;
   // Whether copies come out at the interface: at its port, or at one that stands in for it.
   virtual std::optional<bool> sends(Lnet::IntfId intf) const { return linkUp(intf); }
};

}  // namespace VelMroute
