// Both paths on the same kind of chip: the routes of a scenario forward to the same outputs in the
// end. RunTest.cpp compares captures with each path.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>

#include "agent/scenario/ScenarioParser.h"
#include "agent/scenario/ScenarioPlayer.h"
#include "agent/scenario/SwitchTestbed.h"

namespace Agent {
namespace {

std::filesystem::path const examples(VELMROUTE_EXAMPLES);

// The outputs of packets, by route and vlan of arrival: for each wanted route the accepting vlan
// and a vlan from which no route accepts.
using Outputs = std::map<std::string, std::string>;

Outputs outputsOf(Switch& theSwitch) {
   std::vector<std::pair<std::string, VelMroute::Probe::Packet>> packets;
   std::as_const(theSwitch).programmer().forEach([&](RouteView const& route) {
      VelMroute::Probe::Packet packet;
      packet.vrfId = *theSwitch.vrfId(route.vrf());
      packet.source = route.key().source().isAny()
                            ? route.key().source().family() == Lnet::IpFamily::v4
                                    ? *Lnet::IpGenAddr::parse("198.51.100.1")
                                    : *Lnet::IpGenAddr::parse("2001:db8:ffff::1")
                            : route.key().source().address();
      packet.group = route.key().group().address();
      for (Bridging::VlanIdOrNone const vlan : {route.vlan(), Bridging::VlanIdOrNone(4000u)}) {
         packet.vlan = vlan;
         packets.emplace_back(route.vrf().name() + ' ' + route.key().pretty() + " in " +
                                    std::to_string(vlan.value()),
                              packet);
      }
   });
   Outputs outputs;
   for (auto const& [name, packet] : packets) {
      auto const seen = theSwitch.platform().probe()->inject({&packet, 1}).front();
      std::string& out = outputs[name];
      if (seen.cpu) out += "cpu ";
      for (auto const& copy : seen.copies)
         out += copy.intfId().name() + ' ';
   }
   return outputs;
}

void expectSame(std::filesystem::path const& file, Outputs const& async, Outputs const& sync) {
   SCOPED_TRACE(file);
   EXPECT_EQ(async.size(), sync.size());
   for (auto const& [route, out] : async) {
      auto const other = sync.find(route);
      EXPECT_EQ(other == sync.end() ? "not wanted" : other->second, out) << route;
   }
}

Outputs playScenario(PathKind path, ScenarioFile file, std::filesystem::path const& name) {
   std::erase_if(file.lines,
                 [&](Scenario::Line const& line) { return line.path.value_or(path) != path; });
   Switch theSwitch(simulatedPlatform(path, file.settings.platformOptions()));
   SwitchTestbed testbed(theSwitch, nullptr, true);
   ScenarioPlayer player(testbed, file.lines);
   player.play();
   for (auto const& failure : player.failures())
      ADD_FAILURE() << failure.toString();
   EXPECT_EQ(theSwitch.audit(), std::vector<Qor::String>()) << name;
   return outputsOf(theSwitch);
}

TEST(BothPaths, ForwardAlikeAtTheEndOfEachScenarioForBothPaths) {
   unsigned both = 0;
   for (auto const& entry : std::filesystem::directory_iterator(examples / "scenarios")) {
      if (entry.path().extension() != ".jsonl") continue;
      ScenarioFile const file = ScenarioFile::read(entry.path());
      if (file.path) {
         playScenario(*file.path, file, entry.path());
         continue;
      }
      ++both;
      expectSame(entry.path(), playScenario(PathKind::async, file, entry.path()),
                 playScenario(PathKind::sync, file, entry.path()));
   }
   EXPECT_GE(both, 9u);
}

}  // namespace
}  // namespace Agent
