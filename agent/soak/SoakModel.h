// What a switch should forward, told in a few rules and nothing of how it is programmed:
//  - A wanted route sends each packet from its input to each of its outputs whose link is up, once.
//  - When the input of routes with a backup fails, those that hold a group at that moment send to
//    the backup from then on, until they get a group of another oif set object.
//  - An agent that starts anew lets the routes that it is told again send to their outputs, until
//    all are told, and then again to their backup where their input is down.
//  - A bridged route sends nowhere, and what comes in over a fastdrop interface goes nowhere.
// It also remembers what hit which route, what went wrong in the platform, and how often activity
// is polled, so that the checks can tell what is late from what is missing.
//
// It is told of everything by agent/soak/SoakTestbed.h, and is compared with the switch by
// agent/soak/SoakOracle.h. It owns all it knows.
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

// Where the copies of a packet come out.
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

   // One route that is wanted, or of which something may still be in hardware.
   struct Known {
      std::optional<Route> wanted;
      // What was wanted before changes that may be under way; it may still be seen.
      std::vector<Route> before;
      // A change of the outputs alone, with room for it: there is no moment without receivers.
      bool uninterrupted = false;
      bool unverified = false;  // changed since it was last seen to be as wanted
      // The oif set objects (by serial) whose groups were rewritten while the route held them. A
      // change that fails may take it back to one that it has left since the last rest.
      std::set<Qor::U64> rerouted;
      // A failure met it in the middle of a change, which may end with the group before.
      bool mayGoBack = false;
      std::uint64_t failuresAtChange = 0;
      double changedAt = 0;
      // Packets that hit the route's own entry, whatever became of them.
      double lastHit = 0;
      std::map<Lnet::IntfId, double> fastdropHit;
      // Packets that hit any entry with its key; until an agent's crash, which its successor finds
      // in whatever is made of the entry.
      double anyHit = 0, foundHit = 0;
      // As seen by the checks: its hardware status, since when that and its entry are the same, and
      // the time of its latest poll.
      Qor::Ptr<Routing::Multicast::Fib::Hardware::RouteStatus const> status;
      double sameSince = 0;
      double lastPollTime = 0;
   };
   using Routes = std::unordered_map<RouteId, Known, RouteIdHash>;

   // Every operation is told after it has been done.
   Known& wantedIs(Route const& route, std::uint64_t failures);
   // Null when it was not wanted.
   Known* wantedDel(RouteId const& id, std::uint64_t failures);
   // Whether that is a failure: the interface has come down.
   bool linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state);
   // Whether that is a failure: a session over one hop has come down.
   bool bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state);
   void intervalIs(double seconds);
   // The agent has started anew: nothing of a route is known to be as wanted. Those for which `calm`
   // says so are on the chip, and stay there.
   template <class Calm>
   void restart(std::uint64_t failures, Calm const& calm);

   Routes& routes() { return routes_; }
   Known* find(RouteId const& id);
   void forget(RouteId const& id) { routes_.erase(id); }

   // To the outputs, or to the backup; copies over links that are down left out.
   Outputs outputs(Route const& route, bool backup) const;
   bool linkUp(Lnet::IntfId intf) const;
   // Whether the interface, or a BFD session over it, has failed and not come back.
   bool failed(Lnet::IntfId intf) const;

   // The longest interval of activity polling since a time.
   double longestInterval(double since) const;

 private:
   Routes routes_;
   std::unordered_map<Qor::U32, Interface::IntfOperStatus> links_;  // by IntfId::id()
   std::map<Bfd::Peer, Bfd::OperState> sessions_;
   std::vector<std::pair<double, double>> intervals_{{0, 60}};  // since when, how long
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

// Whether the two want the same of a route.
bool sameWish(Testbed::Route const& a, Testbed::Route const& b);

}  // namespace Agent
