// The common part of the tests of the simulated chip's platforms: a chip with three ports on
// virtual time, oif sets, and the receivers of a packet.
#pragma once

#include <sstream>

#include "MrouteLib/OifSet.h"
#include "TestSupport.h"
#include "platform/sim/Chip.h"

namespace testSupport {

class OnSimulatedChip : public OnVirtualTime {
 protected:
   // The chip has the ports et1 to et3, which carry the vlans 1 to 3.
   void buildChip(Sim::ChipConfig const& config) {
      chip_ = Qor::make<Sim::Chip>(config);
      for (unsigned i = 1; i <= 3; ++i) {
         Lnet::IntfId const intf("et" + std::to_string(i));
         EXPECT_EQ(chip_->portAdd(intf, i, Bridging::VlanIdOrNone(i)), "");
      }
   }
   static MrouteLib::OifSetPtr set(std::initializer_list<char const*> intfs, bool toCpu = false) {
      MrouteLib::PortVlanSet s(Routing::Multicast::Fib::RouteKeyType::routed);
      for (char const* intf : intfs)
         s.newPortVlan(pv(intf), true);
      s.toCpuIs(toCpu);
      return Qor::make<MrouteLib::OifSet>(nullptr, s);
   }
   // The receivers of a packet with key(n), as "et1 et2 cpu", or the result without receivers.
   std::string receivers(unsigned n, unsigned vlan = 0, Qor::U32 vrf = 0) {
      auto const out = chip_->forward(
            {vrf, addr("10.0.0.1"), key(n).group().address(), Bridging::VlanIdOrNone(vlan)});
      std::ostringstream os;
      if (out.result != Sim::Forwarding::forwarded) os << out.result << ' ';
      for (MrouteLib::PortVlan const& copy : out.copies)
         os << copy.intfId() << ' ';
      if (out.toCpu) os << "cpu ";
      std::string const all = os.str();
      return all.substr(0, all.size() - 1);
   }

   Qor::Ptr<Sim::Chip> chip_;
};

}  // namespace testSupport
