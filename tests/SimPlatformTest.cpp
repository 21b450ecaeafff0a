// The asynchronous platform of the simulated chip: the write queue on virtual time, and allocations.
// KitTest.cpp has its blocking transactions and failed writes.
#include <functional>
#include <memory>

#include "SimTestSupport.h"
#include "platform/sim/AsyncPlatform.h"

namespace {

using Hux::XactPtr;
using MrouteLib::RouteHandle;
using Sim::AsyncPlatform;
using Sim::WriteKind;
using namespace testSupport;

constexpr Qor::U32 noId = AsyncPlatform::invalidMulticastId;

// Calls a function when a transaction completes.
class Watch final : public Hux::Xact::Notifiee {
 public:
   Watch(XactPtr const& xact, std::function<void()> call) : call_(std::move(call)) {
      notifierIs(xact);
   }
   void onState() override { call_(); }

 private:
   std::function<void()> call_;
};

class SimPlatform : public OnSimulatedChip {
 protected:
   SimPlatform() { build({4, 4, 1, 1.0}); }

   void build(Sim::ChipConfig const& chipConfig, Sim::AsyncPlatformConfig const& config = {}) {
      buildChip(chipConfig);
      platform_ = Qor::make<AsyncPlatform>("platform", chip_, config);
   }

   Qor::U32 group(std::initializer_list<char const*> intfs, XactPtr blocking = nullptr) {
      return platform_->doAllocateSharableMulticastGroup({}, set(intfs), std::move(blocking),
                                                         false);
   }
   RouteHandle route(Qor::U32 n) { return platform_->doAllocateRoute(key(n), {}, false, {}, 0); }
   XactPtr point(RouteHandle handle, Qor::U32 id) {
      platform_->doSetMtableOifSet(handle, id, nullptr);
      return platform_->doGetXactForIngress(handle);
   }
   XactPtr groupXact(Qor::U32 id) { return platform_->doGetXactForOifSet(id); }
   void drain() { time_->runUntil(Qor::never); }
   void expectSound() { EXPECT_EQ(platform_->audit(), Lines()); }

   Qor::Ptr<AsyncPlatform> platform_;
};

TEST_F(SimPlatform, WritesOverlapAndCompleteInOrder) {
   Lines log;
   auto const watch = [&](XactPtr const& xact, std::string const& name) {
      return std::make_unique<Watch>(
            xact, [&log, this, name] { log.push_back(name + " " + Qor::realStrep(time_->now())); });
   };
   Qor::U32 const a = group({"et1"});
   auto const w1 = watch(groupXact(a), "a");
   time_->advance(0.25);
   RouteHandle const r = route(1);
   platform_->faults().slowNext(2, 5);
   auto const w2 = watch(point(r, a), "point");
   Qor::U32 const b = group({"et2"});  // the slow write
   auto const w3 = watch(groupXact(b), "b");
   Qor::U32 const c = group({"et3"});
   auto const w4 = watch(groupXact(c), "c");  // due earlier than b, but issued later
   time_->runUntil(1.0);
   EXPECT_EQ(receivers(1), "noRoute");
   time_->runUntil(1.25);
   EXPECT_EQ(receivers(1), "et1");
   drain();
   EXPECT_EQ(log, (Lines{"a 1.0", "point 1.25", "b 6.25", "c 6.25"}));
   expectSound();
}

TEST_F(SimPlatform, NoWriteCompletesInsideItsCallAndATurnCompletesUpToAThousandWrites) {
   build({1500, 1, 1, 0});
   Qor::U32 last = 0;
   for (unsigned i = 0; i < 1500; ++i)
      last = group({"et1"});
   Watch const watch(groupXact(last), [&] {
      // A write that a completion issues waits for the next turn, although this turn has room.
      platform_->doUpdateMulticastGroupInPlace(set({"et2"}), 0);
      EXPECT_TRUE(groupXact(0)->pending());
   });
   EXPECT_EQ(chip_->groups(), 0u);
   for (unsigned const expected : {1000, 1500, 1501}) {
      time_->runDue();
      EXPECT_EQ(platform_->queue()->succeeded(), expected);
   }
   EXPECT_EQ(time_->now(), 0);
}

TEST_F(SimPlatform, ANewRouteHasNoHitTimeOfAnEarlierRouteWithTheSameHandle) {
   Qor::U32 const a = group({"et1"});
   RouteHandle const r = route(1);
   point(r, a);
   EXPECT_EQ(platform_->routeLastAccessedTime(r), 0.0);
   drain();
   time_->runUntil(3);
   receivers(1);
   EXPECT_EQ(platform_->routeLastAccessedTime(r), 3.0);
   platform_->doDeleteRoute(r);
   ASSERT_EQ(route(2), r);
   EXPECT_EQ(receivers(1), "et1");  // the deletion has not reached the chip
   EXPECT_EQ(platform_->routeLastAccessedTime(r), 0.0);
   drain();
   EXPECT_EQ(platform_->routeLastAccessedTime(r), 0.0);
}

TEST_F(SimPlatform, FixedGroupsAreReservedAndRewrittenInPlace) {
   Sim::AsyncPlatformConfig config;
   config.firstFixedGroup = 1;
   config.fixedGroups = 2;
   build({4, 4, 1, 1.0}, config);
   EXPECT_EQ(group({"et1"}), 0u);
   EXPECT_EQ(group({"et1"}), 3u);
   EXPECT_EQ(group({"et1"}), noId);
   EXPECT_EQ(platform_->doAllocateFixedMulticastGroup(set({"et1"}), nullptr, 3), noId);
   for (char const* const intf : {"et1", "et2"})
      EXPECT_EQ(platform_->doAllocateFixedMulticastGroup(set({intf}), nullptr, 2), 2u);
   point(route(1), 2);
   drain();
   EXPECT_EQ(receivers(1), "et2");
   EXPECT_EQ(chip_->writes(WriteKind::groupUpdate), 1u);
}

TEST_F(SimPlatform, AWrongCallDoesNothingAndIsAViolation) {
   Qor::U32 const a = group({"et1"});
   RouteHandle const r = route(1);
   platform_->doDeleteOifSet(a);
   platform_->doDeleteOifSet(a);
   platform_->doSetMtableOifSet(r, a, nullptr);
   platform_->doDeleteRoute(RouteHandle(3));
   drain();
   EXPECT_EQ(platform_->audit(), (Lines{"doDeleteOifSet: group 0 is not allocated",
                                        "doSetMtableOifSet: group 0 is not allocated",
                                        "doDeleteRoute: route 3 is not allocated"}));
   EXPECT_EQ(chip_->violations().count(), 0u);
}

TEST_F(SimPlatform, ACompletionMayDestroyThePlatform) {
   XactPtr const first = groupXact(group({"et1"}));
   XactPtr const second = groupXact(group({"et2"}));
   Watch const watch(first, [&] { platform_ = nullptr; });
   drain();
   EXPECT_EQ(platform_, nullptr);
   EXPECT_EQ(chip_->groups(), 1u);
   EXPECT_TRUE(second->pending());
}

}  // namespace
