#include "agent/soak/SoakEpisode.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <map>
#include <random>

#include "agent/input/CaptureState.h"

namespace Agent {

namespace {

using namespace Scenario;
using Interface::IntfOperStatus;
using VelMroute::WriteKind;

// The kinds of events in an episode.
enum class Op : unsigned char {
   newRoute,
   block,          // many routes in one line
   newOutputs,     // of a route
   newProperties,  // of a route: input, backup, fastdrop, no RPF, bridge
   again,          // a route is announced without a change
   withdraw,
   withdrawBlock,
   comeBack,  // a withdrawn route is announced again
   link,
   bfd,
   traffic,
   config,
   counter,
   failWrites,
   exhaust,
   busy,
   slow,
   restart,
   pause,
};
constexpr std::size_t ops = 19;

// The weights of the kinds before chooseMix() varies them.
constexpr std::array<double, ops> commonly = {12, 0.7, 22,  8,   3,   10,  0.5, 10,   4, 2,
                                              10, 0.5, 1.5, 0.8, 0.5, 0.5, 0.5, 0.15, 2};

class Generator {
 public:
   Generator(std::uint64_t seed, PathKind path) : random_(seed), path_(path) {
      episode_.seed = seed;
      episode_.path = path;
   }

   SoakEpisode make(std::size_t operations) {
      chooseSizes();
      chooseNames();
      chooseMix();
      Config config;
      config.activityPollingInterval = static_cast<unsigned>(between(1, 6));
      config.counterMode = static_cast<Routing::Multicast::Fib::CounterMode>(between(0, 2));
      config.allCounter = oneIn(2);
      add(config);
      while (episode_.lines.size() < operations) {
         passTime();
         if (!healing_.empty() && oneIn(8)) {
            heal();
         } else {
            perform(static_cast<Op>(mix_(random_)));
         }
      }
      return std::move(episode_);
   }

 private:
   // ---- Random choices. ----

   std::uint64_t below(std::uint64_t n) { return n == 0 ? 0 : random_() % n; }
   std::uint64_t between(std::uint64_t a, std::uint64_t b) { return a + below(b - a + 1); }
   bool oneIn(std::uint64_t n) { return below(n) == 0; }
   double fraction() { return static_cast<double>(random_() >> 11) * 0x1p-53; }
   template <class List>
   auto const& oneOf(List const& list) {
      return list[below(std::size(list))];
   }

   void chooseSizes() {
      ChipSettings& chip = episode_.settings.chip;
      std::uint64_t const size = below(20);
      if (size < 7) {
         chip.groups = static_cast<Qor::U32>(between(1, 12));
         chip.routes = static_cast<Qor::U32>(between(2, 30));
         chip.boundaries = static_cast<Qor::U32>(between(1, 4));
         routesWanted_ = between(4, 40);
      } else if (size < 14) {
         chip.groups = static_cast<Qor::U32>(between(10, 100));
         chip.routes = static_cast<Qor::U32>(between(50, 400));
         chip.boundaries = static_cast<Qor::U32>(between(5, 40));
         routesWanted_ = between(50, 400);
      } else if (size < 18) {
         chip.groups = static_cast<Qor::U32>(between(100, 1000));
         chip.routes = static_cast<Qor::U32>(between(500, 2000));
         chip.boundaries = 100;
         routesWanted_ = between(300, 1500);
      } else {
         routesWanted_ = between(2000, 6000);  // the chip keeps its default size, the largest
      }
      if (oneIn(3)) chip.groups = 8192;
      constexpr double latencies[] = {0, 0.00001, 0.001, 0.001, 0.02, 0.3};
      chip.latency = oneOf(latencies);
      if (path_ == PathKind::async && oneIn(4)) {
         episode_.settings.minPollingInterval = static_cast<double>(between(1, 4));
      }
      if (oneIn(8)) episode_.settings.callCost = oneIn(2) ? 0.00001 : 0.0005;
      episode_.settings.title = "Soak, seed " + std::to_string(episode_.seed);
   }

