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
         routes_.push_back(program(n, ownSet({2}, iif, {3})));
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

TEST_F(AsyncSmFrr, OnlySetsThatComeInOverTheFailedInterfaceAndHaveBackupsAreTaken) {
   OifSetPtr const none = set({2}, 0, {3});  // not entered by allocation
   routes_ = {program(0, set({2}, 1, {3})), program(1, set({2}, 1)), program(2, set({2}, 4, {3})),
              program(3, none)};
   EXPECT_EQ(switch_->frrMtableOifSet().size(), 3u);
   switch_->frrMtableOifSetIs(none, switch_->inUseOifSet(none));
   start();
   Journal traces;
   sm_->updateFrrMtableOif(IntfId());  // a session without an interface
   EXPECT_EQ(traces.like("2  FrrSwitch"), Lines());
   traces.take();
   down(1);
   EXPECT_EQ(traces.like("2  FrrSwitch").size(), 1u);
   // Skipped sets are not written to the ring, which they would fill at the expense of the others.
   EXPECT_EQ(traces.like("2  skip frrMtableOif "),
             (Lines{"2  skip frrMtableOif {et2:1002 iif et1}",
                    "2  skip frrMtableOif {et2:1002 frr et3:1003 iif et4}",
                    "2  skip frrMtableOif {et2:1002 frr et3:1003}"}));
   EXPECT_EQ(traces.like("blip "),
             (Lines{"blip AsyncMrouteSwitchSm::handleOperStatus, intf: et1, status: down",
                    "blip MrouteSwitchSm:: FrrSwitch from {et2:1002 frr et3:1003 iif et1}, frrOifs "
                    "et3:1003",
                    "blip AsyncMrouteSwitchSm:: frrProcessingOifSets: 1",
                    "blip  Overwrite with pvSet {et3:1003 frr et3:1003 iif et1} to mcastId: 0"}));
   EXPECT_EQ(receiversOfAll(), "et3,et2,et2,et2");
   EXPECT_EQ(switch_->frrMtableOifSet().size(), 3u);
   auto const rerouted = Qor::ptrCast<AsyncMtableOifSet>(routes_[0].record);
   EXPECT_TRUE(rerouted->dirty());
   EXPECT_EQ(rerouted->oifSet(), set({2}, 1, {3}));  // the record keeps its set
   down(1, IntfOperStatus::up);
   EXPECT_EQ(receivers(0), "et3");  // recovery of the link does not restore the group
}

TEST_F(AsyncSmFrr, AListenerMayWithdrawTheNextSet) {
   struct Withdrawer final : AsyncMrouteSwitch::Notifiee {
      void onFrrProcessingOifSet(OifSetPtr const&) override { sw->frrMtableOifSetDel(withdrawn); }
      AsyncMrouteSwitch* sw = nullptr;
      OifSetPtr withdrawn;
   } withdrawer;
   withdrawer.sw = switch_.get();
   withdrawer.withdrawn = set({4}, 1, {5});
   routes_ = {program(0, set({2}, 1, {3})), program(1, withdrawer.withdrawn)};
   start();
   withdrawer.notifierIs(switch_);
   down(1);
   EXPECT_EQ(receiversOfAll(), "et3,et4");
}

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

