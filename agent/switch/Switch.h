// A whole switch: a platform, and the forwarding agent on it. The agent has the interfaces, links and
// VRFs, and one of the two paths (agent/switch/SwitchPath.h), and applies the events of a capture.
// The chip is known through platform/Platform.h alone.
//
// Time. If the platform allows, the switch is in virtual time, which jumps from one deadline to the
// next. Otherwise the time is that of the real world: events are applied when their time comes.
//
// An interface gets a port of the chip, and a VRF gets its id, when a route first names it. The
// VRF "default" has the id 0. A link that no route names takes no port and no vlan, because a host
// may have any number of links for its containers. The accepting vlan of a route is that of its
// incoming interface. A route that is unresolved or has no incoming interface accepts no packets,
// and is therefore not in hardware.
//
// In a restart the agent crashes and starts again. Platform, path and hardware status are lost, and
// the chip keeps its tables. Other parts of the agent keep interfaces, links, BFD sessions, VRFs
// and configuration. Then a new path is made on the chip, and the routing layer replays its routes
// (agent/switch/RouteReplay.h). The programmer of the new path recovers the hardware status, and
// removes the groups and entries without a route at the end of the replay.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <unordered_set>

#include "agent/input/CaptureEvent.h"
#include "agent/input/InterfaceMap.h"
#include "agent/switch/PlatformChoice.h"
#include "agent/switch/RouteReplay.h"
#include "agent/switch/SwitchHistory.h"
#include "agent/switch/SwitchPath.h"

namespace Agent {

// Whether a link in this state carries packets. Devices that report no state, such as tunnels, are
// "unknown" while they work.
bool carriesTraffic(Interface::IntfOperStatus status);

class Switch {
 public:
   // Installs a new activity manager, at time 0, and makes the platform, unless that is live.
   // `intfMap` may have the interfaces of a map file. Throws what the choice throws.
   explicit Switch(PlatformChoice const& platform, InterfaceMap intfMap = {});
   ~Switch();
   Switch(Switch const&) = delete;
   Switch& operator=(Switch const&) = delete;

   // Runs everything that is due up to the event's time, and then applies the event. Raises
   // InterfaceMapFull if no vlan is left for an interface, or no port; no part of the event is
   // applied then.
   void apply(CaptureEvent const& event);
   // Runs until every route is in hardware, waits or has failed, and all writes are complete.
   // Periodic timers, such as activity polling, do not keep it running. An interrupt
   // (agent/process/Signals.h) does not end this in virtual time, and in real time leaves a second
   // for the writes under way. Returns whether the switch is settled.
   bool settle();
   // Runs everything that is due up to and including this time, as Qor::ActivityManager::runUntil.
   // An interrupt ends this earlier; Qor::now() is the time that was reached.
   void runUntil(Qor::Seconds time);
   Qor::Seconds nextDeadline() const { return activity_->nextDeadline(); }

   // Changes without a capture: wanted routes, configuration, links.
   // The interfaces and the VRF of a wanted route are registered before.
   void routeIs(L3::VrfName const& vrf, RouteKey const& key, WantedRoute wanted);
   void routeDel(L3::VrfName const& vrf, RouteKey const& key);
   VelMroute::OutputsPool& outputsPool() { return outputs_; }
   Programmer& programmer() { return path_->programmer(); }
   Routing::Multicast::Fib::VrfConfig& mfibConfig() { return *surroundings_.mfibConfig; }
   // Changes the link of the port, if the platform can, and publishes the state. No effect on a name without a port.
   void linkIs(Lnet::IntfId intf, Interface::IntfOperStatus status);
   // Whether a change of the link reaches the port: not, if the platform cannot change links.
   bool linkFollows(Lnet::IntfId intf) const { return !fixedLinks_.contains(intf); }
   // Registers an interface or a VRF, unless it is registered. Raises InterfaceMapFull as apply().
   Intf const& learnIntf(Lnet::IntfId id);
   void learnVrf(L3::VrfName const& vrf);

   // The roots of the entity tree, by name.
   TreeRoots roots() const;

   // The agent crashes and starts again. References to its objects become invalid. A restart is
   // allowed at any time, also during the replay of an earlier restart. Returns false, without a
   // crash, if the platform has no next life.
   bool restart(RestartOptions const& options);
   // True from a restart until the last found entry or group is taken over or removed.
   bool recovering() const { return replay_.underWay() || programmer().resyncing(); }
   // Calls `handler` for each interface that is down at the end of a replay, before the groups of
   // the routes with this input are rewritten.
   using Rerouting = std::function<void(Lnet::IntfId)>;
   void onRerouting(Rerouting handler) {
      rerouting_ = std::move(handler);
      programmer().onReroute(rerouting_);
   }
   // Whether the entry was found after a restart and no route has taken it over yet.
   bool isFound(VelMroute::Restart::Route const& entry) const {
      VelMroute::Restart const* const restart = surroundings_.platform->restart();
      return restart && restart->isFound(entry);
   }
   // The time of the agent's start. The agent does not know any activity from before.
   Qor::Seconds startedAt() const { return startedAt_; }
   // The routes that the routing layer wants, also those that a replay has not announced yet.
   RouteReplay::Routes wantedRoutes() const;
   // One of these; null if the route is not wanted. Valid until the next change of the switch.
   WantedRoute const* wanted(RouteId const& id) const;

