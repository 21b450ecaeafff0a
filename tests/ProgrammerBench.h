// The bench of the programmer: a programmer on either path of a simulated chip, in virtual time, and
// the wanted routes.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <sstream>

#include "TestSupport.h"
#include "platform/sim/AsyncPlatform.h"
#include "platform/sim/SyncPlatform.h"
#include "programmer/AsyncRouteTable.h"
#include "programmer/Programmer.h"
#include "programmer/SyncRouteTable.h"

namespace VelMroute {

using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::RouteKeyType;
using Sim::WriteKind;
using State = RouteState;
namespace Hw = Routing::Multicast::Fib::Hardware;

inline Lnet::IntfId et(unsigned i) {
   return Lnet::IntfId("et" + std::to_string(i));
}

// The objects around the chips of one agent, on virtual time. Port et<i> has the vlan i.
struct Surroundings {
   Surroundings() {
      Qor::activityManagerIs(time);
      for (unsigned i = 1; i <= 8; ++i)
         vlans->intfIdToVlanIdIs(et(i), Bridging::VlanId(Qor::U64{i}));
   }
   ~Surroundings() { Qor::activityManagerIs(nullptr); }

   Qor::Ptr<Qor::ActivityManager> const time =
         Qor::make<Qor::ActivityManager>(Qor::ActivityManager::TimeBase::virtualTime);
   Qor::Ptr<IntfVlanId::Table> const vlans = Qor::make<IntfVlanId::Table>();
   Qor::Ptr<Hw::Status> const hwStatus = Qor::make<Hw::Status>();
   Qor::Ptr<Interface::EthIntfStatusDir> const links = Qor::make<Interface::EthIntfStatusDir>();
   OutputsPool pool;
};

// The parts of a bench that differ between the paths.
struct AsyncSide {
   using Platform = Sim::AsyncPlatform;
   using RouteTable = AsyncRouteTable;

   AsyncSide(Qor::Ptr<Sim::Chip> const& chip, Qor::Seconds callCost)
         : platform(Qor::make<Platform>(
                 "sim", chip,
                 Sim::AsyncPlatformConfig{0, 0, {}, {RouteKeyType::bridged}, 0, callCost})) {}
   std::unique_ptr<RouteTable> newTable(Surroundings const& s) {
      return std::make_unique<RouteTable>(AsyncRouteTable::Inputs{.hooks = platform,
                                                                  .vrfs = vrfs,
                                                                  .vlans = s.vlans,
                                                                  .published = s.hwStatus,
                                                                  .links = s.links});
   }
   void vrfIs(L3::VrfName const& vrf, Vel::VrfId id) { vrfs->newVrfStatus(vrf, id); }
   void vrfDel(L3::VrfName const& vrf) { vrfs->vrfStatusDel(vrf); }

   Qor::Ptr<Platform> const platform;
   Qor::Ptr<Routing::Hardware::RouteStatus> const vrfs =
         Qor::make<Routing::Hardware::RouteStatus>();
};

struct SyncSide {
   using Platform = Sim::SyncPlatform;
   using RouteTable = SyncRouteTable;

   SyncSide(Qor::Ptr<Sim::Chip> const& chip, Qor::Seconds callCost)
         : platform(Qor::make<Platform>("sim", chip, 1, Sim::SyncPlatformConfig{16, callCost})) {}
   std::unique_ptr<RouteTable> newTable(Surroundings const& s) {
      SyncRouting::Inputs shared{.hooks = platform, .l3Status = l3Status, .published = s.hwStatus};
      return std::make_unique<RouteTable>(
            SyncRouteTable::Inputs{.routing = Qor::make<SyncRouting>(std::move(shared)),
                                   .vlans = s.vlans,
                                   .links = s.links});
   }
   void vrfIs(L3::VrfName const& vrf, Vel::VrfId id) { l3Status->vrfNameToVrfIdIs(vrf.name(), id); }
   void vrfDel(L3::VrfName const& vrf) { l3Status->vrfNameToVrfIdDel(vrf.name()); }