// Each rewrite takes 0.03 seconds, so a slice of 0.1 holds four. Between two slices a second
// interface fails, which begins a slice of its own.
TEST_F(AsyncSmFrr, LongWorkIsCutIntoSlicesAndTheClockIsArmedExactlyWhileSetsWait) {
   covered(0, 9);
   covered(9, 12, 4);
   start(0.03);
   EXPECT_FALSE(sm_->clock());
   down(1);
   EXPECT_EQ(waiting(), 5u);
   EXPECT_EQ(sm_->clock()->timeMin(), time_->now());
   down(1, IntfOperStatus::up);
   down(4);
   EXPECT_EQ(waiting(), 4u);
   EXPECT_EQ(sm_->clock()->timeMin(), time_->now());
   time_->runDue();
   EXPECT_EQ(waiting(), 0u);
   EXPECT_FALSE(armed());
   EXPECT_EQ(rewrites_, 12u);
   EXPECT_EQ(receiversOfAll(), "et3,et3,et3,et3,et3,et3,et3,et3,et3,et3,et3,et3");
   expectSound();
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

TEST_F(AsyncSmFrr, AReactorTakesItsPositionAlongAndTheNextGoesOnAtConstruction) {
   covered(0, 4);
   start(0.06);
   down(1);
   OifSetPtr const stopped = switch_->frrProcessingOifSet().begin()->first;
   Qor::U32 const references = stopped->references();
   sm_ = nullptr;
   EXPECT_EQ(stopped->references(), references - 1);
   EXPECT_EQ(waiting(), 2u);
   start();
   EXPECT_EQ(receiversOfAll(), "et3,et3,et3,et3");
}

// The changes of a waiting set between two slices.
TEST_F(AsyncSmFrr, AWaitingSetIsRewrittenWhereALivingRecordCarriesIt) {
   OifSetPtr s;
   Route route, newer;
   std::string const zombie = " frrOifSet becomes zombie, mcastId: ";
   std::string const overwrite = " to mcastId: ";
   struct Case {
      char const* what;
      std::function<void()> change;
      unsigned rewrites;
      char const* receivers;
      std::string blip;  // with the multicast id of the record that waits
   };
   for (Case const& c : std::vector<Case>{
              {"nothing", [] {}, 1, "et3", overwrite},
              {"a zombie", [&] { withdraw(route); }, 0, "noRoute", zombie},
              {"back", [&] { withdraw(route), route = program(1, s); }, 1, "et3", zombie},
              {"two records", [&] { newer = program(2, s); }, 2, "et3", overwrite},
              {"newer went", [&] { newer = program(2, s), withdraw(newer); }, 1, "et3", overwrite},
              {"not in use", [&] { switch_->inUseOifSetDel(s); }, 0, "et2",
               " not in use OifSet#"}}) {
      SCOPED_TRACE(c.what);
      start(0.1);
      s = ownSet({2}, 1, {3});
      Route first = program(0, ownSet({2}, 1, {3}));  // takes a slice of its own
      route = program(1, s);
      Journal events;
      std::string const blip = c.blip + (c.blip.back() == ' ' ? std::to_string(id(route)) : "");
      down(1);
      EXPECT_EQ(waiting(), 1u);
      rewrites_ = 0;
      c.change();
      time_->runDue();
      EXPECT_EQ(waiting(), 0u);
      EXPECT_FALSE(armed());
      EXPECT_EQ(rewrites_, c.rewrites);
      EXPECT_EQ(receivers(1), c.receivers);
      EXPECT_EQ(receivers(2), newer.record ? c.receivers : "noRoute");
      EXPECT_TRUE(!newer.record || Qor::ptrCast<AsyncMtableOifSet>(newer.record)->dirty());
      EXPECT_NE(events.text().find(blip), std::string::npos);
      down(1, IntfOperStatus::up);
      for (Route* r : {&first, &route, &newer}) {
         if (r->record) withdraw(*r);
      }
      sm_ = nullptr;
      time_->runUntil(time_->now() + 1);
      EXPECT_EQ(platform_->groupsAllocated(), 0u);
      freshSwitch();
   }
   expectSound();
}

// The record that was entered has gone, and a newer one carries the set.
TEST_F(AsyncSmFrr, ARecordThatReplacedTheOneThatWasEnteredIsRerouted) {
   OifSetPtr const s = set({2}, 1, {3});
   Route older = program(1, s);
   Qor::ptrCast<AsyncMtableOifSet>(older.record)->dirtyIs(true);
   routes_ = {program(0, s)};
   withdraw(older);
   start();
   sm_->doForcePurgeOneZombie();
   down(1);
   EXPECT_EQ(receiversOfAll(), "et3");
}

TEST_F(AsyncSmFrr, AWaitingSetThatIsFreedIsForgotten) {
   OifSetPtr const s = set({2}, 1, {3});
   covered(0, 1);
   auto unused = record(s);
   start(0.1);
   down(1);
   EXPECT_EQ(waiting(), 1u);
   unused = nullptr;  // never pointed at: freed at once
   EXPECT_EQ(waiting(), 0u);
   Journal traces;
   time_->runDue();
   EXPECT_EQ(traces.like("8 review"), Lines{"8 review FrrProcessingOifSets: 0"});
   EXPECT_FALSE(armed());
}

// A listener lets a record go as soon as it is dirty, and a route comes whose set takes its place
// in the collection that is being walked.
TEST_F(AsyncSmFrr, RecordsMayComeAndGoWhileTheFailureIsTakenIn) {
   class OnDirty final : public AsyncMtableOifSet::Notifiee {
    public:
      std::function<void()> call;
      void onDirty() override { call(); }
   } dirty;
   class OnFrr final : public AsyncMrouteSwitch::Notifiee {
    public:
      std::function<void()> call;
      void onFrrMtableOifSet(OifSetPtr const&) override { call(); }
   } gone;
   covered(0, 1);
   auto unused = record(set({2}, 1, {3}));
   covered(1, 2);
   dirty.notifierIs(Qor::ptrCast<AsyncMtableOifSet>(unused));
   dirty.call = [&] {
      dirty.notifierIs(nullptr);
      gone.notifierIs(switch_.get());
      unused = nullptr;
   };
   gone.call = [&] {
      gone.notifierIs(nullptr);
      covered(2, 3, 4);
   };
   start();
   down(1);
   EXPECT_EQ(receiversOfAll(), "et3,et3,et2");
   down(4);
   EXPECT_EQ(receiversOfAll(), "et3,et3,et3");
   EXPECT_EQ(platform_->groupsAllocated(), 3u);
}

// A fixed group that another set has taken over carries that set now.
TEST_F(AsyncSmFrr, AGroupThatHasBeenTakenOverIsLeftToItsNewSet) {
   build({0, 4, {RouteKeyType::groupRange}, {}, 0, 0});
   OifSetPtr const covered = set({2}, 1, {3}, RouteKeyType::groupRange);
   OifSetPtr const other = set({5}, 0, {}, RouteKeyType::groupRange);
   Route older = program(0, covered, 2);
   Route newer = program(1, other, 2);
   EXPECT_EQ(receivers(1), "et5");
   start();
   down(1);
   EXPECT_EQ(receivers(1), "et5");
   EXPECT_EQ(rewrites_, 0u);
   EXPECT_EQ(waiting(), 0u);
   withdraw(older);
   withdraw(newer);
}

}  // namespace
}  // namespace velAsync
