// The simulated chip: what it refuses, how it forwards, and what its audit finds.
#include <functional>
#include <random>
#include <sstream>

#include "TestSupport.h"
#include "platform/sim/Chip.h"

namespace {

using Bridging::VlanIdOrNone;
using Lnet::IntfId;
using Lnet::IpGenAddr;
using MrouteLib::PortVlan;
using Sim::Chip;
using Sim::WriteKind;
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
   // What becomes of a packet: "3 forwarded et1:10 et2:20 cpu", with the entry that it hit.
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

TEST_F(SimChip, RefusesEachMisuseAndStaysAsItWas) {
   ASSERT_EQ(chip_->groupCreate(1, {pv("et1", 10), pv("et2", 20)}, true), "");
   route(3, entry("10.0.0.1", "239.1.1.1", 10), 1);
   ASSERT_EQ(chip_->boundaryCreate(0, entry("0.0.0.0/0", "239.0.0.0/8", 20)), "");

   std::pair<std::function<Sim::Refusal()>, char const*> const cases[] = {
         {[&] { return chip_->groupCreate(1, {}, false); }, "group 1 exists already"},
         {[&] { return chip_->groupCreate(4, {}, false); }, "group 4 is beyond the 4 of the chip"},
         {[&] { return chip_->groupCreate(2, {pv("et9", 10)}, false); },
          "group 2: member et9:10 is on no port"},
         {[&] { return chip_->groupCreate(2, {pv("et1", 20)}, false); },
          "group 2: member et1:20 is in a vlan that its port does not carry"},
         {[&] {
             return chip_->groupUpdate(1, {pv("et1", 10), pv("et1", 10)}, false);
          },
          "group 1: members et1:10 and et1:10 do not ascend"},
         {[&] { return chip_->groupDelete(2); }, "group 2 does not exist"},
         {[&] { return chip_->groupDelete(1); }, "group 1 has 1 routes pointing at it"},
         {[&] { return chip_->routeCreate(8, entry("10.0.0.2", "239.1.1.1")); },
          "route entry 8 is beyond the 8 of the chip"},
         {[&] { return chip_->routeCreate(3, entry("10.0.0.2", "239.1.1.1")); },
          "route entry 3 exists already: (10.0.0.1, 239.1.1.1) vlan 10 vrf 0"},
         {[&] { return chip_->routeCreate(4, entry("10.0.0.1", "239.1.1.1", 10)); },
          "route entry 4 matches the same packets as 3: (10.0.0.1, 239.1.1.1) vlan 10 vrf 0"},
         {[&] { return chip_->routePoint(3, 2); }, "route entry 3 to missing group 2"},
         {[&] { return chip_->routeDelete(4); }, "route entry 4 does not exist"},
         {[&] { return chip_->boundaryCreate(1, entry("0.0.0.0/0", "239.0.0.0/8")); },
          "boundary entry 1 names no vlan"},
   };
   for (auto const& [write, refusal] : cases)
      EXPECT_EQ(write(), refusal);
   EXPECT_EQ(chip_->violations().count(), std::size(cases));
   EXPECT_EQ(chip_->audit(), chip_->violations().texts());
   EXPECT_EQ(chip_->audit().front(), "groupCreate refused: group 1 exists already");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1"), "3 forwarded et1:10 et2:20 cpu");
   EXPECT_EQ(chip_->groups() + chip_->routes().size() + chip_->boundaries().size(), 3u);
   EXPECT_EQ(chip_->writes(WriteKind::groupCreate), 1u);
   for (int i = 0; i < 200; ++i)
      EXPECT_NE(chip_->groupDelete(2), "");
   EXPECT_EQ(chip_->violations().texts().size(), 100u);
}

TEST_F(SimChip, PacketsMustArriveInTheAcceptingVlan) {
   ASSERT_EQ(chip_->groupCreate(0, {pv("et1", 10)}, false), "");
   ASSERT_EQ(chip_->groupCreate(1, {pv("et2", 20)}, false), "");
   route(0, entry("0.0.0.0/0", "239.1.1.1"), 0);
   route(1, entry("10.0.0.1", "239.1.1.1", 20), 0);
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 20), "1 forwarded et1:10");
   EXPECT_EQ(sent("10.0.0.1", "ff0e::1", 20), "noRoute") << "families do not mix";
   // No fall through to the (*,G) that would accept it, and no hit.
   time_->advance(2.5);
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 10), "wrongVlan");
   EXPECT_EQ(chip_->routes().find(1)->lastHit, 0.0);
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 20), "1 forwarded et1:10");
   EXPECT_EQ(chip_->routes().find(1)->lastHit, 2.5);
   EXPECT_EQ(chip_->routes().find(1)->packets, 2u);

   // Make before break: while both entries exist each vlan goes its own way.
   route(2, entry("10.0.0.1", "239.1.1.1", 10), 1);
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 20), "1 forwarded et1:10");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 10), "2 forwarded et2:20");
   ASSERT_EQ(chip_->routeDelete(1), "");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 20), "wrongVlan");
   EXPECT_TRUE(chip_->audit().empty());
}

