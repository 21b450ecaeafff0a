// The parts of a live agent without a kernel and without a bridge: configuration, policy, the routes
// on a simulated chip, and keep-alives.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "TestSupport.h"
#include "agent/live/Configuration.h"
#include "agent/live/KeepAlive.h"
#include "agent/live/LiveRoutes.h"

namespace Agent {
namespace {

using Lnet::IntfId;
using Lnet::IpFamily;
using Qor::U32;
using testSupport::addr;
using testSupport::Lines;

// ---- Configuration. ----

TEST(LiveConfiguration, HasEachDirective) {
   auto const parsed = Configuration::parse(
         "switch unix:/run/br0.mgmt  # the bridge\r\n\n  # nothing\n"
         "table 254\ntable 4294967295\ncontrol /c\nmetrics 127.0.0.1:9464\nexpiry 3.5\n"
         "hold-on-daemon-restart 86400\nstandby-hold 0\ngroups 0-511\nlog debug\n"
         "interface rtr0 port p0 cpu c0\n"
         "interface rtr1 standby p9 vlan 4094 cpu c1 port p0\n"
         "interface name-of-15bytes port p0 vlan 1 cpu c2\n"
         "reroute rtr1 rtr0\nreroute rtr0 rtr1",
         "f");
   auto const* const made = std::get_if<Configuration>(&parsed);
   ASSERT_TRUE(made) << std::get<1>(parsed)[0].toString();
   EXPECT_EQ(made->switchSocket, "/run/br0.mgmt");
   EXPECT_EQ(made->tables, (std::vector<U32>{254, 4294967295}));
   EXPECT_EQ(made->control + made->metrics + made->log, "/c127.0.0.1:9464debug");
   EXPECT_EQ(made->expiry, 3.5);
   EXPECT_EQ(made->holdOnDaemonRestart, 86400);
   EXPECT_EQ(made->standbyHold, 0);
   EXPECT_EQ(made->firstGroup, 0u);
   EXPECT_EQ(made->lastGroup, 511u);
   ASSERT_EQ(made->interfaces.size(), 3u);
   LiveInterface const expected{IntfId("rtr1"), "p0", "c1", 4094, "p9"};
   EXPECT_TRUE(made->interfaces[1].sameAs(expected));
   EXPECT_FALSE(made->interfaces[0].vlan);
   EXPECT_EQ(made->interface(IntfId("name-of-15bytes")), &made->interfaces[2]);
   EXPECT_EQ(made->interface(IntfId("p0")), nullptr);
   EXPECT_EQ(made->reroutes, (LiveRoutes::Reroutes{{IntfId("rtr0"), IntfId("rtr1")},
                                                   {IntfId("rtr1"), IntfId("rtr0")}}));
}

TEST(LiveConfiguration, ReportsAllFaultsAtOnce) {
   std::string const longPath = '/' + std::string(108, 'p');
   // Each line with its fault; a line without one is there for a later line.
   std::vector<std::pair<std::string, std::string>> const lines = {
         {"Switch unix:/s", "\"Switch\" is not a directive; did you mean switch?"},
         {"switch tcp:1.2.3.4", "\"tcp:1.2.3.4\" is not of the form unix:PATH"},
         {"switch unix:/s", "\"switch\" occurs twice"},
         {"control c", "\"c\" is not an absolute path"},
         {"metrics unix:" + longPath, "the path has more than 107 bytes"},
         {"table 0", "\"0\" is not the number of a table"},
         {"table 7", ""},
         {"table 7", "table 7 occurs twice"},
         {"expiry 2", "\"2\" is out of range: 3 to 86400 seconds"},
         {"standby-hold nan", "\"nan\" is not a number of seconds"},
         {"hold-on-daemon-restart -1", "\"-1\" is out of range: 0 to 86400 seconds"},
         {"groups 1000", "\"1000\" is not of the form FIRST-LAST"},
         {"log loud", "\"loud\" is not a level (known: error, warning, notice, info, debug)"},
         {"interface a cpu c1", "the interface has no \"port\""},
         {"interface a port p1 cpu", "\"cpu\" needs a value"},
         {"interface a port p1 cpu c1 vlan 4095", "\"4095\" is not a vlan: 1 to 4094"},
         {"interface a port p1 cpu c1 mtu 9",
          "\"mtu\" is not a property of an interface (known: port, vlan, cpu, standby)"},
         {"interface a port p1 cpu c1 standby c1", "two of the ports are the same"},
         {"interface a2345678901234567 port p1 cpu c1",
          "\"a2345678901234567\" is longer than the name of an interface"},
         {"interface a port p1 cpu c1 vlan 5 standby q1", ""},
         {"interface a port p2 cpu c2", "\"a\" is the interface of line 20, too"},
         {"interface b port p2 cpu c1", "\"c1\" is the CPU port of line 20, too"},
         {"interface b port c1 cpu c2", "\"c1\" is the CPU port of line 20, too"},
         {"interface b port p2 cpu p1", "\"p1\" is the front port of line 20, too"},
         {"interface b port p1 vlan 5 cpu c2",
          "\"p1\" is the front port in this vlan of line 20, too"},
         {"interface b port p2 cpu q1", "\"q1\" is the standby port of line 20, too"},
         {"interface b port p2 cpu c2 standby c1", "\"c1\" is the CPU port of line 20, too"},
         {"reroute a", "\"reroute\" needs an interface and its backup"},
         {"reroute a a", "an interface is no backup of itself"},
         {"reroute a b", "\"b\" is no interface of this file"},
         {"reroute a c", "\"a\" has a backup already"},
   };
   std::string text;
   Lines expected, found;
   for (auto const& [line, fault] : lines) {
      text += line + '\n';
      std::size_t const number = std::count(text.begin(), text.end(), '\n');
      bool const ofWhole = fault.ends_with("of this file");
      if (!fault.empty() && !ofWhole) expected.push_back(fmt::format("f:{}: {}", number, fault));
   }
   expected.push_back("f:30: \"b\" is no interface of this file");
   auto const parsed = Configuration::parse(text, "f");
   ASSERT_EQ(parsed.index(), 1u);
   for (InputError const& error : std::get<1>(parsed))
      found.push_back(error.position.toString() + ": " + error.reason);
   EXPECT_EQ(found, expected);
   EXPECT_EQ(std::get<1>(parsed)[1].text, "switch tcp:1.2.3.4");

   auto const faultsOf = [](auto const& result) {
      std::string all;
      for (InputError const& error : std::get<1>(result))
         all += error.toString() + (error.fatal ? "!" : ";");
      return all;
   };
   EXPECT_EQ(faultsOf(Configuration::parse("groups 1-511\n", "f")),
             "f:1: \"1-511\" is not a range of at least 512 ids up to 4294967040: "
             "groups 1-511;f: there is no line \"switch unix:PATH\";"
             "f: there is no line \"interface NAME port PORT cpu PORT\";");
   EXPECT_EQ(faultsOf(Configuration::load("/nowhere/f")),
             "/nowhere/f: cannot open: No such file or directory!");
}

// ---- Policy. ----

// Interfaces 1 to 4 have ports, and others have none.
std::map<U32, IntfId> const ports = {
      {1, IntfId("rtr1")}, {2, IntfId("rtr2")}, {3, IntfId("rtr3")}, {4, IntfId("rtr4")}};

struct Network {
   std::map<U32, U32> tables = {{1, 10}, {2, 20}, {3, 10}, {4, 0}};  // by input, of IPv4

