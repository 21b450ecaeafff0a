// The sides of the comparisons with routes: the two table programmers, each with the duties of its
// caller, and the twin. All sides follow the same plan and so do the same work.
#pragma once

#include <vector>

#include "Twin.h"
#include "Vel/VelAsyncMrouteSm.h"
#include "Vel/VelSyncMrouteSm.h"

namespace Bench {

// The keys of the routes, their oif sets, and the order of changes and deletions. Routes are added
// in the order of their keys, and changed and deleted in random order.
struct Plan {
   // With an incoming interface the sets have backup ports, so they are fast-reroute sets.
   Plan(std::size_t routes, std::size_t sets, Lnet::IntfId currentIif = {});

   std::size_t routes() const { return keys.size(); }
   MrouteLib::OifSetPtr const& setOf(std::size_t route) const { return sets[route % sets.size()]; }
   // The set of the route after its change.
   MrouteLib::OifSetPtr const& nextSetOf(std::size_t route) const {
      return sets[(route + 1) % sets.size()];
   }

   std::vector<IpGenRouteKey> keys;
   std::vector<MrouteLib::OifSetPtr> sets;
   std::vector<U32> order;
};

// The key (10.0.0.1, 224.0.0.0 + n). All routes have the same accepting vlan and VRF.
IpGenRouteKey keyOf(std::size_t n);
inline constexpr U16 acceptingVlan = 1006;
inline constexpr U32 vrfId = 1;

// The n-th set, which has two outgoing ports. With an incoming interface it also has two backup
// ports.
MrouteLib::OifSetPtr oifSet(std::size_t n, Lnet::IntfId currentIif = {});

// The activity manager of one side, which is the manager of the process while this object lives.
// Virtual time passes only when the side advances it.
class InjectedTime {
 public:
   using TimeBase = Qor::ActivityManager::TimeBase;

   explicit InjectedTime(TimeBase base) : manager(Qor::make<Qor::ActivityManager>(base)) {
      Qor::activityManagerIs(manager);
   }
   ~InjectedTime() { Qor::activityManagerIs(nullptr); }
   InjectedTime(InjectedTime const&) = delete;
   InjectedTime& operator=(InjectedTime const&) = delete;

   Qor::Ptr<Qor::ActivityManager> const manager;
};

// The virtual time of each change, so that zombies expire one after the other.
inline constexpr Qor::Seconds changeTime = 1e-6;
inline constexpr Qor::Seconds zombieTime = 5;  // exceeds the lifetime of a zombie on both paths

// Removes the zombies one by one, as the zombie clock and the twin do, so that the collection keeps
// its memory.
template <class Switch>
void purgeZombies(Switch& sw) {
   while (!sw.zombieOifSet().empty())
      sw.zombieOifSetDel(sw.zombieOifSet().begin()->first);
}

class AsyncSide {
 public:
   using Switch = Vel::Mroute::AsyncMrouteSwitch;

   explicit AsyncSide(Plan const& plan,
                      InjectedTime::TimeBase base = InjectedTime::TimeBase::virtualTime,
                      Qor::Ptr<AsyncHooks> hooks = Qor::make<AsyncHooks>());

   // Holds the record of the set, in addition to the routes, and marks it as used in hardware.
   void hold(std::size_t set) {
      held_.push_back(use(plan_.sets[set]));
      static_cast<Vel::Mroute::AsyncMtableOifSet&>(*held_.back()).usedInHwIs(true);
   }
   void releaseHeld() { held_.clear(); }
   void add(std::size_t n) {
      auto record = use(plan_.setOf(n));
      sw->doAllocateRoute(plan_.keys[n], vlan_, false, rpa_, vrfName_);
      Route& route = routes_[n];
      route.handle = sw->routeHandle();
      sw->doSetMtableOifSet(route.handle, record, nullptr);
      route.record = std::move(record);
   }
   void change(std::size_t n) {
      Route& route = routes_[n];
      auto record = use(plan_.nextSetOf(n));
      sw->doSetMtableOifSet(route.handle, record, nullptr);
      pass();
      route.record = std::move(record);
   }
   void del(std::size_t n) {
      Route& route = routes_[n];
      sw->doDeleteRoute(route.handle);
      pass();
      route.record = nullptr;
   }
   void purge() { purgeZombies(*sw); }
   // Prepares the next round. The tables are empty.
   void reset() { hooks->tables.reset(); }
   void passTime(Qor::Seconds some) { time.manager->advance(some); }