TEST_F(SimChip, SaysWhyNothingIsForwarded) {
   ASSERT_EQ(chip_->groupCreate(0, {}, false), "");
   ASSERT_EQ(chip_->groupCreate(1, {pv("et1", 10), pv("et2", 21)}, false), "");
   ASSERT_EQ(chip_->routeCreate(0, entry("10.0.0.1", "239.1.1.1")), "");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1"), "0 notPointed");
   ASSERT_EQ(chip_->routePoint(0, 0), "");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1"), "0 emptyGroup");
   ASSERT_EQ(chip_->routePoint(0, 1), "");
   ASSERT_EQ(chip_->groupDelete(0), "");  // no route points at it any more
   chip_->linkIs(IntfId("et2"), false);
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1"), "0 forwarded et1:10");
   chip_->linkIs(IntfId("et1"), false);
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1"), "0 portsDown");
   ASSERT_EQ(chip_->groupUpdate(1, {pv("et1", 10)}, true), "");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1"), "0 forwarded cpu");
   EXPECT_EQ(chip_->port(IntfId("et1"))->droppedCopies, 2u);
   EXPECT_EQ(chip_->port(IntfId("et1"))->copies, 1u);
   EXPECT_EQ(chip_->droppedCopies(), 4u);

   ASSERT_EQ(chip_->boundaryCreate(0, entry("0.0.0.0/0", "239.1.0.0/16", 10)), "");
   EXPECT_EQ(sent("10.0.0.2", "239.1.1.1", 10), "0 bridged");
   EXPECT_EQ(sent("10.0.0.2", "239.1.1.1", 20), "noRoute");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 10), "0 forwarded cpu");  // the longer match
   ASSERT_EQ(chip_->boundaryCreate(1, entry("10.0.0.1", "239.1.1.1", 10)), "");
   EXPECT_EQ(sent("10.0.0.1", "239.1.1.1", 10), "1 bridged");  // of the same length
   EXPECT_TRUE(chip_->audit().empty());
}

TEST_F(SimChip, AuditFindsAMemoryFault) {
   ASSERT_EQ(chip_->groupCreate(0, {}, true), "");
   ASSERT_EQ(chip_->groupCreate(1, {}, true), "");
   route(0, entry("10.0.0.1", "239.1.1.1"), 0);
   chip_->softError(0, 1);
   EXPECT_EQ(chip_->audit(), (Lines{"group 0 counts 1 routes, but 0 point at it",
                                    "group 1 counts 0 routes, but 1 point at it"}));
   chip_->softError(0, 3);
   EXPECT_EQ(chip_->audit().front(), "route entry 0 points at missing group 3");
}

// Against a plain list of entries that is searched from end to end.
TEST(SimEntryTable, LookupAgreesWithASearchOfAllEntries) {
   std::mt19937 random(5);
   auto const pick = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
   Sim::EntryTable table("entry", 200);
   Lines faults;
   unsigned found = 0;
   for (int step = 0; step < 20000; ++step) {
      IpGenAddr const source = IpGenAddr::v4(pick(4));
      IpGenAddr const group = IpGenAddr::v4(0xef000000 + pick(8));
      VlanIdOrNone const vlan(Qor::U64{pick(3)});
      Qor::U32 const index = pick(200), vrf = pick(2);
      if (step % 2 == 0) {
         Sim::Entry e;
         unsigned const sourceLength = pick(2) * 32;
         unsigned const groupLength = 29 + pick(4);
         e.key = {{source.masked(sourceLength), sourceLength},
                  {group.masked(groupLength), groupLength}};
         e.acceptingVlan = vlan;
         e.vrfId = vrf;
         if (table.find(index)) {
            ASSERT_EQ(table.erase(index), "");
         } else {
            (void)table.create(index, e);  // refused when another entry matches the same
         }
         continue;
      }
      // The longest match, and of that the entry of this vlan before one of any.
      std::tuple<unsigned, unsigned> length;
      std::optional<Qor::U32> exact, anyVlan;
      bool keyFound = false;
      table.forEach([&](Qor::U32 i, Sim::Entry const& e) {
         if (e.vrfId != vrf || !e.key.source().contains(source) || !e.key.group().contains(group))
            return;
         std::tuple const its(e.key.group().length(), e.key.source().length());
         if (keyFound && its < length) return;
         if (its != length) exact = anyVlan = std::nullopt;
         keyFound = true;
         length = its;
         if (e.acceptingVlan == vlan) exact = i;
         if (e.acceptingVlan.isNone()) anyVlan = i;
      });
      auto const match = table.lookup(vrf, source, group, vlan, Sim::EntryTable::OtherVlan::ends);
      ASSERT_EQ(match.index, exact ? exact : anyVlan) << "step " << step;
      ASSERT_EQ(match.keyFound, keyFound);
      found += match.index.has_value();
   }
   table.audit(faults);
   EXPECT_EQ(faults, Lines());
   EXPECT_GT(found, 1000u);
   EXPECT_GT(table.peak(), 30u);
}

}  // namespace