   void chooseNames() {
      vrfs_.emplace_back("default");
      for (auto i = below(4); i > 0; --i)
         vrfs_.emplace_back("vrf" + std::to_string(i));
      auto const named = [](std::string const& name, std::size_t i) {
         return Lnet::IntfId(name + std::to_string(i));
      };
      for (std::size_t v = 0; v < vrfs_.size(); ++v) {
         auto& list = inputs_.emplace_back();
         for (auto i = between(2, 6); i > 0; --i)
            list.push_back(named("in" + std::to_string(v) + "x", i));
      }
      for (auto i = between(2, 40); i > 0; --i)
         outputs_.push_back(named("out", i));
      for (auto i = between(1, 4); i > 0; --i)
         backups_.push_back(named("back", i));
      for (auto i = between(1, routesWanted_ / 10 + 3); i > 0; --i)
         popular_.push_back(someOutputs());
   }

   void chooseMix() {
      std::array<double, ops> weights = commonly;
      constexpr double factors[] = {0, 0.3, 1, 1, 3};
      for (double& weight : weights)
         weight *= oneOf(factors);
      weights[static_cast<std::size_t>(Op::newRoute)] = 12;
      bool const faults = oneIn(2);
      for (Op const op : {Op::failWrites, Op::exhaust, Op::slow, Op::busy}) {
         if (!faults) weights[static_cast<std::size_t>(op)] = 0;
      }
      if (path_ == PathKind::sync) weights[static_cast<std::size_t>(Op::bfd)] = 0;
      if (path_ == PathKind::async) weights[static_cast<std::size_t>(Op::busy)] = 0;
      mix_ = std::discrete_distribution<int>(weights.begin(), weights.end());
      backupsOften_ = below(4);
   }

   // ---- Lines. ----

   template <class Kind>
   void add(Kind event) {
      Line line;
      line.where = {"soak", episode_.lines.size() + 2};  // line 1 has the settings
      line.at = at_;
      line.event = std::move(event);
      episode_.lines.push_back(std::move(line));
   }

   void passTime() {
      std::uint64_t const kind = below(100);
      double step = 0;
      if (kind >= 95) {
         step = fraction() * 1.5;
      } else if (kind >= 80) {
         step = fraction() * 0.2;
      } else if (kind >= 50) {
         step = fraction() * 0.002;
      }
      later(step);
   }

   // The file format of scenarios has times in whole microseconds.
   void later(double step) { at_ = std::round((at_ + step) * 1e6) / 1e6; }

   void heal() {
      add(healing_.back());
      healing_.pop_back();
   }

   // ---- Routes. ----

   std::vector<Lnet::IntfId> someOutputs() {
      std::vector<Lnet::IntfId> list;
      for (auto n = oneIn(12) ? 0 : between(1, std::min<std::uint64_t>(8, outputs_.size())); n > 0;
           --n) {
         Lnet::IntfId const intf = oneOf(outputs_);
         if (std::find(list.begin(), list.end(), intf) == list.end()) list.push_back(intf);
      }
      return list;
   }

   RouteKey someKey() {
      std::uint64_t const n = below(routesWanted_ * 2);
      std::uint64_t const kind = below(40);
      bool const v6 = kind % 4 == 3;
      auto const v4Group = Lnet::IpGenAddr::v4(0xEF010000 + static_cast<Qor::U32>(n % 4000));
      Lnet::IpGenAddr::Bytes bytes{0xff, 0x3e, 0, 1};
      bytes[14] = static_cast<std::uint8_t>(n % 4000 >> 8);
      bytes[15] = static_cast<std::uint8_t>(n);
      auto const group = v6 ? Lnet::IpGenAddr::v6(bytes) : v4Group;
      if (kind == 0 || kind == 3) {
         Lnet::IpFamily const family = group.family();
         if (oneIn(4)) {
            return {Lnet::IpGenPrefix::any(family), Lnet::IpGenPrefix::multicast(family)};
         }
         auto const length = v6 ? oneIn(2) ? 24u : 32u : oneIn(2) ? 9u : 16u;
         bytes[3] = static_cast<std::uint8_t>(between(128, 135));
         auto const base =
               v6 ? Lnet::IpGenAddr::v6(bytes)
                  : Lnet::IpGenAddr::v4(0xEF800000 + (static_cast<Qor::U32>(below(16)) << 16));
         return {Lnet::IpGenPrefix::any(family), {base.masked(length), length}};
      }
      if (kind < 8) return RouteKey::fromAddresses(anySource(v6), group);
      Lnet::IpGenAddr::Bytes host{0x20, 0x01, 0x0d, 0xb8};
      host[15] = static_cast<std::uint8_t>(1 + n % 5);
      return RouteKey::fromAddresses(
            v6 ? Lnet::IpGenAddr::v6(host)
               : Lnet::IpGenAddr::v4(0x0A000001 + static_cast<Qor::U32>(n % 5)),
            group);
   }

