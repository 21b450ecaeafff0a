// A programmer over a chip that is known through platform/Platform.h alone, on both paths: restarts and
// ends. KitTest.cpp has its packets, faults and readings.
#include "ProgrammerBench.h"
#include "platform/sim/SimPlatform.h"

namespace VelMroute {
namespace {

class OnAPlatform : public testing::TestWithParam<bool> {
 protected:
   OnAPlatform() {
      for (unsigned i = 1; i <= 6; ++i)
         EXPECT_EQ(chip_->portAdd(et(i), i, Bridging::VlanIdOrNone(Qor::U64{i})), "");
      start(false);
   }

   // One life of an agent on the chip.
   void start(bool again) {
      platform_ = GetParam() ? Sim::newSyncPlatform(chip_) : Sim::newAsyncPlatform(chip_);
      around_.hwStatus->vrfStatusDelAll();
      std::unique_ptr<RouteTable> table;
      if (auto const hooks = platform_->asyncHooks()) {
         auto const vrfs = Qor::make<Routing::Hardware::RouteStatus>();
         vrfs->newVrfStatus(vrf_, Vel::VrfId(3u));
         table = asyncRouteTable({.hooks = hooks,
                                  .vrfs = vrfs,
                                  .vlans = around_.vlans,
                                  .published = around_.hwStatus,
                                  .links = around_.links});
      } else {
         auto const l3Status = Qor::make<Vel::L3Status>();
         l3Status->vrfNameToVrfIdIs(vrf_.name(), Vel::VrfId(3u));
         table = syncRouteTable({.routing = Qor::make<SyncRouting>(
                                       SyncRouting::Inputs{.hooks = platform_->syncHooks(),
                                                           .l3Status = l3Status,
                                                           .published = around_.hwStatus}),
                                 .vlans = around_.vlans,
                                 .links = around_.links});
      }
      programmer_ = std::make_unique<Programmer>(
            Programmer::Inputs{.table = std::move(table),
                               .vlans = around_.vlans,
                               .published = around_.hwStatus,
                               .restart = again ? platform_->restart() : nullptr});
   }
   void want(unsigned n, std::vector<Lnet::IntfId> ports, std::vector<Lnet::IntfId> backup = {}) {
      programmer_->routeIs(
            vrf_, testSupport::key(n),
            {.iif = et(1),
             .outputs = around_.pool.get(std::move(ports), false, std::move(backup))});
   }
   void settle() {
      probe().wait(0.1);
      probe().settle();
   }
   Probe& probe() { return *platform_->probe(); }
   View& view() { return *platform_->view(); }
   // The receivers of a packet of route n, as "et2 et3".
   std::string sent(unsigned n) {
      Probe::Packet const packet{Vel::VrfId(3u), testSupport::key(n).source().address(),
                                 testSupport::key(n).group().address(), et(1)};
      std::string text;
      auto const seen = probe().inject({&packet, 1});
      for (auto const& copy : seen.front().copies)
         text += (text.empty() ? "" : " ") + copy.intfId().name();
      return text;
   }
   std::string use() {
      std::string text;
      for (Table const table : allTables)
         text += std::to_string(view().use(table).used) + " ";
      return text;
   }

   Surroundings around_;
   L3::VrfName const vrf_{"red"};
   Qor::Ptr<Sim::Chip> const chip_ = Qor::make<Sim::Chip>(Sim::ChipConfig{4, 8, 2, 0.001});
   Qor::Ptr<Platform> platform_;
   std::unique_ptr<Programmer> programmer_;
};

INSTANTIATE_TEST_SUITE_P(Paths, OnAPlatform, testing::Bool(),
                         [](auto const& path) { return path.param ? "sync" : "async"; });

TEST_P(OnAPlatform, ANewAgentAdoptsWhatIsNamedReroutesAndSweepsTheRest) {
   want(1, {et(2)});
   want(2, {et(3)}, {et(4)});
   want(4, {et(5)});
   settle();
   std::string const before = use();
   programmer_ = nullptr;
   EXPECT_EQ(sent(1), "et2");  // the chip goes on without an agent
   platform_ = nullptr;
   around_.links->newIntfStatus(et(1))->operStatusIs(Interface::IntfOperStatus::down);
   start(true);
   EXPECT_TRUE(programmer_->resyncing() && programmer_->recovering());
   EXPECT_EQ(around_.hwStatus->routes(), 3u);
   want(1, {et(2)});
   want(2, {et(3)}, {et(4)});
   want(9, {et(2), et(6)});  // there is a free group, and a free entry
   settle();
   EXPECT_EQ(around_.hwStatus->routes(), 4u);
   programmer_->resyncEnd();
   settle();
   EXPECT_FALSE(programmer_->resyncing() || programmer_->recovering());
   EXPECT_EQ(sent(1) + "; " + sent(2) + "; " + sent(4) + "; " + sent(9), "et2; et4; ; et2 et6");
   EXPECT_EQ(around_.hwStatus->routes(), 3u);
   EXPECT_EQ(use(), before);
   EXPECT_EQ(programmer_->counters().adopted, 4u);
   EXPECT_EQ(programmer_->counters().swept, 2u);
}

TEST_P(OnAPlatform, AnEndDuringTheRecoveryLeavesWhatIsFoundOrSweepsIt) {
   want(1, {et(2)});
   settle();
   for (bool const clean : {false, true}) {
      programmer_ = nullptr;
      start(true);
      programmer_->end(clean ? Programmer::End::clean : Programmer::End::leave);
      settle();
      EXPECT_TRUE(programmer_->ended() && !programmer_->resyncing());
      EXPECT_EQ(around_.hwStatus->routes(), 0u);
      EXPECT_EQ(sent(1), clean ? "" : "et2");
   }
   EXPECT_EQ(use(), "0 0 0 ");
}

}  // namespace
}  // namespace VelMroute