   RouteSurroundings surroundings() {
      return {.mapped = [](U32 ifindex) -> std::optional<IntfId> {
                 auto const at = ports.find(ifindex);
                 return at == ports.end() ? std::nullopt : std::optional(at->second);
              },
              .nameOf = [](U32 ifindex) { return "eth" + std::to_string(ifindex); },
              .selectedTable =
                    [this](IpFamily family, U32 ifindex) {
                       return family == IpFamily::v6 ? 66 : tables.at(ifindex);
                    }};
   }
};

Kernel::RouteKey keyOf(U32 table, char const* source, char const* group) {
   return {table, addr(source), addr(group)};
}
Kernel::Route routeOf(U32 input, std::vector<U32> outputs) {
   Kernel::Route route;
   route.input = input;
   route.outputs = std::move(outputs);
   return route;
}

TEST(LiveRoutePolicy, DecidesOnEachRoute) {
   Kernel::Route unresolved;
   unresolved.unresolved = true;
   struct Case {
      Kernel::RouteKey key;
      Kernel::Route route;
      char const* decision;
   };
   Case const cases[] = {
         {keyOf(10, "10.0.0.9", "239.0.0.1"), routeOf(1, {2, 3}), "none: rtr1 > rtr2 rtr3"},
         {keyOf(66, "2001:db8::9", "ff3e::1"), routeOf(4, {}), "none: rtr4 >"},
         {keyOf(10, "10.0.0.9", "239.0.0.1"), unresolved,
          "unresolved: the kernel waits for the daemon's answer"},
         {keyOf(10, "0.0.0.0", "239.0.0.1"), routeOf(1, {2}),
          "any-source: (*,G): the CPU has to see new sources"},
         {keyOf(10, "10.0.0.9", "224.0.0.251"), routeOf(1, {2}),
          "link-local-group: the group is local to the link"},
         {keyOf(10, "10.0.0.9", "224.0.1.0"), routeOf(1, {2}), "none: rtr1 > rtr2"},
         {keyOf(66, "2001:db8::9", "ff12::1"), routeOf(1, {2}),
          "link-local-group: the group is local to the link"},
         {keyOf(66, "2001:db8::9", "ff13::1"), routeOf(1, {2}), "none: rtr1 > rtr2"},
         {keyOf(10, "10.0.0.9", "239.0.0.1"), routeOf(0, {2}),
          "no-input: the kernel names no input interface"},
         {keyOf(10, "10.0.0.9", "239.0.0.1"), routeOf(7, {2}),
          "unmapped-input: input eth7 has no port"},
         {keyOf(10, "10.0.0.9", "239.0.0.1"), routeOf(1, {2, 8, 9}),
          "unmapped-output: output eth8 has no port"},
         {keyOf(10, "10.0.0.9", "239.0.0.1"), routeOf(2, {3}),
          "hidden-by-table: hidden by table 20"},
         {keyOf(10, "10.0.0.9", "239.0.0.1"), routeOf(4, {3}),
          "no-table: no rule selects a table for the input"},
   };
   Network network;
   std::set<CpuReason> reasons;  // of the cases
   for (Case const& c : cases) {
      RouteDecision const decision = decide(c.key, c.route, network.surroundings());
      std::string text = nameOf(decision.reason) + std::string(": ") + decision.text;
      if (decision.inHardware()) text += decision.input.name() + " >";
      for (IntfId const output : decision.outputs)
         text += ' ' + output.name();
      EXPECT_EQ(text, c.decision);
      reasons.insert(decision.reason);
   }
   EXPECT_EQ(reasons.size(), cpuReasons);
}

// ---- Routes on a chip. ----

class LiveRoutesOnChip : public testing::Test {
 protected:
   LiveRoutesOnChip() {
      for (auto const& [index, intf] : ports)
         switch_.learnIntf(intf);
      routes_.switchIs(&switch_);
   }
   ~LiveRoutesOnChip() override { EXPECT_EQ(switch_.audit(), Lines()); }

