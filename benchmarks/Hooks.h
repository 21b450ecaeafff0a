// Platforms for the measurements. Their hooks only give out numbers, so that the library itself
// is measured. The hooks of the twin are virtual calls of the same kind.
#pragma once

#include <vector>

#include "Vel/VelAsyncMrouteHelper.h"
#include "Vel/VelSyncMrouteHelper.h"

namespace Bench {

using Routing::Multicast::Fib::IpGenRouteKey;

// Gives out numbers from `first` on. The number that was returned last is given out next.
class Numbers {
 public:
   explicit Numbers(Qor::U32 first = 0) : first_(first), next_(first) {}
   // Reserves memory for `count` returned numbers, so that no round measures the growth.
   void reserve(std::size_t count) { free_.reserve(count); }
   Qor::U32 take() {
      if (free_.empty()) return next_++;
      Qor::U32 const number = free_.back();
      free_.pop_back();
      return number;
   }
   void give(Qor::U32 number) { free_.push_back(number); }
   // Starts again from `first`; numbers that are in use are forgotten.
   void reset() {
      free_.clear();
      next_ = first_;
   }

 private:
   Qor::U32 first_, next_;
   std::vector<Qor::U32> free_;
};

// The numbers of groups and of routes. Groups begin at 1, because the oif set index 0 means "no
// set" on the synchronous path.
struct Tables {
   Numbers groups{1};
   Numbers routes;

   void reserve(std::size_t count) {
      groups.reserve(count);
      routes.reserve(count);
   }
   void reset() {
      groups.reset();
      routes.reset();
   }
};

class AsyncHooks : public VelHelper::AsyncMrouteHelper {
 public:
   AsyncHooks() : AsyncMrouteHelper("hooks", nullptr, nullptr) {}

   Qor::U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const&, MrouteLib::OifSetPtr,
                                             Hux::XactPtr, bool) override {
      return tables.groups.take();
   }
   void doUpdateMulticastGroupInPlace(MrouteLib::OifSetPtr, Qor::U32) override { ++rewritten; }
   Hux::XactPtr doGetXactForOifSet(Qor::U32) override { return done_; }
   void doDeleteOifSet(Qor::U32 mcastId) override { tables.groups.give(mcastId); }
   MrouteLib::RouteHandle doAllocateRoute(IpGenRouteKey const&, Bridging::VlanIdOrNone, bool,
                                          Wisp::Multicast::Fib::RpaIndex, Qor::U32) override {
      return MrouteLib::RouteHandle(tables.routes.take());
   }
   void doSetMtableOifSet(MrouteLib::RouteHandle, Qor::U32, Hux::XactPtr) override {}
   Hux::XactPtr doGetXactForIngress(MrouteLib::RouteHandle) override { return done_; }
   void doDeleteRoute(MrouteLib::RouteHandle handle) override {
      tables.routes.give(handle.value());
   }
   Qor::Seconds routeLastAccessedTime(MrouteLib::RouteHandle) override { return 0; }

   Tables tables;
   Qor::U64 rewritten = 0;

 private:
   Hux::XactPtr const done_ = Qor::make<Hux::Xact>(Hux::Xact::State::succeeded);
};

class SyncHooks : public VelHelper::MrouteSmHelper {
 public:
   SyncHooks() : MrouteSmHelper("hooks") {}

   void mrouteInit(bool) override {}
   void handleMulticastRouting(bool) override {}
   void verifyMulticastRouting(bool) override {}
   void mrouteSwitchInit(Qor::U32, bool) override {}
   Qor::U32 doAllocateMtableOifSet(Qor::U32, Qor::U32 index, MrouteLib::OifSetPtr) override {
      if (index == 0 || index == freshOifSetIndex) return tables.groups.take();
      ++rewritten;
      return index;
   }
   void handleFreeMtableOifSet(Qor::U32, Qor::Ptr<Vel::MtableOifSet> record) override {
      tables.groups.give(record->oifSetIndex());
   }
   MrouteLib::RouteHandle doAllocateMroute(Qor::U32, Qor::U16, IpGenRouteKey const&,
                                           Bridging::VlanIdOrNone, bool, Qor::U32, bool,
                                           Qor::U16) override {
      return MrouteLib::RouteHandle(tables.routes.take());
   }
   void doSetMtableOifSet(Qor::U32, Qor::U16, MrouteLib::RouteHandle, Qor::Ptr<Vel::Route const>,
                          Qor::U32) override {}
   void doDeleteMroute(Qor::U32, Qor::U16, MrouteLib::RouteHandle handle,
                       Qor::Ptr<Vel::Route const>) override {
      tables.routes.give(handle.value());
   }
   bool mrouteFull(Qor::U32) override { return false; }
   bool mrouteBoundaryFull(Qor::U32) override { return false; }
   bool mtableFull(Qor::U32) override { return false; }
   bool mrouteHitBit(Qor::U32, Qor::U16, IpGenRouteKey const&, Bridging::VlanIdOrNone,
                     bool) override {
      return false;
   }

   Tables tables;
   Qor::U64 rewritten = 0;
};

// The hooks of the twin: the calls that change the chip.
class TwinHooks {
 public:
   virtual ~TwinHooks() = default;
   virtual Qor::U32 allocateGroup(void const* set) = 0;
   virtual void deleteGroup(Qor::U32 group) = 0;
   virtual Qor::U32 allocateRoute(IpGenRouteKey const& key, Qor::U16 vlan, Qor::U32 vrfId) = 0;
   virtual void pointRoute(Qor::U32 route, Qor::U32 group) = 0;
   virtual void deleteRoute(Qor::U32 route) = 0;
   virtual double lastAccess(Qor::U32 route) = 0;
};

class IdleTwinHooks final : public TwinHooks {
 public:
   Qor::U32 allocateGroup(void const*) override { return tables.groups.take(); }
   void deleteGroup(Qor::U32 group) override { tables.groups.give(group); }
   Qor::U32 allocateRoute(IpGenRouteKey const&, Qor::U16, Qor::U32) override {
      return tables.routes.take();
   }
   void pointRoute(Qor::U32, Qor::U32) override {}
   void deleteRoute(Qor::U32 route) override { tables.routes.give(route); }
   double lastAccess(Qor::U32) override { return 0; }

   Tables tables;
};

// Returns its argument in a way that hides the class from the compiler, so that the calls of the
// twin stay virtual.
TwinHooks& opaque(TwinHooks& hooks);

}  // namespace Bench
