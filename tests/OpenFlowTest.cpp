// The platform of a software bridge, against a peer in the same thread.
#include <sstream>

#include "FakeOpenFlowPeer.h"
#include "MrouteLib/OifSet.h"
#include "TestSupport.h"
#include "hooks/AsyncHookGate.h"
#include "platform/openflow/Bridge.h"

namespace {

using namespace testSupport;
using Hux::Xact;
using OpenFlow::Bridge;
using Qor::U32;
using Qor::U64;

constexpr U32 firstId = 1000;       // of the interfaces' groups
constexpr U32 firstRouteId = 1008;  // of the routes' groups

class OpenFlowBridge : public OnVirtualTime, protected OpenFlow::Listener {
 protected:
   OpenFlowBridge() : peer_(testing::TempDir() + "of" + std::to_string(::getpid())) {
      for (U32 n = 0; n < 4; ++n) {
         peer_.ports["p" + std::to_string(n)] = {10 + n};
         peer_.ports["c" + std::to_string(n)] = {20 + n};
      }
      peer_.ports["spare"] = {30};
      options_.socket = peer_.path();
      options_.firstGroup = firstId;
      options_.lastGroup = 1999;
      options_.interfaces = 8;
      options_.routes = 100;
      options_.generation = [this] { return ++generation_; };
      options_.standbyHold = 3;
   }
   ~OpenFlowBridge() override {
      if (bridge_) bridge_->listenerIs(nullptr);
      EXPECT_TRUE(!gate_ || gate_->checks()->faults()->list().empty())
            << gate_->checks()->faults()->list().front();
   }

   static OpenFlow::Port port(unsigned n) {
      OpenFlow::Port made;
      auto const number = std::to_string(n);
      made.intf = Lnet::IntfId("rtr" + number);
      made.front = "p" + number;
      made.cpu = "c" + number;
      made.mac = {2, 0, 0, 0, 0, static_cast<Qor::U8>(n)};
      if (n == 3) made.vlan = 33;
      if (n == 1) made.standby = "spare";
      return made;
   }
   // A life of an agent with four interfaces, up to its first connection.
   void start() {
      make();
      bridge_->start();
      turn();
   }
   void make() {
      bridge_ = Qor::make<Bridge>(options_);
      bridge_->listenerIs(this);
      gate_ = Qor::make<VelMroute::AsyncHookGate>(
            bridge_->asyncHooks(), VelMroute::HookChecks::Options{.startsEmpty = false});
      for (unsigned n = 0; n < 4; ++n) {
         // The order is free.
         if (n % 2 == 1) bridge_->interfaceIs(port(n));
         ASSERT_TRUE(bridge_->portIs(port(n).intf, n + 1, Bridging::VlanIdOrNone(101 + n)));
         ASSERT_TRUE(bridge_->interfaceIs(port(n)));
      }
   }
   // The agent ends, and leaves the tables of the bridge.
   void end() {
      bridge_->listenerIs(nullptr);
      bridge_->stop();
      bridge_ = nullptr;
      peer_.serve();
      peer_.writes.clear();
   }
   // Turns of the loop until neither side has anything to do at the present time.
   void turn() {
      for (bool busy = true; busy;) {
         busy = time_->runDue() > 0;
         bridge_->turnEnds();
         busy |= peer_.serve();
         if (bridge_->fd() >= 0) {
            pollfd ready{bridge_->fd(), POLLIN, 0};
            if (::poll(&ready, 1, 0) > 0) {
               bridge_->ready(true, true);
               busy = true;
            }
         }
      }
   }
   void wait(Qor::Seconds seconds) {
      for (Qor::Seconds const until = Qor::now() + seconds; Qor::now() < until;) {
         time_->advance(std::min(until - Qor::now(), 0.1));
         turn();
      }
   }
   VelHelper::AsyncMrouteHelper& hooks() { return *gate_; }  // with checks

