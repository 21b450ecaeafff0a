// A whole forwarding agent on the simulated chip, in virtual time, fed with the events of a
// capture: the chip, what is known of interfaces, links and VRFs, and one of the two paths between
// them (agent/switch/SwitchPath.h).
//
// Interfaces become ports of the chip, and VRFs get their ids, when a route first names them; the
// VRF "default" is 0. A link that no route names takes no port and no vlan: a host has many, and
// its containers make ever new ones. A route's incoming interface gives its accepting vlan. A route
// that is unresolved, or has no incoming interface, is not in hardware: there is nothing to accept
// packets from.
//
// A restart is a crash of the agent: everything between the inputs and the chip goes, and the
// hardware status with it, while the chip goes on with what is in its tables. What lives elsewhere
// stays: interfaces, links, BFD sessions, VRFs, configuration. A new path is made on the chip, the
// hardware status is rebuilt from the routes found there, the routing layer tells its routes again
// (agent/switch/Replay.h), and what it has not told in the end is removed from the chip.
#pragma once

#include <functional>
#include <map>

#include "agent/input/CaptureEvent.h"
#include "agent/input/InterfaceMap.h"
#include "agent/switch/Path.h"
#include "agent/switch/Replay.h"
#include "agent/switch/SwitchPath.h"

namespace Agent {

// Whether a link in this state carries packets. Devices that do not report a state, as tunnels, are
// "unknown" while they work.
bool carriesTraffic(Interface::IntfOperStatus status);

class SimulatedSwitch {
 public:
   // Puts a new virtual-time activity manager in place, at time 0. The map is taken as loaded.
   SimulatedSwitch(Path path, Sim::ChipConfig const& config, InterfaceMap intfMap,
                   PathConfig const& pathConfig = {});
   ~SimulatedSwitch();
   SimulatedSwitch(SimulatedSwitch const&) = delete;
   SimulatedSwitch& operator=(SimulatedSwitch const&) = delete;

   // Runs everything that is due before the event's time, and then takes the event over whole.
   // Raises InterfaceMapFull, before anything of the event is applied, when an interface has no
   // vlan left.
   void apply(CaptureEvent const& event);
   // Runs until the routes are placed as far as they can be and all writes are complete. Timers
   // that go on for ever, as activity polling, are no reason to go on.
   void settle();

   // What the routing layer and its surroundings tell the switch, where no capture does.
   void routeIs(L3::VrfName const& vrf, RouteProgrammer::RouteKey const& key, WantedRoute wanted);
   void routeDel(L3::VrfName const& vrf, RouteProgrammer::RouteKey const& key);
   RouteProgrammer& routeProgrammer() { return path_->routeProgrammer(); }
   Routing::Multicast::Fib::VrfConfig& mfibConfig() { return *surroundings_.mfibConfig; }
   // The port's state, and what the software hears of it. Nothing for a name without a port.
   void linkIs(Lnet::IntfId intf, Interface::IntfOperStatus status);
   // Makes an interface or a VRF known. InterfaceMapFull as apply().
   Intf const& learnIntf(Lnet::IntfId id);
   void learnVrf(L3::VrfName const& vrf);

   // Where the entity tree begins, by name: what surrounds the path, and the path's own.
   TreeRoots roots() const;

   // The agent crashes and starts again. What referred to its objects is invalid. May happen again
   // at any time, also before the routing layer has told everything.
   void restart(RestartOptions const& options);
   // From a restart until the last found entry or group has been taken over or removed.
   bool recovering() const { return replay_.underWay(); }
   // Calls `told` for each interface that is down at the end of a replay, before the groups of what
   // comes in over it are rewritten.
   using Rerouting = std::function<void(Lnet::IntfId)>;
   void onRerouting(Rerouting told) { rerouting_ = std::move(told); }
   // When the agent has started; activity from before then is not known to it.
   Qor::Seconds startedAt() const { return startedAt_; }
   // The routes that the routing layer wants, whether or not it has told this agent yet.
   Replay::Routes wantedRoutes() const;

   // Shows the agent in the timeline from now on, and those that follow it; null: no more. The
   // timeline outlives that.
   void timelineIs(Timeline* timeline);

   Qor::ActivityManager& activity() { return *activity_; }
   Qor::ActivityManager const& activity() const { return *activity_; }
   Sim::Chip& chip() { return *surroundings_.chip; }
   Sim::Chip const& chip() const { return *surroundings_.chip; }
   SwitchPath& path() { return *path_; }
   SwitchPath const& path() const { return *path_; }
   Routing::Multicast::Fib::Hardware::Status const& mfibHwStatus() const {
      return *surroundings_.mfibHwStatus;
   }
   RouteProgrammer const& routeProgrammer() const { return path().routeProgrammer(); }
   // Of all agents so far.
   struct Figures {
      RouteProgrammer::Counters programmer;
      Qor::U64 restarts = 0;
      Qor::U64 adopted = 0;             // groups and entries that were found and taken over
      Qor::U64 swept = 0;               // those that were removed
      std::vector<Qor::String> faults;  // of their platforms
   };
   Figures figures() const;
   // What is wrong with the platform and its chip, and was with earlier ones, a line each.
   std::vector<Qor::String> audit() const;
   InterfaceMap const& interfaceMap() const { return intfMap_; }
   // Null for a VRF that has not been seen.
   std::optional<Vel::VrfId> vrfId(L3::VrfName const& vrf) const;
   // The interface of a name that has been seen.
   Intf const& intf(Lnet::IntfId id) const;

 private:
   std::unique_ptr<SwitchPath> newPath() const;
   bool isFound(RouteProgrammer::Route const& route) const;
   std::optional<Qor::Seconds> replayComplete();
   void withdrawUnwanted();
   void rerouteWhereDown();
   void learn(CaptureEvent const& event);
   void apply(MrouteEvent const& event);
   void apply(LinkEvent const& event);
   void apply(SnapshotEvent const& event);

   struct Link {
      std::uint32_t ifindex;
      Interface::IntfOperStatus status;
   };

   mutable InterfaceMap intfMap_;
   std::map<Lnet::IntfId, Link> links_;  // by the present name; those never heard of are up
   std::map<std::uint32_t, Lnet::IntfId> linkNames_;  // the latest of each index
   std::map<L3::VrfName, Vel::VrfId> vrfIds_;
   std::size_t portsMade_ = 0;  // interfaces of the map that the chip knows
   Qor::Ptr<Qor::ActivityManager> const activity_;
   Path const pathKind_;
   PathConfig const pathConfig_;
   Surroundings surroundings_;
   std::unique_ptr<SwitchPath> path_;
   Replay replay_;
   Timeline* timeline_ = nullptr;
   Rerouting rerouting_;
   Figures before_;  // of the agents that have crashed
   Qor::Seconds startedAt_ = 0;
};

}  // namespace Agent
