// A whole forwarding agent on the simulated chip, in virtual time, fed with the events of a
// capture: the chip, what is known of interfaces, links and VRFs, and one of the two paths between
// them (agent/SwitchPath.h).
//
// Interfaces become ports of the chip, and VRFs get their ids, when a route first names them; the
// VRF "default" is 0. A link that no route names takes no port and no vlan: a host has many, and
// its containers make ever new ones. A route's incoming interface gives its accepting vlan. A route
// that is unresolved, or has no incoming interface, is not in hardware: there is nothing to accept
// packets from.
#pragma once

#include <map>

#include "agent/CaptureEvent.h"
#include "agent/InterfaceMap.h"
#include "agent/SwitchPath.h"

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
   RouteProgrammer& routeProgrammer() { return path_->routeProgrammer(); }
   Routing::Multicast::Fib::VrfConfig& mfibConfig() { return *surroundings_.mfibConfig; }
   // The port's state, and what the software hears of it. Nothing for a name without a port.
   void linkIs(Lnet::IntfId intf, Interface::IntfOperStatus status);
   // Makes an interface or a VRF known. InterfaceMapFull as apply().
   Intf const& learnIntf(Lnet::IntfId id);
   void learnVrf(L3::VrfName const& vrf);

   // Where the entity tree begins, by name: what surrounds the path, and the path's own.
   TreeRoots roots() const;

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
   InterfaceMap const& interfaceMap() const { return intfMap_; }
   // Null for a VRF that has not been seen.
   std::optional<Vel::VrfId> vrfId(L3::VrfName const& vrf) const;
   // The interface of a name that has been seen.
   Intf const& intf(Lnet::IntfId id) const;

 private:
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
   Surroundings const surroundings_;
   std::unique_ptr<SwitchPath> const path_;
};

}  // namespace Agent
