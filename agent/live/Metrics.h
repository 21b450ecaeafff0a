// The metrics of a live agent in the Prometheus text format.
//
// The agent returns its figures when a scrape asks for them, and observes durations as they arise.
// Labels have values of a bounded set: the words of routes and tables are fixed words of the
// program, and never texts of a peer.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Qor/Types.h"

namespace Agent {

struct LiveFigures {
   struct Routes {
      std::string_view state;   // a name of ReportedState
      std::string_view reason;  // as waitsFor or trapReason of RouteRow; empty in the other states
      Qor::U64 count = 0;
   };
   struct Table {
      std::string_view name;  // a word, such as "routes" or "groups"
      Qor::U64 used = 0;
      Qor::U64 size = 0;
   };

   // Gauges.
   std::vector<Routes> routes;  // figures with equal words are added up
   std::vector<Table> tables;
   Qor::U64 groups = 0;
   Qor::U64 zombies = 0;
   bool connected = false;  // to the switch
   // Counters since the start of the agent.
   Qor::U64 reroutes = 0;
   Qor::U64 resurrections = 0;
   Qor::U64 netlinkOverruns = 0;
   Qor::U64 reconnects = 0;
   Qor::U64 openflowErrors = 0;
   Qor::U64 connectionsLost = 0;     // to the switch
   Qor::U64 connectionsRefused = 0;  // by the switch
   Qor::U64 controlRefused = 0;      // clients of the control socket
   Qor::U64 keepAlivePackets = 0;
   Qor::U64 logLinesSuppressed = 0;
};

class Metrics {
 public:
   using Source = std::function<LiveFigures()>;

   // At most this many pairs of state and reason are served; further pairs, and words other than
   // lower case letters, digits and hyphens, count as "other".
   static constexpr std::size_t maxRouteLabels = 64;

   explicit Metrics(Source figures);
   ~Metrics();
   Metrics(Metrics const&) = delete;
   Metrics& operator=(Metrics const&) = delete;

   // From the sending of a batch of writes to the switch's answer to its barrier.
   void observeWrite(Qor::Seconds duration);
   // From the end of the quiet time behind the notifications of a route to the answer of the switch.
   void observeProgramming(Qor::Seconds duration);

   // The text of a scrape.
   std::string text() const;

 private:
   struct Durations;

   Source const figures_;
   std::unique_ptr<Durations> const durations_;
};

}  // namespace Agent