   static Lnet::IpGenAddr anySource(bool v6) {
      return v6 ? Lnet::IpGenAddr::v6({}) : Lnet::IpGenAddr::v4(0);
   }

   void newOutputsOf(Scenario::Route& route) {
      route.oifs = oneIn(3) ? someOutputs() : oneOf(popular_);
      route.cpu = oneIn(8);
   }

   void newPropertiesOf(Scenario::Route& route, std::size_t vrf) {
      route.iif = oneOf(inputs_[vrf]);
      route.noRpf = oneIn(15);
      route.bridge = path_ == PathKind::sync && !route.noRpf && oneIn(12);
      route.backup.clear();
      route.fastdrop.clear();
      if (backupsOften_ > 0 && below(4) < backupsOften_) {
         route.backup.push_back(oneOf(backups_));
         if (oneIn(3)) {
            Lnet::IntfId const second = oneOf(outputs_);
            route.backup.push_back(second);
         }
      }
      if (oneIn(6) && !route.noRpf) {
         Lnet::IntfId const other = oneOf(inputs_[vrf]);
         if (other != route.iif) route.fastdrop.push_back(other);
      }
   }

   std::size_t vrfOf(Scenario::Route const& route) const {
      return static_cast<std::size_t>(std::find(vrfs_.begin(), vrfs_.end(), route.routes.vrf) -
                                      vrfs_.begin());
   }

   // Announces one route and records it as wanted.
   void want(Scenario::Route const& route) {
      RouteId const id{route.routes.vrf, route.routes.first};
      auto const [it, isNew] = places_.try_emplace(id, live_.size());
      if (isNew) {
         live_.push_back(route);
      } else {
         live_[it->second] = route;
      }
      add(route);
   }

   void withdraw(std::size_t i) {
      Scenario::Route const route = live_[i];
      places_.erase({route.routes.vrf, route.routes.first});
      if (i + 1 != live_.size()) {
         live_[i] = live_.back();
         places_[{live_[i].routes.vrf, live_[i].routes.first}] = i;
      }
      live_.pop_back();
      gone_.push_back(route);
      if (gone_.size() > 40) gone_.pop_front();
      add(Withdraw{route.routes});
   }

   void newRoute() {
      if (live_.size() >= routesWanted_) return withdraw(below(live_.size()));
      Scenario::Route route;
      std::size_t const vrf = below(vrfs_.size());
      route.routes = {vrfs_[vrf], someKey(), 1};
      newPropertiesOf(route, vrf);
      newOutputsOf(route);
      want(route);
   }

   // Adds a block of routes, or announces or withdraws a block or its last part.
   void block(bool withdrawn) {
      if (blocks_.size() < 3 && !withdrawn) {
         Scenario::Route route;
         std::size_t const vrf = below(vrfs_.size());
         auto const first =
               Lnet::IpGenAddr::v4(0xEF400000 + (static_cast<Qor::U32>(blocks_.size()) << 16));
         auto const source = Lnet::IpGenAddr::v4(oneIn(2) ? 0 : 0x0A000009);
         route.routes = {vrfs_[vrf], RouteKey::fromAddresses(source, first),
                         static_cast<std::uint32_t>(
                               between(2, std::min<std::uint64_t>(2000, routesWanted_ / 2 + 2)))};
         newPropertiesOf(route, vrf);
         newOutputsOf(route);
         if (oneIn(3) && route.routes.groups < 60) route.ownOif = "leaf";
         blocks_.push_back(route);
         return add(route);
      }
      if (blocks_.empty()) return;
      std::size_t const at = below(blocks_.size());
      Scenario::Route route = blocks_[at];
      if (!withdrawn && oneIn(2)) newPropertiesOf(route, vrfOf(route));
      if (!withdrawn) newOutputsOf(route);
      blocks_[at] = route;
      if (oneIn(2)) {
         auto const skipped = static_cast<std::uint32_t>(below(route.routes.groups));
         route.routes.first = route.routes.key(skipped);
         route.routes.groups -= skipped;
      }
      if (withdrawn) return add(Withdraw{route.routes});
      add(route);
   }

