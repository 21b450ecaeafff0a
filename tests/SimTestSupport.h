// The common part of the tests on a simulated chip: a chip on virtual time, oif sets, the receivers
// of a packet, and the directories that a per-switch reactor of either path watches.
#pragma once

#include <sstream>

#include "Interface/EthIntfStatusDir.h"
#include "IntfVlanId/Table.h"
#include "MrouteLib/OifSet.h"
#include "TestSupport.h"
#include "platform/sim/Chip.h"

namespace testSupport {

class OnSimulatedChip : public OnVirtualTime {
 protected:
   // The chip has the ports et1 to et<ports>, which carry the vlans 1 to <ports>.
   void buildChip(Sim::ChipConfig const& config, unsigned ports = 3) {
      chip_ = Qor::make<Sim::Chip>(config);
      for (unsigned i = 1; i <= ports; ++i)
         EXPECT_EQ(chip_->portAdd(intf(i), i, vlan(i)), "");
   }
   static Lnet::IntfId intf(unsigned i) { return Lnet::IntfId("et" + std::to_string(i)); }
   static Bridging::VlanIdOrNone vlan(unsigned i) { return Bridging::VlanIdOrNone(i); }
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

// The chip has the ports et1 to et8, which are up. Routes accept from et1, in the VRF "default",
// which has the number 1.
template <class Inputs>
class OnSwitchWithReactor : public OnSimulatedChip {
 protected:
   void buildPorts(Sim::ChipConfig const& config) {
      buildChip(config, 8);
      inputs_ = Inputs();
      for (unsigned i = 1; i <= 8; ++i) {
         inputs_.intfVlanIdTable->intfIdToVlanIdIs(intf(i), Bridging::VlanId(i));
         inputs_.ethIntfStatusDir->newIntfStatus(intf(i))->operStatusIs(
               Interface::IntfOperStatus::up);
      }
   }
   // A set like no other to `out`, covered by `backup` against a failure of `iif`.
   static MrouteLib::OifSetPtr set(std::vector<unsigned> const& out, unsigned iif = 0,
                                   std::vector<unsigned> const& backup = {}) {
      MrouteLib::PortVlanSet s(Routing::Multicast::Fib::RouteKeyType::routed);
      for (unsigned i : out)
         s.newPortVlan(MrouteLib::PortVlan(intf(i), vlan(i)), true);
      for (unsigned i : backup)
         s.newPortVlanFrr(MrouteLib::PortVlan(intf(i), vlan(i)), true);
      if (iif) s.currentIifIs(intf(iif));
      return Qor::make<MrouteLib::OifSet>(nullptr, s);
   }
   std::string receivers(unsigned n, unsigned in = 1) {
      return OnSimulatedChip::receivers(n, in, 1);
   }
   void down(unsigned i, Interface::IntfOperStatus status = Interface::IntfOperStatus::down) {
      inputs_.ethIntfStatusDir->intfStatus(intf(i))->operStatusIs(status);
   }

   Inputs inputs_;
};

}  // namespace testSupport
