// Checked hooks: platforms with one mistake each, and calls that no caller may make, are named by
// their rule; correct platforms are not, also while writes fail and tables are full.
#include <algorithm>
#include <random>
#include <set>
#include <thread>

#include "ProgrammerBench.h"
#include "Routing/Multicast/Fib/VrfConfig.h"

namespace VelMroute {
namespace {

using Hux::Xact;
using Hux::XactPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Qor::U16;
using Qor::U32;

// ---- Platforms with a mistake. ----

struct Mistaken {
   bool is(std::string_view name) const { return mistake == name; }

   // Of the next platform; the reactor calls hooks while the bench is made.
   static inline std::string next;

   std::string const mistake = next;
   U32 given = 0;
};

// Completes a transaction of its own when it pleases.
class AsyncChip final : public Sim::AsyncPlatform, public Mistaken {
 public:
   using AsyncPlatform::AsyncPlatform;

   U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& info, OifSetPtr oifSet,
                                        XactPtr blocking, bool excludeEmptyMcid) override {
      bool const empty = oifSet->portVlanSet().portVlan().empty();
      bool const shares = is("empty group for a reroute") || !excludeEmptyMcid;
      if (is("empty group for a reroute") || is("empty sets share a group, correctly")) {
         if (empty && shares && emptyUsers_++ > 0) return emptyGroup_;
      }
      if (is("group twice") && ++given == 3) return 0;
      U32 const id = AsyncPlatform::doAllocateSharableMulticastGroup(info, oifSet, blocking,
                                                                     excludeEmptyMcid);
      if (empty && shares) emptyGroup_ = id;
      if (id == invalidMulticastId) return is("own number for no group, correctly") ? 4096 : id;
      return id;
   }
   void doDeleteOifSet(U32 id) override {
      if (is("deletion throws")) throw std::runtime_error("busy");
      bool const shares =
            is("empty group for a reroute") || is("empty sets share a group, correctly");
      if (shares && id == emptyGroup_ && emptyUsers_ > 0 && --emptyUsers_ > 0) return;
      firstXact_.erase(id);
      if (!is("deletion of groups ignored")) AsyncPlatform::doDeleteOifSet(id);
   }
   bool mcastIdIsValid(U32 id) override {
      if (is("no group is one")) return true;
      if (is("group denied") && id == 2) return false;
      if (is("group denied later") && id == 2) return ++given < 4;
      if (is("own number for no group, correctly")) return id != 4096;
      return AsyncPlatform::mcastIdIsValid(id);
   }
   XactPtr doGetXactForOifSet(U32 id) override {
      XactPtr const xact = AsyncPlatform::doGetXactForOifSet(id);
      if (is("no transaction of a group")) return nullptr;
      if (is("one complete transaction for all, correctly")) return done_;
      if (is("transaction of a group is stale")) return firstXact_.emplace(id, xact).first->second;
      if (is("transaction never completes") && id == 2) {
         return firstXact_.emplace(id, Qor::make<Xact>()).first->second;
      }
      return xact;
   }
   XactPtr doGetXactForIngress(RouteHandle handle) override {
      XactPtr const xact = AsyncPlatform::doGetXactForIngress(handle);
      if (is("no transaction of an entry")) return nullptr;
      if (is("transaction of an entry is stale")) {
         return firstXact_.emplace(handle.value(), xact).first->second;
      }
      if (is("blocking transaction ignored")) return done_;
      if (is("one complete transaction for all, correctly")) return done_;
      if (is("pointed at a failed group") && handle.value() == 0) {
         after_.xact->stateIs(Xact::State::pending);
         after_.notifierIs(xact);
         return after_.xact;
      }
      if (is("completes twice") || is("other thread completes")) {
         return odd_.at(handle.value());
      }
      return xact;
   }
   RouteHandle doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan, bool bridge,
                               Wisp::Multicast::Fib::RpaIndex rpaId, U32 vrfId) override {
      if (is("handle twice") && ++given == 3) return RouteHandle(0);
      return AsyncPlatform::doAllocateRoute(key, vlan, bridge, rpaId, vrfId);
   }
   void doSetMtableOifSet(RouteHandle handle, U32 id, XactPtr blocking) override {
      if (is("pointing throws")) throw std::runtime_error("busy");
      odd_[handle.value()] = Qor::make<Xact>();
      AsyncPlatform::doSetMtableOifSet(handle, id, blocking);
   }
   void doDeleteRoute(RouteHandle handle) override {
      if (!is("deletion of entries ignored")) AsyncPlatform::doDeleteRoute(handle);
   }
   Qor::String8 doGetXactFailureReason(XactPtr xact, VelHelper::MrouteXactType type) override {
      if (is("reason always")) return "failed";
      return is("no reason") ? "" : AsyncPlatform::doGetXactFailureReason(xact, type);
   }
   Qor::Seconds routeLastAccessedTime(RouteHandle handle) override {
      Qor::Seconds const time = AsyncPlatform::routeLastAccessedTime(handle);
      if (is("hits of tomorrow")) return time + 86400;
      if (is("hits go back") && time > 0) return time / ++given;
      if (is("completes twice")) {
         odd_.at(handle.value())->stateIs(Xact::State::succeeded);
         odd_.at(handle.value())->stateIs(Xact::State::failed);
      }
      if (is("other thread completes")) {
         Xact& xact = *odd_.at(handle.value());
         std::thread([&] { xact.stateIs(Xact::State::succeeded); }).join();
      }
      return time;
   }
   double doGetAdjustedPollingInterval(double const& interval) override {
      if (is("rounds intervals, correctly")) return std::max(4.0, 2.0 * unsigned(interval / 2));
      return is("interval not kept") ? interval / 2 : interval;
   }