   void comeBack() {
      if (gone_.empty()) return newRoute();
      Scenario::Route route = gone_[below(gone_.size())];
      if (oneIn(5)) newOutputsOf(route);
      want(route);
   }

   void change(Op op) {
      if (live_.empty()) return newRoute();
      Scenario::Route route = live_[below(live_.size())];
      if (op == Op::newOutputs) newOutputsOf(route);
      if (op == Op::newProperties) newPropertiesOf(route, vrfOf(route));
      want(route);
   }

   // ---- Events other than routes. ----

   Lnet::IntfId someLink() {
      std::uint64_t const kind = below(10);
      if (kind < 6) return oneOf(oneOf(inputs_));
      return kind < 9 ? oneOf(outputs_) : oneOf(backups_);
   }

   void link() {
      constexpr IntfOperStatus states[] = {IntfOperStatus::up,      IntfOperStatus::up,
                                           IntfOperStatus::up,      IntfOperStatus::down,
                                           IntfOperStatus::down,    IntfOperStatus::lowerLayerDown,
                                           IntfOperStatus::testing, IntfOperStatus::unknown};
      add(Link{someLink(), oneOf(states)});
   }

   void bfd() {
      using ::Bfd::OperState;
      std::size_t const vrf = below(vrfs_.size());
      ::Bfd::SessionType const type =
            oneIn(5) ? ::Bfd::SessionType::multihop : ::Bfd::SessionType::singleHop;
      Scenario::BfdSession bfd;
      bfd.peer =
            ::Bfd::Peer(type, Lnet::IpGenAddr::v4(0x0A090001), oneOf(inputs_[vrf]), vrfs_[vrf]);
      if (!oneIn(8)) bfd.state = static_cast<OperState>(oneIn(2) ? below(4) : oneIn(2) ? 1 : 3);
      add(bfd);
   }

   void traffic() {
      if (live_.empty()) return newRoute();
      Scenario::Route const& route = oneOf(live_);
      if (!route.routes.first.group().isHost()) return pause();
      Traffic traffic;
      traffic.routes = route.routes;
      if (route.routes.first.source().isAny()) {
         bool const v6 = route.routes.first.group().family() == Lnet::IpFamily::v6;
         Lnet::IpGenAddr::Bytes const host{0x20, 0x01, 0x0d, 0xb8, 9};
         traffic.routes.first = RouteKey::fromAddresses(
               v6 ? Lnet::IpGenAddr::v6(host) : Lnet::IpGenAddr::v4(0x0A0000C8),
               route.routes.first.group().address());
      }
      traffic.iif = route.iif;
      if (oneIn(6) && !route.fastdrop.empty()) traffic.iif = route.fastdrop.front();
      traffic.count = static_cast<std::uint32_t>(oneIn(3) ? between(2, 6) : 1);
      if (traffic.count > 1) traffic.every = static_cast<double>(between(0, 2000)) / 1000;
      traffic.bytes = static_cast<std::uint32_t>(between(64, 1500));
      add(traffic);
   }

   void config() {
      Config config;
      std::uint64_t const kind = below(4);
      if (kind == 0) {
         config.counterMode = static_cast<Routing::Multicast::Fib::CounterMode>(below(3));
      } else if (kind == 1) {
         config.allCounter = oneIn(2);
      } else {
         config.activityPollingInterval = static_cast<unsigned>(between(1, 8));
      }
      add(config);
   }

   void counter() {
      if (live_.empty()) return newRoute();
      Scenario::Route const& route = oneOf(live_);
      add(Counter{route.routes, !oneIn(4)});
   }

