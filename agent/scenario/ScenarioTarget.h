// What a scenario is played on: a switch in virtual time. The player (agent/scenario/ScenarioPlayer.h) knows
// no other interface to it, so that a scenario can be played on whatever offers these operations.
//
// Duties. All runs on one virtual time base, Qor::now(). An operation takes effect at the present
// time; what it sets going happens in runUntil() and settle() alone. Where an operation cannot be
// done, because an interface has no number left or the switch has no such thing, it changes
// nothing and raises ScenarioRefused.
#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/scenario/Scenario.h"

namespace Agent {

// what() says what cannot be done, and why.
class ScenarioRefused final : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class ScenarioTarget {
 public:
   // One route, as Scenario::Route wants it.
   struct Route {
      L3::VrfName vrf;
      Scenario::RouteKey key;
      Lnet::IntfId iif;
      std::vector<Lnet::IntfId> oifs;  // each once, in no order
      bool cpu = false;                // and a copy to the CPU
      // What replaces the outputs when the input interface or its BFD session goes down.
      std::vector<Lnet::IntfId> backup;
      // Traffic of the route that comes in here is dropped in hardware, and watched for activity.
      std::vector<Lnet::IntfId> fastdrop;
      bool noRpf = false;   // traffic is taken from anywhere
      bool bridge = false;  // traffic stays in the vlan in which it arrives
   };

   struct Packet {
      L3::VrfName vrf;
      Lnet::IpGenAddr source;
      Lnet::IpGenAddr group;
      Lnet::IntfId iif;
      std::uint32_t bytes = 64;
   };

   // Where the copies of a packet came out.
   struct Copies {
      std::map<std::string, unsigned> at;  // by interface, "cpu" for the CPU; each at least 1
      std::string result;                  // "forwarded", "wrongVlan": as the chip calls it
   };

   // Where a route stands.
   struct RouteFacts {
      std::string state = "absent";  // RouteProgrammer::State by name; "absent": not wanted
      std::string reason;            // why it is not in hardware
      // From its hardware status; nothing for a route without one.
      std::optional<double> lastPollTime;
      std::map<std::string, double> fastdropLastPollTime;
      // Of its entry on the chip; nothing for a route without one.
      std::optional<std::uint64_t> packets;
      std::optional<std::uint64_t> bytes;
      std::optional<std::uint64_t> counter;  // what its own counter shows
   };

   virtual ~ScenarioTarget() = default;

   // ---- Time. ----

   // When the next thing is to be done; Qor::never when nothing is.
   virtual double nextDeadline() const = 0;
   // Does everything that is due up to and including `time`, which may have passed.
   virtual void runUntil(double time) = 0;
   // Runs until all writes are complete. Timers that go on for ever are no reason to go on.
   virtual void settle() = 0;

   // ---- What happens to the switch. ----

   virtual void routeIs(Route const& route) = 0;
   virtual void routeDel(L3::VrfName const& vrf, Scenario::RouteKey const& key) = 0;
   virtual void linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state) = 0;
   // The session is made when it is first named. Nothing: it is removed.
   virtual void bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state) = 0;
   virtual void configIs(Scenario::Config const& config) = 0;
   virtual void counterRouteIs(L3::VrfName const& vrf, Scenario::RouteKey const& key,
                               bool counted) = 0;
   virtual void faultIs(Scenario::Fault const& fault) = 0;
   // Refused: a route to be told again that is not wanted.
   virtual void restart(Scenario::Restart const& restart) = 0;
   // Sends one packet through the chip, where it counts as traffic of the route it hits. It comes
   // in over the interface whatever the link's state is.
   virtual Copies send(Packet const& packet) = 0;

   // ---- What the switch is like. ----

   virtual RouteFacts route(L3::VrfName const& vrf, Scenario::RouteKey const& key) const = 0;
   virtual std::uint64_t value(Scenario::State state) const = 0;
   // Since the start; asked for those before Scenario::targetCounts only.
   virtual std::uint64_t value(Scenario::Count count) const = 0;
   // Routes in hardware that do not forward as they are wanted, a line each.
   virtual std::vector<std::string> check() = 0;
   // What is wrong with the chip and its tables, a line each.
   virtual std::vector<std::string> audit() const = 0;

   // ---- For people. ----

   virtual void show(std::vector<std::string> const& views) = 0;
   // A moment that the scenario names.
   virtual void marked(std::string const& text) { static_cast<void>(text); }
};

}  // namespace Agent
