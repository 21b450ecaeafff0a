// What lies between a simulated switch's inputs and its chip, on one of the two paths: platform
// hooks, table programmer, reactors and route programmer, wired as on a real switch. It owns them;
// what surrounds them, and is the same on both paths, is the switch's (agent/switch/SimulatedSwitch.h).
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "Bfd/AppStatus.h"
#include "Interface/EthIntfStatusDir.h"
#include "IntfVlanId/Table.h"
#include "Qor/Generic.h"
#include "Routing/Multicast/Fib/VrfConfig.h"
#include "Vel/VrfId.h"
#include "agent/programmer/RouteProgrammer.h"
#include "agent/timeline/Timeline.h"
#include "platform/sim/Chip.h"
#include "platform/sim/Faults.h"
#include "platform/sim/Found.h"

namespace Agent {

struct PathConfig {
   Qor::Seconds minPollingInterval = 0;  // the shortest interval at which activity can be polled
   Qor::Seconds callCost = 0;            // what each hook call costs, in virtual time
};

// What a path is built into. All are held, none is null.
struct Surroundings {
   Qor::Ptr<Sim::Chip> chip;
   Qor::Ptr<Routing::Multicast::Fib::VrfConfig> mfibConfig;
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus;
   Qor::Ptr<IntfVlanId::Table> intfVlanIdTable;
   Qor::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir;
   Qor::Ptr<Bfd::AppStatus> bfdAppStatus;
};

// A record of an oif set in the chip's replication table.
struct RecordRow {
   MrouteLib::OifSetPtr oifSet;
   Qor::U32 group = 0;            // its number in the table
   Qor::U32 index = 0;            // the multicast id, or the oif set index
   std::optional<bool> usedInHw;  // on a path that tells
   bool dirty = false;
   bool rewriteWaits = false;             // for a pass of fast reroute
   Qor::Seconds expiryTime = Qor::never;  // of a zombie
};

// An object by which the entity tree of a switch begins, and where: "switch/1".
struct TreeRoot {
   Qor::String name;
   Qor::Generic object;
};
using TreeRoots = std::vector<TreeRoot>;

class SwitchPath {
 public:
   virtual ~SwitchPath() = default;
   SwitchPath(SwitchPath const&) = delete;
   SwitchPath& operator=(SwitchPath const&) = delete;

   virtual RouteProgrammer& routeProgrammer() = 0;
   virtual RouteProgrammer const& routeProgrammer() const = 0;
   // A VRF that has not been named before.
   virtual void vrfIs(L3::VrfName const& vrf, Vel::VrfId id) = 0;
   // Null on a path that follows no BFD sessions.
   virtual Bfd::AppStatus* bfdAppStatus() { return nullptr; }

   // ---- The platform. ----

   virtual Sim::Faults& faults() = 0;
   virtual Sim::Faults const& faults() const = 0;
   // What is wrong with the platform and its chip, a line each. May have the tables compared first,
   // which changes nothing.
   virtual std::vector<Qor::String> audit() const = 0;
   // Writes that are issued and not yet on the chip.
   virtual bool writesPending() const = 0;
   // What the platform was asked wrongly, or has found to differ; a part of audit().
   virtual std::vector<Qor::String> platformFaults() const = 0;
   virtual Qor::U32 groupsAllocated() const = 0;
   // The chip's entry of the handle; null for a handle without one.
   virtual Sim::Entry const* entry(MrouteLib::RouteHandle handle) const = 0;
   // Whether a route may bridge, which takes an entry of the boundary table.
   virtual bool bridges() const { return false; }
   // What the route's own counter shows; nothing for a route without one, and on a path where
   // counters are the platform's business.
   virtual std::optional<Qor::U64> counter(RouteProgrammer::RouteKey const&) const {
      return std::nullopt;
   }

   // ---- A crash of the agent, and what the next one does about it. ----

   // The platform is taken away before the path goes: nothing that is deleted or withdrawn on the
   // way down reaches the chip. Of the writes under way the first `applied` still do.
   virtual void detach(Qor::U32 applied) = 0;
   virtual Sim::Found const& found() const = 0;
   virtual std::vector<Sim::FoundRoute> foundRoutes() const = 0;
   // Removes what was found and not asked for. False: not all of it yet, since writes are under way
   // that have to be through before.
   virtual bool sweepUnadopted() = 0;
   // The interface is down: has the sets rewritten that it hits, as its failure would.
   virtual void reroute(Lnet::IntfId intf) = 0;

   // ---- The table programmer's records. ----

   virtual std::optional<RecordRow> record(RouteProgrammer::Route const& route) const = 0;
   virtual std::vector<RecordRow> recordsInUse() const = 0;   // by group; no zombies
   virtual std::vector<RecordRow> zombieRecords() const = 0;  // the next to expire first
   virtual std::size_t zombies() const = 0;
   virtual std::size_t rerouting() const = 0;  // oif sets that wait for their rewrite

   // Whether the table programmer's collections add up, with each other and with the platform: a
   // line for each fault. The switch is at rest.
   virtual std::vector<Qor::String> auditTables() const = 0;
   // What the path adds to the entity tree. To be asked anew whenever the tree is looked at.
   virtual TreeRoots roots() const = 0;
   // Shows the switch in the timeline from now on; null: no more. The timeline outlives that.
   virtual void timelineIs(Timeline* timeline) = 0;

 protected:
   SwitchPath() = default;
};

}  // namespace Agent
