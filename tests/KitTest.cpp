// The kit and the checked hooks in it: the simulated chip passes on both paths, and platforms with
// one mistake each fail the right check with the right culprit and break the right rule.
#include <sys/wait.h>

#include <cstdlib>
#include <sstream>

#include "MistakenHooks.h"
#include "TestSupport.h"
#include "kit/Kit.h"
#include "kit/internal/Life.h"
#include "platform/sim/SimPlatform.h"

namespace VelMroute {
namespace {

constexpr Sim::ChipConfig small{24, 40, 8, 0.001};

// ---- A platform of these hooks. ----

template <class Hooks>
class MistakenPlatform final : public Platform {
 public:
   // `reads`: the platform has a view and no probe.
   explicit MistakenPlatform(std::string mistake, bool reads = false)
         : reads_(reads),
           chip_(Qor::make<Sim::Chip>(small)),
           around_(Sim::newAsyncPlatform(chip_)),
           hooks_(Qor::make<Hooks>(chip_, std::move(mistake))) {}

   Abilities abilities() const override {
      Abilities can = around_->abilities();
      can.bridging = std::is_same_v<Hooks, SyncHooks>;
      return can;
   }
   Qor::Ptr<VelHelper::AsyncMrouteHelper> asyncHooks() override {
      if constexpr (std::is_same_v<Hooks, AsyncHooks>) return hooks_;
      return nullptr;
   }
   Qor::Ptr<VelHelper::MrouteSmHelper> syncHooks() override {
      if constexpr (std::is_same_v<Hooks, SyncHooks>) return hooks_;
      return nullptr;
   }
   Probe* probe() override { return reads_ ? nullptr : around_->probe(); }
   View* view() override { return reads_ ? around_->view() : nullptr; }
   Faults* faults() override { return &hooks_->faults(); }
   bool portIs(Lnet::IntfId intf, U32 number, Bridging::VlanIdOrNone vlan) override {
      return around_->portIs(intf, number, vlan);
   }
   bool writesPending() const override {
      if constexpr (std::is_same_v<Hooks, AsyncHooks>) return hooks_->queue()->pending() > 0;
      return false;
   }

