// Restarts of the agent on both paths: random routes, crashes at any time, and replays of unchanged
// and of changed routes in any order.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

#include "KeptChip.h"
#include "agent/explain/ExplainJson.h"
#include "agent/scenario/SwitchTestbed.h"
#include "agent/timeline/TimelineWriter.h"

namespace Agent {
namespace {

using Route = Testbed::Route;
using Texts = std::vector<std::string>;

class Life {
 public:
   Life(PathKind path, unsigned seed, Sim::ChipConfig const& chip)
         : path_(path), random_(seed), chip_(path, chip), switch_(chip_.choice()) {
      switch_.timelineIs(&timeline_);
   }
   ~Life() {
      switch_.timelineIs(nullptr);
      Qor::activityManagerIs(nullptr);
   }

   Switch& theSwitch() { return switch_; }
   unsigned upTo(unsigned n) { return static_cast<unsigned>(random_() % n); }
   void run(double seconds) { switch_.runUntil(Qor::now() + seconds); }

   // Announces route number `i` with random properties, or withdraws the route.
   void change(unsigned i) {
      Route route;
      route.vrf = L3::VrfName(i % 5 == 0 ? "red" : "default");
      auto const source = i % 3 == 0 ? Lnet::IpGenAddr::v4(0) : Lnet::IpGenAddr::v4(0x0a000002);
      route.key = Scenario::RouteKey::fromAddresses(source, Lnet::IpGenAddr::v4(0xef010000 + i));
      touched_.insert(i);
      if (upTo(4) == 0) {
         wanted_.erase(i);
         return testbed_.routeDel(route.vrf, route.key);
      }
      route.iif = Lnet::IntfId("in" + std::to_string(upTo(2)));
      for (unsigned oif = 0, some = upTo(8); oif < 3; ++oif) {
         if (some >> oif & 1u) route.oifs.push_back(Lnet::IntfId("out" + std::to_string(oif)));
      }
      route.cpu = upTo(5) == 0;
      if (upTo(6) == 0) route.backup = {Lnet::IntfId("spare")};
      if (upTo(6) == 0) route.fastdrop = {Lnet::IntfId("watched")};
      route.noRpf = upTo(8) == 0;
      if (path_ == PathKind::sync && !route.noRpf) route.bridge = upTo(10) == 0;
      wanted_[i] = route;
      testbed_.routeIs(route);
   }

   // The outputs of a packet of each wanted route, by route number, without the touched routes.
   std::map<unsigned, std::map<std::string, unsigned>> outputs() {
      std::map<unsigned, std::map<std::string, unsigned>> out;
      for (auto const& [i, route] : wanted_) {
         auto const source = route.key.source().isAny() ? Lnet::IpGenAddr::v4(0x0a000009)
                                                        : route.key.source().address();
         if (touched_.contains(i)) continue;
         out[i] = testbed_.send({route.vrf, source, route.key.group().address(), route.iif, 64}).at;
      }
      return out;
   }
   // Marks exactly those routes as touched that are not in hardware.
   void leaveOutRoutesWithoutHardware() {
      touched_.clear();
      for (auto const& [i, route] : wanted_) {
         if (testbed_.route(route.vrf, route.key).state != "inHardware") touched_.insert(i);
      }
   }

   RestartOptions options() {
      RestartOptions options;
      options.order = RestartOptions::Order::shuffled;
      options.seed = random_();
      options.begin = 0.01 * upTo(3);
      options.over = 0.1 * upTo(4);
      options.applied = upTo(5);
      return options;
   }
   // Leaves some of the routes out of the replay for good.
   void replayOnlySome(RestartOptions& options) {
      auto& only = options.only.emplace();
      for (auto it = wanted_.begin(); it != wanted_.end();) {
         if (upTo(4) == 0) {
            it = wanted_.erase(it);
            continue;
         }
         only.insert({it->second.vrf, it->second.key});
         ++it;
      }
   }

