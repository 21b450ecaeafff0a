// Checked hooks: wrong calls and rules that no life of an agent shows are named by their rule, and
// the shadow of the tables. The tests of the kit have the mistakes of platforms.
#include <set>
#include <sstream>

#include "MistakenHooks.h"
#include "TestSupport.h"
#include "hooks/AsyncHookGate.h"
#include "hooks/SyncHookGate.h"

namespace VelMroute {
namespace {

// ---- Calls through the gates. ----

using testSupport::key;

struct Calls {
   explicit Calls(char const* mistake)
         : async(Qor::make<AsyncHooks>(chip, mistake)), sync(Qor::make<SyncHooks>(chip, mistake)) {
      Qor::activityManagerIs(time);
      for (unsigned i = 1; i <= 8; ++i)
         EXPECT_EQ(chip->portAdd(et(i), i, Bridging::VlanIdOrNone(Qor::U64{i})), "");
      if (!sync->is("never started")) syncGate->mrouteSwitchInit(1, true);
   }
   ~Calls() { Qor::activityManagerIs(nullptr); }
   static Lnet::IntfId et(unsigned i) { return Lnet::IntfId("et" + std::to_string(i)); }
   static OifSetPtr set(unsigned out) {
      MrouteLib::PortVlanSet set(Routing::Multicast::Fib::RouteKeyType::routed);
      set.newPortVlan(MrouteLib::PortVlan(et(out), Bridging::VlanIdOrNone(Qor::U64{out})), true);
      return Qor::make<MrouteLib::OifSet>(nullptr, set);
   }
   U32 group(unsigned out = 2) {
      return gate->doAllocateSharableMulticastGroup({}, set(out), nullptr, false);
   }
   RouteHandle route() { return gate->doAllocateRoute(key(1), {}, false, {}, 0); }
   U32 index(unsigned out = 2) { return syncGate->doAllocateMtableOifSet(1, 0, set(out)); }
   RouteHandle entry(U32 index, bool bridge = false, bool fastDrop = false) {
      return syncGate->doAllocateMroute(1, 0, key(1), Bridging::VlanIdOrNone(1u), bridge, index,
                                        fastDrop, 0);
   }
   void free(U32 index) {
      auto const record = Vel::mtableOifSetFactory(set(2), false, nullptr);
      record->oifSetIndexIs(index);
      syncGate->handleFreeMtableOifSet(1, record);
   }

   Qor::Ptr<Qor::ActivityManager> const time =
         Qor::make<Qor::ActivityManager>(Qor::ActivityManager::TimeBase::virtualTime);
   Qor::Ptr<Sim::Chip> const chip = Qor::make<Sim::Chip>(Sim::ChipConfig{6, 8, 2, 0.001});
   Qor::Ptr<AsyncHooks> const async;
   Qor::Ptr<SyncHooks> const sync;
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
          auto const handle = c.route();
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
      // A chip that is full behind the last deletion.
      {HookPath::async, "refused-when-empty", "group deletion ignored",
       [](Calls& c) {
          for (unsigned n = 0; n < 6; ++n)
             c.gate->doDeleteOifSet(c.group());
          c.time->advance(100);
          for (unsigned n = 0; n < 3; ++n)
             c.group();
       }},
      {HookPath::async, "refused-when-empty", "route deletion ignored",
       [](Calls& c) {
          for (unsigned n = 0; n < 8; ++n)
             c.gate->doDeleteRoute(c.route());
          c.time->advance(100);
          for (unsigned n = 0; n < 3; ++n)
             c.route();
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
      {HookPath::sync, "arguments", "", [](Calls& c) { c.entry(0, true, true); }},
      {HookPath::sync, "service", "never started", [](Calls& c) { c.index(); }},
      {HookPath::sync, "service", "",
       [](Calls& c) {
          c.syncGate->mrouteSwitchInit(1, false);
          c.entry(0);
       }},
      {HookPath::sync, "caller-thread", "",
       [](Calls& c) { std::thread([&] { c.syncGate->mtableFull(1); }).join(); }},
      {HookPath::sync, "hit-without-entry", "hits without an entry",
       [](Calls& c) { c.syncGate->mrouteHitBit(1, 0, key(1), {}, false); }},
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
      std::set<std::string> named;
      for (HookFault const& fault : faults.list())
         named.insert(fault.rule->id);
      EXPECT_EQ(named, std::set<std::string>{c.rule});
   }
}

// ---- The shadow and the rules. ----

TEST(Shadow, AFailedRewriteLeavesTheSetAsItWas) {
   Calls c("");
   U32 const index = c.index(2);
   c.sync->faults().failNext(Sim::WriteKind::groupUpdate, "parity error");
   EXPECT_EQ(c.syncGate->doAllocateMtableOifSet(1, index, Calls::set(3)),
             SyncHooks::invalidOifSetIndex);
   EXPECT_EQ(c.syncGate->checks()->shadow(1)->set(index)->members,
             (std::vector{testSupport::pv("et2", 2)}));
}

TEST(Shadow, AnEntryBehindAnotherOneShowsWhenThatOneGoes) {
   Shadow shadow;
   HookCall const call{"doAllocateRoute", 1, 0.5};
   MrouteLib::PortVlanSet set(Routing::Multicast::Fib::RouteKeyType::routed);
   set.newPortVlan(testSupport::pv("et2"), true);
   Shadow::Entry entry;
   entry.key = key(1);
   entry.lastCall = call;
   RouteHandle const first(0xFFFFFFF0), second(7);
   shadow.setMade(0xFFFFFFF1, set, false, call);
   shadow.entryMade(first, entry);
   shadow.entryMade(second, entry);
   shadow.entryPointed(second, 0xFFFFFFF1, {"doSetMtableOifSet", 2, 0.6});
   EXPECT_EQ(shadow.changedAt(), 0.6);
   Packet const packet{0, entry.key.source().address(), entry.key.group().address(), {}};
   EXPECT_EQ(shadow.forward(packet).result, Forwarding::notPointed);
   shadow.entryDeleted(first, {"doDeleteRoute", 3, 0.7});
   EXPECT_EQ(shadow.changedAt(), 0.7);
   EXPECT_EQ(shadow.forward(packet).result, Forwarding::forwarded);
   EXPECT_EQ(shadow.forward(packet).entry, 7u);
   EXPECT_EQ(shadow.lastCallOfEntry(first)->number, 3u);
   EXPECT_EQ(shadow.lastCallOfEntry(second)->number, 2u);
   EXPECT_EQ(shadow.set(0xFFFFFFF1)->entries, 1u);
}

TEST(HookRules, EachStandsInAHeaderAndInTheGuideAndIsShown) {
   std::string const async = testSupport::sourceText("Vel/VelAsyncMrouteHelper.h") +
                             testSupport::sourceText("model/Hux/Xact.h");
   std::string const sync = testSupport::sourceText("Vel/VelSyncMrouteHelper.h");
   std::string const guide = testSupport::sourceText("docs/bring-up.md");
   std::set<std::string> shown;
   auto const show = [&](char const* path, char const* rules) {
      std::istringstream in(rules);
      for (std::string rule; in >> rule;)
         shown.insert(path + rule);
   };
   for (Mistakes::Case const& c : Mistakes::async)
      show("async ", c.rules);
   for (Mistakes::Case const& c : Mistakes::sync)
      show("sync ", c.rules);
   for (CallCase const& c : callCases)
      show(c.path == HookPath::async ? "async " : "sync ", c.rule);
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