   // The outputs of a packet of 10.0.0.9 that arrives at the interface.
   std::string outputsOf(char const* in, char const* vrf = "default") {
      switch_.settle();
      VelMroute::Probe::Packet packet{};
      packet.vrfId = switch_.vrfId(L3::VrfName(vrf)).value();
      packet.source = addr("10.0.0.9");
      packet.group = addr("239.0.0.1");
      packet.in = IntfId(in);
      std::string text;
      for (auto const& copy : switch_.send(packet).copies)
         text += copy.intfId().name() + ' ';
      return text;
   }
   // The reason why the route of the table is with the CPU; empty for a route in hardware.
   std::string reasonOf(U32 table) { return routes_.find(key(table))->decision.text; }
   static Kernel::RouteKey key(U32 table) { return keyOf(table, "10.0.0.9", "239.0.0.1"); }
   Network network_;
   Switch switch_{simulatedPlatform(PathKind::async)};
   LiveRoutes routes_{network_.surroundings()};
};

TEST_F(LiveRoutesOnChip, HideTheRouteOfTheLaterTable) {
   routes_.routeIs(key(20), routeOf(2, {3}));
   EXPECT_EQ(outputsOf("rtr2"), "rtr3 ");
   routes_.routeIs(key(10), routeOf(1, {4}));
   EXPECT_EQ(outputsOf("rtr1"), "rtr4 ");
   EXPECT_EQ(outputsOf("rtr2"), "");
   EXPECT_EQ(reasonOf(20), "hidden by table 10");
   EXPECT_EQ(reasonOf(10), "");
   EXPECT_EQ(routes_.count(10) + routes_.count(20), 2u);

   // In VRFs of their own both are in hardware.
   routes_.vrfsAre({{IntfId("rtr2"), L3::VrfName("red")}});
   routes_.decideAll();
   EXPECT_EQ(outputsOf("rtr1") + outputsOf("rtr2", "red"), "rtr4 rtr3 ");
   routes_.vrfsAre({});
   routes_.decideAll();
   EXPECT_EQ(outputsOf("rtr1") + outputsOf("rtr2", "red"), "rtr4 ");

   routes_.routeDel(key(10));
   EXPECT_EQ(outputsOf("rtr2"), "rtr3 ");
   EXPECT_EQ(reasonOf(20), "");
   EXPECT_EQ(routes_.count(10), 0u);
   routes_.vrfsAre({{IntfId("rtr2"), L3::VrfName("red")}});
   routes_.decideAll();
   EXPECT_EQ(outputsOf("rtr2") + outputsOf("rtr2", "red"), "rtr3 ");
   for (int twice = 0; twice < 2; ++twice)
      routes_.routeDel(key(20));
   EXPECT_EQ(std::as_const(switch_).programmer().routes(), 0u);
}

// ---- Keep-alives. ----

std::string hexOf(std::span<Qor::U8 const> bytes) {
   std::string text;
   for (Qor::U8 const byte : bytes)
      text += fmt::format("{:02x}", byte);
   return text;
}

TEST(KeepAliveFrames, AreThoseOfARouterWithATtlOfOne) {
   EXPECT_EQ(hexOf(keepAliveFrame(addr("10.0.0.2"), addr("239.129.2.3"))),
             "01005e01020302000000000108004500001c000000000111be4b0a000002ef810203"
             "0009000900080000");
   EXPECT_EQ(hexOf(keepAliveFrame(addr("2001:db8::2"), addr("ff3e::9"))),
             "33330000000902000000000186dd60000000000811012001"
             "0db8000000000000000000000002ff3e0000000000000000000000000009"
             "000900090008d2c9");
}

class KeepAlives : public testSupport::OnVirtualTime {
 protected:
   struct State {
      Qor::Seconds accessed = 0;
      std::vector<Qor::Seconds> sent;
      Kernel::Route kernel;
   };
   using Key = Kernel::RouteKey;

