// Acts on a chip from outside: packets, links, and the passing of time.
#pragma once

#include <optional>
#include <span>
#include <vector>

#include "Lnet/IntfId.h"
#include "MrouteLib/PortVlanSet.h"
#include "MrouteLib/RouteHandle.h"
#include "Vel/VrfId.h"
#include "hooks/Forwarding.h"

namespace VelMroute {

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
      Bridging::VlanIdOrNone vlan = {};  // in which the packet arrives; none: that of the port
   };
   struct Seen {
      std::vector<MrouteLib::PortVlan> copies;  // ascending; a copy twice stands twice
      bool cpu = false;
      // The verdict of the chip, and the entry that the packet hit, if the chip discloses them.
      std::optional<Forwarding> verdict = {};
      std::optional<MrouteLib::RouteHandle> entry = {};
   };

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
};

}  // namespace VelMroute
