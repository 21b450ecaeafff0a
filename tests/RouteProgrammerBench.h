// The bench of the route programmers: one of either path on a simulated chip, in virtual time, with
// what is wanted of it.
#pragma once

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <sstream>

#include "Routing/Hardware/RouteStatus.h"
#include "TestSupport.h"
#include "agent/programmer/AsyncRouteProgrammer.h"
#include "agent/programmer/SyncRouteProgrammer.h"
#include "platform/sim/AsyncPlatform.h"
#include "platform/sim/SyncPlatform.h"

namespace Agent {

using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::RouteKeyType;
using Sim::WriteKind;
using State = RouteProgrammer::State;
namespace Hw = Routing::Multicast::Fib::Hardware;

inline Lnet::IntfId et(unsigned i) {
   return Lnet::IntfId("et" + std::to_string(i));
}

struct VirtualTime {
   VirtualTime() { Qor::activityManagerIs(time); }
   ~VirtualTime() { Qor::activityManagerIs(nullptr); }

   Qor::Ptr<Qor::ActivityManager> const time =
         Qor::make<Qor::ActivityManager>(Qor::ActivityManager::TimeBase::virtualTime);
};

// What a bench is made of on each path.
struct AsyncSide {
   using Platform = Sim::AsyncPlatform;
   using Switch = Vel::Mroute::AsyncMrouteSwitch;
   using Programmer = AsyncRouteProgrammer;

   AsyncSide(Qor::Ptr<Sim::Chip> const& chip, Qor::Ptr<Hw::Status> const&, Qor::Seconds callCost)
         : platform(Qor::make<Platform>(
                 "sim", chip,
                 Sim::AsyncPlatformConfig{0, 0, {}, {RouteKeyType::bridged}, 0, callCost})) {}
   void vrfIs(L3::VrfName const& vrf, Vel::VrfId id) { routeStatus->newVrfStatus(vrf, id); }

   Qor::Ptr<Platform> const platform;
   Qor::Ptr<Routing::Hardware::RouteStatus> const routeStatus =
         Qor::make<Routing::Hardware::RouteStatus>();
   Qor::Ptr<Switch> mrouteSwitch =
         Vel::Mroute::asyncMrouteSwitchFactory("switch1", routeStatus, platform);
};

struct SyncSide {
   using Platform = Sim::SyncPlatform;
   using Switch = Vel::MrouteSwitch;
   using Programmer = SyncRouteProgrammer;

   SyncSide(Qor::Ptr<Sim::Chip> const& chip, Qor::Ptr<Hw::Status> const& hwStatus,
            Qor::Seconds callCost)
         : platform(Qor::make<Platform>("sim", chip, 1, Sim::SyncPlatformConfig{16, callCost})),
           mrouteSwitch(Vel::mrouteSwitchFactory("switch1", 1, nullptr, l3Status, platform, nullptr,
                                                 hwStatus)) {}
   void vrfIs(L3::VrfName const& vrf, Vel::VrfId id) { l3Status->vrfNameToVrfIdIs(vrf.name(), id); }

   Qor::Ptr<Platform> const platform;
   Qor::Ptr<Vel::L3Status> const l3Status = Qor::make<Vel::L3Status>();
   Qor::Ptr<Switch> mrouteSwitch;
};

// The routing side of one test. Route n is (10.0.0.1, 239.0.0.n) in the VRF default, and 100 + n is
// the same in the VRF red. The bench remembers what is wanted, and whenever all is settled, it sees
// to it that the chip forwards that or nothing.
template <class Side>
class BenchOn : public VirtualTime, public Side {
 public:
   using Side::mrouteSwitch;
   using Side::platform;

   struct Wish {
      std::string oifs;  // as digits: "23" is et2 and et3
      unsigned vlan;
   };

   explicit BenchOn(Sim::ChipConfig const& config = {}, Qor::Seconds callCost = 0)
         : BenchOn(Qor::make<Sim::Chip>(config), Qor::make<Hw::Status>(), callCost) {}
   BenchOn(Qor::Ptr<Sim::Chip> const& c, Qor::Ptr<Hw::Status> const& status, Qor::Seconds callCost)
         : Side(c, status, callCost), chip(c), hwStatus(status) {
      for (unsigned i = 1; i <= 8; ++i)
         EXPECT_EQ(chip->portAdd(et(i), i, Bridging::VlanIdOrNone(Qor::U64{i})), "");
      vrfIs(0);
   }