   // Each phase of the replay takes no time or up to 2 s, during which other events happen.
   void restart() {
      Restart restart;
      restart.order = static_cast<RestartOptions::Order>(below(3));
      if (restart.order == RestartOptions::Order::shuffled) restart.seed = below(1000);
      auto const seconds = [this] {
         return oneIn(3) ? 0 : static_cast<double>(below(2000)) / 1000;
      };
      restart.begin = seconds();
      restart.over = seconds();
      restart.complete = seconds();
      if (path_ == PathKind::async) restart.applied = static_cast<std::uint32_t>(below(4));
      add(restart);
   }

   WriteKind someWrite() {
      return static_cast<WriteKind>(below(path_ == PathKind::sync ? VelMroute::writeKinds : 6));
   }

   void failWrites() {
      Fault fault;
      if (oneIn(3)) {
         fault.rate = {someWrite(), static_cast<double>(between(1, 40)) / 100};
         fault.seed = random_();
         Fault end;
         end.rate = {fault.rate->write, 0};
         healing_.push_back(end);
      } else {
         fault.failNext = {someWrite(), "parity error", static_cast<std::uint32_t>(between(1, 5))};
      }
      add(fault);
   }

   void exhaust() {
      Fault fault, end;
      std::uint64_t const table = below(path_ == PathKind::sync ? 3 : 2);
      (table == 0   ? fault.groupsExhausted
       : table == 1 ? fault.routesExhausted
                    : fault.boundariesExhausted) = true;
      (table == 0   ? end.groupsExhausted
       : table == 1 ? end.routesExhausted
                    : end.boundariesExhausted) = false;
      healing_.push_back(end);
      add(fault);
   }

   void pause() {
      later(static_cast<double>(between(2, 6)));
      add(Mark{"a pause"});
   }

   void perform(Op op) {
      switch (op) {
         case Op::newRoute:
            return newRoute();
         case Op::block:
            return block(false);
         case Op::newOutputs:
         case Op::newProperties:
         case Op::again:
            return change(op);
         case Op::withdraw:
            return live_.empty() ? newRoute() : withdraw(below(live_.size()));
         case Op::withdrawBlock:
            return block(true);
         case Op::comeBack:
            return comeBack();
         case Op::link:
            return link();
         case Op::bfd:
            return bfd();
         case Op::traffic:
            return traffic();
         case Op::config:
            return config();
         case Op::counter:
            return counter();
         case Op::failWrites:
            return failWrites();
         case Op::exhaust:
            return exhaust();
         case Op::busy: {
            Fault fault;
            fault.hitBitsBusy = static_cast<std::uint32_t>(between(1, 300));
            return add(fault);
         }
         case Op::slow: {
            Fault fault;
            fault.slowNext = {static_cast<std::uint32_t>(between(1, 5)),
                              static_cast<double>(between(1, 2000)) / 1000};
            return add(fault);
         }
         case Op::restart:
            return restart();
         case Op::pause:
            return pause();
      }
   }

   std::mt19937_64 random_;
   PathKind const path_;
   SoakEpisode episode_;
   double at_ = 0;
   std::uint64_t routesWanted_ = 100;
   std::uint64_t backupsOften_ = 0;  // the number of routes with a backup among 4
   std::discrete_distribution<int> mix_;
   std::vector<L3::VrfName> vrfs_;
   std::vector<std::vector<Lnet::IntfId>> inputs_;  // by VRF
   std::vector<Lnet::IntfId> outputs_, backups_;
   std::vector<std::vector<Lnet::IntfId>> popular_;  // outputs that many routes share
   std::vector<Scenario::Route> live_;               // the wanted routes without the blocks
   std::map<RouteId, std::size_t> places_;           // the index in live_
   std::deque<Scenario::Route> gone_;                // the 40 routes that were withdrawn last
   std::vector<Scenario::Route> blocks_;
   std::vector<Fault> healing_;  // the events that end the lasting faults
};

}  // namespace

SoakEpisode soakEpisode(std::uint64_t seed, PathKind path, std::size_t operations) {
   return Generator(seed, path).make(operations);
}

}  // namespace Agent
