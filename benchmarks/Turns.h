// The longest turn of the activity loop, in real time, beside the stated budget of a slice. The chip
// is slow: each call of a hook takes 0, 20 or 100 us.
//
// A measurement ends after some seconds, since the whole work would take minutes with slow hooks. A
// figure is the median of the longest turns of the rounds.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Comparison.h"
#include "Hooks.h"

namespace Bench {

inline constexpr std::array<U32, 3> callCosts{0, 20, 100};  // us

inline double realSeconds() {
   return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
         .count();
}

// The time that each call of a hook takes: the processor is busy, as with a slow bus.
class CallCost {
 public:
   void isMicroseconds(U32 cost) { seconds_ = cost * 1e-6; }
   void spend() const {
      if (seconds_ == 0) return;
      for (double const until = realSeconds() + seconds_; realSeconds() < until;) {
      }
   }

 private:
   double seconds_ = 0;
};

// The hooks that the measured turns call. While `full` is true the table of entries has no room.
class SlowAsyncHooks final : public AsyncHooks {
 public:
   U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& info,
                                        MrouteLib::OifSetPtr set, Hux::XactPtr blocking,
                                        bool frrRoute) override {
      cost.spend();
      return AsyncHooks::doAllocateSharableMulticastGroup(info, std::move(set), std::move(blocking),
                                                          frrRoute);
   }
   MrouteLib::RouteHandle doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan,
                                          bool bridge, Wisp::Multicast::Fib::RpaIndex rpa,
                                          U32 vrf) override {
      cost.spend();
      return full ? MrouteLib::RouteHandle()
                  : AsyncHooks::doAllocateRoute(key, vlan, bridge, rpa, vrf);
   }
   void doSetMtableOifSet(MrouteLib::RouteHandle, U32, Hux::XactPtr) override { cost.spend(); }
   void doDeleteRoute(MrouteLib::RouteHandle handle) override {
      cost.spend();
      AsyncHooks::doDeleteRoute(handle);
   }
   void doUpdateMulticastGroupInPlace(MrouteLib::OifSetPtr set, U32 mcastId) override {
      cost.spend();
      AsyncHooks::doUpdateMulticastGroupInPlace(std::move(set), mcastId);
   }
   void doDeleteOifSet(U32 mcastId) override {
      cost.spend();
      AsyncHooks::doDeleteOifSet(mcastId);
   }
   void doScheduleVerify() override { cost.spend(); }
   Qor::Seconds routeLastAccessedTime(MrouteLib::RouteHandle handle) override {
      cost.spend();
      return AsyncHooks::routeLastAccessedTime(handle);
   }

   CallCost cost;
   bool full = false;
};

class SlowSyncHooks final : public SyncHooks {
 public:
   MrouteLib::RouteHandle doAllocateMroute(U32 chip, U16 vrf, IpGenRouteKey const& key,
                                           Bridging::VlanIdOrNone vlan, bool bridge, U32 index,
                                           bool fastdrop, U16 rpa) override {
      cost.spend();
      return full ? MrouteLib::RouteHandle()
                  : SyncHooks::doAllocateMroute(chip, vrf, key, vlan, bridge, index, fastdrop, rpa);
   }
   void doSetMtableOifSet(U32, U16, MrouteLib::RouteHandle, Qor::Ptr<Vel::Route const>,
                          U32) override {
      cost.spend();
   }
   void doDeleteMroute(U32 chip, U16 vrf, MrouteLib::RouteHandle handle,
                       Qor::Ptr<Vel::Route const> route) override {
      cost.spend();
      SyncHooks::doDeleteMroute(chip, vrf, handle, std::move(route));
   }
   bool mrouteFull(U32) override {
      cost.spend();
      return full;
   }
   U32 doAllocateMtableOifSet(U32 chip, U32 index, MrouteLib::OifSetPtr set) override {
      cost.spend();
      return SyncHooks::doAllocateMtableOifSet(chip, index, std::move(set));
   }
   void handleFreeMtableOifSet(U32 chip, Qor::Ptr<Vel::MtableOifSet> record) override {
      cost.spend();
      SyncHooks::handleFreeMtableOifSet(chip, std::move(record));
   }
   bool mtableFull(U32) override {
      cost.spend();
      return false;
   }
   void mrouteInit(bool) override {}
   void handleMulticastRouting(bool) override {}
   void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode) override {}
   void verifyMulticastRouting(bool) override {}
   void doCommitMrouteBatch() override { cost.spend(); }
   Qor::U8 mrouteHitBitCacheRefresh(U32 chip) override {
      cost.spend();
      return SyncHooks::mrouteHitBitCacheRefresh(chip);
   }
   void mrouteHitBitCacheClear(U32) override { cost.spend(); }
   bool mrouteHitBit(U32, U16, IpGenRouteKey const&, Bridging::VlanIdOrNone, bool) override {
      cost.spend();
      return false;
   }

   CallCost cost;
   bool full = false;
};

// The duration of a turn, in seconds: the processor time of the thread, which never sleeps in a turn.
// This is the real time, without the time in which another process had the processor.
template <class Turn>
double secondsOf(Turn const& turn) {
   return nanoseconds(turn) * 1e-9;
}

// Runs turns until the work is done or the time of a measurement is over. Returns the duration of the
// longest turn.
template <class Done, class Turn>
double longestTurn(Done const& done, Turn const& turn) {
   double const until = realSeconds() + (effort().quick ? 0.5 : 2);
   double longest = 0;
   while (!done() && realSeconds() < until)
      longest = std::max(longest, secondsOf(turn));
   return longest;
}

// Registers the comparisons of a work for each cost of a hook: the longest turn and the budget, in
// milliseconds. The work has its tables, cost() of its hooks, longest() for one measurement, and
// budget() in seconds.
template <class Work>
void turns(std::string const& name, std::size_t size, bool budgetIsTime) {
   auto const rounds = std::make_shared<JointRounds>(3, [size] {
      auto const work = std::make_shared<Work>(size);
      auto const forEachCost = [work](auto const& measure) {
         std::vector<double> milliseconds;
         for (U32 const cost : callCosts) {
            work->cost().isMicroseconds(cost);
            milliseconds.push_back(measure() * 1e3);
         }
         work->cost() = CallCost();
         return milliseconds;
      };
      return std::pair<JointRounds::OneRound, JointRounds::OneRound>(
            [=] { return forEachCost([&] { return work->longest(); }); },
            [=] { return forEachCost([&] { return work->budget(); }); });
   });
   for (std::size_t n = 0; n < callCosts.size(); ++n) {
      bool const held = budgetIsTime || callCosts[n] > 0;
      comparison(
            "turn/" + name + ", hooks of " + std::to_string(callCosts[n]) + " us",
            held ? Target::ratio(1.2) : Target(), [rounds, n] { return rounds->of(n); }, "ms");
   }
}

}  // namespace Bench
