// The objects between the inputs of a switch and the hooks of its platform, on one of the two paths:
// a programmer over the route table of the path, which has table programmer and reactors. The path
// owns these objects and wires them as on a real switch. The objects that are the same on both paths
// belong to agent/switch/Switch.h.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "Bfd/AppStatus.h"
#include "Interface/EthIntfStatusDir.h"
#include "IntfVlanId/Table.h"
#include "Qor/Generic.h"
#include "Routing/Multicast/Fib/VrfConfig.h"
#include "Vel/VrfId.h"
#include "agent/timeline/Timeline.h"
#include "hooks/HookChecks.h"
#include "platform/Platform.h"
#include "programmer/Programmer.h"

namespace Agent {

using VelMroute::Programmer;
using VelMroute::RouteKey;
using VelMroute::RouteView;
using VelMroute::Table;
using VelMroute::WantedRoute;

// The objects to which a path is wired. None is null, unless stated.
struct Surroundings {
   Qor::Ptr<VelMroute::Platform> platform;
   Qor::Ptr<VelMroute::HookFaults> hookFaults;  // null: the hooks are not checked
   bool hookFaultsStop;                         // as HookChecks::Options
   Qor::Ptr<VelMroute::HookObserver> history;   // notified of the writes of the hooks, or null
   Qor::U32 refusals;                           // as HookChecks::Options
   Qor::Ptr<Routing::Multicast::Fib::VrfConfig> mfibConfig;
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus;
   Qor::Ptr<IntfVlanId::Table> intfVlanIdTable;
   Qor::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir;
   Qor::Ptr<Bfd::AppStatus> bfdAppStatus;
};

// The checks of the hooks, if they are wanted. After a crash the chip has tables.
inline std::optional<VelMroute::HookChecks::Options> hookChecks(Surroundings const& s,
                                                                bool crashed) {
   if (!s.hookFaults) return std::nullopt;
   VelMroute::HookChecks::Options options;
   options.faults = s.hookFaults;
   options.stops = s.hookFaultsStop;
   options.observer = s.history;
   options.refusals = s.refusals;
   options.startsEmpty = !crashed;
   return options;
}

// The state that outlives a crash of the agent, besides the surroundings.
struct Crashed {
   std::map<L3::VrfName, Vel::VrfId> vrfs;
};

// A record of an oif set in the chip's replication table.
struct RecordRow {
   MrouteLib::OifSetPtr oifSet;
   std::optional<Qor::U32> group;  // the number of its group; nothing if the platform has none
   Qor::U32 index = 0;             // the multicast id, or the oif set index
   std::optional<bool> usedInHw;   // on the asynchronous path alone
   bool dirty = false;
   bool rewriteWaits = false;             // the set waits for a pass of fast reroute
   Qor::Seconds expiryTime = Qor::never;  // of a zombie
};

// A root of the entity tree of a switch, with its place: "switch/1".
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

   virtual Programmer& programmer() = 0;
   virtual Programmer const& programmer() const = 0;
   // Adds a VRF that the path does not have yet.
   virtual void vrfIs(L3::VrfName const& vrf, Vel::VrfId id) = 0;
   // Returns null on a path whose reactor follows no BFD sessions.
   virtual Bfd::AppStatus* bfdAppStatus() { return nullptr; }

   // The faults of the reactors that have no other way to report them, a line each.
   virtual std::vector<Qor::String> faults() const { return {}; }
   // Makes the verification of the hardware that is due.
   virtual void verify() const {}
   // Whether the path has bridged routes, which take an entry of the boundary table.
   virtual bool bridges() const { return false; }
   // The route's own counter. Nothing for a route without a counter, and on the asynchronous path,
   // where the platform keeps the counters.
   virtual std::optional<Qor::U64> counter(RouteKey const&) const { return std::nullopt; }

   // ---- The table programmer's records. ----

   virtual std::optional<RecordRow> record(RouteView const& route) const = 0;
   virtual std::vector<RecordRow> recordsInUse() const = 0;   // sorted by group, without zombies
   virtual std::vector<RecordRow> zombieRecords() const = 0;  // in the order of expiry
   virtual std::size_t zombies() const = 0;
   virtual std::size_t rerouting() const = 0;  // number of oif sets that wait for their rewrite

   // Compares the table programmer's collections with each other and with the platform, while the
   // switch is at rest. Returns a line for each fault.
   virtual std::vector<Qor::String> auditTables() const = 0;
   // The roots that the path adds to the entity tree. The roots may change, so a caller calls this
   // again each time that it reads the tree.
   virtual TreeRoots roots() const = 0;
   // Shows the switch in the timeline from now on, or, with null, ends that. The timeline lives
   // until then.
   virtual void timelineIs(Timeline* timeline) = 0;

 protected:
   SwitchPath() = default;
};

}  // namespace Agent