 private:
   bool const reads_;
   Qor::Ptr<Sim::Chip> const chip_;
   Qor::Ptr<Sim::SimPlatform> const around_;  // for probe and view
   Qor::Ptr<Hooks> const hooks_;
};

KitOptions virtualTime() {
   KitOptions options;
   options.virtualTime = true;
   options.lives = 3;
   options.otherVrfId = Vel::VrfId(7u);
   return options;
}

std::string textOf(KitReport const& report) {
   std::ostringstream os;
   print(os, report);
   return os.str();
}

// The rules that the text of the check "calls" names, each once.
std::string rulesOf(KitReport const& report) {
   std::string ids, word;
   for (std::istringstream in(report.findings.front().text); in >> word;) {
      if (word != "rule" || !(in >> word >> word)) continue;
      ids += (ids.empty() ? "" : " ") + word.substr(0, word.find(':'));
   }
   return ids;
}

template <class Hooks>
void expectNamed(Mistakes::Case const& c, bool reads = false) {
   SCOPED_TRACE(c.mistake);
   auto const make = [&] { return Qor::make<MistakenPlatform<Hooks>>(c.mistake, reads); };
   KitReport const report = Kit(make, virtualTime()).run();
   std::string const all = textOf(report);
   KitFinding const* first = nullptr;
   for (KitFinding const& finding : report.findings) {
      bool const fails = finding.result == KitResult::failed && finding.check->number > 1;
      if (fails && !first) first = &finding;
   }
   EXPECT_EQ(rulesOf(report), c.rules) << all;
   ASSERT_EQ(first != nullptr, *c.check != 0) << all;
   if (!first) return;
   EXPECT_EQ(first->check->id, std::string(c.check)) << all;
   EXPECT_EQ(first->culprit, c.culprit) << all;
   EXPECT_NE(first->text.find(c.text), std::string::npos) << all;
}

TEST(Kit, EachMistakeOfAPlatformFailsItsCheckAndBreaksItsRule) {
   for (Mistakes::Case const& c : Mistakes::async)
      expectNamed<AsyncHooks>(c);
   for (Mistakes::Case const& c : Mistakes::sync)
      expectNamed<SyncHooks>(c);
}

// The same by reading back, without packets.
using Mistakes::platform;
constexpr Mistakes::Case readCases[] = {
      {""},
      {"second pointing ignored", platform, "forwarding", "forwards to kit3:3 on the chip; by the",
       "pointed-at-failed-set"},
      {"sets lose a member", platform, "forwarding", "forwards to kit4:4 on the chip; by the"},
      {"wrong vlan", platform, "forwarding", "by the calls in VRF 0, 1"},
      {"route deletion ignored", platform, "forwarding", "is on the chip, and not by the calls"},
      {"rewrite ignored", platform, "rewrite-in-place", "doUpdateMulticastGroupInPlace, call"},
};

TEST(Kit, APlatformWithoutAProbeIsReadBack) {
   for (Mistakes::Case const& c : readCases)
      expectNamed<AsyncHooks>(c, true);
}

// ---- Whole platforms. ----

PlatformMaker simulated(bool sync, Sim::ChipConfig chip = small) {
   return [=]() -> Qor::Ptr<Platform> {
      if (sync) return Sim::newSyncPlatform(Qor::make<Sim::Chip>(chip));
      return Sim::newAsyncPlatform(Qor::make<Sim::Chip>(chip));
   };
}

// The ids of the findings with this result.
std::string idsOf(KitReport const& report, KitResult result) {
   std::string ids;
   for (KitFinding const& finding : report.findings)
      if (finding.result == result)
         ids += (ids.empty() ? "" : " ") + std::string(finding.check->id);
   return ids;
}

TEST(Kit, TheSimulatedChipPassesAllChecksOfItsPathAlsoWithFullTablesAndFailedWrites) {
   auto const before = Qor::activityManager();
   KitOptions options = virtualTime();
   options.lives = 40;
   for (bool const sync : {false, true}) {
      KitReport const report = Kit(simulated(sync), options).run();
      EXPECT_EQ(report.count(KitResult::failed), 0u) << textOf(report);
      EXPECT_EQ(idsOf(report, KitResult::leftOut),
                sync ? "blocking-transaction failed-set"
                     : "boundaries room-for-boundaries end-of-service");
      EXPECT_NE(textOf(report).find(" 0 lost, 0 to old and new outputs"), std::string::npos);

      Kit tight(
            [&] {
               auto const made = simulated(sync, {6, 8, 2, 0.001})();
               for (auto const kind : {WriteKind::groupCreate, WriteKind::routeCreate,
                                       WriteKind::routePoint, WriteKind::boundaryCreate})
                  made->faults()->rateIs(kind, 0.05);
               return made;
            },
            {.virtualTime = true, .lives = 40, .only = {"random-lives"}});
      KitReport const full = tight.run();
      EXPECT_TRUE(full.passed()) << textOf(full);
   }
   EXPECT_EQ(Qor::activityManager(), before);
}

// Puts the activity manager of the test program back.
struct TimeKept {
   ~TimeKept() { Qor::activityManagerIs(before); }
   Qor::Ptr<Qor::ActivityManager> const before = Qor::activityManager();
};

TEST(Kit, TheProgrammerFailsARouteWithTheFaultOfAHookAndTriesAgain) {
   TimeKept const kept;
   KitOptions const options = virtualTime();
   auto const make = [] { return Qor::make<MistakenPlatform<AsyncHooks>>("handle twice"); };
   KitParts::Life life(options, make, Qor::make<HookFaults>());
   for (unsigned const n : {1, 2, 3})
      life.want({.key = KitParts::sourceGroup(n), .outs = {2}});
   life.wait(0.1);
   auto const refused = *life.programmer().route(life.vrf(), KitParts::sourceGroup(3));
   EXPECT_EQ(refused.state, RouteState::failed);
   EXPECT_EQ(refused.reason.substr(0, 40), "the hook doAllocateRoute threw: doAlloca");
   EXPECT_NE(refused.reason.find("rule 9 entry-twice: handle 1 is given out for (10.0.0.1, "
                                 "239.9.0.3), and in use for (10.0.0.1, 239.9.0.2) since"),
             std::string::npos)
         << refused.reason;
   life.wait(1);
   life.rest();
}

// The programmer gets other wishes than the kit has noted.
TEST(Kit, ALibraryThatDoesSomethingElseIsAtFault) {
   TimeKept const kept;
   KitOptions const options = virtualTime();
   for (bool const sync : {false, true}) {
      KitParts::Life life(options, simulated(sync), Qor::make<HookFaults>());
      RouteKey const key = KitParts::sourceGroup(1), other = KitParts::sourceGroup(2);
      auto const difference = [&]() -> std::string {
         try {
            life.rest();
         } catch (KitParts::Difference const& found) {
            EXPECT_EQ(found.culprit, KitCulprit::library);
            return found.text;
         }
         return "";
      };
      life.want({.key = key, .outs = {2}, .cpu = true});
      EXPECT_EQ(difference(), "");
      OutputsPool pool;
      auto const wish = [&](RouteKey const& of, unsigned in) {
         life.programmer().routeIs(
               life.vrf(), of,
               {.iif = life.port(in).intf, .outputs = pool.get({life.port(2).intf})});
      };
      wish(key, 0);
      EXPECT_NE(difference().find("forwards to kit3:3\nthe last call"), std::string::npos);
      wish(key, 1);
      EXPECT_NE(difference().find("is missing"), std::string::npos);
      life.want({.key = key, .outs = {2}});
      wish(other, 0);
      EXPECT_EQ(difference(), "the calls leave 2 entries; the wishes need 1");
      life.programmer().routeDel(life.vrf(), other);
      life.programmer().routeDel(life.vrf(), key);
      EXPECT_NE(difference().find("is forgotten"), std::string::npos);
   }
}

// A random life that fails is reduced to the steps that matter.
TEST(Kit, AFailedLifeIsReducedAndReplays) {
   KitOptions options = virtualTime();
   options.only = {"random-lives"};
   options.seed = 5;
   auto const run = [&] {
      return Kit([] { return Qor::make<MistakenPlatform<AsyncHooks>>("no copies to the CPU"); },
                 options)
            .run();
   };
   std::string const text = textOf(run());
   EXPECT_NE(text.find("reduced to 1 step in "), std::string::npos) << text;
   EXPECT_NE(text.find("cpu\n"), std::string::npos) << text;
   EXPECT_EQ(text, textOf(run()));
}

TEST(Kit, TheReportIsReadByPeopleAndByTap) {
   KitOptions options = virtualTime();
   options.only = {"forwarding", "boundaries"};
   KitReport const report =
         Kit([] { return Qor::make<MistakenPlatform<AsyncHooks>>("second pointing ignored"); },
             options)
               .run();
   EXPECT_EQ(idsOf(report, KitResult::failed), "forwarding");
   std::string const people = textOf(report);
   EXPECT_EQ(people.substr(0, people.find("3 shared-sets")),
             "1 calls: passed\n"
             "2 forwarding: failed\n"
             "   at fault: the platform\n"
             "   checked: Points the route at the group, in place of the group that it points at "
             "now.\n"
             "   a packet from 10.0.0.1 to 239.9.0.1 at kit1, 1:\n"
             "   by the calls: kit3:3 kit4:4 (forwarded)\n"
             "   on the chip: kit3:3\n"
             "   the last call that touched it: doSetMtableOifSet, call 18 at 0.004 s\n");
   std::ostringstream tap;
   printTap(tap, report);
   std::string const text = tap.str();
   EXPECT_EQ(
         text.substr(0, text.find('\n', 60)),
         "TAP version 13\n1..26\nok 1 - calls\nnot ok 2 - forwarding\n#   at fault: the platform");
   EXPECT_NE(text.find("\nok 12 - boundaries # SKIP the platform has no boundary entries\n"),
             std::string::npos)
         << text;
}

TEST(Kit, WrongOptionsAndUnusablePlatformsAreErrors) {
   class NoHooks final : public Platform {
      Abilities abilities() const override { return {}; }
   };
   EXPECT_EQ(testSupport::errorText([] { Kit(nullptr); }), "VelMroute::Kit::make null not allowed");
   EXPECT_EQ(testSupport::errorText([] { Kit(simulated(false), {.only = {"size"}}); }),
             "VelMroute::Kit::only size not allowed");
   EXPECT_EQ(testSupport::errorText([] { Kit([] { return Qor::make<NoHooks>(); }).run(); }),
             "VelMroute::Kit::make platform without hooks not allowed");
   unsigned made = 0;
   auto const breaks = [&]() -> Qor::Ptr<Platform> {
      if (++made == 3) Qor::throwRange("no device");
      return simulated(false)();
   };
   EXPECT_EQ(testSupport::errorText([&] { Kit(breaks, virtualTime()).run(); }), "no device");
   EXPECT_EQ(testSupport::errorText([] { Kit(simulated(true)).run(); }),
             "VelMroute::Kit::virtualTime other than that of the platform not allowed");
}

TEST(Kit, TheCommandEndsWithTheExitCodeOfTheReport) {
   struct {
      char const* arguments;
      int exitCode;
   } const runs[] = {
         {"--only forwarding,room-for-sets", 0},
         {"--platform sim-sync:groups=3 --tap", 1},  // too small for the checks
         {"--platform sim:size=3", 1},
         {"--only size", 2},
         {"--lives x", 2},
   };
   for (auto const& run : runs) {
      std::string const command =
            std::string(VELMROUTE_PROGRAM " check ") + run.arguments + " >/dev/null 2>&1";
      int const status = std::system(command.c_str());
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == run.exitCode) << command;
   }
}

TEST(Kit, EachCheckStandsInAHeaderAndInTheGuide) {
   std::string const headers[] = {testSupport::sourceText("Vel/VelAsyncMrouteHelper.h"),
                                  testSupport::sourceText("Vel/VelSyncMrouteHelper.h")};
   std::string const guide = testSupport::sourceText("docs/kit.md");
   unsigned number = 0;
   for (KitCheck const* const check : kitChecks()) {
      SCOPED_TRACE(check->id);
      EXPECT_EQ(check->number, ++number);
      for (HookPath const path : {HookPath::async, HookPath::sync}) {
         char const* const sentence = check->sentence(path);
         if (!sentence) continue;
         EXPECT_NE(headers[path == HookPath::sync].find(sentence), std::string::npos) << sentence;
         EXPECT_NE(guide.find(sentence), std::string::npos) << sentence;
      }
      std::string const row = "| " + std::to_string(number) + " | " + check->id + " |";
      EXPECT_NE(guide.find(row), std::string::npos) << row;
   }
}

}  // namespace
}  // namespace VelMroute
