// The kit: the simulated chip passes on both paths, and platforms with one mistake each fail the
// right check with the right culprit.
#include <sys/wait.h>

#include <cstdlib>
#include <sstream>

#include "TestSupport.h"
#include "kit/Kit.h"
#include "kit/internal/Life.h"
#include "platform/sim/SimPlatform.h"

namespace VelMroute {
namespace {

using Hux::Xact;
using Hux::XactPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Qor::U16;
using Qor::U32;
using Routing::Multicast::Fib::IpGenRouteKey;

constexpr Sim::ChipConfig small{24, 40, 8, 0.001};

// ---- Hooks with one mistake. ----

class Mistaken {
 public:
   explicit Mistaken(std::string mistake) : mistake_(std::move(mistake)) {}
   bool is(std::string_view name) const { return mistake_ == name; }

 private:
   std::string const mistake_;

 protected:
   U32 given_ = 0;
};

class AsyncHooks final : public Sim::AsyncPlatform, public Mistaken {
 public:
   AsyncHooks(Qor::Ptr<Sim::Chip> chip, std::string mistake)
         : AsyncPlatform("mistaken", std::move(chip)), Mistaken(std::move(mistake)) {}

   U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& info, OifSetPtr oifSet,
                                        XactPtr blocking, bool excludeEmptyMcid) override {
      auto const& members = oifSet->portVlanSet().portVlan();
      bool const isEmpty = oifSet->portVlanSet().empty();
      if (is("empty sets share") && isEmpty && emptyUsers_++ > 0) return empty_;
      if (is("id twice") && ++given_ == 3) return last_;
      if (is("group ignores the blocking")) blocking = nullptr;
      if (is("sets lose a member") && members.size() > 1) {
         MrouteLib::PortVlanSet fewer = oifSet->portVlanSet();
         fewer.portVlanDel(members.begin()->first);
         oifSet = Qor::make<MrouteLib::OifSet>(nullptr, fewer);
      }
      if (is("no copies to the CPU")) {
         MrouteLib::PortVlanSet without = oifSet->portVlanSet();
         without.toCpuIs(false);
         oifSet = Qor::make<MrouteLib::OifSet>(nullptr, without);
      }
      last_ = AsyncPlatform::doAllocateSharableMulticastGroup(info, oifSet, blocking,
                                                              excludeEmptyMcid);
      before_[last_] = oifSet;
      if (isEmpty) empty_ = last_;
      return last_;
   }
   void doUpdateMulticastGroupInPlace(OifSetPtr oifSet, U32 id) override {
      if (is("rewrite ignored")) {
         AsyncPlatform::doUpdateMulticastGroupInPlace(before_[id], id);
      } else {
         AsyncPlatform::doUpdateMulticastGroupInPlace(std::move(oifSet), id);
      }
   }
   XactPtr doGetXactForOifSet(U32 id) override {
      if (is("null transaction")) return nullptr;
      XactPtr const xact = AsyncPlatform::doGetXactForOifSet(id);
      if (is("stale transaction")) return first_.emplace(id, xact).first->second;
      if (is("never completes") && id == 1) return never_;
      return is("complete too early") ? done_ : xact;
   }
   void doDeleteOifSet(U32 id) override {
      if (is("empty sets share") && id == empty_ && emptyUsers_ > 0 && --emptyUsers_ > 0) return;
      first_.erase(id);
      if (!is("group deletion ignored")) AsyncPlatform::doDeleteOifSet(id);
   }
   RouteHandle doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan, bool bridge,
                               Wisp::Multicast::Fib::RpaIndex rpaId, U32 vrfId) override {
      if (is("handle twice") && ++given_ == 3) return handle_;
      if (is("wrong vlan")) vlan = {};
      if (is("VRF ignored")) vrfId = 0;
      if (is("source ignored"))
         return AsyncPlatform::doAllocateRoute(anySource(key), vlan, bridge, rpaId, vrfId);
      if (is("star groups ignore the vlan") && key.source().isAny()) vlan = {};
      handle_ = AsyncPlatform::doAllocateRoute(key, vlan, bridge, rpaId, vrfId);
      return handle_;
   }
   void doSetMtableOifSet(RouteHandle handle, U32 id, XactPtr blocking) override {
      if (is("pointing ignores the blocking")) blocking = nullptr;
      if (is("points elsewhere first") && pointed_[handle.value()] != id) {
         pointed_[handle.value()] = id;
         U32 const nowhere = nowhereGroup();
         AsyncPlatform::doSetMtableOifSet(handle, nowhere, blocking);
         faults_.slowNext(1, 0.003);
      }
      if (is("second pointing ignored") && pointed_.contains(handle.value())) {
         id = pointed_[handle.value()];
      }
      pointed_.emplace(handle.value(), id);
      AsyncPlatform::doSetMtableOifSet(handle, id, std::move(blocking));
   }
   XactPtr doGetXactForIngress(RouteHandle handle) override {
      XactPtr const xact = AsyncPlatform::doGetXactForIngress(handle);
      if (!is("points at a failed group") || !xact) return xact;
      return after_.emplace_back(std::make_unique<After>(xact))->own;
   }
   void doDeleteRoute(RouteHandle handle) override {
      pointed_.erase(handle.value());
      if (is("late deletion")) {
         late_.push_back(handle);
         if (late_.size() < 3) return;
         handle = late_.front();
         late_.erase(late_.begin());
      }
      if (!is("route deletion ignored")) AsyncPlatform::doDeleteRoute(handle);
   }
   bool needIngressProgramming(RouteKeyType type) override {
      return !is("no entries needed") && AsyncPlatform::needIngressProgramming(type);
   }
   Qor::Seconds routeLastAccessedTime(RouteHandle handle) override {
      if (is("hits never")) return 0.0;
      if (is("hits always")) return Qor::now();
      Qor::Seconds const time = AsyncPlatform::routeLastAccessedTime(handle);
      return is("hits ahead") && time > 0 ? time + 1e6 : time;
   }