   Qor::Ptr<Platform> const platform;
   Qor::Ptr<Vel::L3Status> const l3Status = Qor::make<Vel::L3Status>();
};

// The routing layer of one test. Route n is (10.0.0.1, 239.0.0.n) in the VRF default, and route 100
// + n has the same key in the VRF red. The bench keeps the wanted routes. drain() checks that the
// chip forwards each of them as wanted, or not at all.
template <class Side>
class BenchOn : public Side {
 public:
   using Side::platform;

   struct Wish {
      std::string oifs;  // "et2 et3"
      unsigned vlan;
   };

   explicit BenchOn(Sim::ChipConfig const& config = {}, Qor::Seconds callCost = 0,
                    std::shared_ptr<Surroundings> const& around = std::make_shared<Surroundings>())
         : BenchOn(around, Qor::make<Sim::Chip>(config), callCost) {}
   BenchOn(std::shared_ptr<Surroundings> const& around, Qor::Ptr<Sim::Chip> const& c,
           Qor::Seconds callCost)
         : Side(c, callCost),
           time(around->time),
           chip(c),
           surroundings(around),
           hwStatus(around->hwStatus) {
      for (unsigned i = 1; i <= 8; ++i)
         EXPECT_EQ(chip->portAdd(et(i), i, Bridging::VlanIdOrNone(Qor::U64{i})), "");
      auto table = Side::newTable(*around);
      mrouteTable = table.get();
      programmer = std::make_unique<Programmer>(Programmer::Inputs{
            .table = std::move(table), .vlans = around->vlans, .published = around->hwStatus});
      vrfIs(0);
   }

   static L3::VrfName vrfOf(unsigned n) { return L3::VrfName(n < 100 ? "default" : "red"); }
   static IpGenRouteKey keyOf(unsigned n) { return testSupport::key(n % 100); }
   // Announces the VRF of the routes from number n on.
   void vrfIs(unsigned n) { Side::vrfIs(vrfOf(n), Vel::VrfId(n)); }
   // `oifs` as "et2 et3 cpu"; the input is the port with the vlan.
   WantedRoute wanted(std::string const& oifs, unsigned vlan = 1) const {
      std::vector<Lnet::IntfId> ports;
      bool cpu = false;
      std::istringstream in(oifs);
      for (std::string oif; in >> oif;) {
         if (oif == "cpu")
            cpu = true;
         else
            ports.emplace_back(oif);
      }
      return {.iif = et(vlan), .outputs = surroundings->pool.get(ports, cpu)};
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
   std::optional<RouteView> route(unsigned n) const { return programmer->view(vrfOf(n), keyOf(n)); }
   Side& side() { return *this; }
   static constexpr bool sync = std::is_same_v<Side, SyncSide>;
   auto const& mrouteSwitch() const { return mrouteTable->mrouteSwitch(); }
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
   // Runs until only the retries of waiting routes and the expiry of zombies remain.
   void pass() {
      for (double const end = Qor::now() + 0.5; time->nextDeadline() < end;)
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
   // Makes changes in one pass; now() lets everything settle. The changes are separated by semicolons:
   // "1 to et2 et3", "2 to et4 in vlan 2", "withdraw 3", "purge zombies".
   void change(std::string const& changes) {
      std::istringstream all(changes);
      for (std::string change; std::getline(all, change, ';');) {
         std::istringstream in(change);
         std::string word, oifs;
         unsigned n = 0, vlan = 1;
         in >> word;
         if (word == "purge") {
            mrouteSwitch()->zombieOifSetDelAll();
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
   }
   void now(std::string const& changes) {
      change(changes);
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

   Qor::Ptr<Qor::ActivityManager> const time;
   std::map<unsigned, Wish> wishes;
   unsigned others = 0;  // the number of further routes in hardware, which have no entry
   Qor::Ptr<Sim::Chip> const chip;
   std::shared_ptr<Surroundings> const surroundings;
   Qor::Ptr<Hw::Status> const hwStatus;
   typename Side::RouteTable* mrouteTable = nullptr;  // of the programmer
   std::unique_ptr<Programmer> programmer;

 private:
   std::array<Qor::U64, Sim::writeKinds> counted_{};
};

}  // namespace VelMroute
