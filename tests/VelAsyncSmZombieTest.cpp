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

}  // namespace
}  // namespace velAsync
