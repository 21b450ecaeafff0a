// Ports and internal vlans of interfaces: assigned in order, or read from a map file.
#include "agent/input/InterfaceMap.h"

#include <gtest/gtest.h>

#include <sstream>

#include "CaptureTestSupport.h"

namespace Agent {
namespace {

std::string render(Intf const& intf) {
   std::ostringstream out;
   out << intf.id << ":" << intf.port << ":" << intf.vlan << (intf.cpu ? ":cpu" : "");
   return out.str();
}

std::string intfOf(InterfaceMap& map, char const* name) {
   return render(map.intf(Lnet::IntfId(name)));
}

TEST(InterfaceMap, NumbersAreAssignedInTheOrderOfFirstUse) {
   InterfaceMap map;
   EXPECT_EQ(intfOf(map, "rtr7"), "rtr7:1:1006");
   EXPECT_EQ(intfOf(map, "pimreg"), "pimreg:0:1007:cpu");
   EXPECT_EQ(intfOf(map, "rtr0"), "rtr0:2:1008");
   EXPECT_EQ(intfOf(map, "rtr7"), "rtr7:1:1006");
   EXPECT_EQ(intfOf(map, "pim6reg10"), "pim6reg10:0:1009:cpu");
   EXPECT_EQ(intfOf(map, "pimreg1x"), "pimreg1x:3:1010");
   EXPECT_EQ(map.byPort(2)->id, Lnet::IntfId("rtr0"));
   EXPECT_EQ(map.byVlan(Bridging::VlanId(1007))->id, Lnet::IntfId("pimreg"));
   EXPECT_EQ(map.byPort(0), nullptr);
}

TEST(InterfaceMap, TheLowVlansAreAssignedLastAndThenTheMapIsFull) {
   InterfaceMap map;
   Intf const& first = map.intf(Lnet::IntfId("v0"));
   std::string last;
   for (int i = 1; i < 4094; ++i) {
      last = intfOf(map, ("v" + std::to_string(i)).c_str());
      if (i == 3089) {
         EXPECT_EQ(last, "v3089:3090:1");
      }
   }
   EXPECT_EQ(last, "v4093:4094:1005");
   EXPECT_EQ(render(first), "v0:1:1006") << "a reference must stay valid";
   EXPECT_THROW(intfOf(map, "v4094"), InterfaceMapFull);
   EXPECT_EQ(intfOf(map, "v4093"), "v4093:4094:1005");
}

TEST(InterfaceMap, TheNumbersOfTheMapFileAreReservedForItsInterfaces) {
   TempDir const dir;
   InterfaceMap map;
   ASSERT_EQ(map.load(dir.file("map",
                               "# ports of the front panel\n"
                               "rtr2 port=1 vlan=1007   # the uplink\r\n\n"
                               "  rtr0\tvlan=4094 port=2\n"
                               "pimreg vlan=1006")),
             std::nullopt);
   EXPECT_EQ(intfOf(map, "rtr1"), "rtr1:3:1008");
   EXPECT_EQ(intfOf(map, "rtr0"), "rtr0:2:4094");
   EXPECT_EQ(intfOf(map, "pimreg"), "pimreg:0:1006:cpu");
}

TEST(InterfaceMap, ABadMapFileIsRefusedWithFileLineAndReasonAndChangesNothing) {
   TempDir const dir;
   InterfaceMap map;
   ASSERT_EQ(map.load(dir.file("good", "a port=1 vlan=1\n")), std::nullopt);
   std::pair<char const*, char const*> const cases[] = {
         {"a port=2 vlan=2", "interface \"a\" occurs twice"},
         {"b port=1 vlan=2", "port 1 is taken by a"},
         {"b port=0 vlan=2", "\"port=0\" is out of range: 1 to 65535"},
         {"b port=2x vlan=2", "bad number in \"port=2x\""},
         {"b vlan=2", "no \"port=N\""},
         {"pimreg port=2 vlan=2", "\"pimreg\" is a register device and has no port"},
   };
   for (auto const& [line, reason] : cases) {
      std::string const file = dir.file("map", std::string("a port=1 vlan=1\n\n") + line + "\n");
      auto const error = map.load(file);
      ASSERT_TRUE(error) << line;
      EXPECT_EQ(error->toString(), file + ":3: " + reason + ": " + line);
   }
   EXPECT_EQ(map.load(dir.path("none"))->toString(),
             dir.path("none") + ": cannot open: No such file or directory");
   EXPECT_EQ(map.intfs().size(), 1u);
}

}  // namespace
}  // namespace Agent
