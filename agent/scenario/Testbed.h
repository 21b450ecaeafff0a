// A switch with its surroundings, in virtual time, on which scenarios are played. The player
// (agent/scenario/ScenarioPlayer.h) uses this interface alone, so a scenario can be played on any
// class that implements it.
//
// Duties. The testbed runs on one virtual time base, Qor::now(). An operation takes effect at the
// present time, and its later effects happen in runUntil() and settle() alone. An operation raises
// TestbedRefusal and changes nothing if no number is left for an interface or if the switch lacks
// the feature.
#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/scenario/Scenario.h"
#include "kit/ForwardingModel.h"

namespace Agent {

// An operation that the testbed cannot do. what() is the reason.
class TestbedRefusal final : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class Testbed {
 public:
   // One of the routes of a Scenario::Route.
   using Route = VelMroute::ForwardingModel::Route;

   struct Packet {
      L3::VrfName vrf;
      Lnet::IpGenAddr source;
      Lnet::IpGenAddr group;
      Lnet::IntfId iif;
      std::uint32_t bytes = 64;
   };

   // The copies of a packet.
   struct Copies {
      std::map<std::string, unsigned> at;  // number of copies by interface, or "cpu"; never 0
      std::string result;                  // the chip's verdict, as Probe::Seen::verdict
   };

   // The state of a route.
   struct RouteFacts {
      std::string state = "absent";  // nameOf(RouteState); "absent": not wanted
      std::string reason;            // the reason why the route is not in hardware
      // From the hardware status; nothing for a route without a status.
      std::optional<double> lastPollTime;
      std::map<std::string, double> fastdropLastPollTime;
      // From the entry on the chip; nothing for a route without an entry.
      std::optional<std::uint64_t> packets;
      std::optional<std::uint64_t> bytes;
      std::optional<std::uint64_t> counter;  // of the route's own counter
   };

   virtual ~Testbed() = default;

   // ---- Time. ----

   // The time at which the next clock fires; Qor::never if none is set.
   virtual double nextDeadline() const = 0;
   // Runs everything that is due up to and including `time`, which may have passed.
   virtual void runUntil(double time) = 0;
   // Runs until all writes are complete. Periodic timers do not keep it running.
   virtual void settle() = 0;

   // ---- Changes of the switch. ----

   virtual void routeIs(Route const& route) = 0;
   virtual void routeDel(L3::VrfName const& vrf, Scenario::RouteKey const& key) = 0;
   virtual void linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state) = 0;
   // Creates the session if it is new. Without a state, removes it.
   virtual void bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state) = 0;
   virtual void configIs(Scenario::Config const& config) = 0;
   virtual void counterRouteIs(L3::VrfName const& vrf, Scenario::RouteKey const& key,
                               bool counted) = 0;
   virtual void faultIs(Scenario::Fault const& fault) = 0;
   // Crashes and restarts the agent. Raises TestbedRefusal if the replay has a route that is not
   // wanted.
   virtual void restart(Scenario::Restart const& restart) = 0;
   // Sends one packet through the chip, which counts it for the entry that it hits. The packet
   // arrives from the interface even if the link is down.
   virtual Copies send(Packet const& packet) = 0;

   // Called for each packet of the traffic, with its copies. The default does nothing.
   virtual void sent(Packet const& packet, Scenario::RouteKey const& key, Copies const& copies) {
      static_cast<void>(packet), static_cast<void>(key), static_cast<void>(copies);
   }

   // ---- State of the switch. ----

   virtual RouteFacts route(L3::VrfName const& vrf, Scenario::RouteKey const& key) const = 0;
   virtual std::uint64_t value(Scenario::State state) const = 0;
   // Counted since the start. Only the counts before Scenario::testbedCounts are valid arguments.
   virtual std::uint64_t value(Scenario::Count count) const = 0;
   // The routes in hardware whose forwarding differs from the wanted one, a line each.
   virtual std::vector<std::string> forwardingFaults() = 0;
   // The faults of the chip and its tables, a line each.
   virtual std::vector<std::string> audit() const = 0;

   // ---- Output for people. ----

   virtual void show(std::vector<std::string> const& views) = 0;
   // Called at each mark of the scenario, so that the testbed can show the mark. The default does
   // nothing.
   virtual void marked(std::string const& text) { static_cast<void>(text); }
};

}  // namespace Agent
