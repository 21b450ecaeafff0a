// Plays a scenario: does at its time what each line says, sends the packets of traffic lines in
// between, and compares what is with what is expected.
//
// Order. Before a line is played, all is done that is due up to and including its time: first what
// the switch's clocks have to do, then packets; so a line sees the effect of everything due at its
// own time. Lines of one time are played in the order of the file, without anything in between. A
// packet that is due at the time of its traffic line is sent with the line. Where work takes
// time (a call cost), the clock may be behind a line's time already; the line is then played at
// once, and nothing is left out.
//
// An expectation that fails is kept, and the scenario goes on. So it does when the target refuses.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "agent/scenario/MessageCounter.h"
#include "agent/scenario/ScenarioTarget.h"

namespace Agent {

class ScenarioPlayer {
 public:
   struct Failure {
      InputPosition where;
      double time = 0;   // Qor::now() when it was found
      std::string text;  // "zombies: expected 1, found 0"

      // "FILE:LINE: at TIME s: TEXT"
      std::string toString() const;
   };

   // Both outlive the player, which is the process's trace and log sink meanwhile.
   ScenarioPlayer(ScenarioTarget& target, std::vector<Scenario::Line> const& lines);

   // Plays one line, or returns false when none is left.
   bool step();
   // Sends the packets that are left, settles the target and audits it. Steps no lines: a run that
   // is interrupted ends in good order, too.
   void finish();
   void play() {
      while (step()) {
      }
      finish();
   }

   // Plays what is due up to and including `time`, and stands at it then.
   void playUntil(double time) {
      while (next_ < lines_.size() && lines_[next_].at <= time)
         step();
      advance(time);
   }
   // When the next line or packet is due; never when none is left.
   double nextDue() const {
      double const line = next_ < lines_.size() ? lines_[next_].at : Qor::never;
      return trains_.empty() ? line : std::min(line, trains_.begin()->first.first);
   }

   std::size_t played() const { return next_; }
   std::uint64_t expectations() const { return expectations_; }  // lines that were looked at
   std::uint64_t packets() const { return packets_; }
   std::vector<Failure> const& failures() const { return failures_; }

 private:
   using Texts = std::vector<std::string>;

   // The packets of one traffic line that are not yet sent.
   struct Train {
      Scenario::Traffic const* traffic;
      double start;
      std::uint32_t sent = 0;

      double due() const { return start + sent * traffic->every; }
   };

   void advance(double time);
   void sendDue(double time);
   void send(Scenario::Traffic const& traffic);
   void fail(std::string text);
   void mark();

   void play(Scenario::Settings const&) {}
   void play(Scenario::Route const& route);
   void play(Scenario::Withdraw const& withdraw);
   void play(Scenario::Link const& link);
   void play(Scenario::Bfd const& bfd);
   void play(Scenario::Traffic const& traffic);
   void play(Scenario::Config const& config);
   void play(Scenario::Counter const& counter);
   void play(Scenario::Fault const& fault);
   void play(Scenario::Restart const& restart);
   void play(Scenario::Mark const& mark);
   void play(Scenario::Show const& show);
   void play(Scenario::Expect const& expect);

   // What is not as expected, a text each.
   Texts differences(Scenario::Expect const& expect);
   template <class Expectation>
   void compare(Texts& out, Expectation const& expected);
   std::string difference(Scenario::ForwardExpectation const& expected, std::uint32_t i);
   std::string difference(Scenario::RouteExpectation const& expected, std::uint32_t i);
   double since(Scenario::Count count) const;

   ScenarioTarget& target_;
   std::vector<Scenario::Line> const& lines_;
   std::size_t next_ = 0;
   MessageCounter messages_;
   std::map<std::pair<double, std::size_t>, Train> trains_;  // by time, then by line
   // At the last mark: the target's counts; since then: the packets.
   std::array<std::uint64_t, Scenario::targetCounts> marked_{};
   std::uint64_t sent_ = 0, lost_ = 0, duplicated_ = 0;
   std::map<std::string, std::uint64_t> delivered_;
   std::uint64_t packets_ = 0;
   std::uint64_t expectations_ = 0;
   std::vector<Failure> failures_;
};

}  // namespace Agent