 private:
   // Succeeds when the transaction of the chip completes, whichever way.
   struct After final : Xact::Notifiee {
      void onState() override { xact->stateIs(Xact::State::succeeded); }
      Qor::Ptr<Xact> const xact = Qor::make<Xact>();
   };

   U32 emptyGroup_ = invalidMulticastId, emptyUsers_ = 0;
   std::map<U32, XactPtr> firstXact_;
   std::map<U32, Qor::Ptr<Xact>> odd_;
   XactPtr const done_ = Qor::make<Xact>(Xact::State::succeeded);
   After after_;
};

class SyncChip final : public Sim::SyncPlatform, public Mistaken {
 public:
   using SyncPlatform::SyncPlatform;

   void mrouteSwitchInit(U32 switchId, bool start) override {
      if (is("not cleared") && (!start || given++ > 0)) return;
      SyncPlatform::mrouteSwitchInit(switchId, start);
   }
   U32 doAllocateMtableOifSet(U32 switchId, U32 hint, OifSetPtr oifSet) override {
      U32 const index = SyncPlatform::doAllocateMtableOifSet(switchId, hint, oifSet);
      bool const empty = oifSet->portVlanSet().portVlan().empty();
      if (hint != 0 && hint != freshOifSetIndex) return is("rewrite moves") ? index + 1 : index;
      if (empty) return is("empty set refused") ? invalidOifSetIndex : index;
      if (is("index twice") && ++given == 3) return index - 1;
      if (is("index zero")) return 0;
      if (is("index is the hint")) return freshOifSetIndex;
      return index;
   }
   void handleFreeMtableOifSet(U32 switchId, Qor::Ptr<Vel::MtableOifSet> record) override {
      if (is("free throws")) throw std::runtime_error("busy");
      if (is("free ignored")) return;
      if (is("free late")) return late_.push_back(record);
      SyncPlatform::handleFreeMtableOifSet(switchId, record);
   }
   RouteHandle doAllocateMroute(U32 switchId, U16 vrfId, IpGenRouteKey const& key,
                                VlanIdOrNone vlan, bool bridge, U32 index, bool fastDrop,
                                U16 rpaId) override {
      bool const clash = is("handle of the other table") && bridge;
      if (clash || (is("handle twice") && !bridge && ++given == 3)) return RouteHandle(0);
      return SyncPlatform::doAllocateMroute(switchId, vrfId, key, vlan, bridge, index, fastDrop,
                                            rpaId);
   }
   void doDeleteMroute(U32 switchId, U16 vrfId, RouteHandle handle,
                       Qor::Ptr<Vel::Route const> route) override {
      if (!is("deletion ignored")) SyncPlatform::doDeleteMroute(switchId, vrfId, handle, route);
   }
   bool mtableFull(U32 switchId) override {
      if (is("never full")) return false;
      if (is("empty set takes room") && emptySetsAllocated() > 0) return true;
      bool const full = SyncPlatform::mtableFull(switchId);
      for (auto const& record : std::exchange(late_, {}))
         SyncPlatform::handleFreeMtableOifSet(switchId, record);
      return full || is("always full");
   }
   bool mrouteFull(U32 switchId) override {
      return !is("never full for routes") && SyncPlatform::mrouteFull(switchId);
   }
   bool mrouteHitBit(U32 switchId, U16 vrfId, IpGenRouteKey const& key, VlanIdOrNone vlan,
                     bool boundary) override {
      return is("hits without an entry") ||
             SyncPlatform::mrouteHitBit(switchId, vrfId, key, vlan, boundary);
   }
   Qor::U8 mrouteHitBitCacheRefresh(U32 switchId) override {
      Qor::U8 const result = SyncPlatform::mrouteHitBitCacheRefresh(switchId);
      return is("cache result unknown") ? Qor::U8{0} : result;
   }