 private:
   // Succeeds when the other transaction completes, whichever way.
   struct After final : Xact::Notifiee {
      explicit After(XactPtr const& xact) {
         if (xact->pending()) {
            notifierIs(xact);
         } else {
            onState();
         }
      }
      void onState() override { own->stateIs(Xact::State::succeeded); }
      Qor::Ptr<Xact> const own = Qor::make<Xact>();
   };
   static IpGenRouteKey anySource(IpGenRouteKey const& key) {
      return IpGenRouteKey(Lnet::IpGenPrefix::any(key.group().family()), key.group());
   }
   U32 nowhereGroup() {
      MrouteLib::PortVlanSet const none;
      if (nowhere_ == invalidMulticastId) {
         nowhere_ = AsyncPlatform::doAllocateSharableMulticastGroup(
               {}, Qor::make<MrouteLib::OifSet>(nullptr, none), nullptr, true);
      }
      return nowhere_;
   }

   U32 last_ = 0, empty_ = 0, emptyUsers_ = 0, nowhere_ = invalidMulticastId;
   RouteHandle handle_;
   std::map<U32, OifSetPtr> before_;
   std::map<U32, XactPtr> first_;
   std::map<U32, U32> pointed_;
   std::vector<RouteHandle> late_;
   std::vector<std::unique_ptr<After>> after_;
   XactPtr const never_ = Qor::make<Xact>();
   XactPtr const done_ = Qor::make<Xact>(Xact::State::succeeded);
};

class SyncHooks final : public Sim::SyncPlatform, public Mistaken {
 public:
   SyncHooks(Qor::Ptr<Sim::Chip> chip, std::string mistake)
         : SyncPlatform("mistaken", std::move(chip), 1), Mistaken(std::move(mistake)) {}

