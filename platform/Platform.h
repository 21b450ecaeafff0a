// A chip as programs see it: the hooks of one path and, as far as the platform can, a view of the
// tables, a probe for packets, links and faults, and the groups and entries from before a restart.
// Programs know no other interface to a chip.
//
// Life. A platform is one life of an agent on the chip. After a crash the program drops the
// platform and makes another one on the same chip, which then finds the tables (restart()).
// A platform outlives the programmers that use it.
//
// Threads. The thread of the activity loop makes all calls.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "Lnet/IntfId.h"
#include "Vel/VelAsyncMrouteHelper.h"
#include "Vel/VelSyncMrouteHelper.h"
#include "programmer/Restart.h"

namespace VelMroute {

// The abilities that programs may expect of a platform. A program leaves out the tests and commands
// that need a missing one, and reports that.
struct Abilities {
   bool ipv6 = true;
   bool wildcards = true;     // (*,G) routes
   bool ranges = true;        // group ranges and catch-all routes
   bool cpu = true;           // copies to the CPU
   bool fastdrop = true;      // entries that drop, and are watched for activity
   bool reroute = true;       // groups can be rewritten in place
   bool hits = true;          // the activity of entries can be read
   bool noRpf = false;        // entries without a check of the input
   bool bridging = false;     // boundary entries
   bool counters = false;     // counters of routes
   bool virtualTime = false;  // the platform runs on Qor::now() alone, so time may jump
   bool forks = false;        // a forked child may go on with a copy of the platform and its chip
};

// Reads the tables back. The answers are those of the last refresh.
class View {
 public:
   using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   struct Group {
      std::vector<MrouteLib::PortVlan> members;  // ascending
      bool cpu = false;
   };
   struct Entry {
      MrouteLib::RouteHandle handle;
      Restart::Route route;
      bool drops = false;             // the entry discards its packets on purpose
      std::optional<Qor::U32> group;  // the number of its group; none: the entry points at none
      std::optional<Qor::U64> packets, bytes;  // since its making; none: not counted
   };
   struct Use {
      Qor::U32 used = 0;
      std::optional<Qor::U32> size;  // none: not known
   };

   virtual ~View() = default;
   // Reads the tables, and calls `done` with the success: at once, or in a later turn of the loop.
   // After a failure the earlier answers stay.
   virtual void refresh(std::function<void(bool read)> const& done) = 0;
   // The time of the answers, as of Qor::now().
   virtual Qor::Seconds asOf() const = 0;

   // The number of the group behind a multicast id or an oif set index that a hook returned.
   virtual std::optional<Qor::U32> groupOf(Qor::U32 index) const = 0;
   virtual std::optional<Group> group(Qor::U32 number) const = 0;
   virtual std::optional<Entry> entry(MrouteLib::RouteHandle handle) const = 0;
   // Visits the entries of both tables by ascending handle.
   virtual void forEachEntry(std::function<void(Entry const&)> const& visit) const = 0;
   // Visits the groups by ascending number.
   virtual void forEachGroup(
         std::function<void(Qor::U32 number, Group const& group)> const& visit) const = 0;
   virtual Use use(Table table) const = 0;
   // Nothing for an interface without a port.
   virtual std::optional<bool> linkUp(Lnet::IntfId intf) const = 0;
};

// Acts on the chip from outside: packets, links, faults, and the passing of time.
class Probe {
 public:
   struct Port {
      Lnet::IntfId intf;
      Bridging::VlanIdOrNone vlan;  // in which packets arrive there
   };
   struct Packet {
      Vel::VrfId vrfId;
      Lnet::IpGenAddr source, group;
      Lnet::IntfId in;  // the interface at which the packet arrives
      Qor::U32 bytes = 64;
   };
   struct Seen {
      std::vector<MrouteLib::PortVlan> copies;  // ascending; a copy twice stands twice
      bool cpu = false;
   };
   enum class Fault : unsigned char { groupWrite, entryWrite, deletion, hitBitsBusy };

   virtual ~Probe() = default;
   // The ports of the chip: at least four for the kit.
   virtual std::vector<Port> ports() const = 0;
   // Sends the packets in this order. Returns when no further copy can come.
   virtual std::vector<Seen> inject(std::span<Packet const> packets) = 0;
   // Returns when all writes that the hooks requested are on the chip, deletions included.
   virtual void settle() = 0;
   // Lets time pass, and turns the loop.
   virtual void wait(Qor::Seconds seconds) = 0;
   // Changes the link of a port. Returns false if the platform cannot, or has no such port.
   virtual bool linkIs(Lnet::IntfId, bool) { return false; }
   // The next `count` such writes or readings fail. Returns false if the platform cannot.
   virtual bool failNext(Fault, Qor::U32) { return false; }
};

class Platform : public Qor::RefCounted {
 public:
   virtual Abilities abilities() const = 0;
   // The hooks of the platform's path; the other one is null.
   virtual Qor::Ptr<VelHelper::AsyncMrouteHelper> asyncHooks() { return nullptr; }
   virtual Qor::Ptr<VelHelper::MrouteSmHelper> syncHooks() { return nullptr; }
   // Null: the platform cannot. The objects live as long as the platform.
   virtual View* view() { return nullptr; }
   virtual Probe* probe() { return nullptr; }
   virtual Restart* restart() { return nullptr; }
};

}  // namespace VelMroute