 private:
   std::vector<Qor::Ptr<Vel::MtableOifSet>> late_;
};

// ---- The bench on these platforms, with checks. ----

struct CheckedAsync {
   using Platform = AsyncChip;
   using RouteTable = AsyncRouteTable;

   CheckedAsync(Qor::Ptr<Sim::Chip> const& chip, Qor::Seconds)
         : platform(Qor::make<Platform>(
                 "sim", chip, Sim::AsyncPlatformConfig{0, 0, {}, {RouteKeyType::bridged}, 0, 0})) {}
   std::unique_ptr<RouteTable> newTable(Surroundings const& s) {
      polling->activityPollingIntervalIs(5);
      return std::make_unique<RouteTable>(AsyncRouteTable::Inputs{.hooks = platform,
                                                                  .checks = checks,
                                                                  .vrfs = vrfs,
                                                                  .vlans = s.vlans,
                                                                  .config = polling,
                                                                  .published = s.hwStatus,
                                                                  .links = s.links});
   }
   void vrfIs(L3::VrfName const& vrf, Vel::VrfId id) { vrfs->newVrfStatus(vrf, id); }

   Qor::Ptr<HookFaults> const faults = Qor::make<HookFaults>();
   static inline U32 refusals = 3;
   HookChecks::Options const checks{.faults = faults, .refusals = refusals};
   Qor::Ptr<Routing::Multicast::Fib::VrfConfig> const polling =
         Qor::make<Routing::Multicast::Fib::VrfConfig>();
   Qor::Ptr<Platform> const platform;
   Qor::Ptr<Routing::Hardware::RouteStatus> const vrfs =
         Qor::make<Routing::Hardware::RouteStatus>();
};

struct CheckedSync {
   using Platform = SyncChip;
   using RouteTable = SyncRouteTable;

   CheckedSync(Qor::Ptr<Sim::Chip> const& chip, Qor::Seconds)
         : platform(Qor::make<Platform>("sim", chip, 1)) {}
   std::unique_ptr<RouteTable> newTable(Surroundings const& s) {
      polling->activityPollingIntervalIs(5);
      SyncRouting::Inputs shared{.hooks = platform,
                                 .checks = checks,
                                 .l3Status = l3Status,
                                 .config = polling,
                                 .published = s.hwStatus};
      return std::make_unique<RouteTable>(
            SyncRouteTable::Inputs{.routing = Qor::make<SyncRouting>(std::move(shared)),
                                   .vlans = s.vlans,
                                   .links = s.links});
   }
   void vrfIs(L3::VrfName const& vrf, Vel::VrfId id) { l3Status->vrfNameToVrfIdIs(vrf.name(), id); }