   InjectedTime const time;
   Qor::Ptr<AsyncHooks> const hooks;
   Qor::Ptr<Routing::Hardware::RouteStatus> const vrfs =
         Qor::make<Routing::Hardware::RouteStatus>();
   Qor::Ptr<Switch> const sw = Qor::make<Switch>("switch", vrfs, hooks);

 private:
   struct Route {
      MrouteLib::RouteHandle handle;
      MrouteLib::MtableOifSetPtr record;
   };
   MrouteLib::MtableOifSetPtr use(MrouteLib::OifSetPtr const& set) {
      sw->doAllocateMtableOifSet(info_, set, nullptr, AsyncHooks::invalidMulticastId, false);
      auto record = sw->takeMtableOifSet();
      return record;
   }
   void pass() { time.manager->advance(changeTime); }

   Plan const& plan_;
   Bridging::VlanIdOrNone const vlan_{U64{acceptingVlan}};
   Wisp::Multicast::Fib::RpaIndex const rpa_ = Wisp::Multicast::Fib::RpaIndex::none();
   L3::VrfName const vrfName_{"default"};
   MrouteLib::RouteKeyInfo const info_;
   std::vector<Route> routes_;
   std::vector<MrouteLib::MtableOifSetPtr> held_;
};

class SyncSide {
 public:
   using Switch = Vel::MrouteSwitch;

   explicit SyncSide(Plan const& plan,
                     InjectedTime::TimeBase base = InjectedTime::TimeBase::virtualTime,
                     Qor::Ptr<SyncHooks> hooks = Qor::make<SyncHooks>());

   void hold(std::size_t set) { held_.push_back(use(plan_.sets[set])); }
   void releaseHeld() { held_.clear(); }
   // On this path the route of the switch holds the record, so this side holds none.
   void add(std::size_t n) {
      auto const record = use(plan_.setOf(n));
      sw->doAllocateRoute(plan_.keys[n], vlan_, false, record, false, false, rpa_, vrfName_);
      handles_[n] = sw->routeHandle();
      sw->doSetMtableOifSet(handles_[n], record);
   }
   void change(std::size_t n) {
      pass();
      sw->doSetMtableOifSet(handles_[n], use(plan_.nextSetOf(n)));
   }
   void del(std::size_t n) {
      pass();
      sw->doDeleteRoute(handles_[n]);
   }
   void purge() { purgeZombies(*sw); }
   void reset() { hooks->tables.reset(); }
   void passTime(Qor::Seconds some) { time.manager->advance(some); }

   InjectedTime const time;
   Qor::Ptr<SyncHooks> const hooks;
   Qor::Ptr<Vel::L3Status> const l3Status = Qor::make<Vel::L3Status>();
   Qor::Ptr<Switch> const sw =
         Qor::make<Switch>("switch", 1, nullptr, l3Status, hooks, nullptr, nullptr);

 private:
   MrouteLib::MtableOifSetPtr use(MrouteLib::OifSetPtr const& set) {
      sw->doAllocateMtableOifSet(set);
      auto record = sw->takeMtableOifSet();
      return record;
   }
   void pass() { time.manager->advance(changeTime); }

   Plan const& plan_;
   Bridging::VlanIdOrNone const vlan_{U64{acceptingVlan}};
   Wisp::Multicast::Fib::RpaIndex const rpa_ = Wisp::Multicast::Fib::RpaIndex::none();
   L3::VrfName const vrfName_{"default"};
   std::vector<MrouteLib::RouteHandle> handles_;
   std::vector<MrouteLib::MtableOifSetPtr> held_;
};

class TwinSide {
 public:
   explicit TwinSide(Plan const& plan);

   void hold(std::size_t set) { held_.push_back(twin.useGroup(plan_.sets[set].get())); }
   void releaseHeld() {
      for (U32 const group : held_)
         twin.leaveGroup(group, now_);
      held_.clear();
   }
   void add(std::size_t n) {
      handles_[n] =
            twin.addRoute(plan_.keys[n], acceptingVlan, vrfId, twin.useGroup(plan_.setOf(n).get()));
   }
   void change(std::size_t n) {
      now_ += changeTime;
      twin.pointRoute(handles_[n], twin.useGroup(plan_.nextSetOf(n).get()), now_);
   }
   void del(std::size_t n) {
      now_ += changeTime;
      twin.deleteRoute(handles_[n], now_);
   }
   void purge() {
      now_ += zombieTime;
      twin.purge(now_);
   }
   void reset() { hooks.tables.reset(); }

   IdleTwinHooks hooks;
   Twin twin{opaque(hooks)};

 private:
   Plan const& plan_;
   double now_ = 0;
   std::vector<U32> handles_;
   std::vector<U32> held_;
};

}  // namespace Bench
