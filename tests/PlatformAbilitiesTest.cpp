// The commands on platforms that lack abilities: real time, late readings, no view, no probe, no
// faults, no copies.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>
#include <thread>

#include "CaptureTestSupport.h"
#include "agent/process/Signals.h"
#include "agent/report/ExitCode.h"
#include "agent/run/RunCommand.h"
#include "agent/soak/SoakCommand.h"
#include "platform/sim/SimPlatform.h"

namespace Agent {
namespace {

using VelMroute::Abilities;
using VelMroute::Probe;
using VelMroute::View;

enum class Lacks { nothing, view, probe };

// The simulated chip in real time. Its view reads in a later turn of the loop.
class PoorPlatform final : public VelMroute::Platform, private View, private Probe {
 public:
   PoorPlatform(PathKind path, VelMroute::PlatformOptions const& options, Lacks lacks)
         : chip_(simulatedPlatform(path, options).make()), lacks_(lacks) {
      reader_.notifierIs(clock_.get());
   }

   Abilities abilities() const override {
      Abilities all = chip_->abilities();
      all.virtualTime = all.forks = false;
      return all;
   }
   Qor::Ptr<VelHelper::AsyncMrouteHelper> asyncHooks() override { return chip_->asyncHooks(); }
   Qor::Ptr<VelHelper::MrouteSmHelper> syncHooks() override { return chip_->syncHooks(); }
   View* view() override { return lacks_ == Lacks::view ? nullptr : this; }
   Probe* probe() override { return lacks_ == Lacks::probe ? nullptr : this; }
   bool portIs(Lnet::IntfId intf, Qor::U32 number, Bridging::VlanIdOrNone vlan) override {
      return number < 5 && chip_->portIs(intf, number, vlan);
   }
   bool writesPending() const override { return chip_->writesPending(); }

 private:
   class Reader final : public Qor::Clock::Notifiee {
    public:
      explicit Reader(PoorPlatform& owner) : owner_(owner) {}
      void onTime() override { owner_.done_(true); }

    private:
      PoorPlatform& owner_;
   };

   void refresh(std::function<void(bool)> const& done) override {
      done_ = done;
      clock_->timeMinIs(Qor::now() + 0.001);
   }
   Qor::Seconds asOf() const override { return chip_->view()->asOf(); }
   std::optional<Qor::U32> groupOf(Qor::U32 index) const override {
      return chip_->view()->groupOf(index);
   }
   std::optional<Group> group(Qor::U32 number) const override {
      return chip_->view()->group(number);
   }
   std::optional<Entry> entry(MrouteLib::RouteHandle handle) const override {
      return chip_->view()->entry(handle);
   }
   void forEachEntry(std::function<void(Entry const&)> const& visit) const override {
      chip_->view()->forEachEntry(visit);
   }
   void forEachGroup(std::function<void(Qor::U32, Group const&)> const& visit) const override {
      chip_->view()->forEachGroup(visit);
   }
   Use use(VelMroute::Table table) const override {
      return {chip_->view()->use(table).used, {}, {}, {}};
   }
   std::optional<bool> linkUp(Lnet::IntfId intf) const override {
      return chip_->view()->linkUp(intf);
   }

   std::vector<Port> ports() const override { return chip_->probe()->ports(); }
   // The chip does not disclose its verdict, nor the entry.
   std::vector<Seen> inject(std::span<Packet const> packets) override {
      auto seen = chip_->probe()->inject(packets);
      for (Seen& one : seen) {
         one.verdict = {};
         one.entry = {};
      }
      return seen;
   }
   void settle() override {
      while (writesPending())
         wait(0.001);
   }
   void wait(Qor::Seconds seconds) override {
      std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
      Qor::activityManager()->runDue();
   }

   Qor::Ptr<Platform> const chip_;
   Lacks const lacks_;
   std::function<void(bool)> done_;
   Qor::Ptr<Qor::Clock> const clock_ = Qor::make<Qor::Clock>("reader");
   Reader reader_{*this};
};

PlatformSource poor(Lacks lacks) {
   return [lacks](PathKind path, VelMroute::PlatformOptions const& options) {
      return PlatformChoice{path, false, [path, options, lacks]() -> Qor::Ptr<VelMroute::Platform> {
                               return Qor::make<PoorPlatform>(path, options, lacks);
                            }};
   };
}

class OnAPoorPlatform : public testing::TestWithParam<PathKind> {
 protected:
   ~OnAPoorPlatform() override { Qor::activityManagerIs(nullptr); }