   Qor::Ptr<HookFaults> const faults = Qor::make<HookFaults>();
   static inline U32 refusals = 3;
   HookChecks::Options const checks{.faults = faults, .refusals = refusals};
   Qor::Ptr<Routing::Multicast::Fib::VrfConfig> const polling =
         Qor::make<Routing::Multicast::Fib::VrfConfig>();
   Qor::Ptr<Platform> const platform;
   Qor::Ptr<Vel::L3Status> const l3Status = Qor::make<Vel::L3Status>();
};

// The ids of the faults' rules, each once: "set-twice entry-twice".
std::string named(HookFaults const& faults) {
   std::string ids;
   for (HookFault const& fault : faults.list())
      if (ids.find(fault.rule->id) == std::string::npos) {
         ids += (ids.empty() ? "" : " ") + std::string(fault.rule->id);
      }
   return ids;
}

std::string texts(HookFaults const& faults) {
   std::ostringstream os;
   for (HookFault const& fault : faults.list())
      os << fault << '\n';
   return os.str();
}

template <class Side>
class Life : public BenchOn<Side> {
 public:
   using Bench = BenchOn<Side>;

   explicit Life(std::string const& mistake)
         : Bench((Mistaken::next = mistake, Sim::ChipConfig{6, 8, 2, 0.001})) {}
   void run(Qor::Seconds seconds) { this->time->runUntil(Qor::now() + seconds); }
   void hitAll() {
      for (auto const& [n, wish] : this->wishes)
         this->receivers(n);
   }
   void reroutable(unsigned n, std::vector<Lnet::IntfId> ports) {
      this->programmer->routeIs(
            this->vrfOf(n), this->keyOf(n),
            {.iif = et(1),
             .outputs = this->surroundings->pool.get(std::move(ports), false, {et(7)})});
   }
   void link(Interface::IntfOperStatus status) {
      this->surroundings->links->newIntfStatus(et(1))->operStatusIs(status);
   }
   void withdrawAll() {
      while (!this->wishes.empty())
         this->del(this->wishes.begin()->first);
   }
   // Empty, few and rewritten sets, hits, a reroute in place, full tables, empty tables, and an
   // end.
   void live() {
      this->change("1 to;2 to");
      run(1);
      this->change("1 to et2 et3;3 to et4;4 to et5 cpu");
      reroutable(50, {et(6)});
      reroutable(51, {});
      run(1);
      hitAll();
      run(70);
      this->change("1 to et2 et4;3 to et3");
      run(1);
      link(Interface::IntfOperStatus::down);
      run(1);
      link(Interface::IntfOperStatus::up);
      for (unsigned n : {50, 51})
         this->programmer->routeDel(this->vrfOf(n), this->keyOf(n));
      this->withdrawAll();
      run(100);
      this->change("5 to et2;6 to et3;7 to et4;8 to et5;9 to et6;10 to et7;11 to et8");
      this->change("12 to et2;13 to et3;14 to et4;15 to et4");
      for (unsigned n = 30; n < 33; ++n)
         this->programmer->routeIs(this->vrfOf(n), this->keyOf(n), {.iif = et(1), .bridge = true});
      run(12);
      hitAll();
      run(25);
      for (unsigned n = 30; n < 33; ++n)
         this->programmer->routeDel(this->vrfOf(n), this->keyOf(n));
      this->withdrawAll();
      run(100);
      this->change("16 to et2;17 to et3;18 to et2");
      run(35);
      this->programmer->end(Programmer::End::clean);
      run(100);
      this->programmer = nullptr;
   }
};

// ---- Platforms with one mistake each. ----

struct Case {
   char const* mistake;
   char const* rule;  // empty: none
};

