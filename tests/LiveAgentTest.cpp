// A whole live agent between a kernel and a bridge of the tests, in one thread and in virtual time.
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "FakeOpenFlowPeer.h"
#include "JsonSchema.h"
#include "KernelTestSupport.h"
#include "agent/live/LiveAgent.h"
#include "agent/live/LiveReport.h"
#include "agent/live/LiveRouteRow.h"
#include "agent/live/LiveViews.h"

namespace Agent {
namespace {

using kernelTest::FakeKernel;
using Lnet::IntfId;
using Qor::U32;
using testSupport::addr;
using testSupport::FakeOpenFlowPeer;
using testSupport::Lines;

constexpr U32 firstGroup = 1000, firstRouteGroup = 1256;

Kernel::RouteKey key(unsigned n) {
   return {253, addr("10.0.0.9"), Lnet::IpGenAddr::v4(0xef000000 + n)};
}
Kernel::Route to(std::vector<U32> outputs, U32 input = 1) {
   Kernel::Route route;
   route.input = input;
   route.outputs = std::move(outputs);
   return route;
}
Kernel::Route unresolved() {
   Kernel::Route route;
   route.unresolved = true;
   return route;
}

// The interfaces rtr1 to rtr4 have the indexes 1 to 4 in the kernel, front ports p1 to p4 and CPU
// ports c1 to c4, which have the indexes 21 to 24 in the kernel. rtr4 is not configured at first.
class LiveAgentOnFakes : public testSupport::OnVirtualTime {
 protected:
   LiveAgentOnFakes()
         : peer_(testing::TempDir() + "live" + std::to_string(::getpid())),
           logFd_(::memfd_create("log", MFD_CLOEXEC)) {
      kernel_.descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
      kernel_.links[1] = link(0, "lo");
      for (U32 n = 1; n <= 4; ++n) {
         auto const number = std::to_string(n);
         peer_.ports['p' + number] = {10 + n};
         peer_.ports['c' + number] = {20 + n};
         kernel_.links[n] = link(n, "rtr" + number);
         kernel_.links[20 + n] = link(20 + n, 'c' + number);
      }
      peer_.ports["spare"] = {30};
      kernel_.rules[0] = {{.priority = 32767, .table = 253}};
   }
   ~LiveAgentOnFakes() override {
      agent_.reset();
      ::close(kernel_.descriptor);
      ::close(logFd_);
   }

   static Kernel::Link link(U32 index, std::string name) {
      Kernel::Link link;
      link.index = index;
      link.name = std::move(name);
      link.mac = {2, 0, 0, 0, 0, static_cast<Qor::U8>(index)};
      link.adminUp = true;
      return link;
   }
   static std::string interface(unsigned n, char const* more = "") {
      return fmt::format("interface rtr{0} port p{0} cpu c{0}{1}\n", n, more);
   }
   Configuration configuration(std::string const& text) const {
      auto parsed = Configuration::parse(
            "switch unix:" + peer_.path() + "\ngroups 1000-1999\nstandby-hold 3\n" + text, "f");
      if (parsed.index() == 1) ADD_FAILURE() << std::get<1>(parsed)[0].toString();
      return std::get<0>(std::move(parsed));
   }
   Configuration configuration() const { return configuration(three_); }

   void make(std::string const& more) {
      ready_ = 0;
      agent_.emplace(configuration(three_ + more), loop_, kernel_, log_,
                     [this](U32 index, bool enabled) {
                        enabled_.push_back(fmt::format("{} {}", index, enabled ? "up" : "down"));
                        return refusal_;
                     });
      agent_->onReady([this] { ++ready_; });
   }
   void start(std::string const& more = "") {
      make(more);
      wait(0.2);
   }
   // The process of the agent is killed.
   void kill() {
      agent_.reset();
      peer_.serve();
      peer_.writes.clear();
      log();
   }

   // Turns of the loop until no side has anything to do at the present time.
   void turn() {
      for (bool busy = true; busy;) {
         loop_.turn(0);
         busy = peer_.serve() || kernel_.readable() || time_->nextDeadline() <= Qor::now();
         pollfd readable{agent_ && agent_->bridge() ? agent_->bridge()->fd() : -1, POLLIN, 0};
         busy |= ::poll(&readable, 1, 0) > 0;
      }
   }
   void wait(Qor::Seconds seconds) {
      turn();
      for (Qor::Seconds const until = Qor::now() + seconds; Qor::now() < until;) {
         time_->advance(std::min(until - Qor::now(), 0.05));
         turn();
      }
   }
   void portUp(std::string const& name, bool up) {
      peer_.portIs(name, {peer_.ports[name].number, up});
   }