   static Key key(unsigned n) {
      return {10, addr("10.0.0.9"), Lnet::IpGenAddr::v4(0xef000000 + n)};
   }
   KeepAlive::Calls calls() {
      return {.next = [this](std::optional<Key> const& behind) -> std::optional<Key> {
                 auto const at = behind ? states_.upper_bound(*behind) : states_.begin();
                 return at == states_.end() ? std::nullopt : std::optional(at->first);
              },
              .count = [this] { return states_.size(); },
              .lastAccessed = [this](Key const& k) { return states_.at(k).accessed; },
              .send =
                    [this](Key const& k, std::span<Qor::U8 const> frame) {
                       EXPECT_EQ(hexOf(frame), hexOf(keepAliveFrame(k.source, k.group)));
                       if (!connected_) return false;
                       states_.at(k).sent.push_back(Qor::now());
                       ++states_.at(k).kernel.packets;
                       return true;
                    },
              .ask =
                    [this](Key const& k, Kernel::RouteAnswered answered) {
                       answered(k, answer_, states_.at(k).kernel);
                    }};
   }
   // Lets time pass, in which the routes below `busy` have packets in hardware.
   void wait(Qor::Seconds seconds, std::size_t busy = 0) {
      for (Qor::Seconds const until = Qor::now() + seconds; Qor::now() < until;) {
         for (unsigned n = 0; n < busy; ++n)
            states_[key(n)].accessed = Qor::now() + 0.5;
         time_->runUntil(Qor::now() + 1);
      }
   }