constexpr Case asyncCases[] = {
      {"", ""},
      {"empty sets share a group, correctly", ""},
      {"own number for no group, correctly", ""},
      {"rounds intervals, correctly", ""},
      {"one complete transaction for all, correctly", ""},
      {"group twice", "set-twice"},
      {"empty group for a reroute", "set-shared"},
      {"group denied", "set-validity"},
      {"group denied later", "set-validity"},
      {"no group is one", "set-validity"},
      {"handle twice", "entry-twice"},
      {"no transaction of a group", "xact-null"},
      {"no transaction of an entry", "xact-null"},
      {"transaction of a group is stale", "xact-stale"},
      {"transaction of an entry is stale", "xact-stale"},
      {"transaction never completes", "xact-never"},
      {"completes twice", "xact-twice"},
      {"other thread completes", "xact-thread"},
      {"blocking transaction ignored", "blocking-ignored"},
      {"pointed at a failed group", "pointed-at-failed-set"},
      {"deletion of groups ignored", "refused-when-empty"},
      {"deletion of entries ignored", "refused-when-empty"},
      {"no reason", "reason-missing"},
      {"hits of tomorrow", "hit-ahead"},
      {"hits go back", "hit-back"},
      {"interval not kept", "interval"},
      {"pointing throws", "throws"},
      {"deletion throws", "deletion-throws"},
};

constexpr Case syncCases[] = {
      {"", ""},
      {"index twice", "set-twice"},
      {"index zero", "set-zero"},
      {"index is the hint", "set-hint"},
      {"empty set refused", "empty-set-refused"},
      {"empty set takes room", "empty-set-takes-room"},
      {"rewrite moves", "rewrite-moves"},
      {"handle twice", "entry-twice"},
      {"handle of the other table", "entry-in-other-table"},
      {"never full", "refused-with-room"},
      {"never full for routes", "refused-with-room"},
      {"always full", "full-when-empty"},
      {"free ignored", "full-when-empty"},
      {"free late", "full-when-empty"},
      {"deletion ignored", "full-when-empty"},
      {"cache result unknown", "hit-cache-result"},
      {"free throws", "deletion-throws"},
};

template <class Side>
void expectNamed(Case const& c) {
   SCOPED_TRACE(c.mistake);
   Life<Side> life(c.mistake);
   if (life.platform->is("no reason") || life.platform->is("pointed at a failed group")) {
      life.platform->faults().failNext(WriteKind::groupCreate, "injected");
   }
   life.live();
   EXPECT_EQ(named(*life.faults), c.rule) << texts(*life.faults);
   for (HookFault const& fault : life.faults->list())
      EXPECT_FALSE(fault.rule->byCaller);
}

TEST(HookChecks, EachMistakeOfAnAsynchronousPlatformIsNamedByItsRule) {
   for (Case const& c : asyncCases)
      expectNamed<CheckedAsync>(c);
}

TEST(HookChecks, EachMistakeOfASynchronousPlatformIsNamedByItsRule) {
   for (Case const& c : syncCases)
      expectNamed<CheckedSync>(c);
}

TEST(HookChecks, TheProgrammerFailsARouteWithTheFaultAndTriesAgain) {
   Life<CheckedAsync> life("handle twice");
   life.change("1 to et2;2 to et3;3 to et2");
   life.run(1);
   auto const refused = *life.route(3);
   EXPECT_EQ(refused.state(), State::failed);
   EXPECT_EQ(refused.reason().substr(0, 40), "the hook doAllocateRoute threw: doAlloca");
   EXPECT_NE(refused.reason().find("rule 9 entry-twice: handle 0 is given out for (10.0.0.1, "
                                   "239.0.0.3), and in use for (10.0.0.1, 239.0.0.1) since"),
             std::string::npos)
         << refused.reason();
   life.run(12);
   life.drain();
   EXPECT_EQ(life.states(), "inHardware 1 2 3");
}

// ---- Calls that no caller may make, and rules that no life of the programmer shows. ----

