// Plays a scenario: applies each line at its time, sends the packets of traffic lines in between,
// and compares the switch with the expectations.
//
// Order. Before a line is played, the clocks fire and the packets are sent that are due up to and
// including its time. Clocks precede packets. Lines with the same time are played in the order of
// the file, without clocks or packets in between. A packet that is due at the time of its traffic
// line is sent with the line. If hook calls take time (a call cost), the present time may be later
// than the time of a line; the line is then played at once, and no line is omitted.
//
// The scenario goes on after a failed expectation and after a refusal of the testbed. Both are kept
// as failures.
//
// An interrupt (agent/process/Signals.h) ends each operation at the time that is reached then. The
// next operation goes on from there.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "agent/scenario/MessageCounter.h"
#include "agent/scenario/Testbed.h"

namespace Agent {

class ScenarioPlayer {
 public:
   struct Failure {
      InputPosition where;
      double time = 0;   // Qor::now() at the failure
      std::string text;  // "zombies: expected 1, found 0"

      // "FILE:LINE: at TIME s: TEXT"
      std::string toString() const;
   };

   // Both outlive the player. The player is the process's trace and log sink while it lives.
   ScenarioPlayer(Testbed& testbed, std::vector<Scenario::Line> const& lines);

   // Plays one line. Returns false if no line is left, or if an interrupt came before its time.
   bool step();
   // Sends the remaining packets, settles the testbed and audits it. The remaining lines are not
   // played, and after an interrupt the remaining packets are not sent.
   void finish();
   // Plays all lines, and finishes unless an interrupt came before.
   void play();

   // Plays all lines that are due up to and including `time`, and advances to that time.
   void playUntil(double time) {
      while (next_ < lines_.size() && lines_[next_].at <= time && step()) {
      }
      advance(time);
   }
   // The time of the next line or packet; never if none is left.
   double nextDue() const {
      double line = Qor::never;
      if (next_ < lines_.size()) line = lines_[next_].at;
      return trains_.empty() ? line : std::min(line, trains_.begin()->first.first);
   }

   std::size_t played() const { return next_; }
   std::uint64_t expectations() const { return expectations_; }  // lines with expectations
   std::uint64_t packets() const { return packets_; }
   std::vector<Failure> const& failures() const { return failures_; }

 private:
   using Texts = std::vector<std::string>;

   // The packets of one traffic line that are still to be sent.
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
   void play(Scenario::BfdSession const& bfd);
   void play(Scenario::Traffic const& traffic);
   void play(Scenario::Config const& config);
   void play(Scenario::Counter const& counter);
   void play(Scenario::Fault const& fault);
   void play(Scenario::Restart const& restart);
   void play(Scenario::Mark const& mark);
   void play(Scenario::Show const& show);
   void play(Scenario::Expect const& expect);

   // The differences from the expectations, a text each.
   Texts differences(Scenario::Expect const& expect);
   template <class Expectation>
   void compare(Texts& out, Expectation const& expected);
   std::string difference(Scenario::ForwardExpectation const& expected, std::uint32_t i);
   std::string difference(Scenario::RouteExpectation const& expected, std::uint32_t i);
   double since(Scenario::Count count) const;

   Testbed& testbed_;
   std::vector<Scenario::Line> const& lines_;
   std::size_t next_ = 0;
   MessageCounter messages_;
   std::map<std::pair<double, std::size_t>, Train> trains_;  // by time, then by line
   // The testbed's counts at the last mark, and the packets since then.
   std::array<std::uint64_t, Scenario::testbedCounts> marked_{};
   std::uint64_t sent_ = 0, lost_ = 0, duplicated_ = 0;
   std::map<std::string, std::uint64_t> delivered_;
   std::uint64_t packets_ = 0;
   std::uint64_t expectations_ = 0;
   std::vector<Failure> failures_;
};

}  // namespace Agent