   // Shows this agent and its successors in the timeline from now on, or, with null, ends that. The
   // timeline lives until then.
   void timelineIs(Timeline* timeline);

   PathKind pathKind() const { return pathKind_; }
   // Whether a forked child may go on with a copy of the switch.
   bool forks() const { return surroundings_.platform->abilities().forks; }
   VelMroute::Platform& platform() { return *surroundings_.platform; }
   VelMroute::Platform const& platform() const { return *surroundings_.platform; }
   // The tables of the chip; empty ones if they cannot be read.
   bool canRead() const { return surroundings_.platform->view() != nullptr; }
   VelMroute::View const& view() const;
   // Reads the tables back, and returns when that is done or has failed. In real time an interrupt
   // leaves a second for it.
   void readBack();
   // Sends a packet into the chip, in the vlan of the interface. The platform has a probe.
   VelMroute::Probe::Seen send(VelMroute::Probe::Packet packet);
   SwitchPath& path() { return *path_; }
   SwitchPath const& path() const { return *path_; }
   Routing::Multicast::Fib::Hardware::Status const& mfibHwStatus() const {
      return *surroundings_.mfibHwStatus;
   }
   Programmer const& programmer() const { return path().programmer(); }
   // Sums over this agent and its predecessors.
   struct Figures {
      Programmer::Counters programmer;
      Qor::U64 restarts = 0;
      std::vector<Qor::String> faults;  // of all platforms and paths, without those of the chip
   };
   Figures figures() const;
   // The breaches of the hooks' contract so far; null if the hooks are not checked.
   VelMroute::HookFaults const* hookFaults() const {
      return checksHooks_ ? surroundings_.hookFaults.get() : nullptr;
   }
   // The same for a switch that explains, which does not fail by them.
   VelMroute::HookFaults const* seenHookFaults() const { return surroundings_.hookFaults.get(); }
   void onHookFault(std::function<void(VelMroute::HookFault const&)> handler) {
      if (surroundings_.hookFaults) surroundings_.hookFaults->onFault(std::move(handler));
   }
   // The latest events; null for a switch that does not explain.
   SwitchHistory const* history() const { return history_.get(); }
   // The link of the interface: of the port, if the tables can be read, and otherwise as published.
   // Nothing for an interface without a port.
   std::optional<bool> linkUp(Lnet::IntfId intf) const;
   // Whether copies come out at the interface; otherwise as linkUp().
   std::optional<bool> sends(Lnet::IntfId intf) const {
      auto const sends = view().sends(intf);
      return sends ? sends : linkUp(intf);
   }
   // The faults of the chip, its platform and the platforms before it, a line each.
   std::vector<Qor::String> audit() const;
   InterfaceMap const& interfaceMap() const { return intfMap_; }
   // The id of a VRF, or nothing if the VRF is not registered.
   std::optional<Vel::VrfId> vrfId(L3::VrfName const& vrf) const;
   // The interface with this name, which is registered.
   Intf const& intf(Lnet::IntfId id) const;
   // The vlan of the input of a route; none if the route accepts packets from every interface.
   Bridging::VlanIdOrNone vlanOf(WantedRoute const& wanted) const;

 private:
   class Patience;
   void wait(Qor::Seconds time);
   void runTurns();
   void pathIs(std::unique_ptr<SwitchPath> path);
   void learn(CaptureEvent const& event);
   void portLinkIs(Lnet::IntfId intf, Interface::IntfOperStatus status);
   void apply(MrouteEvent const& event);
   void apply(LinkEvent const& event);
   void apply(SnapshotEvent const& event);

   struct Link {
      std::uint32_t ifindex;
      Interface::IntfOperStatus status;
   };

   mutable InterfaceMap intfMap_;
   std::map<Lnet::IntfId, Link> links_;  // by the present name; links that are not here are up
   std::map<std::uint32_t, Lnet::IntfId> linkNames_;  // the latest name of each ifindex
   std::map<L3::VrfName, Vel::VrfId> vrfIds_;
   // The number of interfaces of the map for which a port of the chip was requested.
   std::size_t portsMade_ = 0;
   std::unordered_set<Qor::U32> ported_;  // the interfaces with a port of the chip, by IntfId::id()
   std::set<Lnet::IntfId> fixedLinks_;
   Qor::Ptr<Qor::ActivityManager> const activity_;
   Qor::U32 eventsNow_ = 0;  // events of a capture at the present instant, besides the first
   PathKind const pathKind_;
   bool const virtualTime_;
   bool const checksHooks_;
   Qor::Ptr<SwitchHistory> const history_;
   Surroundings surroundings_;
   VelMroute::OutputsPool outputs_;
   std::unique_ptr<SwitchPath> path_;
   RouteReplay replay_;
   Timeline* timeline_ = nullptr;
   Rerouting rerouting_;
   Figures before_;  // sums over the agents that have crashed
   Qor::Seconds startedAt_ = 0;
};

}  // namespace Agent
