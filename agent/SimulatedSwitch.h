// A whole forwarding agent on the simulated chip, in virtual time: chip, platform hooks, table
// programmer with its reactor, and route programmer, wired as on a real switch, and fed with the
// events of a capture. The reactor purges zombies, polls activity, and hears of links.
//
// Interfaces become ports of the chip, and VRFs get their ids, when a route first names them; the
// VRF "default" is 0. A link that no route names takes no port and no vlan: a host has many, and
// its containers make ever new ones. A route's incoming interface gives its accepting vlan. A route
// that is unresolved, or has no incoming interface, is not in hardware: there is nothing to accept
// packets from.
#pragma once

#include <map>

#include "Routing/Hardware/RouteStatus.h"
#include "Vel/VelAsyncMrouteSm.h"
#include "agent/AsyncRouteProgrammer.h"
#include "agent/CaptureEvent.h"
#include "agent/InterfaceMap.h"
#include "platform/sim/AsyncPlatform.h"
#include "platform/sim/Chip.h"

namespace Agent {

// Whether a link in this state carries packets. Devices that do not report a state, as tunnels, are
// "unknown" while they work.
bool carriesTraffic(Interface::IntfOperStatus status);

class SimulatedSwitch {
 public:
   // Puts a new virtual-time activity manager in place, at time 0. The map is taken as loaded.
   SimulatedSwitch(Sim::ChipConfig const& config, InterfaceMap intfMap,
                   Sim::AsyncPlatformConfig platformConfig = {});
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
   AsyncRouteProgrammer& routeProgrammer() { return *routeProgrammer_; }
   Routing::Multicast::Fib::VrfConfig& mfibConfig() { return *mfibConfig_; }
   Bfd::AppStatus& bfdAppStatus() { return *bfdAppStatus_; }
   // The port's state, and what the software hears of it. Nothing for a name without a port.
   void linkIs(Lnet::IntfId intf, Interface::IntfOperStatus status);
   // Makes an interface or a VRF known. InterfaceMapFull as apply().
   Intf const& learnIntf(Lnet::IntfId id);
   void learnVrf(L3::VrfName const& vrf);

   Qor::ActivityManager& activity() { return *activity_; }
   Qor::ActivityManager const& activity() const { return *activity_; }
   Sim::Chip& chip() { return *chip_; }
   Sim::Chip const& chip() const { return *chip_; }
   Sim::AsyncPlatform& platform() { return *platform_; }
   Sim::AsyncPlatform const& platform() const { return *platform_; }
   Routing::Multicast::Fib::Hardware::Status const& mfibHwStatus() const { return *mfibHwStatus_; }
   Vel::Mroute::AsyncMrouteSwitch const& mrouteSwitch() const { return *mrouteSwitch_; }
   RouteProgrammer const& routeProgrammer() const { return *routeProgrammer_; }
   Vel::Mroute::AsyncMrouteSwitchSm const& reactor() const { return *reactor_; }
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
   std::size_t portsMade_ = 0;                        // interfaces of the map that the chip knows
   Qor::Ptr<Qor::ActivityManager> const activity_;
   Qor::Ptr<Sim::Chip> const chip_;
   Qor::Ptr<Sim::AsyncPlatform> const platform_;
   Qor::Ptr<Routing::Hardware::RouteStatus> const routeStatus_;
   Qor::Ptr<Vel::Mroute::AsyncMrouteSwitch> const mrouteSwitch_;
   Qor::Ptr<Routing::Multicast::Fib::VrfConfig> const mfibConfig_;
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const mfibHwStatus_;
   Qor::Ptr<IntfVlanId::Table> const intfVlanIdTable_;
   Qor::Ptr<Interface::EthIntfStatusDir> const ethIntfStatusDir_;
   Qor::Ptr<Bfd::StatusPeer> const bfdStatusPeer_;
   Qor::Ptr<Bfd::AppStatus> const bfdAppStatus_;
   std::unique_ptr<AsyncRouteProgrammer> const routeProgrammer_;
   Qor::Ptr<Vel::Mroute::AsyncMrouteSwitchSm> const reactor_;
};

}  // namespace Agent