struct Calls : VirtualTime {
   explicit Calls(char const* mistake)
         : async((Mistaken::next = mistake, Qor::make<AsyncChip>("sim", chip))) {
      for (unsigned i = 1; i <= 8; ++i)
         EXPECT_EQ(chip->portAdd(et(i), i, Bridging::VlanIdOrNone(Qor::U64{i})), "");
      if (!sync->is("never started")) syncGate->mrouteSwitchInit(1, true);
   }
   static OifSetPtr set(unsigned out) {
      MrouteLib::PortVlanSet set(RouteKeyType::routed);
      set.newPortVlan(MrouteLib::PortVlan(et(out), Bridging::VlanIdOrNone(Qor::U64{out})), true);
      return Qor::make<MrouteLib::OifSet>(nullptr, set);
   }
   U32 group(unsigned out = 2) {
      return gate->doAllocateSharableMulticastGroup({}, set(out), nullptr, false);
   }
   U32 index(unsigned out = 2) { return syncGate->doAllocateMtableOifSet(1, 0, set(out)); }
   RouteHandle entry(U32 index, unsigned n = 1) {
      return syncGate->doAllocateMroute(1, 0, testSupport::key(n), Bridging::VlanIdOrNone(1u),
                                        false, index, false, 0);
   }
   void free(U32 index) {
      auto const record = Vel::mtableOifSetFactory(set(2), false, nullptr);
      record->oifSetIndexIs(index);
      syncGate->handleFreeMtableOifSet(1, record);
   }

   Qor::Ptr<Sim::Chip> const chip = Qor::make<Sim::Chip>(Sim::ChipConfig{6, 8, 2, 0.001});
   Qor::Ptr<AsyncChip> const async;
   Qor::Ptr<SyncChip> const sync = Qor::make<SyncChip>("sim", chip, 1);
   Qor::Ptr<AsyncHookGate> const gate = Qor::make<AsyncHookGate>(async, HookChecks::Options{});
   Qor::Ptr<SyncHookGate> const syncGate = Qor::make<SyncHookGate>(sync, HookChecks::Options{});
};

struct CallCase {
   HookPath path;
   char const* rule;
   char const* mistake;
   void (*play)(Calls& c);
};

constexpr CallCase callCases[] = {
      {HookPath::async, "set-unknown", "", [](Calls& c) { c.gate->doDeleteOifSet(7); }},
      {HookPath::async, "set-unknown", "",
       [](Calls& c) { c.gate->doUpdateMulticastGroupInPlace(Calls::set(2), 7); }},
      {HookPath::async, "set-in-use", "",
       [](Calls& c) {
          U32 const id = c.group();
          auto const handle = c.gate->doAllocateRoute(testSupport::key(1), {}, false, {}, 0);
          c.gate->doSetMtableOifSet(handle, id, nullptr);
          c.gate->doDeleteOifSet(id);
       }},
      {HookPath::async, "entry-unknown", "",
       [](Calls& c) { c.gate->doDeleteRoute(RouteHandle(0xFFFFFFF0)); }},
      {HookPath::async, "service", "",
       [](Calls& c) {
          c.gate->openIs(false);
          c.gate->doDeleteOifSet(c.group());
       }},
      {HookPath::async, "caller-thread", "",
       [](Calls& c) { std::thread([&] { c.gate->mcastIdIsValid(1); }).join(); }},
      {HookPath::async, "reason-early", "reason always",
       [](Calls& c) {
          c.gate->doGetXactFailureReason(Qor::make<Xact>(), VelHelper::MrouteXactType::ingress);
       }},
      {HookPath::sync, "set-unknown", "",
       [](Calls& c) { c.syncGate->doAllocateMtableOifSet(1, 7, Calls::set(2)); }},
      {HookPath::sync, "set-unknown", "", [](Calls& c) { c.free(c.index()); }},  // of another set
      {HookPath::sync, "set-in-use", "",
       [](Calls& c) {
          auto const set = Calls::set(2);
          auto const record = Vel::mtableOifSetFactory(set, false, nullptr);
          record->oifSetIndexIs(c.syncGate->doAllocateMtableOifSet(1, 0, set));
          c.entry(record->oifSetIndex());
          c.syncGate->handleFreeMtableOifSet(1, record);
       }},
      {HookPath::sync, "entry-unknown", "",
       [](Calls& c) { c.syncGate->doSetMtableOifSet(1, 0, RouteHandle(7), nullptr, 0); }},
      {HookPath::sync, "arguments", "",
       [](Calls& c) {
          c.syncGate->doAllocateMroute(1, 0, testSupport::key(1), Bridging::VlanIdOrNone(1u), true,
                                       0, true, 0);
       }},
      {HookPath::sync, "service", "never started", [](Calls& c) { c.index(); }},
      {HookPath::sync, "service", "",
       [](Calls& c) {
          c.syncGate->mrouteSwitchInit(1, false);
          c.entry(0);
       }},
      {HookPath::sync, "caller-thread", "",
       [](Calls& c) { std::thread([&] { c.syncGate->mtableFull(1); }).join(); }},
      {HookPath::sync, "hit-without-entry", "hits without an entry",
       [](Calls& c) { c.syncGate->mrouteHitBit(1, 0, testSupport::key(1), {}, false); }},
      {HookPath::sync, "full-when-empty", "not cleared",
       [](Calls& c) {
          for (unsigned out = 2; out < 8; ++out)
             c.index(out);
          c.syncGate->mrouteSwitchInit(1, false);
          c.syncGate->mrouteSwitchInit(1, true);
          c.syncGate->mtableFull(1);
       }},
};

