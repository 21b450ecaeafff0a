// Fast reroute of the asynchronous per-switch reactor.
#include "VelAsyncSmTestSupport.h"

namespace velAsync {
namespace {

using Bfd::OperState;
using Bfd::SessionType;

class AsyncSmFrr : public AsyncSm {
 protected:
   // The reactor, and the cost of a rewrite in seconds.
   void start(Qor::Seconds cost = 0) {
      sm_ = inputs_.sm(switch_);
      onHook_ = [this, cost](std::string_view hook) {
         if (hook != "doUpdateMulticastGroupInPlace") return;
         ++rewrites_;
         time_->advance(cost);
      };
   }
   // The routes n, first <= n < last, each with a set of its own, to et2 and covered by et3.
   void covered(unsigned first, unsigned last, unsigned iif = 1) {
      for (unsigned n = first; n < last; ++n)
         routes_.push_back(program(n, set({2}, iif, {3})));
   }
   std::size_t waiting() const { return switch_->frrProcessingOifSet().size(); }
   bool armed() const { return sm_->clock() && sm_->clock()->timeMin() <= Qor::maxFinite; }
   std::string receiversOfAll() {
      std::string all;
      for (unsigned n = 0; n < routes_.size(); ++n)
         all += (n ? "," : "") + receivers(n);
      return all;
   }
   Bfd::BfdPeerStatus& session(SessionType type = SessionType::singleHop) {
      return *inputs_.bfdAllPeerStatus->newPeerStatus(
            Bfd::Peer(type, addr("10.0.1.1"), intf(1), VrfName("default")));
   }

