// The simulated chip: refused writes and forwarding.
#include <functional>
#include <sstream>

#include "TestSupport.h"
#include "platform/sim/Chip.h"

namespace {

using Bridging::VlanIdOrNone;
using Lnet::IntfId;
using MrouteLib::PortVlan;
using Sim::Chip;
using namespace testSupport;

Sim::Entry entry(char const* source, char const* group, unsigned vlan = 0, Qor::U32 vrf = 0) {
   Sim::Entry e;
   e.vrfId = vrf;
   e.key = key(source, group);
   e.acceptingVlan = VlanIdOrNone(Qor::U64{vlan});
   return e;
}

class SimChip : public OnVirtualTime {
 protected:
   SimChip() {
      chip_ = Qor::make<Chip>(Sim::ChipConfig{4, 8, 2, 0.001});
      EXPECT_EQ(chip_->portAdd(IntfId("et1"), 1, VlanIdOrNone(Qor::U64{10})), "");
      EXPECT_EQ(chip_->portAdd(IntfId("et2"), 2, VlanIdOrNone(Qor::U64{20})), "");
      EXPECT_EQ(chip_->portAdd(IntfId("et2"), 2, VlanIdOrNone(Qor::U64{21})), "");
   }

   void route(Qor::U32 index, Sim::Entry const& e, Qor::U32 group) {
      ASSERT_EQ(chip_->routeCreate(index, e), "");
      ASSERT_EQ(chip_->routePoint(index, group), "");
   }
   // The fate of a packet, as "3 forwarded et1:10 et2:20 cpu", where 3 is the entry that it hit.
   std::string sent(char const* source, char const* group, unsigned vlan = 10, Qor::U32 vrf = 0) {
      auto const out =
            chip_->forward({vrf, addr(source), addr(group), VlanIdOrNone(Qor::U64{vlan}), 100});
      std::ostringstream os;
      if (out.entry) os << *out.entry << ' ';
      os << out.result;
      for (PortVlan const& copy : out.copies)
         os << ' ' << copy;
      if (out.toCpu) os << " cpu";
      return os.str();
   }