TEST(HookChecks, EachWrongCallIsNamedByItsRule) {
   for (CallCase const& c : callCases) {
      SCOPED_TRACE(c.rule);
      Calls calls(c.mistake);
      c.play(calls);
      HookFaults const& faults = c.path == HookPath::async ? *calls.gate->checks()->faults()
                                                           : *calls.syncGate->checks()->faults();
      EXPECT_EQ(named(faults), c.rule) << texts(faults);
   }
}

// ---- Correct platforms, at random. ----

// The chip and its shadow forward alike, and each table has as many entries. After a failed rewrite
// the group is as it was.
template <class Side>
void expectAlike(Life<Side>& life) {
   Shadow const& shadow = *life.mrouteTable->shadow();
   EXPECT_EQ(shadow.routes(), life.chip->routes().size());
   EXPECT_EQ(shadow.boundaries(), life.chip->boundaries().size());
   auto const isUp = [&](Lnet::IntfId intf) { return life.chip->port(intf)->linkUp; };
   for (unsigned n = 1; n <= 20; ++n) {
      for (unsigned vlan = 1; vlan <= 2; ++vlan) {
         auto const key = testSupport::key(n);
         Packet const packet{0, key.source().address(), key.group().address(),
                             Bridging::VlanIdOrNone(vlan)};
         Forwarded const asked = shadow.forward(packet, isUp);
         Forwarded const sent = life.chip->forward(packet);
         EXPECT_EQ(asked.entry.has_value(), sent.entry.has_value()) << n;
         auto const* const entry = asked.entry ? shadow.entry(RouteHandle(*asked.entry)) : nullptr;
         auto const* const set = entry && entry->set ? shadow.set(*entry->set) : nullptr;
         if (set && set->write && set->write->state() == Xact::State::failed) continue;
         EXPECT_EQ(asked.result, sent.result) << n;
         EXPECT_EQ(asked.copies, sent.copies) << n;
         EXPECT_EQ(asked.toCpu, sent.toCpu) << n;
      }
   }
}

template <class Side>
void liveAtRandom(unsigned seed) {
   SCOPED_TRACE(seed);
   Side::refusals = 8;
   Life<Side> life("");
   std::mt19937 random(seed);
   auto const pick = [&](unsigned below) { return random() % below; };
   auto& faults = life.platform->faults();
   faults.seedIs(seed);
   for (std::size_t i = 0; i < Sim::writeKinds; ++i)
      faults.rateIs(static_cast<WriteKind>(i), 0.05);
   for (unsigned step = 0; step < 400; ++step) {
      unsigned const n = 1 + pick(16);
      std::string outputs = pick(8) == 0 ? "cpu" : "";
      for (unsigned out = 3; out <= 8; ++out)
         if (pick(4) == 0) outputs += " et" + std::to_string(out);
      switch (pick(8)) {
         case 0:
            life.del(n);
            break;
         case 1:
            life.reroutable(n, {et(3 + pick(3))});
            break;
         case 2:
            life.link(pick(2) ? Interface::IntfOperStatus::down : Interface::IntfOperStatus::up);
            break;
         case 3:
            EXPECT_EQ(life.chip->linkIs(et(1 + pick(8)), pick(2) == 0), "");
            break;
         default:
            life.set(n, outputs, 1 + pick(2));
      }
      life.run(pick(30) * 0.1);
      if (step % 10 != 0) continue;
      life.pass();
      expectAlike(life);
   }
   EXPECT_GT(faults.injected(), 10u);
   EXPECT_EQ(life.faults->count(), 0u) << texts(*life.faults);
}