   std::map<Key, State> states_;
   bool connected_ = true;
   Kernel::RouteAnswer answer_ = Kernel::RouteAnswer::present;
};

TEST_F(KeepAlives, AreSpreadOverAThirdOfTheExpiry) {
   constexpr unsigned routes = 90, busy = 60;
   for (unsigned n = 0; n < routes; ++n)
      states_[key(n)];
   KeepAlive alive(90, calls());
   wait(300, busy);
   std::map<Qor::Seconds, unsigned> bySecond;
   for (unsigned n = 0; n < routes; ++n) {
      auto const& sent = states_[key(n)].sent;
      EXPECT_EQ(sent.size(), n < busy ? 10u : 0u) << n;
      for (std::size_t i = 1; i < sent.size(); ++i)
         EXPECT_NEAR(sent[i] - sent[i - 1], 30, 2.01) << n;
      for (Qor::Seconds const time : sent)
         ++bySecond[time];
   }
   // 90 routes in 30 s are 6 of each tick.
   for (auto const& [time, packets] : bySecond)
      EXPECT_LE(packets, 7u) << time;
   EXPECT_EQ(alive.numbers().sent, 600u);
   // The traffic stops, and so do the keep-alives, after at most one more of each route.
   wait(31);
   auto const sent = alive.numbers().sent;
   EXPECT_LE(sent, 660u);
   wait(300);
   EXPECT_EQ(alive.numbers().sent, sent);
   // A shorter expiry holds at once.
   alive.expiryIs(30);
   wait(60, busy);
   EXPECT_NEAR(static_cast<double>(alive.numbers().sent - sent), 60 * 6, 30);
   connected_ = false;
   wait(10, busy);
   EXPECT_NEAR(static_cast<double>(alive.numbers().unsent), 60, 10);
}

TEST_F(KeepAlives, RevealPacketsThatOnlyTheKernelCounts) {
   states_[key(0)], states_[key(1)];
   KeepAlive alive(30, calls());
   auto const fault = [&](unsigned n) { return alive.fault(key(n)).value_or("none"); };
   // The packets from before the first visit are no fault, and neither are a few after it.
   auto const count = [&](Qor::U64 packets) {
      for (unsigned n = 0; n < 2; ++n)
         states_[key(n)].kernel.packets += packets;
      wait(10, 1);  // one visit of each route
   };
   wait(5);  // the visits are in the middle of the later waits
   count(1000);
   count(3);
   EXPECT_EQ(fault(0) + ", " + fault(1), "none, none");
   count(120);
   EXPECT_EQ(fault(0), "none");
   EXPECT_EQ(fault(1), "the kernel counts 120 packets, and the switch none");
   // The kernel gives no answer, and then it counts from zero.
   answer_ = Kernel::RouteAnswer::absent;
   count(1);
   EXPECT_NE(fault(1), "none");
   answer_ = Kernel::RouteAnswer::present;
   states_[key(1)].kernel.packets = 0;
   count(10);
   EXPECT_EQ(fault(1), "the kernel counts 120 packets, and the switch none");  // as before
   count(0);
   EXPECT_EQ(fault(1), "none");
   count(50);
   EXPECT_EQ(fault(1), "the kernel counts 50 packets, and the switch none");
   alive.forget(key(1));
   EXPECT_EQ(fault(1), "none");
   count(50);
   EXPECT_EQ(fault(1), "none");
}

}  // namespace
}  // namespace Agent