   static L3::VrfName vrfOf(unsigned n) { return L3::VrfName(n < 100 ? "default" : "red"); }
   static IpGenRouteKey keyOf(unsigned n) { return testSupport::key(n % 100); }
   // Makes the VRF of the routes from n on known.
   void vrfIs(unsigned n) {
      Side::vrfIs(vrfOf(n), Vel::VrfId(n));
      programmer->vrfReady(vrfOf(n));
   }
   static WantedRoute wanted(std::string const& oifs, unsigned vlan = 1) {
      WantedRoute w;
      w.acceptingIntfId = et(vlan);
      w.acceptingVlan = Bridging::VlanIdOrNone(Qor::U64{vlan});
      w.set.typeIs(RouteKeyType::routed);
      for (char const c : oifs)
         w.set.newPortVlan(MrouteLib::PortVlan(et(static_cast<unsigned>(c - '0'))), true);
      return w;
   }
   void set(unsigned n, WantedRoute const& w) { programmer->routeIs(vrfOf(n), keyOf(n), w); }
   void set(unsigned n, std::string const& oifs, unsigned vlan = 1) {
      wishes[n] = {oifs, vlan};
      set(n, wanted(oifs, vlan));
   }
   void del(unsigned n) {
      wishes.erase(n);
      programmer->routeDel(vrfOf(n), keyOf(n));
   }
   RouteProgrammer::Route const* route(unsigned n) const {
      return programmer->route(vrfOf(n), keyOf(n));
   }
   // Who gets the packets of route n: "23"; or why nobody does.
   std::string receivers(unsigned n, unsigned vlan = 1) {
      auto const out = chip->forward({n / 100 * 100, keyOf(n).source().address(),
                                      keyOf(n).group().address(), Bridging::VlanIdOrNone(vlan)});
      std::ostringstream os;
      if (out.result != Sim::Forwarding::forwarded) os << out.result;
      for (MrouteLib::PortVlan const& copy : out.copies)
         os << copy.intfId().name().substr(2);
      return os.str();
   }
   // Until all is done but that those who wait for room are asked again, time after time.
   void pass() {
      for (double const end = Qor::now() + 6; time->nextDeadline() < end;)
         time->runUntil(time->nextDeadline());
   }
   void drain() {
      pass();
      EXPECT_TRUE(programmer->settled());
      EXPECT_EQ(platform->audit(), std::vector<std::string>());
      EXPECT_EQ(programmer->routes(), wishes.size() + others);
      std::size_t inHardware = 0;
      for (auto const& [n, wish] : wishes) {
         ASSERT_TRUE(route(n));
         SCOPED_TRACE(std::to_string(n) + ' ' + route(n)->reason());
         bool const in = route(n)->state() == State::inHardware;
         inHardware += in;
         EXPECT_EQ(in, route(n)->reason().empty());
         std::string const expected = wish.oifs.empty() ? "emptyGroup" : wish.oifs;
         EXPECT_EQ(receivers(n, wish.vlan), in ? expected : "noRoute");
      }
      EXPECT_EQ(chip->routes().size(), inHardware);
      EXPECT_EQ(hwStatus->routes(), inHardware + others);
   }
   // The chip writes since the last call: groups created and deleted / routes created, pointed and
   // deleted.
   std::string writes() {
      std::string text;
      for (auto const kind :
           {WriteKind::groupCreate, WriteKind::groupDelete, WriteKind::routeCreate,
            WriteKind::routePoint, WriteKind::routeDelete}) {
         Qor::U64 const before = std::exchange(counted_[kind], chip->writes(kind));
         text += (kind == WriteKind::routeCreate ? "/" : "") +
                 std::to_string(counted_[kind] - before);
      }
      return text;
   }
   // Sets and withdraws routes in one pass, and lets everything settle: "1=23 2=4@2 -3" gives route
   // 1 two outputs and route 2 another vlan, and takes 3 away; "purge" the zombies.
   void now(std::string const& changes) {
      std::istringstream in(changes);
      for (std::string word; in >> word;) {
         unsigned n = 0, vlan = 1;
         char oifs[16] = "";
         if (word == "purge") {
            mrouteSwitch->zombieOifSetDelAll();
         } else if (std::sscanf(word.c_str(), "-%u", &n) == 1) {
            del(n);
         } else {
            EXPECT_GT(std::sscanf(word.c_str(), "%u=%15[0-9]@%u", &n, oifs, &vlan), 1);
            set(n, oifs, vlan);
         }
      }
      drain();
   }

   struct Step {
      char const* changes;
      // The first letters of the states of routes 1 and on, waiting ones by what they wait for:
      // "hhge-f"; "-" for a route that is not wanted.
      std::string states;
      char const* writes;
   };
   void play(std::initializer_list<Step> const& steps) {
      for (Step const& step : steps) {
         SCOPED_TRACE(step.changes);
         now(step.changes);
         std::string states;
         for (unsigned n = 1; n <= step.states.size(); ++n)
            states += route(n) ? "mphgebvf"[static_cast<unsigned>(route(n)->state())] : '-';
         EXPECT_EQ(states, step.states);
         EXPECT_EQ(writes(), step.writes);
      }
   }

   std::map<unsigned, Wish> wishes;
   unsigned others = 0;  // in hardware beside the wishes, without an entry
   Qor::Ptr<Sim::Chip> const chip;
   Qor::Ptr<Hw::Status> const hwStatus;
   std::unique_ptr<typename Side::Programmer> programmer =
         std::make_unique<typename Side::Programmer>(
               mrouteSwitch, Qor::make<MrouteLib::MrouteTableColl>(), hwStatus);

 private:
   std::map<WriteKind, Qor::U64> counted_;
};

}  // namespace Agent