   std::vector<Route> routes_;
   unsigned rewrites_ = 0;
};

TEST_F(AsyncSmFrr, OnlyDownAndLowerLayerDownAreFailures) {
   start();
   for (unsigned state = 1; state <= 7; ++state) {
      inputs_.ethIntfStatusDir->newIntfStatus(intf(1))->operStatusIs(IntfOperStatus(0));
      Journal traces;
      down(1, IntfOperStatus(state));
      EXPECT_EQ(traces.like("8 review").size(), state == 2 || state == 7 ? 1u : 0u) << state;
   }
}

// Sessions that go from adminDown through the states: the number of reroutes, the remembered state,
// and the number of traces of the interface.
TEST_F(AsyncSmFrr, ASessionReroutesOnceForEachTimeItComesDown) {
   auto const [admin, dn, init, up] =
         std::array{OperState::adminDown, OperState::down, OperState::init, OperState::up};
   struct Case {
      SessionType type;
      std::vector<OperState> states;
      std::size_t reroutes;
      OperState remembered;
      long intfTraces;
   };
   for (Case const& c : std::vector<Case>{{SessionType::singleHop, {up, dn}, 1, dn, 2},
                                          {SessionType::singleHop, {dn, init, dn}, 2, dn, 5},
                                          {SessionType::singleHop, {dn, up, dn}, 2, dn, 4},
                                          {SessionType::singleHop, {up, admin}, 0, admin, 1},
                                          {SessionType::multihop, {up, dn}, 0, up, 0},
                                          {SessionType::none, {dn}, 0, admin, 0},
                                          {SessionType::micro, {dn, up, dn}, 0, up, 0}}) {
      SCOPED_TRACE(testing::PrintToString(c.states));
      inputs_.bfdAllPeerStatus->peerStatusDelAll();
      start();
      Journal traces;
      for (OperState const state : c.states)
         session(c.type).statusIs(state);
      EXPECT_EQ(traces.count("8 handleBfdStatus Intf et1"), c.intfTraces);
      auto& reactor = *sm_->bfdStatus(session(c.type).peer());
      EXPECT_EQ(reactor.peerState(), c.remembered);
      reactor.handleBfdStatus();  // notified again without a change
      EXPECT_EQ(traces.like("8 review").size(), c.reroutes);
      freshSwitch();
   }
}

// The session comes up while its reroute is under way, and fails again.
TEST_F(AsyncSmFrr, ASessionThatRecoversDuringItsRerouteMayFailAgain) {
   covered(0, 1);
   start();
   onHook_ = [&](std::string_view hook) {
      if (hook == "doUpdateMulticastGroupInPlace") session().statusIs(OperState::up);
   };
   session().statusIs(OperState::down);
   EXPECT_EQ(sm_->bfdStatus(session().peer())->peerState(), OperState::up);
   covered(1, 2);
   session().statusIs(OperState::down);
   EXPECT_EQ(receiversOfAll(), "et3,et3");
}

// The session's last status arrives after its removal.
TEST_F(AsyncSmFrr, AStatusOfARemovedSessionIsIgnored) {
   start();
   Qor::Ptr<Bfd::BfdPeerStatus> const gone(&session());
   inputs_.bfdAllPeerStatus->peerStatusDelAll();
   sm_->bfdStatusIs(gone);
   Journal traces;
   gone->statusIs(OperState::up);
   EXPECT_EQ(traces.take(), Lines{"2 bfdState is deleted singleHop 10.0.1.1 et1 default"});
   EXPECT_EQ(sm_->bfdStatus(gone->peer())->peerState(), OperState());
}

TEST_F(AsyncSmFrr, EventsBeforeInitialisationAreDropped) {
   covered(0, 1);
   session();
   start();
   sm_->initializedIs(false);
   Journal traces;
   down(1);
   session().statusIs(OperState::down);
   EXPECT_EQ(traces.take(), Lines{"2 SM uninitialized, ignore event"});
   EXPECT_EQ(receiversOfAll(), "et2");
}

// The next slice goes on with the set at which the last one stopped, and wraps.
TEST_F(AsyncSmFrr, ASliceGoesOnWhereTheLastOneStopped) {
   Journal traces;
   auto const walk = [&] {
      std::string ids;
      for (std::string const& line : traces.like("8 : Overwrite"))
         ids += line.substr(line.rfind(' '));
      traces.take();
      return ids;
   };
   covered(0, 6);
   start(0.06);
   down(1);
   EXPECT_EQ(waiting(), 4u);
   covered(6, 8);  // these take the places of the first two in the walk
   sm_->updateFrrMtableOif(intf(1));
   while (waiting())
      time_->runDue();
   EXPECT_EQ(walk(), " 0 1 2 3 4 5 6 7");
}

// Six sets wait for et1, two rewrites fit into a slice. Between the first two slices something
// happens. The result lists the receivers of all routes.
TEST_F(AsyncSmFrr, ADrainFollowsTheSetsThatWait) {
   struct Case {
      char const* name;
      std::function<void()> between;
      unsigned rewrites;
      std::string receivers;
   };
   auto const waitingSet = [this](unsigned n) { return routes_[n].record->oifSet(); };
   std::string const all = "et3,et3,et3,et3,et3,et3";
   Case const cases[] = {
         {"nothing", [] {}, 6, all},
         {"withdrawn", [&] { switch_->frrProcessingOifSetDel(waitingSet(4)); }, 5,
          "et3,et3,et3,et3,et2,et3"},
         {"all withdrawn", [&] { switch_->frrProcessingOifSetDelAll(); }, 2,
          "et3,et3,et2,et2,et2,et2"},
         {"next set and route gone",
          [&] {
             withdraw(routes_[2]);
             routes_.erase(routes_.begin() + 2);
          },
          5, "et3,et3,noRoute,et3,et3"},
         {"entered again",
          [&] {
             OifSetPtr const next = waitingSet(2);
             auto const named = switch_->frrProcessingOifSet(next);
             switch_->frrProcessingOifSetDel(next);
             switch_->frrProcessingOifSetIs(next, named);
          },
          6, all},
         {"rewritten set entered again",
          [&] {
             switch_->frrProcessingOifSetIs(waitingSet(0), switch_->inUseRecord(waitingSet(0)));
          },
          7, all},
         {"another set of the interface",
          [&] {
             covered(6, 7);
             down(1, IntfOperStatus::lowerLayerDown);
          },
          7, all + ",et3"},
         {"a failure of another interface",
          [&] {
             covered(6, 9, 4);
             down(4);
          },
          9, all + ",et3,et3,et3"},
   };
   for (Case const& c : cases) {
      SCOPED_TRACE(c.name);
      covered(0, 6);
      start(0.06);
      rewrites_ = 0;
      down(1);
      EXPECT_EQ(rewrites_, 2u);
      c.between();
      for (unsigned turns = 0; waiting() > 0; ++turns) {
         ASSERT_LT(turns, 9u);
         Qor::Seconds const begun = time_->now();
         unsigned const before = rewrites_;
         time_->runDue();
         EXPECT_LT(time_->now() - begun, Vel::frrPassBudget + 0.06);
         EXPECT_GT(rewrites_, before);
      }
      EXPECT_EQ(rewrites_, c.rewrites);
      EXPECT_EQ(receiversOfAll(), c.receivers);
      time_->runDue();
      EXPECT_FALSE(armed());
      for (unsigned const failed : {1u, 4u})
         down(failed, IntfOperStatus::up);
      for (Route& route : routes_)
         withdraw(route);
      routes_.clear();
      sm_ = nullptr;
      freshSwitch();
   }
}

// The steps of a drain in slices grow with the sets, not with the sets times the slices.
TEST_F(AsyncSmFrr, ADrainVisitsEachWaitingSetOnce) {
   using Map = Qor::HashMap<OifSetPtr, int>;
   struct Counted : Map {
      unsigned* steps;
      auto begin() const { return ++*steps, Map::begin(); }
      auto position(OifSetPtr const& set) const { return ++*steps, Map::position(set); }
      auto resume(Map::ConstIterator at, OifSetPtr const& set) const {
         return ++*steps, Map::resume(at, set);
      }
   };
   unsigned steps = 0, rewrites = 0, passes = 0;
   Counted waiting;
   waiting.steps = &steps;
   unsigned const sets = 1000, setsOfAPass = 7;
   for (unsigned n = 0; n < sets; ++n)
      waiting.insert(set({2}, 1, {3}), 0);
   OifSetPtr next;
   for (; passes == 0 || next; ++passes) {
      next = Vel::frrPass(waiting, next, time_->now() + setsOfAPass,
                          [&](OifSetPtr const& oifSet, int, Qor::Seconds) {
                             ++rewrites;
                             time_->advance(1);
                             waiting.take(oifSet);
                          });
   }
   EXPECT_EQ(rewrites, sets);
   EXPECT_EQ(passes, (sets + setsOfAPass - 1) / setsOfAPass);
   EXPECT_LE(steps, sets + 2 * passes);
}

// The walk itself is the last user of a record then, and the end of the record withdraws the next
// set from the walk.
TEST_F(AsyncSmFrr, TheLastUserOfARecordMayLeaveWhileItsSetIsTaken) {
   struct Listener final : AsyncMrouteSwitch::Notifiee {
      void onFrrProcessingOifSet(OifSetPtr const&) override { unused = nullptr; }
      void onInUseOifSet(OifSetPtr const&) override { chip->frrMtableOifSetDel(next); }
      MrouteLib::MtableOifSetPtr unused;
      OifSetPtr next;
      AsyncMrouteSwitch* chip = nullptr;
   } listener;
   listener.next = set({4}, 1, {5});
   listener.unused = record(set({2}, 1, {3}));
   routes_ = {program(0, listener.next)};
   listener.chip = switch_.get();
   listener.notifierIs(switch_);
   start();
   down(1);
   EXPECT_EQ(receiversOfAll(), "et4");
}

TEST_F(AsyncSmFrr, AReactorTakesItsPositionAlongAndTheNextGoesOnAtConstruction) {
   covered(0, 4);
   start(0.06);
   down(1);
   OifSetPtr const stopped = switch_->frrProcessingOifSet().begin()->first;
   Qor::U32 const references = stopped->references();
   sm_ = nullptr;
   EXPECT_EQ(stopped->references(), references - 1);
   start();
   EXPECT_EQ(receiversOfAll(), "et3,et3,et3,et3");
}

// The pass over the former switch ends as it began, and the clock is the present one's.
TEST_F(AsyncSmFrr, AHookMayReplaceTheSwitchDuringAPass) {
   for (unsigned const waitInOther : {0u, 3u}) {
      start(waitInOther ? 0.06 : 0);
      auto const first = switch_;
      covered(0, waitInOther ? 1 : 2);
      freshSwitch();
      auto const other = switch_;
      covered(10, 10 + waitInOther);
      while (!other->frrMtableOifSet().empty()) {
         auto const [set, record] = *other->frrMtableOifSet().begin();
         other->frrMtableOifSetDel(set);
         other->frrProcessingOifSetIs(set, record);
      }
      onHook_ = [&, counted = onHook_](std::string_view hook) {
         counted(hook);
         if (hook == "doUpdateMulticastGroupInPlace" && sm_->mrouteSwitch() == first) {
            sm_->mrouteSwitchIs(other);
         }
      };
      rewrites_ = 0;
      down(1);
      EXPECT_TRUE(first->frrProcessingOifSet().empty());
      time_->runDue();
      EXPECT_TRUE(other->frrProcessingOifSet().empty());
      EXPECT_EQ(rewrites_, waitInOther ? 4u : 2u);
      EXPECT_FALSE(armed());
      down(1, IntfOperStatus::up);
      routes_.clear();
      freshSwitch();
   }
}

// The hook of the first rewrite throws, or a listener does before the first pass.
TEST_F(AsyncSmFrr, AnErrorOfARerouteLeavesNoSetBehind) {
   struct Thrower final : AsyncMtableOifSet::Notifiee {
      void onDirty() override { throw std::runtime_error("dirty"); }
   };
   for (bool const inHook : {true, false}) {
      covered(0, 3);
      start();
      Thrower thrower;
      if (inHook) {
         onHook_ = [this](std::string_view hook) {
            if (hook != "doUpdateMulticastGroupInPlace" || rewrites_++ != 0) return;
            throw std::runtime_error("rewrite");
         };
      } else {
         thrower.notifierIs(Qor::ptrCast<AsyncMtableOifSet>(routes_[2].record).get());
      }
      EXPECT_THROW(down(1), std::runtime_error);
      thrower.notifierIs(nullptr);
      EXPECT_GT(waiting(), 0u);
      EXPECT_EQ(sm_->clock()->timeMin(), time_->now() + Qor::Clock::retryGap);
      time_->runUntil(time_->now() + Qor::Clock::retryGap);
      EXPECT_EQ(waiting(), 0u);
      EXPECT_FALSE(armed());
      EXPECT_EQ(receiversOfAll(), inHook ? "et3,et3,et3" : "et3,et3,et2");
      down(1, IntfOperStatus::up);
      for (Route& route : routes_)
         withdraw(route);
      routes_.clear();
      sm_ = nullptr;
      freshSwitch();
   }
}

}  // namespace
}  // namespace velAsync