   Sim::Chip const& chip() const { return *chip_; }
   Qor::U64 writes() const {
      Qor::U64 sum = 0;
      for (std::size_t kind = 0; kind < Sim::writeKinds; ++kind)
         sum += chip().writes(static_cast<Sim::WriteKind>(kind));
      return sum;
   }
   void expectSound() {
      EXPECT_EQ(switch_.audit(), Texts());
      EXPECT_EQ(testbed_.forwardingFaults(), Texts());
      EXPECT_EQ(testbed_.value(Scenario::State::wanted), wanted_.size());
   }
   // On a chip with room for all routes.
   void expectComplete() {
      EXPECT_EQ(testbed_.value(Scenario::State::inHardware), wanted_.size());
      std::size_t entries = wanted_.size();
      for (auto const& [i, route] : wanted_)
         entries += route.fastdrop.size();
      EXPECT_EQ(chip().routes().size() + chip().boundaries().size(), entries);
   }

 private:
   PathKind const path_;
   std::mt19937_64 random_;
   std::ostringstream shown_;
   TimelineWriter writer_{shown_};
   Timeline timeline_{{&writer_}};
   KeptChip const chip_;
   Switch switch_;
   SwitchTestbed testbed_{switch_, nullptr, true};
   std::map<unsigned, Route> wanted_;
   std::set<unsigned> touched_;
};

template <class Body>
void forManySeeds(Body const& body) {
   for (unsigned seed = 0; seed < 60; ++seed) {
      for (PathKind const path : {PathKind::async, PathKind::sync}) {
         bool const room = seed % 3 != 0;
         SCOPED_TRACE((path == PathKind::async ? "async, seed " : "sync, seed ") +
                      std::to_string(seed));
         Sim::ChipConfig chip;
         chip.groups = room ? 64 : 6;
         chip.routes = room ? 256 : 30;
         chip.latency = 0.01;
         Life life(path, seed, chip);
         for (unsigned i = 0; i < 40; ++i)
            life.change(i);
         life.run(6);
         body(life, room);
         if (testing::Test::HasFailure()) return;
      }
   }
}

TEST(Restart, AnUnchangedReplayInAnyOrderWritesNothingAndLosesNoPacket) {
   forManySeeds([](Life& life, bool room) {
      auto const before = life.writes();
      life.leaveOutRoutesWithoutHardware();
      auto const outputs = life.outputs();
      for (unsigned restarts = 0; restarts < 3; ++restarts) {
         life.theSwitch().restart(life.options());
         for (unsigned i = 0, steps = 1 + life.upTo(40); i < steps; ++i) {
            life.run(0.01);
            EXPECT_EQ(life.outputs(), outputs);
         }
      }
      life.run(1);
      // On a full chip another one of the waiting routes may get the entry that became free.
      EXPECT_TRUE(!room || life.writes() == before);
      EXPECT_EQ(life.outputs(), outputs);
      life.expectSound();
   });
}

TEST(Restart, ChangesDuringARestartAreWrittenAndTheChipKeepsNoUnwantedEntries) {
   forManySeeds([](Life& life, bool room) {
      bool const faulty = life.upTo(3) == 0;  // with failed writes some routes are given up
      for (unsigned restarts = 0; restarts < 3; ++restarts) {
         life.run(0.05);
         // A route that changed during an earlier replay may keep old entries until its end.
         bool const stable = room && !life.theSwitch().recovering();
         life.leaveOutRoutesWithoutHardware();
         auto outputs = life.outputs();
         for (unsigned changes = 12; changes > 0; --changes)
            life.change(life.upTo(40));
         life.run(0.01 * life.upTo(8));  // not always enough for all writes
         RestartOptions options = life.options();
         if (life.upTo(2)) life.replayOnlySome(options);
         life.theSwitch().platform().faults()->rateIs(Sim::WriteKind::routePoint, faulty ? 0.2 : 0);
         life.theSwitch().restart(options);
         for (unsigned steps = life.upTo(12); steps > 0; --steps) {
            life.run(0.03);
            if (life.upTo(2)) life.change(life.upTo(40));
            for (auto const& [i, copies] : life.outputs())
               EXPECT_TRUE(!stable || copies == outputs[i]) << "route " << i;
         }
      }
      life.run(10);
      life.expectSound();
      if (room && !faulty) life.expectComplete();
   });
}

// Routes with backups on a synchronous chip whose replication table is full. Routes are replayed
// only 5 s after a restart, so that a test can change other routes before.
class FullChip {
 public:
   explicit FullChip(Qor::U32 groups)
         : switch_(simulatedPlatform(PathKind::sync, groupsAre(groups))) {}
   ~FullChip() { Qor::activityManagerIs(nullptr); }