   // ---- The results. ----

   // The routes on the bridge by their groups: "1: rtr1 > rtr2 rtr3".
   Lines forwarding() const {
      auto const nameOf = [](Qor::U64 number) { return " rtr" + std::to_string(number + 1); };
      std::map<std::string, std::string> routes;
      for (OpenFlow::Flow const& flow : peer_.decoded()) {
         auto const action = std::ranges::find(flow.actions, OpenFlow::Action::Kind::group,
                                               &OpenFlow::Action::kind);
         if (action == flow.actions.end()) continue;
         Qor::U64 const metadata = flow.match.metadata->value;
         std::string text = nameOf((metadata & 0xfff) - 1006);
         if (metadata >> 16 != 0) text += fmt::format(" vrf {}", metadata >> 16);
         text += " >";
         for (auto const& actions : peer_.decodedGroup(static_cast<U32>(action->value)).buckets)
            text += nameOf(actions.at(0).value - firstGroup);
         auto const group = flow.match.destination.address().toString();
         routes[group.substr(group.rfind('.') + 1)] += ':' + text;
      }
      Lines lines;
      for (auto const& [group, text] : routes)
         lines.push_back(group + text);
      return lines;
   }
   // The port to which the interface's group sends; 0 for none.
   Qor::U64 outputOf(U32 n) const {
      auto const group = peer_.decodedGroup(firstGroup + n - 1);
      auto const& actions = group.buckets.at(0);
      return actions.empty() ? 0 : actions.back().value;
   }
   // The routes as the operator sees them: "1 offloaded", "2 trapped: output eth9 has no port".
   Lines states() const {
      Lines lines;
      for (RouteRow const& route : routeRows(*agent_)) {
         std::string const group = route.key.group().toString();
         lines.push_back(
               fmt::format("{} {}", group.substr(group.rfind('.') + 1), nameOf(route.state)));
         if (!route.reason.empty()) lines.back() += ": " + route.reason;
         if (!route.fault.empty()) lines.back() += ", fault: " + route.fault;
      }
      return lines;
   }
   // The log since the latest call.
   Lines log() {
      Lines lines;
      std::string line;
      for (char c; ::pread(logFd_, &c, 1, logRead_) == 1; ++logRead_) {
         if (c != '\n') line += c;
         if (c == '\n') lines.push_back(std::exchange(line, {}));
      }
      return lines;
   }
   std::string noSocket() const {
      return "cannot connect to " + peer_.path() + ": No such file or directory";
   }
   Lines enabled() { return std::exchange(enabled_, {}); }
   Lines writes() { return std::exchange(peer_.writes, {}); }
   bool isIn(std::string const& text, Lines const& lines) const {
      return std::ranges::any_of(lines, [&](auto const& l) { return l.find(text) != l.npos; });
   }

