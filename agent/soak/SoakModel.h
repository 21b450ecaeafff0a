// The model of a switch's forwarding. These rules say where packets leave, and no rule depends on
// the way in which the chip is programmed:
//  - A wanted route sends each packet from its input once to each output whose link is up.
//  - When an interface fails, the routes with this input, a backup and a group send to the backup.
//    A route sends to its outputs again when it uses the group of another oif set object.
//  - After a restart of the agent, a replayed route sends to its outputs. At the end of the replay,
//    the routes with a backup whose input is down send to the backup.
//  - A bridged route sends nowhere, and packets from a fastdrop interface leave nowhere.
//
// The model also records the last packets of each route, the injected failures before its last
// change, and the polling intervals. With these records the oracle distinguishes a late value from
// a missing one.
//
// The oracle (agent/soak/SoakOracle.h) updates the model and compares the switch with it.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "Routing/Multicast/Fib/Hardware/RouteStatus.h"
#include "agent/input/CaptureState.h"
#include "agent/scenario/Testbed.h"

namespace Agent {

// The outputs at which the copies of a packet leave.
struct Outputs {
   std::vector<Lnet::IntfId> ports;  // ascending by IntfId::id()
   bool cpu = false;

   bool nowhere() const { return ports.empty() && !cpu; }
   friend bool operator==(Outputs const&, Outputs const&) = default;
   std::string toString() const;  // "rtr3 rtr4 cpu", "nowhere"
};

struct RouteIdHash {
   std::size_t operator()(RouteId const& id) const { return id.key.hash() ^ id.vrf.hash(); }
};

class SoakModel {
 public:
   using Route = Testbed::Route;

   // A wanted route, or a withdrawn route that may still be in hardware. Times are Qor::now().
   struct Known {
      std::optional<Route> wanted;  // empty: the route is withdrawn
      // The wanted states before the changes since the last rest. The chip may still forward by
      // one of them.
      std::vector<Route> before;
      // The change leaves input and table alone, and the chip has room for both groups: each packet
      // must reach the old outputs or the new ones.
      bool uninterrupted = false;
      bool unverified = false;  // the route changed, and no look at rest has covered it since
      // The serials of the oif sets whose groups were rewritten while the route held them. A set
      // that the route has left stays here until the next rest, because a failed change returns the
      // route to it.
      std::set<Qor::U64> rerouted;
      // An interface failed during a change of the route. If the change fails, the route returns to
      // its old group, which may have been rewritten.
      bool mayGoBack = false;
      // The injected failures up to the last rest before the change. A later failure is a reason
      // for which the route programmer may give up the route.
      std::uint64_t failuresAtChange = 0;
      double changedAt = 0;
      // The last packet that hit the route's own entry, and those that hit its fastdrop entries.
      double lastHit = 0;
      std::map<Lnet::IntfId, double> fastdropHit;
      // The last packet that hit any entry with this key. `foundHit` is `anyHit` as of the end of
      // the last replay: the new agent still reads these hits from the adopted entries.
      double anyHit = 0, foundHit = 0;
      // As of the last check: the published status, the time since which the status and the entry
      // are the same objects, and the published time of the last poll.
      Qor::Ptr<Routing::Multicast::Fib::Hardware::RouteStatus const> status;
      double sameSince = 0;
      double lastPollTime = 0;
   };
   using Routes = std::unordered_map<RouteId, Known, RouteIdHash>;

   // Each operation is called after the switch has done it, except restart(), which precedes it.
   // `failures` is Known::failuresAtChange.
   Known& wantedIs(Route const& route, std::uint64_t failures);
   // Returns null for a route that was not wanted.
   Known* wantedDel(RouteId const& id, std::uint64_t failures);
   // Returns true if the interface went down, which is a failure of the interface.
   bool linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state);
   // Returns true if a session over a single hop went down, which is a failure of its interface.
   bool bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state);
   void intervalIs(double seconds);
   // Records a restart of the agent, after which each route has to be compared again. calm(id,
   // known) returns true for a route that must forward during the whole restart.
   template <class Calm>
   void restart(std::uint64_t failures, Calm const& calm);

   Routes& routes() { return routes_; }
   Known* find(RouteId const& id);
   void forget(RouteId const& id) { routes_.erase(id); }

   // The outputs of the route, or of its backup, without those whose link is down.
   Outputs outputs(Route const& route, bool backup) const;
   bool linkUp(Lnet::IntfId intf) const;
   // Whether the interface, or a single-hop BFD session over it, is down.
   bool failed(Lnet::IntfId intf) const;

   // The longest polling interval in force since a time, in seconds.
   double longestInterval(double since) const;

 private:
   Routes routes_;
   std::unordered_map<Qor::U32, Interface::IntfOperStatus> links_;  // by IntfId::id()
   std::map<Bfd::Peer, Bfd::OperState> sessions_;
   // Each polling interval in seconds, behind the time since which it is in force.
   std::vector<std::pair<double, double>> intervals_{{0, 60}};
};

template <class Calm>
void SoakModel::restart(std::uint64_t failures, Calm const& calm) {
   for (auto& [id, known] : routes_) {
      known.uninterrupted = calm(id, std::as_const(known));
      known.unverified = true;
      known.rerouted.clear();
      known.mayGoBack = false;
      known.failuresAtChange = failures;
      known.status = nullptr;
      known.lastPollTime = 0;
      known.foundHit = known.anyHit;
   }
}

// Whether an update of a route from `a` to `b` changes nothing.
bool sameWish(Testbed::Route const& a, Testbed::Route const& b);

}  // namespace Agent
