// Clocks and the activity manager, on virtual time.
#include "Qor/Clock.h"

#include <functional>
#include <stdexcept>

#include "TestSupport.h"

namespace {

using Qor::ActivityManager;
using Qor::Clock;
using Qor::never;
using Qor::Ptr;
using Qor::Seconds;
using Qor::String;

class Alarm final : public Clock::Notifiee {
 public:
   Alarm(char name, String& rung) : clock(Qor::make<Clock>(String(1, name))), rung_(rung) {
      notifierIs(clock);
   }
   void onTime() override {
      rung_ += clock->name();
      if (auto const act = ring) act();
   }
   void qorDoZombieReactors(bool) override { rung_ += '~'; }
   void at(Seconds time) { clock->timeMinIs(time); }

   Ptr<Clock> clock;
   std::function<void()> ring;  // called when the clock fires; without it the clock fires again

 private:
   String& rung_;
};

class QorClock : public testSupport::OnVirtualTime {
 protected:
   String rungUntil(Seconds time) {
      rung.clear();
      time_->runUntil(time);
      return rung;
   }
   String rungInTurn() {
      rung.clear();
      time_->runDue();
      return rung;
   }

   String rung;
   Alarm a{'a', rung}, b{'b', rung}, c{'c', rung};
};

TEST_F(QorClock, EachAssignmentArmsAndInfinityDisarms) {
   a.at(5), a.at(4);
   EXPECT_EQ(time_->nextDeadline(), 4);
   EXPECT_EQ(rungUntil(3.9), "");
   EXPECT_EQ(rungUntil(4), "a");
   a.at(4);
   EXPECT_EQ(rung, "a") << "an equal value that is due arms, and does not fire inside the mutator";
   EXPECT_EQ(rungInTurn(), "a");
   a.at(never);
   EXPECT_EQ(rungUntil(300), "");
   a.at(-never);
   EXPECT_EQ(rungUntil(300), "a");
   EXPECT_EQ(Qor::now(), 300) << "a deadline in the past does not turn time back";
}

TEST_F(QorClock, ClocksDueTogetherFireInTheOrderOfTheirTimesAndOfArming) {
   for (Alarm* alarm : {&a, &b, &c})
      alarm->ring = [alarm] { alarm->at(never); };
   c.at(1), b.at(1), a.at(1);
   EXPECT_EQ(rungUntil(2), "cba");
   c.at(1), b.at(2), a.at(1), c.at(1);
   time_->advance(5);
   EXPECT_EQ(rungInTurn(), "acb");
}

TEST_F(QorClock, ClockFiresAgainAfterTheGapUntilACallerAssignsItsTime) {
   a.at(1);
   EXPECT_EQ(rungUntil(1.025), "aaa");
   EXPECT_EQ(a.clock->timeMin(), 1) << "a fired clock still reads as armed";
   EXPECT_DOUBLE_EQ(time_->nextDeadline(), 1.03);
   a.ring = [&] { time_->advance(0.5); };  // the gap begins at the end of the handler
   EXPECT_EQ(rungUntil(2.0), "aa");
   EXPECT_DOUBLE_EQ(time_->nextDeadline(), 1.03 + 0.5 + 0.01 + 0.5 + 0.01);
   a.at(3);
   a.ring = [] { throw std::runtime_error("not now"); };
   EXPECT_THROW(time_->runUntil(4), std::runtime_error);
   EXPECT_DOUBLE_EQ(time_->nextDeadline(), 3.01);
}

TEST_F(QorClock, TurnFiresEachDueClockOnceThoughAHandlerRearmsOrDestroysAnother) {
   // The handler of the first of three due clocks; the clocks that fire in this turn; those that
   // fire in a turn a little later.
   std::tuple<std::function<void()>, char const*, char const*> const disturbances[] = {
         {[] {}, "abc", "abc"},
         {[&] { a.at(1); }, "abc", "abc"},
         {[&] { b.at(0); }, "ac", "bac"},
         {[&] { b.at(never); }, "ac", "ac"},
         {[&] { b.clock = nullptr; }, "ac~", "ac"},
   };
   for (auto const& [act, first, second] : disturbances) {
      b.clock = Qor::make<Clock>("b");
      b.notifierIs(b.clock);
      a.at(1), b.at(1), c.at(1);
      a.ring = [&, doThis = act] {
         a.ring = {};
         doThis();
      };
      time_->advance(100);
      EXPECT_EQ(rungInTurn(), first);
      time_->advance(Clock::retryGap * 1.5);
      EXPECT_EQ(rungInTurn(), second);
   }
}

TEST_F(QorClock, AnAssertionNamesAClockThatFiresForEverAtOneInstant) {
   Qor::U32 firings = 0;
   a.ring = [&] { a.at(++firings % Clock::maxFiringsAtOneInstant ? Qor::now() : Qor::now() + 1); };
   a.at(1);
   time_->runUntil(3.5);
   EXPECT_EQ(firings, 3 * Clock::maxFiringsAtOneInstant);
   a.ring = [&] { a.at(Qor::now()); };
   EXPECT_DEATH(time_->runUntil(4), "Assertion `clock \"a\" fires within the bound");
}

TEST_F(QorClock, HandlerMayReleaseItsClockAndTheManager) {
   auto own = Qor::make<ActivityManager>(ActivityManager::TimeBase::virtualTime);
   Qor::activityManagerIs(own);
   a.clock = Qor::make<Clock>("a");
   a.notifierIs(a.clock);
   a.at(1);
   ActivityManager* const running = std::exchange(own, nullptr).release();
   a.ring = [&] {
      Qor::activityManagerIs(time_);
      running->referenceDec();
      a.clock = nullptr;
   };
   running->runUntil(5);
   EXPECT_EQ(rung, "a~");
}

}  // namespace