   // The output of a run, with its exit code.
   std::string run(Lacks lacks, RunOptions options = {}) {
      options.files = {dir_.file("capture", lines_)};
      options.platforms = poor(lacks);
      options.path = GetParam();
      testing::internal::CaptureStdout();
      testing::internal::CaptureStderr();
      int const code = runFiles(options);
      return testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr() +
             "exit " + std::to_string(code);
   }
   static bool has(std::string const& text, std::string const& part) {
      return text.find(part) != std::string::npos;
   }

   TempDir const dir_;
   // 20 ms of real time; rtr2 goes down, and the platform cannot change links.
   std::string lines_ =
         "[2026-07-30T10:00:00.000000] (10.0.0.2,239.1.1.1) Iif: rtr0 Oifs: rtr1 rtr2 State: "
         "resolved"
         " Table: default\n"
         "[2026-07-30T10:00:00.010000] (10.0.0.2,239.1.1.2) Iif: rtr0 Oifs: rtr2 State: resolved"
         " Table: default\n"
         "[2026-07-30T10:00:00.020000] 7: rtr2: <UP> mtu 1500 state DOWN group default \\ "
         "link/ether\n";
};

INSTANTIATE_TEST_SUITE_P(Paths, OnAPoorPlatform, testing::Values(PathKind::async, PathKind::sync),
                         [](auto const& path) { return std::string(nameOf(path.param)); });

TEST_P(OnAPoorPlatform, ARunIsInRealTimeAndLeavesOutWhatThePlatformCannot) {
   std::string out = run(Lacks::nothing);
   EXPECT_TRUE(has(out, "2 wanted, 2 offloaded") &&
               has(out, "2 routes forward as the capture says"));
   EXPECT_TRUE(has(out, "group writes   ? create") && has(out, "entries ? of ?")) << out;
   EXPECT_TRUE(has(out, "exit 0"));
   out = run(Lacks::view);
   EXPECT_TRUE(has(out, "2 routes forward as the capture says") && has(out, "exit 0")) << out;
   out = run(Lacks::probe);
   EXPECT_TRUE(has(out, "left out: the platform sends no packets") && has(out, "exit 0")) << out;
   lines_ +=
         "[2026-07-30T10:00:00.020000] (10.0.0.2,239.1.1.3) Iif: rtr3 Oifs: rtr4 rtr5 State: "
         "resolved Table: default\n";
   out = run(Lacks::nothing);
   EXPECT_TRUE(has(out, "the chip has no port 5 for rtr4") && has(out, "exit 1")) << out;
}

// The last event is due after a quarter of an hour.
TEST_P(OnAPoorPlatform, AnInterruptEndsTheWaitForTheNextEvent) {
   lines_ +=
         "[2026-07-30T10:15:00.000000] (10.0.0.2,239.1.1.3) Iif: rtr0 Oifs: rtr1 State: resolved "
         "Table: default\n";
   std::thread interrupter([] {
      while (interruptFd() < 0)
         std::this_thread::yield();
      ::kill(::getpid(), SIGINT);
   });
   std::string const out = run(Lacks::nothing);
   interrupter.join();
   EXPECT_TRUE(has(out, "interrupted    by INT at ") && has(out, "exit 3")) << out;
   EXPECT_TRUE(has(out, "s forward as the capture says")) << out;
}

TEST_P(OnAPoorPlatform, CommandsQueryTheSwitchAndChangeNothingByHand) {
   RunOptions options;
   options.evals = {"explain 10.0.0.2,239.1.1.1", "set /config/allCounter true", "run 0.005"};
   std::string const out = run(Lacks::nothing, options);
   EXPECT_TRUE(has(out, "the platform has no copies")) << out;
   std::string const healthy = "offloaded; packets from rtr0 leave by rtr1, rtr2.\n";
   EXPECT_TRUE(has(out, healthy) && has(out, "entry and group are as the hooks were asked")) << out;
   // Without a view the answer is that of the hooks' calls.
   std::string const recorded = run(Lacks::view, options);
   EXPECT_TRUE(has(recorded, healthy) && has(recorded, "accepts vlan 1006   [recorded]"));
   EXPECT_TRUE(has(recorded, "its tables cannot be read back")) << recorded;
}

TEST_P(OnAPoorPlatform, ASoakNamesTheMissingAbility) {
   SoakOptions options;
   options.path = GetParam();
   options.platforms = poor(Lacks::nothing);
   testing::internal::CaptureStderr();
   EXPECT_EQ(runSoak(options), exitUsage);
   EXPECT_EQ(testing::internal::GetCapturedStderr(),
             "velmroute: soak: the platform is not in virtual time\n");
}

}  // namespace
}  // namespace Agent