   std::string three_ = interface(1) + interface(2) + interface(3);
   FakeOpenFlowPeer peer_;
   FakeKernel kernel_;
   EventLoop loop_;
   int const logFd_;
   off_t logRead_ = 0;
   LiveLog log_{logFd_, LiveLog::Form::journal};
   std::optional<LiveAgent> agent_;
   unsigned ready_ = 0;
   Lines enabled_;
   std::string refusal_;
};

// ---- Start, restart, end. ----

TEST_F(LiveAgentOnFakes, StartsWithLinksThenTheBridgeThenRoutes) {
   kernel_.links[9] = link(9, "eth9");
   kernel_.links[12] = link(12, "p2");
   kernel_.addresses[12] = {addr("192.0.2.1")};
   kernel_.links.erase(3);
   kernel_.routes = {{key(1), to({2, 4})}, {key(2), to({2, 9})}, {key(3), to({2}, 3)},
                     {key(4), to({2})},    {key(5), to({})},     {key(6), unresolved()}};
   make(interface(4));
   bool synced = false, programmed = false;
   agent_->onSynced([&] {
      EXPECT_EQ(peer_.connections, 0u);
      EXPECT_NE(agent_->monitor().link("eth9"), nullptr);
      return synced = true;
   });
   agent_->onProgrammed([&](Qor::Seconds seconds) {
      programmed = true;
      EXPECT_LT(seconds, 0.06);
   });
   wait(0.2);
   EXPECT_TRUE(synced);
   EXPECT_EQ(ready_, 1u);
   EXPECT_FALSE(programmed);  // the routes were there before the bridge
   EXPECT_EQ(log(),
             (Lines{"<4>rtr2: front port p2 has addresses of its own (IPv4)",
                    "<4>rtr3: the kernel has no such interface",
                    "<4>eth9: no port in the configuration", "<5>connected to " + peer_.path(),
                    "<5>6 routes of the kernel, 3 of them in hardware; 0 groups and entries taken "
                    "over, 0 removed"}));
   EXPECT_EQ(states(),
             (Lines{"1 offloaded", "2 trapped: output eth9 has no port",
                    "3 trapped: input interface 3 has no port", "4 offloaded", "5 offloaded",
                    "6 trapped: the kernel waits for the daemon's answer"}));
   Lines const written = writes();
   auto const route = std::ranges::find(written, "add route 0");
   ASSERT_NE(route, written.end());
   EXPECT_FALSE(isIn("add flow", Lines(route, written.end())));
   EXPECT_TRUE(isIn("add flow", written));

   // The missing interface comes, and its route with it.
   kernel_.linkIs(link(3, "rtr3"));
   wait(0.2);
   EXPECT_EQ(states()[2], "3 offloaded");
   EXPECT_EQ(outputOf(4), 13u);  // the groups are numbered as the interfaces came
   EXPECT_TRUE(agent_->theSwitch().audit().empty());
   // A route of the running agent.
   kernel_.routeIs(key(7), to({2}));
   wait(0.2);
   EXPECT_TRUE(programmed);
}

TEST_F(LiveAgentOnFakes, AdoptsTheTablesOfAKilledAgent) {
   for (unsigned n = 1; n <= 3; ++n)
      kernel_.routes[key(n)] = to({2, n == 3 ? 3u : 2u});
   kernel_.links[30] = link(30, "red");
   kernel_.links[30].kind = "vrf";
   kernel_.links[30].vrfTable = 77;
   kernel_.links[3].master = 30;
   start();
   Lines const before = forwarding();
   EXPECT_EQ(before, (Lines{"1: rtr1 > rtr2", "2: rtr1 > rtr2", "3: rtr1 > rtr2 rtr3"}));
   kill();
   start();
   EXPECT_EQ(writes(), Lines());
   EXPECT_EQ(forwarding(), before);
   EXPECT_TRUE(isIn("3 of them in hardware; 5 groups and entries taken over, 0 removed", log()));

   // The routes have changed meanwhile: only the differences are written, additions first.
   kill();
   kernel_.routes.erase(key(2));
   kernel_.routes[key(4)] = to({3});
   start();
   EXPECT_EQ(forwarding(), (Lines{"1: rtr1 > rtr2", "3: rtr1 > rtr2 rtr3", "4: rtr1 > rtr3"}));
   EXPECT_EQ(peer_.count("delete route"), 1u);
   EXPECT_EQ(peer_.count("add route"), 1u);
   EXPECT_EQ(peer_.count("delete flow") + peer_.count("add flow"), 0u);
   EXPECT_TRUE(agent_->theSwitch().audit().empty());
}

TEST_F(LiveAgentOnFakes, LeavesOrClearsTheBridgeAtItsEnd) {
   kernel_.routes[key(1)] = to({2});
   for (bool const flush : {false, true}) {
      SCOPED_TRACE(flush);
      start();
      portUp("p3", false);
      wait(0.1);
      EXPECT_EQ(enabled(), (Lines{"23 down"}));
      peer_.barriersHeld = true;
      kernel_.routeIs(key(2), to({2}));
      wait(0.1);
      unsigned ended = 0;
      agent_->end(flush, [&] { ++ended; });
      // Routes that come or go from now on are no longer for the agent.
      kernel_.routeIs(key(3), to({2}));
      kernel_.routeDel(key(1));
      wait(0.5);
      EXPECT_EQ(ended, 0u);
      peer_.barriersHeld = false;
      peer_.send(21, peer_.lastBarrier, {});
      wait(0.5);
      EXPECT_EQ(ended, 1u);
      EXPECT_FALSE(peer_.connected());
      EXPECT_EQ(enabled(), (Lines{"23 up"}));
      if (flush) {
         EXPECT_TRUE(peer_.flows.empty() && peer_.groups.empty());
      } else {
         EXPECT_EQ(forwarding(), (Lines{"1: rtr1 > rtr2", "2: rtr1 > rtr2"}));
      }
      kill();
      kernel_.routes = {{key(1), to({2})}};
      portUp("p3", true);
   }
   // A bridge that confirms nothing delays the end for a few seconds.
   start();
   log();
   peer_.barriersHeld = true;
   kernel_.routeIs(key(2), to({2}));
   wait(0.1);
   bool ended = false;
   agent_->end(false, [&] { ended = true; });
   wait(4);
   EXPECT_FALSE(ended);
   wait(2);
   EXPECT_TRUE(ended);
   EXPECT_EQ(log(), (Lines{"<4>the bridge has not confirmed the last writes",
                           "<5>ended; the bridge forwards on"}));
}

// ---- Changes. ----

TEST_F(LiveAgentOnFakes, WritesTheDifferencesAfterAReconnection) {
   kernel_.routes = {{key(1), to({2})}, {key(2), to({3})}};
   start();
   log();
   peer_.stopListening();
   peer_.disconnect();
   kernel_.routeIs(key(2), to({2, 3}));
   kernel_.routeIs(key(3), to({2}));
   kernel_.routeDel(key(1));
   wait(1);
   EXPECT_FALSE(agent_->isConnected());
   EXPECT_EQ(states(),
             (Lines{"2 pending: transactions under way", "3 pending: transactions under way"}));
   EXPECT_EQ(statusJson(*agent_)["reason"], "the bridge is not connected: " + noSocket());
   peer_.ports["p3"].up = false;
   writes();
   peer_.listen();
   wait(15);
   EXPECT_EQ(states(), (Lines{"2 offloaded", "3 offloaded"}));
   EXPECT_EQ(forwarding(), (Lines{"2: rtr1 > rtr2 rtr3", "3: rtr1 > rtr2"}));
   EXPECT_EQ(peer_.count("add flow") + peer_.count("delete flow"), 0u);
   EXPECT_EQ(enabled(), (Lines{"23 down"}));
   EXPECT_EQ(log(), (Lines{"<4>the bridge is not connected: the bridge closed the connection",
                           "<4>the bridge is not connected: " + noSocket(),
                           "<5>port p3 of rtr3 is down", "<5>connected to " + peer_.path()}));
   EXPECT_EQ(agent_->numbers().connections, 2u);
}

TEST_F(LiveAgentOnFakes, HoldsATableThatEmptiesAtOnce) {
   for (unsigned n = 1; n <= 4; ++n)
      kernel_.routes[key(n)] = to({2});
   start("hold-on-daemon-restart 10\n");
   auto const daemonEnds = [&] {
      while (!kernel_.routes.empty())
         kernel_.routeDel(kernel_.routes.begin()->first);
   };
   auto const daemonStarts = [&](unsigned first, unsigned last) {
      for (unsigned n = first; n <= last; ++n)
         kernel_.routeIs(key(n), to({3}));
   };
   kernel_.routeDel(key(4));
   wait(0.2);
   EXPECT_EQ(forwarding().size(), 3u);  // the deletion of one route of several is one

   daemonEnds();
   wait(1);
   EXPECT_EQ(forwarding(), (Lines{"1: rtr1 > rtr2", "2: rtr1 > rtr2", "3: rtr1 > rtr2"}));
   EXPECT_EQ(states()[0], "1 offloaded: held: its daemon restarts");
   EXPECT_EQ(agent_->numbers().held, 1u);
   // A packet makes the new daemon look for a route. Until it has one, the old one stays.
   kernel_.routeIs(key(1), unresolved());
   wait(1);
   EXPECT_EQ(states()[0], "1 offloaded: held: its daemon restarts");
   kernel_.routeDel(key(1));
   daemonStarts(2, 3);
   wait(2);
   EXPECT_EQ(forwarding(), (Lines{"1: rtr1 > rtr2", "2: rtr1 > rtr3", "3: rtr1 > rtr3"}));
   EXPECT_EQ(states()[1], "2 offloaded");
   // The daemon restarts once more: each end begins a hold time of its own.
   daemonEnds();
   wait(8);
   EXPECT_EQ(forwarding(), (Lines{"1: rtr1 > rtr2", "2: rtr1 > rtr3", "3: rtr1 > rtr3"}));
   EXPECT_EQ(agent_->numbers().held, 2u);
   log();
   wait(3);
   EXPECT_EQ(forwarding(), Lines());
   EXPECT_EQ(states(), Lines());
   EXPECT_EQ(log(), (Lines{"<5>3 routes of table 253 have not come back"}));

   // The last route of a table ends without a daemon's end.
   daemonStarts(1, 1);
   wait(1);
   daemonEnds();
   wait(1);
   EXPECT_EQ(forwarding(), Lines());
}

TEST_F(LiveAgentOnFakes, TakesAChangedConfiguration) {
   kernel_.routes = {{key(1), to({2, 3})}, {key(2), to({4})}, {key(3), to({2})}};
   start();
   EXPECT_EQ(states(), (Lines{"1 offloaded", "2 trapped: output rtr4 has no port", "3 offloaded"}));
   portUp("p3", false);
   wait(0.1);
   EXPECT_EQ(enabled(), (Lines{"23 down"}));
   std::size_t const flows = peer_.flows.size();
   writes();
   // rtr3 goes, rtr4 comes, and rtr2 gets another port.
   Configuration changed =
         configuration(interface(1) + "interface rtr2 port spare cpu c2 vlan 7\n" + interface(4) +
                       "table 253\ntable 9\nmetrics 127.0.0.1:1\nexpiry 60\nreroute rtr2 rtr4\n");
   EXPECT_EQ(agent_->configurationIs(changed), (Lines{"table", "metrics"}));
   wait(0.3);
   EXPECT_EQ(states(), (Lines{"1 trapped: output rtr3 has no port", "2 offloaded", "3 offloaded"}));
   EXPECT_EQ(outputOf(2), 30u);
   EXPECT_EQ(outputOf(3), 0u);
   EXPECT_EQ(outputOf(4), 14u);
   EXPECT_EQ(peer_.flows.size(), flows);
   EXPECT_EQ(peer_.count("add route"), 2u);  // the new one, and the one that gets a backup
   EXPECT_EQ(enabled(), (Lines{"23 up"}));   // nobody else would enable it
   EXPECT_TRUE(agent_->theSwitch().audit().empty());
   // The same configuration changes nothing.
   writes();
   EXPECT_EQ(agent_->configurationIs(changed), Lines());
   wait(0.3);
   EXPECT_EQ(writes(), Lines());
   // The reroute is in force.
   portUp("spare", false);
   wait(0.1);
   EXPECT_EQ(forwarding(), (Lines{"2: rtr1 > rtr4", "3: rtr1 > rtr4"}));
   EXPECT_EQ(enabled(), Lines());  // the groups come first
   wait(0.5);
   EXPECT_EQ(enabled(), (Lines{"22 down"}));
   EXPECT_EQ(agent_->configurationIs(configuration()), (Lines{"table", "metrics"}));
   wait(0.3);
   EXPECT_EQ(states(), (Lines{"1 offloaded", "2 trapped: output rtr4 has no port", "3 offloaded"}));
}

TEST_F(LiveAgentOnFakes, FollowsLinksRulesAndVrfs) {
   kernel_.routes = {{key(1), to({2, 3})}};
   start();
   auto const state = [&] {
      wait(0.2);
      return states().at(0);
   };
   Kernel::Link renamed = kernel_.links[3];
   renamed.name = "eth3";
   kernel_.linkIs(renamed);
   EXPECT_EQ(state(), "1 trapped: output eth3 has no port");
   renamed.name = "rtr3";
   renamed.mac[5] = 99;
   kernel_.linkIs(renamed);
   EXPECT_EQ(state(), "1 offloaded");
   EXPECT_EQ(peer_.decodedGroup(firstGroup + 2).buckets.at(0).at(0).value, 0x020000000063u);
   kernel_.tables.insert({Lnet::IpFamily::v4, 9});
   kernel_.ruleAdd(Lnet::IpFamily::v4, {.priority = 5, .table = 9, .input = "rtr1"});
   EXPECT_EQ(state(), "1 trapped: hidden by table 9");
   // In a VRF, whose packets the rule does not match.
   kernel_.linkIs(link(30, "red"));
   kernel_.links[30].kind = "vrf";
   kernel_.links[30].vrfTable = 77;
   kernel_.linkIs(kernel_.links[30]);
   EXPECT_EQ(state(), "1 trapped: hidden by table 9");
   Kernel::Link enslaved = kernel_.links[1];
   enslaved.master = 30;
   kernel_.linkIs(enslaved);
   EXPECT_EQ(state(), "1 offloaded");
   EXPECT_EQ(forwarding(), (Lines{"1: rtr1 vrf 1 > rtr2 rtr3"}));
}

// ---- Failures of ports. ----

TEST_F(LiveAgentOnFakes, TakesDownTheCpuPortOfAFailedFrontPort) {
   kernel_.routes = {{key(1), to({2})}};
   peer_.ports["p3"].up = false;
   kernel_.links[21].adminUp = false;  // by an agent that was killed
   start();
   EXPECT_EQ(enabled(), (Lines{"21 up", "23 down"}));
   portUp("p2", false);
   wait(0.1);
   portUp("p3", true);
   wait(0.1);
   peer_.portDel("p1");
   wait(0.1);
   EXPECT_EQ(enabled(), (Lines{"22 down", "23 up", "21 down"}));
   // Without the permission the port stays as it is.
   log();
   refusal_ = "Operation not permitted";
   portUp("p3", false);
   wait(0.1);
   EXPECT_EQ(log(), (Lines{"<5>port p3 of rtr3 is down",
                           "<4>CPU port c3 does not follow its front port: Operation not "
                           "permitted"}));
}

TEST_F(LiveAgentOnFakes, ReroutesAFailedInterfaceAndRestoresIt) {
   kernel_.routes = {{key(1), to({2})}, {key(2), to({2, 3})}};
   Lines const normal{"1: rtr1 > rtr2", "2: rtr1 > rtr2 rtr3"};
   Lines const rerouted{"1: rtr1 > rtr3", "2: rtr1 > rtr3"};
   start("reroute rtr2 rtr3\nreroute rtr3 rtr1\n");
   EXPECT_EQ(forwarding(), normal);
   // The input is no backup.
   portUp("p3", false);
   wait(1);
   portUp("p3", true);
   EXPECT_EQ(forwarding(), normal);
   Qor::U64 const reroutes = agent_->numbers().reroutes;
   for (unsigned failure = 1; failure <= 2; ++failure) {
      writes();
      portUp("p2", false);
      turn();
      EXPECT_EQ(forwarding(), rerouted);
      EXPECT_EQ(peer_.count("modify group 12"), 2u);
      EXPECT_EQ(peer_.count("add"), 0u);
      EXPECT_EQ(agent_->numbers().reroutes, reroutes + 3 * failure - 2);
      // The hold time counts from the latest return of the link.
      portUp("p2", true);
      wait(2);
      portUp("p2", false);
      wait(0.1);
      portUp("p2", true);
      wait(2.5);
      EXPECT_EQ(forwarding(), rerouted);
      wait(1);
      EXPECT_EQ(forwarding(), normal);
      // The routes have no backup in the first second, and one more failure finds them so.
      portUp("p2", false);
      wait(0.1);
      EXPECT_EQ(forwarding(), rerouted);
      portUp("p2", true);
      wait(5);
      EXPECT_EQ(forwarding(), normal);
   }
}

TEST_F(LiveAgentOnFakes, UsesTheStandbyWithoutAReroute) {
   three_ = interface(1) + interface(2, " standby spare") + interface(3);
   kernel_.routes = {{key(1), to({2})}};
   start("reroute rtr2 rtr3\n");
   writes();
   portUp("p2", false);
   wait(0.1);
   EXPECT_EQ(outputOf(2), 30u);
   EXPECT_EQ(forwarding(), (Lines{"1: rtr1 > rtr2"}));
   EXPECT_EQ(enabled(), Lines());
   EXPECT_EQ(agent_->numbers().reroutes, 1u);
   EXPECT_EQ(
         interfacesJson(*agent_)["interfaces"][1].dump(),
         R"({"name":"rtr2","frontPort":"p2","link":"down","cpuPort":"c2","standbyPort":"spare",)"
         R"("sendsBy":"spare"})");
   // The daemon finds another way when both ports are down.
   portUp("spare", false);
   wait(1.1);
   EXPECT_EQ(enabled(), (Lines{"22 down"}));
   portUp("spare", true);
   wait(1.1);
   EXPECT_EQ(enabled(), (Lines{"22 up"}));
   portUp("p2", true);
   wait(4);
   EXPECT_EQ(outputOf(2), 12u);
   EXPECT_EQ(agent_->numbers().reroutes, 1u);
}

// An agent that starts while an interface is down never sends its routes there.
TEST_F(LiveAgentOnFakes, StartsOnTheBackupOfAFailedInterface) {
   kernel_.routes = {{key(1), to({2})}, {key(2), to({2, 3})}};
   Lines const rerouted{"1: rtr1 > rtr3", "2: rtr1 > rtr3"};
   start("reroute rtr2 rtr3\n");
   portUp("p2", false);
   wait(0.1);
   EXPECT_EQ(forwarding(), rerouted);
   kill();
   start("reroute rtr2 rtr3\n");
   EXPECT_EQ(forwarding(), rerouted);
   // Both routes have the same outputs now, and share a group.
   EXPECT_EQ(writes(), (Lines{"add route 1", "delete group 1257", "barrier"}));
   // A route that comes while the interface is down takes the backup at once.
   kernel_.routeIs(key(3), to({2}));
   wait(0.2);
   EXPECT_EQ(forwarding(), (Lines{"1: rtr1 > rtr3", "2: rtr1 > rtr3", "3: rtr1 > rtr3"}));
   portUp("p2", true);
   wait(5);
   EXPECT_EQ(forwarding(), (Lines{"1: rtr1 > rtr2", "2: rtr1 > rtr2 rtr3", "3: rtr1 > rtr2"}));
}

// ---- Keep-alives and answers. ----

TEST_F(LiveAgentOnFakes, KeepsRoutesAliveWhileTheyCarryPackets) {
   for (unsigned n = 1; n <= 2; ++n)
      kernel_.routes[key(n)] = to({2});
   for (unsigned n = 3; n <= 40; ++n)
      kernel_.routes[key(n)] = to({9});  // with the CPU
   start("expiry 30\n");
   for (unsigned second = 0; second < 100; ++second) {
      for (auto& flow : peer_.flows)
         flow.packets += flow.cookie >> 32 & 1 && (flow.cookie & 0xffff) == 0 ? 10 : 0;
      wait(1);
   }
   // About one in 10 s, of the route with packets alone, into the CPU port of rtr1.
   EXPECT_GE(peer_.packetsOut.size(), 8u);
   EXPECT_LE(peer_.packetsOut.size(), 11u);
   auto const frame = keepAliveFrame(key(1).source, key(1).group);
   for (std::string const& packet : peer_.packetsOut) {
      EXPECT_TRUE(packet.ends_with(std::string(frame.begin(), frame.end())));
      EXPECT_EQ(packet.find(std::string("\0\0\0\x15", 4)) == packet.npos, false);
   }
   // The packets of the other route arrive at the kernel alone.
   kernel_.routes[key(2)].packets += 500;
   wait(15);
   EXPECT_EQ(states()[0], "1 offloaded");
   EXPECT_EQ(states()[1], "2 offloaded, fault: the kernel counts 500 packets, and the switch none");
   // Packets from a time at which the route was with the CPU are no fault.
   kernel_.routeIs(key(2), to({9}));
   wait(1);
   kernel_.routes[key(2)].packets += 500;
   Kernel::Route back = kernel_.routes[key(2)];
   back.outputs = {2};
   kernel_.routeIs(key(2), back);
   for (unsigned second = 0; second < 15; ++second) {
      wait(1);
      EXPECT_EQ(states()[1], "2 offloaded");
   }
}

TEST_F(LiveAgentOnFakes, AnswersQuestionsAndRefusesChanges) {
   kernel_.routes = {{key(1), to({2})}, {key(2), to({9})}};
   struct Case {
      std::string line;
      bool good;
      std::string part;  // of the text
   };
   std::string const none = "the bridge is not connected: " + noSocket();
   std::vector<Case> const withoutBridge = {
         {"show", true, "default    253  10.0.0.9  239.0.0.2  rtr1  trapped  interface 9  output "},
         {"show interfaces", true, "rtr1       p1    missing  c1"},
         {"show oifsets", false, none},
         {"inspect ls", false, none}};
   std::vector<Case> const withBridge = {
         {"show routes", true, "output interface 9 has no port"},
         {"  show   status ", true, "trapped by        1 unmapped-output"},
         {"show status", true, "routes            1 offloaded, 1 trapped"},
         {"show routes state trapped interface rtr1", true, "\n1 of 2 routes\n"},
         {"show routes table 254", true, "\n0 of 2 routes\n"},
         {"show routes state up", false, "\"up\" is not a state (known: offloaded, "},
         {"show status now", false, "the view status has no filter"},
         {"inspect show routes", true, "rtr1  offloaded"},
         {"show interfaces", true, "rtr1       p1    up    c1"},
         {"show oifsets", true, "rtr2"},
         {"show chip", true, ""},
         {"show nothing", false, "\"nothing\" is not a view (known: routes, interfaces, "},
         {"explain 10.0.0.9,239.0.0.1", true, "packets from rtr1 leave by rtr2.\n"},
         {"explain 10.0.0.9,239.0.0.2", true,
          "trapped: output interface 9 has no port\nNo route (10.0.0.9, 239.0.0.2) is wanted in "
          "any "
          "VRF"},
         {"explain 10.0.0.9,239.0.0.2", true, "no entry matches, and they go to the CPU   ["},
         {"explain 239.0.0.1", true, "(10.0.0.9, 239.0.0.1) in VRF default: offloaded;"},
         {"explain *,239.0.0.1", true, "The kernel has no such route"},
         {"explain \x1b[2J", false, "is not a route"},
         {"inspect ls", true, "config"},
         {"inspect set config/x 1", false, "set is refused: a live agent is only read"},
         {"inspect call config x", false, "call is refused: a live agent is only read"},
         {"inspect run", false, "run is refused: a live agent is only read"},
         {"set config/x 1", false, "\"set\" is not a command (known: show, explain, "},
         {"", false, "\"\" is not a command"},
         {"\n\x1b[2J", false, "is not a command"}};
   auto const expect = [&](std::vector<Case> const& cases) {
      for (auto const& [line, good, part] : cases) {
         SCOPED_TRACE(line);
         LiveAnswer const text = answerTo(*agent_, line, false);
         LiveAnswer const json = answerTo(*agent_, line, true);
         EXPECT_EQ(text.good, good);
         EXPECT_EQ(json.good, good);
         EXPECT_NE(text.text.find(part), std::string::npos) << text.text;
         if (good) {
            std::istringstream words(line);
            std::string command, view = "routes";
            words >> command >> view;
            std::string const schema = command == "show" ? view : command;
            EXPECT_EQ(testSupport::schemaFault(schema, json.text), "");
         } else {
            EXPECT_EQ(text.text.find_first_of("\n\x1b"), std::string::npos);
         }
      }
   };
   peer_.stopListening();
   start();
   expect(withoutBridge);
   peer_.listen();
   wait(15);
   writes();
   expect(withBridge);
   for (auto const& [line, words] : std::vector<std::pair<std::string, std::string>>{
              {"", "explain \ninspect \nshow \nwatch \n"},
              {"explain ", "10.0.0.9,\n239.0.0.1 \n239.0.0.2 \n"},
              {"explain 10.0.0.9,239.0.0.1", "10.0.0.9,239.0.0.1 \n"},
              {"explain 10.0.0.9,239.0.0.1 ", "iif \nvrf \n"},
              {"inspect explain 10.0.0.9 239.0.0.2", "239.0.0.2 \n"},
              {"inspect s", "show \n"},  // set and step are refused
              {"inspect ge", "get \n"},
              {"watch /conf", "/config/\n"},
              {"show s", "status \n"},
              {"show routes s", "source \nstate \n"},
              {"show routes state trapped g", "group \n"},
              {"show routes group ", "239.0.0.1 \n239.0.0.2 \n"}})
      EXPECT_EQ(answerTo(*agent_, "complete " + line, false).text, words) << line;
   wait(0.2);
   EXPECT_EQ(writes(), Lines());
   EXPECT_TRUE(answerTo(*agent_, "explain 10.0.0.9,239.0.0.1", false)
                     .text.starts_with("(10.0.0.9, 239.0.0.1) in VRF default: offloaded; packets"));
   // The report has both routes, sorted by VRF, and the reason of the one that the CPU keeps.
   auto const report = liveReport(*agent_, nullptr);
   auto const textOf = [&](char const* column, std::size_t i) {
      return report["strings"][report["routes"][column][i].get<std::size_t>()];
   };
   EXPECT_EQ(report["routes"]["dst"].dump(), R"(["239.0.0.1","239.0.0.2"])");
   EXPECT_EQ(textOf("state", 0), "offloaded");
   EXPECT_EQ(textOf("state", 1), "trapped");
   EXPECT_EQ(textOf("reason", 1), "output interface 9 has no port");
   EXPECT_GT(report["epoch"].get<double>(), 1e9);
   unsigned done = 0;
   agent_->refresh([&] { ++done; });
   turn();
   EXPECT_EQ(done, 1u);
   EXPECT_EQ(statusJson(*agent_)["routes"].dump(),
             R"({"offloaded":1,"pending":0,"waiting":0,"failed":0,"trapped":1})");
}

}  // namespace
}  // namespace Agent
