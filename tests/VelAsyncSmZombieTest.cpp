// The zombie clock of the asynchronous per-switch reactor.
#include "VelAsyncSmTestSupport.h"

namespace velAsync {
namespace {

class AsyncSmZombie : public AsyncSm {
 protected:
   // The reactor, and the cost of each deleted group in seconds, charged for five in advance.
   void start(Qor::Seconds cost = 0) {
      sm_ = inputs_.sm(switch_);
      onHook_ = [this, cost, deleted = 0u](std::string_view hook) mutable {
         if (hook == "doDeleteOifSet" && deleted++ % 5 == 0) time_->advance(5 * cost);
      };
   }
   Qor::Seconds timer() const { return inputs_.zombieClock->timeMin(); }
   std::size_t left() const { return switch_->zombieOifSet().size(); }
};

TEST_F(AsyncSmZombie, TheTimerFollowsTheFirstZombie) {
   start();
   Route one = program(1, set({2}));
   Route two = program(2, set({3}));
   time_->advance(1);
   withdraw(two);
   EXPECT_EQ(timer(), 4.0);
   time_->advance(1);
   withdraw(one);
   EXPECT_EQ(timer(), 4.0);     // not moved by a later one
   two = program(2, set({3}));  // the first comes back
   EXPECT_EQ(timer(), 5.0);
   time_->advance(0.5);
   withdraw(two);
   sm_->doForcePurgeOneZombie();  // the next to expire
   EXPECT_EQ(timer(), 5.5);
   time_->runUntil(5.499);
   EXPECT_EQ(left(), 1u);
   time_->runUntil(5.5);
   EXPECT_EQ(left(), 0u);
   EXPECT_EQ(timer(), Qor::never);
   Journal traces;
   sm_->handleZombieClock();  // finds none
   EXPECT_EQ(traces.take(),
             (Lines{"2 AsyncMrouteSwitchSm::handleZombieClock()",
                    "2 AsyncMrouteSwitchSm::handleZombie()", "2 Cancelling zombie timer"}));
}

// The budget of 3.0 seconds is looked at after each fifth removal.
TEST_F(AsyncSmZombie, APassEndsWithinItsBudgetAndGoesOnInTheNextTurn) {
   std::vector<std::pair<Qor::Seconds, std::vector<std::size_t>>> const leftAfterEachPass{
         {0.59, {2, 0}},     // 2.95 after five, 5.9 after ten
         {0.60, {7, 2, 0}},  // 3.0: at the deadline
         {0.29, {0}},        // 2.9 after ten
         {4.00, {7, 2, 0}},
   };
   for (auto const& [cost, expected] : leftAfterEachPass) {
      SCOPED_TRACE(cost);
      freshSwitch();
      start(cost);
      time_->runUntil(time_->now() + 1);  // earlier writes are complete
      zombies(12);
      Qor::Seconds const due = timer();
      time_->runUntil(due - 0.5);
      time_->advance(0.5);
      Journal traces;
      std::vector<std::size_t> after;
      for (OnTime const pass(inputs_.zombieClock, [&] { after.push_back(left()); }); left() > 0;) {
         EXPECT_EQ(timer(), due);  // the past, and so at once
         ASSERT_GE(time_->runDue(), 1u);
      }
      EXPECT_EQ(after, expected);
      EXPECT_EQ(traces.count("8 Not finishing reviewing all zombies."),
                static_cast<long>(expected.size()) - 1);
      EXPECT_EQ(timer(), Qor::never);
      sm_ = nullptr;
   }
}

TEST_F(AsyncSmZombie, NothingIsScheduledBeforeInitialisationNorAfterTheSwitchIsDeleted) {
   start();
   sm_->initializedIs(false);
   zombies(1);
   sm_->handleZombie();
   EXPECT_EQ(timer(), Qor::never);
   inputs_.zombieClock->timeMinIs(3);
   time_->runUntil(5);
   EXPECT_EQ(timer(), 3.0);  // stays where it is
   EXPECT_EQ(left(), 1u);
   sm_->initializedIs(true);
   switch_->deletedIs(true);
   Journal traces;
   sm_->handleZombie(switch_->zombieOifSet().begin()->first);
   EXPECT_EQ(traces.take().size(), 1u);
   sm_->handleZombie();
   EXPECT_EQ(traces.take(),
             (Lines{"2 AsyncMrouteSwitchSm::handleZombie()",
                    "2 MrouteSwitch marked for deletion. Skipping Zombie handling"}));
   EXPECT_EQ(timer(), 3.0);
}

// While a pass removes the first of four zombies, a listener resurrects the second, removes the
// third and adds a fifth, which is due.
TEST_F(AsyncSmZombie, APassSeesTheChangesOfItsListeners) {
   start();
   OifSetPtr const second = set({3});
   std::vector<Route> routes{program(1, set({2})), program(2, second), program(3, set({4})),
                             program(4, set({5}))};
   Route late = program(5, set({6}));
   for (Route& route : routes)
      withdraw(route);
   Qor::ptrCast<AsyncMtableOifSet>(late.record)->zombieLifetimeIs(-1);
   bool first = true;
   OnSwitch const listener(switch_, [&](ZombieKey key) {
      if (!std::exchange(first, false)) return;
      EXPECT_EQ(key, ZombieKey(0, 3.0));
      routes[1] = program(2, second);
      switch_->zombieOifSetDel(ZombieKey(2, 3.0));
      withdraw(late);
   });
   Journal traces;
   time_->runUntil(3);
   EXPECT_EQ(traces.like("2 Removing"),
             (Lines{"2 Removing zombie with mcastId: 0", "2 Removing zombie with mcastId: 4",
                    "2 Removing zombie with mcastId: 3"}));
   EXPECT_EQ(timer(), Qor::never);
   EXPECT_EQ(receivers(2), "et3");
   EXPECT_EQ(platform_->groupsAllocated(), 1u);
   expectSound();
}

}  // namespace
}  // namespace velAsync