   static MrouteLib::OifSetPtr set(std::initializer_list<unsigned> interfaces) {
      MrouteLib::PortVlanSet s(Routing::Multicast::Fib::RouteKeyType::routed);
      for (unsigned const n : interfaces)
         s.newPortVlan(pv(("rtr" + std::to_string(n)).c_str(), 101 + n), true);
      return Qor::make<MrouteLib::OifSet>(nullptr, s);
   }
   struct Route {
      U32 group = VelHelper::AsyncMrouteHelper::invalidMulticastId;
      MrouteLib::RouteHandle handle;
   };
   U32 newGroup(std::initializer_list<unsigned> outputs, unsigned n = 1) {
      return hooks().doAllocateSharableMulticastGroup(
            MrouteLib::RouteKeyInfo(key(n), L3::VrfName("default"), Bridging::VlanIdOrNone(101),
                                    Routing::Multicast::Fib::RouteKeyType::routed),
            set(outputs), nullptr, false);
   }
   MrouteLib::RouteHandle newEntry(Routing::Multicast::Fib::IpGenRouteKey const& k) {
      return hooks().doAllocateRoute(k, Bridging::VlanIdOrNone(101), false, {}, 0);
   }
   Route add(unsigned n, std::initializer_list<unsigned> outputs) {
      Route route;
      route.group = newGroup(outputs, n);
      route.handle = newEntry(key(n));
      hooks().doSetMtableOifSet(route.handle, route.group, hooks().doGetXactForOifSet(route.group));
      return route;
   }
   void drop(Route const& route) {
      hooks().doDeleteRoute(route.handle);
      hooks().doDeleteOifSet(route.group);
   }
   // "pending", "good", or the reason of the failure.
   std::string stateOf(Hux::XactPtr const& xact) {
      if (xact->pending()) return "pending";
      return xact->state() == Xact::State::succeeded
                   ? "good"
                   : hooks().doGetXactFailureReason(xact, VelHelper::MrouteXactType::ingress);
   }
   std::string stateOf(Route const& route) {
      return stateOf(hooks().doGetXactForIngress(route.handle));
   }
   // The flow of the entry's route on the bridge; null if there is none.
   FakeOpenFlowPeer::Flow* flowOf(MrouteLib::RouteHandle handle) {
      for (auto& flow : peer_.flows) {
         if (static_cast<U32>(flow.cookie) == handle.value() && flow.cookie >> 32 & 1) return &flow;
      }
      return nullptr;
   }
   // The interfaces' groups that a group of a route names, from 0.
   std::string membersOf(U32 id) {
      std::string all;
      for (auto const& actions : peer_.decodedGroup(id).buckets)
         all += std::to_string(actions.at(0).value - firstId) + ' ';
      return all;
   }
   // The port to which the group of an interface sends; 0 for none.
   U64 outputOf(unsigned n) {
      auto const group = peer_.decodedGroup(firstId + n);
      auto const& actions = group.buckets.at(0);
      return actions.empty() ? 0 : actions.back().value;
   }

   void connected() override { log_ += "connected; "; }
   void lost(std::string const& reason) override { log_ += "lost " + reason + "; "; }
   void refused(std::string const& reason) override { log_ += "refused " + reason + "; "; }
   void protectionChanged(Lnet::IntfId intf, bool onStandby) override {
      log_ += intf.name() + (onStandby ? " on standby; " : " on front; ");
   }
   void portChanged(std::string const& name, bool there) override {
      log_ += name + (there ? " added; " : " gone; ");
   }
   std::string log() { return std::exchange(log_, {}); }

