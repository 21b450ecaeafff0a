// A chip as programs see it: the hooks of one path and, as far as the platform can, a view of the
// tables, a probe for packets and links, injected faults, and the groups and entries from before a
// restart. Programs know no other interface to a chip.
//
// Life. A platform is one life of an agent on the chip. After a crash the next life has another
// platform on the same chip, which finds the tables (crash(), restart()). A platform outlives the
// programmers that use it.
//
// Threads. The thread of the activity loop makes all calls.
#pragma once

#include <vector>

#include "Vel/VelAsyncMrouteHelper.h"
#include "Vel/VelSyncMrouteHelper.h"
#include "platform/Faults.h"
#include "platform/Probe.h"
#include "platform/View.h"
#include "programmer/Restart.h"

namespace VelMroute {

// The abilities that programs may expect of a platform. A program leaves out the tests and commands
// that need a missing one, and reports that.
struct Abilities {
   bool ipv6 = true;
   bool wildcards = true;  // (*,G) routes
   bool ranges = true;     // group ranges and catch-all routes
   bool cpu = true;        // copies to the CPU
   bool fastdrop = true;   // entries that drop, and are watched for activity
   bool reroute = true;    // groups can be rewritten in place
   bool hits = true;       // the activity of entries can be read
   bool noRpf = false;     // entries without a check of the input
   bool bridging = false;  // boundary entries
   bool counters = false;  // counters of routes
   // The treatment of packets that no entry takes. A chip drops them, and a packet that comes in by
   // another interface than that of the longest match is such a packet. With `missToCpu` they go to
   // the CPU, and with `otherInputPasses` such a packet goes on to shorter matches.
   bool missToCpu = false;
   bool otherInputPasses = false;
   bool virtualTime = false;  // the platform runs on Qor::now() alone, so time may jump
   bool forks = false;        // a forked child may go on with a copy of the platform and its chip
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
   virtual Faults* faults() { return nullptr; }
   virtual Restart* restart() { return nullptr; }

   // The agent has an interface on the port with this number, from 1, and its packets are in the
   // vlan. Called before a hook names the interface; several vlans of one interface are several
   // calls. Returns false if the chip has no such port. The default takes every port.
   virtual bool portIs(Lnet::IntfId, Qor::U32 number, Bridging::VlanIdOrNone) { return number > 0; }
   // Whether writes were requested by hooks and are not on the chip yet. A platform that returns
   // false without knowing has a Probe::settle() that knows.
   virtual bool writesPending() const { return false; }

   // The calls of hooks that a correct agent never makes, and the differences that a verification
   // of the hardware found, a line each.
   virtual std::vector<Qor::String> violations() const { return {}; }
   // The violations, followed by the faults of the chip itself, a line each.
   virtual std::vector<Qor::String> audit() const { return violations(); }

   // The agent crashes. Of the writes under way the oldest `applied` still reach the chip, and
   // later calls of this platform's hooks have no effect. Returns the platform of the next life,
   // which has the same ports, or null if the platform cannot.
   virtual Qor::Ptr<Platform> crash(Qor::U32 applied) {
      static_cast<void>(applied);
      return nullptr;
   }
};

}  // namespace VelMroute