   void mrouteSwitchInit(U32 switchId, bool start) override {
      if (is("not cleared") && (!start || given_++ > 0)) return;
      SyncPlatform::mrouteSwitchInit(switchId, start);
   }
   U32 doAllocateMtableOifSet(U32 switchId, U32 hint, OifSetPtr oifSet) override {
      bool const rewrites = hint != 0 && hint != freshOifSetIndex;
      if (rewrites && is("rewrite ignored")) return hint;
      U32 const index = SyncPlatform::doAllocateMtableOifSet(switchId, hint, oifSet);
      if (rewrites) return is("rewrite moves") ? index + 1 : index;
      if (oifSet->portVlanSet().portVlan().empty()) {
         return is("empty set takes room") && groupsAllocated() == small.groups ? invalidOifSetIndex
                                                                                : index;
      }
      if (is("index twice") && ++given_ == 3) return index - 1;
      return is("index zero") ? 0 : index;
   }
   void handleFreeMtableOifSet(U32 switchId, Qor::Ptr<Vel::MtableOifSet> record) override {
      if (is("free ignored")) return;
      if (is("free late")) return late_.push_back(record);
      SyncPlatform::handleFreeMtableOifSet(switchId, record);
   }
   RouteHandle doAllocateMroute(U32 switchId, U16 vrfId, IpGenRouteKey const& key,
                                VlanIdOrNone vlan, bool bridge, U32 index, bool fastDrop,
                                U16 rpaId) override {
      if (is("boundary handle clash") && bridge) return RouteHandle(0);
      if (is("handle twice") && !bridge && ++given_ == 3) return RouteHandle(0);
      if (is("wrong vlan")) vlan = VlanIdOrNone(Qor::U64{1});
      return SyncPlatform::doAllocateMroute(switchId, vrfId, key, vlan, bridge, index,
                                            fastDrop && !is("fastdrop ignored"), rpaId);
   }
   void doSetMtableOifSet(U32 switchId, U16 vrfId, RouteHandle handle,
                          Qor::Ptr<Vel::Route const> route, U32 index) override {
      if (!is("pointing ignored"))
         SyncPlatform::doSetMtableOifSet(switchId, vrfId, handle, std::move(route), index);
   }
   void doDeleteMroute(U32 switchId, U16 vrfId, RouteHandle handle,
                       Qor::Ptr<Vel::Route const> route) override {
      if (!is("deletion ignored")) SyncPlatform::doDeleteMroute(switchId, vrfId, handle, route);
   }
   void doDeleteMrouteBoundary(U32 switchId, U16 vrfId, RouteHandle handle,
                               Qor::Ptr<Vel::Boundary const> boundary) override {
      if (!is("boundaries stay"))
         SyncPlatform::doDeleteMrouteBoundary(switchId, vrfId, handle, std::move(boundary));
   }
   RouteHandle doAllocateMrouteNoRpf(U32 switchId, U16 vrfId, IpGenRouteKey const& key, bool bridge,
                                     U32 index, bool fastDrop, U16 rpaId) override {
      if (!is("one input with all")) {
         return SyncPlatform::doAllocateMrouteNoRpf(switchId, vrfId, key, bridge, index, fastDrop,
                                                    rpaId);
      }
      return SyncPlatform::doAllocateMroute(switchId, vrfId, key, VlanIdOrNone(Qor::U64{1}), bridge,
                                            index, fastDrop, rpaId);
   }
   bool mtableFull(U32 switchId) override {
      if (is("never full")) return false;
      bool const full = SyncPlatform::mtableFull(switchId);
      for (auto const& record : std::exchange(late_, {}))
         SyncPlatform::handleFreeMtableOifSet(switchId, record);
      return full || is("always full");
   }
   bool mrouteHitBit(U32 switchId, U16 vrfId, IpGenRouteKey const& key, VlanIdOrNone vlan,
                     bool boundary) override {
      bool const hit = SyncPlatform::mrouteHitBit(switchId, vrfId, key, vlan, boundary);
      if (hit) hit_ = true;
      return !is("hit never") && (hit || (is("hit sticky") && hit_));
   }

 private:
   std::vector<Qor::Ptr<Vel::MtableOifSet>> late_;
   bool hit_ = false;
};

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

struct Case {
   char const* mistake;
   KitCulprit culprit;
   char const* check;  // the first that fails, besides "calls"
   char const* text;   // a part of its text
};

template <class Hooks>
void expectNamed(Case const& c, bool reads = false) {
   SCOPED_TRACE(c.mistake);
   auto const make = [&] { return Qor::make<MistakenPlatform<Hooks>>(c.mistake, reads); };
   KitReport const report = Kit(make, virtualTime()).run();
   std::string const all = textOf(report);
   KitFinding const* first = nullptr;
   for (KitFinding const& finding : report.findings) {
      bool const fails = finding.result == KitResult::failed && finding.check->number > 1;
      if (fails && !first) first = &finding;
   }
   if (!*c.mistake) {
      EXPECT_TRUE(report.passed()) << all;
      return;
   }
   ASSERT_TRUE(first) << all;
   EXPECT_EQ(first->check->id, std::string(c.check)) << all;
   EXPECT_EQ(first->culprit, c.culprit) << all;
   EXPECT_NE(first->text.find(c.text), std::string::npos) << all;
   // The check of all calls fails for each broken rule, and for nothing else.
   EXPECT_EQ(report.findings.front().result == KitResult::failed,
             all.find(": rule ") != std::string::npos)
         << all;
}

constexpr auto hook = KitCulprit::hook, platform = KitCulprit::platform;