   Qor::Ptr<Chip> chip_;
};

TEST_F(SimChip, AMisuseIsRefusedAndChangesNothing) {
   ASSERT_EQ(chip_->groupCreate(1, {pv("et1", 10), pv("et2", 20)}, true), "");
   route(3, entry("10.0.0.1", "239.1.1.1", 10), 1);

   std::pair<std::function<Sim::Refusal()>, char const*> const cases[] = {
         {[&] { return chip_->groupCreate(1, {}, false); }, "group 1 exists already"},
         {[&] { return chip_->groupCreate(4, {}, false); },
          "group 4 is beyond the 4 groups of the chip"},
         {[&] { return chip_->groupCreate(2, {pv("et1", 20)}, false); },
          "group 2: member et1:20 is in a vlan that its port does not carry"},
         {[&] {
             return chip_->groupUpdate(1, {pv("et1", 10), pv("et1", 10)}, false);
          },
          "group 1: members et1:10 and et1:10 do not ascend"},
         {[&] { return chip_->groupDelete(2); }, "group 2 does not exist"},
         {[&] { return chip_->groupDelete(1); }, "group 1 has 1 routes pointing at it"},
         {[&] { return chip_->routeCreate(8, entry("10.0.0.2", "239.1.1.1")); },
          "route entry 8 is beyond the 8 entries of the chip"},
         {[&] { return chip_->routeCreate(3, entry("10.0.0.2", "239.1.1.1")); },
          "route entry 3 exists already: (10.0.0.1, 239.1.1.1) vlan 10 vrf 0"},
         {[&] { return chip_->routeCreate(4, entry("10.0.0.1", "239.1.1.1", 10)); },
          "route entry 4 matches the same packets as 3: (10.0.0.1, 239.1.1.1) vlan 10 vrf 0"},
         {[&] { return chip_->routePoint(3, 2); }, "route entry 3 is pointed at missing group 2"},
         {[&] { return chip_->routeDelete(4); }, "route entry 4 does not exist"},
         {[&] { return chip_->boundaryCreate(1, entry("0.0.0.0/0", "239.0.0.0/8")); },
          "boundary entry 1 has no vlan"},
   };
   for (auto const& [write, refusal] : cases)
      EXPECT_EQ(write(), refusal);
   EXPECT_EQ(chip_->violations().count(), std::size(cases));
   EXPECT_EQ(chip_->audit().front(), "groupCreate refused: group 1 exists already");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1"), "3 forwarded et1:10 et2:20 cpu");
   EXPECT_EQ(chip_->groups() + chip_->routes().size() + chip_->boundaries().size(), 2u);
}

TEST_F(SimChip, TheLongestMatchDecidesAndItsVlanMustBeTheVlanOfThePacket) {
   ASSERT_EQ(chip_->groupCreate(0, {pv("et1", 10)}, false), "");
   ASSERT_EQ(chip_->groupCreate(1, {pv("et2", 20)}, false), "");
   route(0, entry("0.0.0.0/0", "239.1.1.1"), 0);
   route(1, entry("10.0.0.1", "239.1.1.1", 20), 0);
   route(2, entry("10.0.0.1", "239.1.0.0/16"), 1);  // longer source, but shorter group
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.2"), "2 forwarded et2:20");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.2", 10, 1), "noRoute");
   EXPECT_EQ(sent("10.0.0.2", "239.1.1.1"), "0 forwarded et1:10");
   EXPECT_EQ(sent("10.0.0.1", "ff0e::1", 20), "noRoute") << "the address families differ";
   // The packet does not fall through to the (*,G) entry, and it hits no entry.
   time_->advance(2.5);
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 10), "wrongVlan");
   EXPECT_EQ(chip_->routes().find(1)->lastHit, 0.0);
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 20), "1 forwarded et1:10");
   EXPECT_EQ(chip_->routes().find(1)->lastHit, 2.5);

   // Make before break: while both entries exist, each vlan has its own outputs.
   route(3, entry("10.0.0.1", "239.1.1.1", 10), 1);
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 20), "1 forwarded et1:10");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 10), "3 forwarded et2:20");
   ASSERT_EQ(chip_->routeDelete(1), "");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 20), "wrongVlan");
   ASSERT_EQ(chip_->routeDelete(3), "");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1"), "0 forwarded et1:10");
   EXPECT_TRUE(chip_->audit().empty());
}

TEST_F(SimChip, APacketThatIsNotForwardedHasAReason) {
   ASSERT_EQ(chip_->groupCreate(0, {}, false), "");
   ASSERT_EQ(chip_->groupCreate(1, {pv("et1", 10), pv("et2", 21)}, false), "");
   ASSERT_EQ(chip_->routeCreate(0, entry("10.0.0.1", "239.1.1.1")), "");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1"), "0 notPointed");
   ASSERT_EQ(chip_->routePoint(0, 0), "");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1"), "0 emptyGroup");
   ASSERT_EQ(chip_->routePoint(0, 1), "");
   chip_->linkIs(IntfId("et2"), false);
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1"), "0 forwarded et1:10");
   chip_->linkIs(IntfId("et1"), false);
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1"), "0 portsDown");
   EXPECT_EQ(chip_->droppedCopies(), 3u);

   ASSERT_EQ(chip_->boundaryCreate(0, entry("0.0.0.0/0", "239.1.0.0/16", 10)), "");
   EXPECT_EQ(sent("10.0.0.2", "239.1.1.1", 10), "0 bridged");
   EXPECT_EQ(sent("10.0.0.2", "239.1.1.1", 20), "noRoute");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 10), "0 portsDown");  // the route is longer
   ASSERT_EQ(chip_->boundaryCreate(1, entry("10.0.0.1", "239.1.1.1", 10)), "");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 10), "1 bridged");  // both are equally long
}

}  // namespace
