// The packets that receivers of a run have lost, and for how long. A receiver is an output
// interface of the route that a packet belongs to, and an outage of a stream at a receiver lasts
// from the first lost packet to the next one that arrives.
//
// A set that is rerouted sends by its backup: if a copy leaves at each backup interface, the
// outputs in whose place they stand count as served.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "programmer/Outputs.h"
#include "programmer/RouteId.h"

namespace Agent {

class Outages {
 public:
   static constexpr std::size_t maxStreams = 4096;  // packets of further streams are only counted
   static constexpr std::size_t maxListed = 100;    // the longest outages

   // A packet of the stream was sent at this time. `outputs` is the wish of its route; null if the
   // stream has no route, and therefore no receiver. `copies` is the number of copies by interface,
   // or "cpu".
   void packet(VelMroute::RouteId const& stream, VelMroute::OutputsPtr const& outputs,
               std::map<std::string, unsigned> const& copies, double time);

   // {"packets", "unwanted", "untracked", "receivers": [...], "longest": [...]}
   nlohmann::ordered_json json() const;

 private:
   struct Outage {
      double since = 0, seconds = 0;
      std::uint64_t packets = 0;
      bool open = false;  // the run ended before the next packet arrived
   };
   struct Receiver {
      std::uint64_t packets = 0, lost = 0, outages = 0;
      double longest = 0, longestAt = 0, total = 0;  // seconds
      bool open = false;
   };
   struct Stream {
      VelMroute::OutputsPtr outputs;
      std::map<std::string, Outage> outages;  // that have begun and not ended, by receiver
      double latest = 0;                      // the time of the latest packet
   };
   struct Listed {
      VelMroute::RouteId stream;
      std::string receiver;
      Outage outage;
   };
   struct Totals {
      std::map<std::string, Receiver> receivers;
      std::vector<Listed> longest;

      void end(VelMroute::RouteId const& stream, std::string const& receiver, Outage const& outage);
   };

   std::uint64_t packets_ = 0, unwanted_ = 0, untracked_ = 0;
   std::map<VelMroute::RouteId, Stream> streams_;
   Totals totals_;  // of the outages that have ended
};

}  // namespace Agent