TEST(HookChecks, ACorrectPlatformIsSilentAndItsShadowForwardsAsTheChipDoes) {
   for (unsigned seed = 1; seed <= 3; ++seed) {
      liveAtRandom<CheckedAsync>(seed);
      liveAtRandom<CheckedSync>(seed);
   }
   CheckedAsync::refusals = CheckedSync::refusals = 3;
}

TEST(Shadow, AnEntryBehindAnotherOneShowsWhenThatOneGoes) {
   Shadow shadow;
   HookCall const call{"doAllocateRoute", 1, 0.5};
   MrouteLib::PortVlanSet set(RouteKeyType::routed);
   set.newPortVlan(testSupport::pv("et2"), true);
   Shadow::Entry entry;
   entry.key = testSupport::key(1);
   entry.lastCall = call;
   RouteHandle const first(0xFFFFFFF0), second(7);
   shadow.setMade(0xFFFFFFF1, set, false, call);
   shadow.entryMade(first, entry);
   shadow.entryMade(second, entry);
   shadow.entryPointed(second, 0xFFFFFFF1, {"doSetMtableOifSet", 2, 0.5});
   Packet const packet{0, entry.key.source().address(), entry.key.group().address(), {}};
   EXPECT_EQ(shadow.forward(packet).result, Forwarding::notPointed);
   shadow.entryDeleted(first, {"doDeleteRoute", 3, 0.5});
   EXPECT_EQ(shadow.forward(packet).result, Forwarding::forwarded);
   EXPECT_EQ(shadow.forward(packet).entry, 7u);
   EXPECT_EQ(shadow.lastCallOfEntry(first)->number, 3u);
   EXPECT_EQ(shadow.lastCallOfEntry(second)->number, 2u);
   EXPECT_EQ(shadow.set(0xFFFFFFF1)->entries, 1u);
}

// ---- The rules. ----

TEST(HookRules, EachStandsInAHeaderAndInTheGuideAndIsShown) {
   std::string const async = testSupport::sourceText("Vel/VelAsyncMrouteHelper.h") +
                             testSupport::sourceText("model/Hux/Xact.h");
   std::string const sync = testSupport::sourceText("Vel/VelSyncMrouteHelper.h");
   std::string const guide = testSupport::sourceText("docs/bring-up.md");
   std::set<std::string> shown;
   for (Case const& c : asyncCases)
      shown.insert(std::string("async ") + c.rule);
   for (Case const& c : syncCases)
      shown.insert(std::string("sync ") + c.rule);
   for (CallCase const& c : callCases)
      shown.insert((c.path == HookPath::async ? "async " : "sync ") + std::string(c.rule));
   for (HookRule const& rule : hookRules()) {
      std::ostringstream name, row;
      name << rule.path << ' ' << rule.id;
      row << "| " << rule.number() << " | " << rule.id << " | " << rule.path << " | " << rule.hooks
          << " | " << rule.sentence << " |";
      SCOPED_TRACE(name.str());
      EXPECT_NE((rule.path == HookPath::async ? async : sync).find(rule.sentence),
                std::string::npos);
      EXPECT_NE(guide.find(row.str()), std::string::npos) << row.str();
      EXPECT_EQ(shown.count(name.str()), 1u);
   }
}

TEST(HookChecks, AGateWithoutHooksIsAnError) {
   EXPECT_EQ(testSupport::errorText([] { Qor::make<AsyncHookGate>(nullptr); }),
             "VelMroute::AsyncHookGate::hooks null not allowed");
   EXPECT_EQ(testSupport::errorText([] { Qor::make<SyncHookGate>(nullptr); }),
             "VelMroute::SyncHookGate::hooks null not allowed");
}

}  // namespace
}  // namespace VelMroute