   void want(unsigned i, char const* iif, std::vector<Lnet::IntfId> oifs, char const* backup) {
      Route route;
      route.vrf = L3::VrfName("default");
      route.key = key(i);
      route.iif = Lnet::IntfId(iif);
      route.oifs = std::move(oifs);
      route.backup = {Lnet::IntfId(backup)};
      testbed_.routeIs(route);
   }
   void withdraw(unsigned i) { testbed_.routeDel(L3::VrfName("default"), key(i)); }
   void run(double seconds) { switch_.runUntil(Qor::now() + seconds); }
   void restart() {
      RestartOptions options;
      options.begin = 5;
      options.complete = 6;
      switch_.restart(options);
   }
   void fail(char const* intf) {
      switch_.linkIs(Lnet::IntfId(intf), Interface::IntfOperStatus::down);
   }
   std::string outputs(unsigned i, char const* iif) {
      std::string text;
      for (auto const& [intf, copies] :
           testbed_
                 .send({L3::VrfName("default"), Lnet::IpGenAddr::v4(0x0a000002),
                        key(i).group().address(), Lnet::IntfId(iif), 64})
                 .at)
         text += intf + ' ';
      return text;
   }
   std::string explain(unsigned i) {
      std::ostringstream os;
      RouteQuestion const question{L3::VrfName("default"), key(i)};
      printExplanation(os, explainJson(Explainer(switch_).answer(question)));
      return os.str();
   }
   Texts audit() { return switch_.audit(); }

 private:
   static VelMroute::PlatformOptions groupsAre(Qor::U32 groups) {
      VelMroute::PlatformOptions options;
      options.add("groups", groups);
      return options;
   }
   static RouteKey key(unsigned i) {
      return RouteKey::fromAddresses(Lnet::IpGenAddr::v4(0x0a000002),
                                     Lnet::IpGenAddr::v4(0xef010100 + i));
   }

   Switch switch_;
   SwitchTestbed testbed_{switch_, nullptr, true};
};

// During the replay route 2 gets the outputs of route 1, and then the input of route 2 fails.
TEST(Restart, AFailureOfOneRouteReroutesAnotherOnlyIfNoGroupIsAvailableAndIsExplained) {
   auto const intf = [](char const* name) { return Lnet::IntfId(name); };
   enum { aZombieIsDeleted, itsOwnGroupIsRewritten, theyShare };
   for (auto const how : {aZombieIsDeleted, itsOwnGroupIsRewritten, theyShare}) {
      SCOPED_TRACE(how);
      FullChip chip(how == aZombieIsDeleted ? 3 : 2);
      chip.want(1, "a", {intf("x"), intf("y")}, "p");
      chip.want(2, "b", {intf("z")}, "q");
      if (how != itsOwnGroupIsRewritten)
         chip.want(3, "b", {intf("z")}, how == theyShare ? "q" : "r");
      chip.run(1);
      if (how == aZombieIsDeleted) chip.withdraw(3);
      chip.run(1);
      chip.restart();
      chip.want(2, "b", {intf("x"), intf("y")}, "q");
      chip.run(0.1);
      EXPECT_EQ(chip.outputs(2, "b"), "x y ");
      chip.fail("b");
      chip.run(0.1);
      EXPECT_EQ(chip.outputs(2, "b"), "q ");
      EXPECT_EQ(chip.outputs(1, "a"), how == theyShare ? "q " : "x y ");
      auto const expectText = [&](unsigned i, char const* text) {
         std::string const all = chip.explain(i);
         EXPECT_EQ(all.find(text) != std::string::npos, how == theyShare) << all;
      };
      expectText(2,
                 "found entries point at this group as well, and a rewrite changes them: "
                 "(10.0.0.2, 239.1.1.1)\n");
      expectText(1, "forwards by group 0, which is also the group of (10.0.0.2, 239.1.1.2)");
      chip.run(5);  // the route is replayed, and waits for the end of the replay
      expectText(1,
                 "until then its found entry forwards by group 0, which is also the group of "
                 "(10.0.0.2, 239.1.1.2)\n");
      if (how == theyShare) chip.withdraw(3);
      chip.run(10);
      EXPECT_EQ(chip.outputs(1, "a"), "x y ");
      EXPECT_EQ(chip.explain(1).find("found entr"), std::string::npos);
      EXPECT_EQ(chip.audit(), Texts());
   }
}

}  // namespace
}  // namespace Agent