   FakeOpenFlowPeer peer_;
   OpenFlow::Options options_;
   U64 generation_ = 0;
   Qor::Ptr<Bridge> bridge_;
   Qor::Ptr<VelMroute::AsyncHookGate> gate_;
   std::string log_;
};

// ---- The life of a connection ----

TEST_F(OpenFlowBridge, BuildsThePipelineOnceAndAgainAfterItWasLost) {
   start();
   EXPECT_EQ(log(), "connected; ");
   EXPECT_EQ(peer_.generation, 1u);
   std::size_t const flows = peer_.flows.size();
   EXPECT_EQ(flows, 4u * 12);
   EXPECT_EQ(peer_.groups.size(), 4u);
   EXPECT_EQ(peer_.count("barrier"), 1u);

   // A frame in the vlan of rtr3 goes to table 1 without it, and as one of vrf 0 and vlan 104.
   std::vector<OpenFlow::Flow> const decoded = peer_.decoded();
   auto const classifier = std::find_if(
         decoded.begin(), decoded.end(),
         [](OpenFlow::Flow const& flow) { return flow.next && flow.match.inPort == 13u; });
   ASSERT_NE(classifier, decoded.end());
   EXPECT_EQ(classifier->match.vlan, OpenFlow::vlanPresent | 33);
   EXPECT_EQ(classifier->metadata->value, 104u);
   using Kind = OpenFlow::Action::Kind;
   EXPECT_EQ(classifier->actions, (OpenFlow::Actions{{Kind::popVlan}, {Kind::clearInPort}}));
   EXPECT_EQ(peer_.decodedGroup(firstId + 3).buckets.at(0),
             (OpenFlow::Actions{{Kind::setSource, 0x020000000003},
                                {Kind::pushVlan, 0x8100},
                                {Kind::setVlan, OpenFlow::vlanPresent | 33},
                                {Kind::output, 13}}));

   // Nothing differs at the next connection; then one flow and one group do.
   for (bool const damaged : {false, true}) {
      peer_.writes.clear();
      if (damaged) {
         peer_.flows.pop_back();
         peer_.groups.erase(firstId);
      }
      peer_.disconnect();
      wait(1);
      EXPECT_EQ(log(), "lost the bridge closed the connection; connected; ");
      EXPECT_EQ(peer_.writes.size(), damaged ? 3u : 0u) << testing::PrintToString(peer_.writes);
      EXPECT_EQ(peer_.flows.size(), flows);
   }
   EXPECT_EQ(peer_.generation, 3u);
   EXPECT_TRUE(bridge_->audit().empty());
}

TEST_F(OpenFlowBridge, RefusesABridgeWithAForeignFlowThatFloods) {
   auto const foreign = [&](U64 outPort) {
      OpenFlow::Flow flow;
      flow.priority = 5;
      flow.cookie = 7;
      if (outPort != 0) flow.match.inPort = 10;
      flow.actions = {{OpenFlow::Action::Kind::output, outPort}};
      std::string const message = OpenFlow::flowMod(OpenFlow::FlowCommand::add, flow);
      std::size_t const match = outPort != 0 ? 16 : 8;
      return FakeOpenFlowPeer::Flow{7, 0, 5, message.substr(48, match), message.substr(48 + match)};
   };
   peer_.flows = {foreign(0xfffffffa)};
   start();
   wait(5);
   EXPECT_EQ(log(),
             "refused the bridge has a foreign flow that outputs to NORMAL (table 0, priority "
             "5, cookie 0x7); ");
   peer_.flows = {foreign(0)};
   wait(20);
   EXPECT_EQ(log(),
             "refused the bridge has a foreign flow that matches everything (table 0, "
             "priority 5, cookie 0x7); ");
   EXPECT_TRUE(peer_.writes.empty());
   peer_.flows = {foreign(12)};
   wait(20);
   EXPECT_EQ(log(), "connected; ");
   EXPECT_EQ(flowOf(MrouteLib::RouteHandle(7)), nullptr);
   EXPECT_EQ(peer_.flows.at(0).cookie, 7u);
}

TEST_F(OpenFlowBridge, GivesUpASilentPeerAndYieldsToAnotherMaster) {
   start();
   log();
   wait(60);
   EXPECT_GT(peer_.echoes, 3u);
   EXPECT_EQ(log(), "");
   peer_.silent = true;
   wait(30);
   EXPECT_EQ(log(), "lost no answer for 15 s; ");
   peer_.silent = false;
   wait(20);
   EXPECT_EQ(log(), "connected; ");

   peer_.send(30, 0, std::string("\0\0\0\3", 4) + std::string(12, '\0'));
   wait(60);
   EXPECT_EQ(log(), "refused another agent has taken the bridge over; ");
   EXPECT_EQ(bridge_->fd(), -1);
   bridge_->start();
   wait(1);
   EXPECT_EQ(log(), "connected; ");

   peer_.readingsHeld = true;
   peer_.disconnect();
   wait(34);
   EXPECT_EQ(log(), "lost the bridge closed the connection; lost no answer to a question; ");
   peer_.readingsHeld = false;
   wait(30);
   EXPECT_EQ(log(), "connected; ");
   peer_.version = 4;
   peer_.disconnect();
   wait(1);
   EXPECT_EQ(log(), "lost the bridge closed the connection; lost the bridge has no OpenFlow 1.5; ");
}

// ---- Writes ----

TEST_F(OpenFlowBridge, WritesABatchOfATurnWithOneBarrier) {
   start();
   peer_.writes.clear();
   peer_.barriersHeld = true;
   auto const a = add(1, {1, 2});
   auto const b = add(2, {3});
   EXPECT_EQ(stateOf(a), "pending");
   turn();
   EXPECT_EQ(peer_.writes,
             (Lines{"add group 1008", "add route 0", "add group 1009", "add route 1", "barrier"}));
   EXPECT_EQ(membersOf(a.group), "1 2 ");
   EXPECT_EQ(stateOf(a), "pending");
   EXPECT_TRUE(bridge_->writesPending());

   // A peer that answers all but barriers is given up.
   log();
   wait(25);
   EXPECT_EQ(log(), "");
   peer_.barriersHeld = false;
   wait(10);
   EXPECT_EQ(log(), "lost no answer to a barrier; connected; ");
   EXPECT_EQ(stateOf(a), "good");
   peer_.barriersHeld = true;
   hooks().doUpdateMulticastGroupInPlace(set({1}), b.group);
   turn();
   peer_.barriersHeld = false;

   // The barrier behind these writes answers for the earlier ones as well in a later connection.
   hooks().doUpdateMulticastGroupInPlace(set({}), b.group);
   peer_.disconnect();
   wait(1);
   EXPECT_EQ(stateOf(a), "good");
   EXPECT_EQ(stateOf(b), "good");
   EXPECT_EQ(membersOf(b.group), "");
   EXPECT_FALSE(bridge_->writesPending());

   peer_.writes.clear();
   drop(a);
   turn();
   EXPECT_EQ(peer_.writes, (Lines{"delete route 0", "delete group 1008", "barrier"}));
   EXPECT_EQ(peer_.groups.size(), 5u);
   bridge_->asyncHooks()->doDeleteRoute(a.handle);
   bridge_->asyncHooks()->doDeleteOifSet(a.group);
   EXPECT_EQ(bridge_->violations(), (Lines{"doDeleteRoute: route 0 is not allocated",
                                           "doDeleteOifSet: group 1008 is not allocated"}));
}

TEST_F(OpenFlowBridge, PutsLongerMatchesAboveShorterOnes) {
   start();
   U32 const group = newGroup({2});
   U32 last = 0xffff;
   for (auto const& k : {key("10.0.0.1", "239.0.0.1"), key("10.0.0.0/8", "239.0.0.1"),
                         key("0.0.0.0/0", "239.0.0.1"), key("0.0.0.0/0", "239.0.0.0/8"),
                         key("0.0.0.0/0", "224.0.0.0/4")}) {
      auto const handle = newEntry(k);
      hooks().doSetMtableOifSet(handle, group, nullptr);
      turn();
      ASSERT_NE(flowOf(handle), nullptr) << k;
      EXPECT_LT(flowOf(handle)->priority, last) << k;
      last = flowOf(handle)->priority;
   }
   auto const v6 = newEntry(key("2001:db8::/32", "ff3e::8000:1"));
   hooks().doSetMtableOifSet(v6, group, nullptr);
   turn();
   bool read = false;
   bridge_->view()->refresh([&](bool good) { read = good; });
   turn();
   EXPECT_TRUE(read);
   EXPECT_EQ(bridge_->view()->entry(v6)->route.key, key("2001:db8::/32", "ff3e::8000:1"));
   EXPECT_EQ(bridge_->view()->entry(v6)->group, group);
   EXPECT_EQ(bridge_->view()->group(group)->members, (std::vector{pv("rtr2", 103)}));
}

TEST_F(OpenFlowBridge, FailsTheWriteOfAnErrorAndThoseBehindIt) {
   start();
   peer_.mostGroups = 5;
   auto const good = add(1, {1});
   auto const refused = add(2, {1, 2});
   auto const unknown = newGroup({7});
   turn();
   EXPECT_EQ(stateOf(good), "good");
   EXPECT_EQ(stateOf(hooks().doGetXactForOifSet(refused.group)),
             "OpenFlow error 6/3 OUT_OF_GROUPS");
   EXPECT_EQ(stateOf(refused), "multicast group 1009 not created");
   EXPECT_EQ(stateOf(hooks().doGetXactForOifSet(unknown)),
             "interface rtr7 has no port on the bridge");
   EXPECT_EQ(bridge_->numbers().errors, 2u);

   // The present use is the size of the table now, until an entry of it is free.
   EXPECT_EQ(bridge_->view()->use(VelMroute::Table::group).size, 1u);
   drop(refused);
   hooks().doDeleteOifSet(unknown);
   EXPECT_EQ(newGroup({1}), VelHelper::AsyncMrouteHelper::invalidMulticastId);
   drop(good);
   auto const next = add(3, {2});
   turn();
   EXPECT_EQ(stateOf(next), "good");

   peer_.mostFlows = peer_.flows.size();
   auto const handle = newEntry(key(4));
   hooks().doSetMtableOifSet(handle, next.group, nullptr);
   turn();
   EXPECT_EQ(stateOf(hooks().doGetXactForIngress(handle)), "OpenFlow error 5/1 TABLE_FULL");
   hooks().doDeleteRoute(handle);
   EXPECT_TRUE(newEntry(key(5)).isNull());
   EXPECT_TRUE(bridge_->audit().empty());
}

TEST_F(OpenFlowBridge, WritesOnlyTheDifferencesAfterAReconnection) {
   start();
   auto const kept = add(1, {1, 2});
   auto const changed = add(2, {1});
   auto const gone = add(3, {2});
   turn();
   peer_.stopListening();
   peer_.disconnect();
   wait(1);
   hooks().doUpdateMulticastGroupInPlace(set({3}), changed.group);
   drop(gone);
   auto const added = add(4, {1, 2});
   EXPECT_EQ(added.group, gone.group);
   wait(1);
   EXPECT_EQ(stateOf(added), "pending");
   EXPECT_TRUE(bridge_->writesPending());
   peer_.writes.clear();
   peer_.listen();
   wait(20);
   EXPECT_EQ(peer_.writes, (Lines{"modify group 1009", "modify group 1010", "add route 2",
                                  "delete route 2", "barrier"}));
   EXPECT_EQ(stateOf(added), "good");
   EXPECT_EQ(membersOf(changed.group), "3 ");
   ASSERT_NE(flowOf(added.handle), nullptr);
   EXPECT_EQ(peer_.flows.size(), 48u + 3);

   // A bridge that was restarted gets everything, and its own smaller size.
   peer_.flows.clear();
   peer_.groups.clear();
   peer_.mostGroups = 6;
   peer_.disconnect();
   wait(1);
   EXPECT_EQ(peer_.groups.size(), 6u);
   EXPECT_EQ(bridge_->audit().size(), 2u);
   peer_.mostGroups = 100;
   wait(10);
   EXPECT_EQ(peer_.flows.size(), 48u + 3);
   EXPECT_EQ(stateOf(kept), "good");
}

// ---- Adoption ----

TEST_F(OpenFlowBridge, AdoptsTheTablesOfAnEarlierLife) {
   start();
   auto const a = add(1, {1, 2});
   auto const b = add(2, {3});
   auto const c = add(3, {});
   turn();
   peer_.flows.back().packets = 9;
   end();

   start();
   EXPECT_TRUE(peer_.writes.empty()) << testing::PrintToString(peer_.writes);
   auto* const restart = bridge_->restart();
   ASSERT_EQ(restart->found().size(), 3u);
   EXPECT_EQ(restart->found()[0].key, key(3));  // sends nowhere
   auto const again = add(1, {1, 2});
   EXPECT_EQ(again.group, a.group);
   EXPECT_EQ(again.handle, a.handle);
   EXPECT_EQ(stateOf(again), "good");
   auto const moved = add(2, {1});
   EXPECT_EQ(moved.handle, b.handle);
   EXPECT_NE(moved.group, b.group);
   turn();
   EXPECT_EQ(stateOf(moved), "good");

   // A connection that is lost in between changes nothing for those that remain.
   peer_.flows.erase(peer_.flows.end() - 1);
   peer_.disconnect();
   wait(1);
   ASSERT_NE(flowOf(c.handle), nullptr);
   EXPECT_TRUE(restart->isFound({{}, key(3), Bridging::VlanIdOrNone(101)}));
   EXPECT_TRUE(restart->sweep());
   turn();
   EXPECT_EQ(flowOf(c.handle), nullptr);
   EXPECT_EQ(restart->adopted(), 3u);
   EXPECT_EQ(restart->swept(), 3u);
   EXPECT_FALSE(peer_.groups.contains(b.group));
   EXPECT_EQ(peer_.groups.size(), 4u + 2);
   EXPECT_TRUE(bridge_->audit().empty());
}

TEST_F(OpenFlowBridge, AdoptsNothingIfTheInterfacesHaveChanged) {
   start();
   add(1, {1, 2});
   turn();
   end();
   make();
   OpenFlow::Port other = port(1);
   other.front = "p2";
   other.standby = {};
   EXPECT_TRUE(bridge_->interfaceIs(other));
   bridge_->start();
   turn();
   EXPECT_TRUE(bridge_->restart()->found().empty());
   EXPECT_EQ(peer_.writes.at(0), "delete route 0");
   EXPECT_EQ(peer_.groups.size(), 4u);
   EXPECT_EQ(bridge_->audit().size(), 1u);
}

// ---- Ports ----

TEST_F(OpenFlowBridge, FollowsPortsAndUsesTheStandby) {
   start();
   add(1, {1});
   turn();
   log();
   peer_.writes.clear();
   peer_.portIs("p1", {11, false});
   turn();
   EXPECT_EQ(outputOf(1), 30u);
   EXPECT_EQ(peer_.writes.at(0), "modify group 1001");
   EXPECT_EQ(peer_.count("modify group"), 1u);
   EXPECT_EQ(log(), "rtr1 on standby; ");
   EXPECT_EQ(bridge_->view()->linkUp(Lnet::IntfId("rtr1")), false);
   // A reconnection meanwhile keeps the standby, and a flap shorter than the hold time, too.
   peer_.disconnect();
   wait(1);
   EXPECT_EQ(outputOf(1), 30u);
   peer_.portIs("p1", {11, true});
   wait(2);
   EXPECT_EQ(outputOf(1), 30u);
   wait(2);
   EXPECT_EQ(outputOf(1), 11u);
   EXPECT_EQ(log(), "lost the bridge closed the connection; connected; rtr1 on front; ");

   // The agent may end the protection before. Without a standby, a port that is gone is waited for.
   peer_.portDel("p1");
   turn();
   EXPECT_EQ(outputOf(1), 30u);
   peer_.portIs("p1", {41, true});
   turn();
   bridge_->protectionEnds(Lnet::IntfId("rtr1"));
   turn();
   EXPECT_EQ(outputOf(1), 41u);
   peer_.portDel("p2");
   turn();
   EXPECT_EQ(outputOf(2), 0u);
   peer_.portIs("p2", {42, true});
   turn();
   EXPECT_EQ(outputOf(2), 42u);
   EXPECT_EQ(log(), "rtr1 on standby; p1 gone; p1 added; rtr1 on front; p2 gone; p2 added; ");
   EXPECT_EQ(peer_.flows.size(), 48u + 1);

   bridge_->interfaceDel(Lnet::IntfId("rtr2"));
   turn();
   EXPECT_EQ(peer_.flows.size(), 36u + 1);
   EXPECT_EQ(outputOf(2), 0u);
   std::array<Qor::U8, 3> const packet{'a', 'b', 'c'};
   EXPECT_TRUE(bridge_->packetOut(packet, Lnet::IntfId("rtr1")));
   EXPECT_FALSE(bridge_->packetOut(packet, Lnet::IntfId("rtr2")));
   turn();
   ASSERT_EQ(peer_.packetsOut.size(), 1u);
   EXPECT_TRUE(peer_.packetsOut[0].ends_with("abc"));
}

TEST_F(OpenFlowBridge, IsOnTheStandbyBeforeTheFirstRoute) {
   peer_.ports["p1"].up = false;
   start();
   EXPECT_EQ(outputOf(1), 30u);
   EXPECT_EQ(log(), "rtr1 on standby; connected; ");
}

// ---- Packet counts ----

TEST_F(OpenFlowBridge, ReadsTheFlowsOnlyIfTheirSumHasChanged) {
   start();
   auto const a = add(1, {1});
   auto const b = add(2, {1});
   wait(11);
   EXPECT_EQ(peer_.flowReadings, 1u + 1);  // of the connection, and of the first counts
   flowOf(a.handle)->packets = 5;
   wait(5);
   Qor::Seconds const hit = hooks().routeLastAccessedTime(a.handle);
   EXPECT_GT(hit, 10);
   EXPECT_LE(hit, Qor::now());
   EXPECT_EQ(hooks().routeLastAccessedTime(b.handle), 0);
   wait(20);
   EXPECT_EQ(hooks().routeLastAccessedTime(a.handle), hit);
   EXPECT_EQ(peer_.flowReadings, 3u);
   // Counts that begin again are no hit by themselves, and a later packet is one.
   peer_.flows.clear();
   peer_.groups.clear();
   peer_.disconnect();
   wait(10);
   EXPECT_EQ(hooks().routeLastAccessedTime(a.handle), hit);
   flowOf(a.handle)->packets = 2;
   wait(10);
   EXPECT_GT(hooks().routeLastAccessedTime(a.handle), hit);
}

TEST_F(OpenFlowBridge, RepairsTablesThatAnotherProgramChanged) {
   start();
   auto const a = add(1, {1});
   auto const b = add(2, {2});
   wait(6);
   std::erase_if(peer_.flows, [](auto const& flow) { return flow.priority == 20; });
   peer_.flows.erase(peer_.flows.end() - 1);
   peer_.groups.erase(b.group);
   peer_.writes.clear();
   wait(10);
   EXPECT_EQ(peer_.flows.size(), 48u + 2);
   EXPECT_EQ(peer_.count("add group"), 1u);
   EXPECT_EQ(peer_.count("add route"), 1u);
   EXPECT_NE(flowOf(a.handle), nullptr);
   EXPECT_EQ(bridge_->audit(), Lines{"another program has changed the flows of routes"});
   wait(300);
   EXPECT_EQ(bridge_->audit().size(), 1u);
}

// ---- A hostile peer ----

TEST_F(OpenFlowBridge, EndsTheConnectionAtAMalformedMessage) {
   auto const message = [](Qor::U8 type, std::string const& body) {
      OpenFlow::Writer out;
      out.u8(6);
      out.u8(type);
      out.u16(static_cast<Qor::U16>(8 + body.size()));
      out.u32(0);
      return out.take() + body;
   };
   struct Case {
      char const* name;
      std::string raw;
      std::string text;  // empty: the connection goes on
   };
   std::string const zeros(64, '\0');
   Case const cases[] = {
         {"shorter than its header", std::string("\6\2\0\7\0\0\0\0", 8),
          "malformed message: a message is shorter than its header"},
         {"another version", std::string("\4\2\0\10\0\0\0\0", 8), "message of version 4"},
         {"an error without a code", message(1, "\1"),
          "malformed message: a message ends within a field"},
         {"half a port", message(12, zeros.substr(0, 30)),
          "malformed message: a message ends within a field"},
         {"half a role", message(30, "\1"), "malformed message: a message ends within a field"},
         {"an unknown type", message(99, zeros), ""},
         {"an answer to no question", message(19, zeros), ""},
         {"a barrier of nobody", message(21, ""), ""},
         {"an error of no write", message(1, zeros), ""},
   };
   start();
   auto const route = add(1, {1});
   turn();
   for (Case const& c : cases) {
      SCOPED_TRACE(c.name);
      log();
      peer_.sendRaw(c.raw);
      wait(1);
      EXPECT_EQ(log(), c.text.empty() ? "" : "lost " + c.text + "; connected; ");
      EXPECT_EQ(stateOf(route), "good");
      EXPECT_EQ(peer_.groups.size(), 5u);
   }
}

TEST_F(OpenFlowBridge, EndsAnAnswerWithoutEndOrOfAnotherType) {
   start();
   peer_.readingsHeld = true;
   for (bool const endless : {true, false}) {
      log();
      std::optional<bool> read;
      bridge_->view()->refresh([&](bool good) { read = good; });
      turn();
      // Parts of one group with properties, behind each of which another part is announced.
      OpenFlow::Writer part;
      part.u16(endless ? 7 : 13);
      part.u16(1);
      part.zeros(4);
      part.u16(60000);
      part.zeros(59998);
      std::string const body = part.take();
      for (unsigned n = 0; n < 600 && peer_.connected() && !read; ++n) {
         peer_.send(19, peer_.groupQuestion, body);
         turn();
         EXPECT_TRUE(n > 500 || endless || read);
      }
      peer_.readingsHeld = false;
      wait(1);
      EXPECT_EQ(read, false);
      EXPECT_EQ(log(), endless ? "lost malformed message: an answer has no end; connected; "
                               : "lost malformed message: an answer is of another type than its "
                                 "question; connected; ");
      peer_.readingsHeld = true;
   }
}

}  // namespace
