// The bench of the route programmers: the route programmer of either path on a simulated chip, in
// virtual time, and the wanted routes.
#pragma once

#include <array>
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

// The parts of a bench that differ between the paths.
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

// The routing layer of one test. Route n is (10.0.0.1, 239.0.0.n) in the VRF default, and route 100
// + n has the same key in the VRF red. The bench keeps the wanted routes. drain() checks that the
// chip forwards each of them as wanted, or not at all.
template <class Side>
class BenchOn : public VirtualTime, public Side {
 public:
   using Side::mrouteSwitch;
   using Side::platform;

   struct Wish {
      std::string oifs;  // "et2 et3"
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
   // Announces the VRF of the routes from number n on.
   void vrfIs(unsigned n) {
      Side::vrfIs(vrfOf(n), Vel::VrfId(n));
      programmer->vrfReady(vrfOf(n));
   }
   static WantedRoute wanted(std::string const& oifs, unsigned vlan = 1) {
      WantedRoute w;
      w.acceptingIntfId = et(vlan);
      w.acceptingVlan = Bridging::VlanIdOrNone(Qor::U64{vlan});
      w.set.typeIs(RouteKeyType::routed);
      std::istringstream in(oifs);
      for (std::string oif; in >> oif;)
         w.set.newPortVlan(MrouteLib::PortVlan(Lnet::IntfId(oif)), true);
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
   // The receivers of a packet of route n, as "et2 et3", or the result without receivers.
   std::string receivers(unsigned n, unsigned vlan = 1) {
      auto const out = chip->forward({n / 100 * 100, keyOf(n).source().address(),
                                      keyOf(n).group().address(), Bridging::VlanIdOrNone(vlan)});
      std::ostringstream os;
      if (out.result != Sim::Forwarding::forwarded) os << out.result;
      for (MrouteLib::PortVlan const& copy : out.copies)
         os << (copy == out.copies.front() ? "" : " ") << copy.intfId();
      return os.str();
   }
   // Runs until only the periodic retries of waiting routes remain.
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
   // The chip's writes since the last call, as "1 groupCreate, 2 routePoint", or "none".
   std::string writes() {
      std::ostringstream text;
      for (std::size_t i = 0; i < Sim::writeKinds; ++i) {
         auto const kind = static_cast<WriteKind>(i);
         Qor::U64 const before = std::exchange(counted_[i], chip->writes(kind));
         if (counted_[i] == before) continue;
         text << (text.tellp() > 0 ? ", " : "") << counted_[i] - before << ' ' << kind;
      }
      return text.tellp() > 0 ? text.str() : "none";
   }
   // The numbers of the wanted routes by state, as "inHardware 1 2; waitingGroup 3".
   std::string states() const {
      std::map<State, std::string> numbers;
      for (auto const& [n, wish] : wishes)
         numbers[route(n)->state()] += ' ' + std::to_string(n);
      std::ostringstream text;
      for (auto const& [state, list] : numbers)
         text << (text.tellp() > 0 ? "; " : "") << state << list;
      return text.str();
   }
   // Makes changes in one pass and lets everything settle. The changes are separated by semicolons:
   // "1 to et2 et3", "2 to et4 in vlan 2", "withdraw 3", "purge zombies".
   void now(std::string const& changes) {
      std::istringstream all(changes);
      for (std::string change; std::getline(all, change, ';');) {
         std::istringstream in(change);
         std::string word, oifs;
         unsigned n = 0, vlan = 1;
         in >> word;
         if (word == "purge") {
            mrouteSwitch->zombieOifSetDelAll();
         } else if (word == "withdraw") {
            in >> n;
            del(n);
         } else {
            n = static_cast<unsigned>(std::stoul(word));
            for (in >> word; in >> word && word != "in";)
               oifs += (oifs.empty() ? "" : " ") + word;
            if (word == "in") in >> word >> vlan;
            set(n, oifs, vlan);
         }
      }
      drain();
   }

   struct Step {
      char const* changes;  // as for now()
      char const* states;   // as of states(), after the changes
      char const* writes;   // as of writes()
   };
   void play(std::initializer_list<Step> const& steps) {
      for (Step const& step : steps) {
         SCOPED_TRACE(step.changes);
         now(step.changes);
         EXPECT_EQ(states(), step.states);
         EXPECT_EQ(writes(), step.writes);
      }
   }

   std::map<unsigned, Wish> wishes;
   unsigned others = 0;  // the number of further routes in hardware, which have no entry
   Qor::Ptr<Sim::Chip> const chip;
   Qor::Ptr<Hw::Status> const hwStatus;
   std::unique_ptr<typename Side::Programmer> programmer =
         std::make_unique<typename Side::Programmer>(
               mrouteSwitch, Qor::make<MrouteLib::MrouteTableColl>(), hwStatus);

 private:
   std::array<Qor::U64, Sim::writeKinds> counted_{};
};

}  // namespace Agent