constexpr Case asyncCases[] = {
      {"", KitCulprit::none, "", ""},
      {"id twice", hook, "forwarding", "set-twice"},
      {"handle twice", hook, "forwarding", "entry-twice"},
      {"null transaction", hook, "forwarding", "xact-null"},
      {"never completes", hook, "forwarding", "xact-never"},
      {"no entries needed", hook, "forwarding", "needIngressProgramming returns false"},
      {"second pointing ignored", platform, "forwarding", "doSetMtableOifSet, call"},
      {"sets lose a member", platform, "forwarding", "on the chip: kit4:4"},
      {"wrong vlan", platform, "forwarding", "at kit2"},
      {"source ignored", platform, "forwarding", "matches the same packets"},
      {"route deletion ignored", platform, "forwarding", "doDeleteRoute, call"},
      {"late deletion", platform, "forwarding", "doDeleteRoute, call"},
      {"points elsewhere first", platform, "make-before-break", "the first lost packet"},
      {"star groups ignore the vlan", platform, "star-groups", "from 10.0.0.99"},
      {"VRF ignored", platform, "vrfs", "matches the same packets"},
      {"no copies to the CPU", platform, "cpu-copies", "by the calls: cpu"},
      {"rewrite ignored", platform, "rewrite-in-place", "doUpdateMulticastGroupInPlace, call"},
      {"stale transaction", hook, "rewrite-in-place", "xact-stale"},
      {"empty sets share", hook, "empty-sets", "set-shared"},
      {"complete too early", hook, "blocking-transaction", "blocking-ignored"},
      {"group ignores the blocking", hook, "blocking-transaction", "blocking-ignored"},
      {"pointing ignores the blocking", hook, "blocking-transaction", "blocking-ignored"},
      {"points at a failed group", hook, "failed-set", "pointed-at-failed-set"},
      {"hits never", platform, "hits", "stays at 0"},
      {"hits always", platform, "hits", "before any packet"},
      {"hits ahead", hook, "hits", "hit-ahead"},
      {"group deletion ignored", platform, "room-for-sets", "no other fits"},
};

constexpr Case syncCases[] = {
      {"", KitCulprit::none, "", ""},
      {"index twice", hook, "forwarding", "set-twice"},
      {"index zero", hook, "forwarding", "set-zero"},
      {"handle twice", hook, "forwarding", "entry-twice"},
      {"always full", hook, "forwarding", "full-when-empty"},
      {"wrong vlan", platform, "forwarding", "at kit1"},
      {"pointing ignored", platform, "forwarding", "doSetMtableOifSet, call"},
      {"deletion ignored", platform, "forwarding", "doDeleteMroute, call"},
      {"boundary handle clash", hook, "boundaries", "entry-in-other-table"},
      {"one input with all", platform, "any-input", "at kit2"},
      {"rewrite ignored", platform, "rewrite-in-place", "doAllocateMtableOifSet, call"},
      {"rewrite moves", hook, "rewrite-in-place", "rewrite-moves"},
      {"hit never", platform, "hits", "no review reports it"},
      {"hit sticky", platform, "hits", "reports a hit again"},
      {"never full", hook, "room-for-sets", "refused-with-room"},
      {"free ignored", platform, "room-for-sets", "mtableFull returns true"},
      {"free late", platform, "room-for-sets", "mtableFull returns true"},
      {"empty set takes room", hook, "room-for-sets", "empty-set-refused"},
      {"boundaries stay", platform, "boundaries", "on the chip: nothing"},
      {"not cleared", platform, "end-of-service", "on the chip: kit"},
};

TEST(Kit, EachMistakeOfAnAsynchronousPlatformFailsItsCheck) {
   for (Case const& c : asyncCases)
      expectNamed<AsyncHooks>(c);
}

TEST(Kit, EachMistakeOfASynchronousPlatformFailsItsCheck) {
   for (Case const& c : syncCases)
      expectNamed<SyncHooks>(c);
}

// The same by reading back, without packets.
constexpr Case readCases[] = {
      {"", KitCulprit::none, "", ""},
      {"second pointing ignored", platform, "forwarding", "forwards to kit3:3 on the chip; by the"},
      {"sets lose a member", platform, "forwarding", "forwards to kit4:4 on the chip; by the"},
      {"wrong vlan", platform, "forwarding", "by the calls in VRF 0, 1"},
      {"route deletion ignored", platform, "forwarding", "is on the chip, and not by the calls"},
      {"rewrite ignored", platform, "rewrite-in-place", "doUpdateMulticastGroupInPlace, call"},
};

TEST(Kit, APlatformWithoutAProbeIsReadBack) {
   for (Case const& c : readCases)
      expectNamed<AsyncHooks>(c, true);
}

// ---- Whole platforms. ----

PlatformMaker simulated(bool sync) {
   return [sync]() -> Qor::Ptr<Platform> {
      auto const chip = Qor::make<Sim::Chip>(small);
      if (sync) return Sim::newSyncPlatform(chip);
      return Sim::newAsyncPlatform(chip);
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

TEST(Kit, TheSimulatedChipPassesAllChecksOfItsPath) {
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
   }
   EXPECT_EQ(Qor::activityManager(), before);
}

// The programmer gets other wishes than the kit has noted.
TEST(Kit, ALibraryThatDoesSomethingElseIsAtFault) {
   KitOptions const options = virtualTime();
   auto const before = Qor::activityManager();
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
   Qor::activityManagerIs(before);
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
