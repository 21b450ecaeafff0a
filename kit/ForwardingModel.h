// A model of the forwarding that the wanted routes ask for. These rules say where packets leave, and
// no rule depends on the way in which the chip is programmed:
//  - A wanted route sends each packet from its input once to each output whose link is up.
//  - When an interface fails, the routes with this input, a backup and a group send to the backup.
//    A route sends to its outputs again when it uses the group of another oif set object.
//  - After a restart of the agent, a replayed route sends to its outputs. At the end of the replay,
//    the routes with a backup whose input is down send to the backup.
//  - A bridged route sends nowhere, and packets from a fastdrop interface leave nowhere.
//
// The kit and the soak compare a switch with this model: at rest with expected(), and between two
// rests with permitted(). A difference is a fault of the library, unless the chip differs from the
// calls of the hooks (kit/ChipComparison.h).
//
// The caller keeps the model in step with the switch. Times are Qor::now().
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "Bfd/AppStatus.h"
#include "Interface/EthIntfStatusDir.h"
#include "hooks/HookFault.h"
#include "programmer/Programmer.h"
#include "programmer/RouteId.h"

namespace VelMroute {

class ForwardingModel final {
 public:
   struct Route {
      L3::VrfName vrf;
      RouteKey key;
      Lnet::IntfId iif;
      std::vector<Lnet::IntfId> oifs;  // each once, in any order
      bool cpu = false;                // a further copy to the CPU
      // The outputs after a failure of the input interface or of its BFD session.
      std::vector<Lnet::IntfId> backup;
      // The hardware drops packets of the route from these interfaces, and records their activity.
      std::vector<Lnet::IntfId> fastdrop;
      bool noRpf = false;   // the route accepts packets from any interface
      bool bridge = false;  // packets stay in the vlan in which they arrive

      // Whether an update of the route to `other` changes nothing.
      bool asks(Route const& other) const;
   };

   // The outputs at which the copies of a packet leave.
   struct Outputs {
      std::vector<Lnet::IntfId> ports;  // ascending by IntfId::id()
      bool cpu = false;

      bool nowhere() const { return ports.empty() && !cpu; }
      friend bool operator==(Outputs const&, Outputs const&) = default;
      std::string toString() const;  // "rtr3 rtr4 cpu", "nowhere"
   };

   // A wanted route, or a withdrawn route that may still be in hardware.
   struct Known {
      std::optional<Route> wanted;  // empty: the route is withdrawn
      // The wanted states before the changes since the last rest. The chip may still forward by
      // one of them.
      std::vector<Route> before;
      // The change leaves input and table alone, and the chip has room for both groups: each packet
      // must reach the old outputs or the new ones. The caller sets it.
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
      // for which the programmer may give up the route.
      std::uint64_t failuresAtChange = 0;
   };
   using Routes = std::unordered_map<RouteId, Known, RouteIdHash>;

   explicit ForwardingModel(HookPath path) : path_(path) {}

   // ---- The operations on the switch. ----

   // Called after the switch has done them. `failures` is Known::failuresAtChange.
   Known& wantedIs(Route const& route, std::uint64_t failures = 0);
   // Returns null for a route that was not wanted.
   Known* wantedDel(RouteId const& id, std::uint64_t failures = 0);
   // Return true if the change is a failure of the interface: it went down, or a session over a
   // single hop did. The caller then calls reroutes().
   bool linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state);
   bool bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state);
   // Called before a restart of the agent, after which each route has to be compared again.
   // calm(id, known) returns true for a route that must forward during the whole restart.
   template <class Calm>
   void restart(std::uint64_t failures, Calm const& calm);

   // Whether a failure of the interface rewrites the group of the set.
   bool reroutes(Lnet::IntfId failed, MrouteLib::PortVlanSet const& set) const;
   // The interface has failed, and the groups of the sets with this input and a backup are
   // rewritten. The records of the programmer say which route holds which set; the rewrite itself is
   // required. Calls `rerouted` for each route that sends to its backup from now on.
   void reroute(Lnet::IntfId failed, Programmer const& programmer,
                std::function<void(RouteId const& id, Known& known)> const& rerouted = {});
   // The group of the set was rewritten, without a route that holds it.
   void setRewritten(Qor::U64 serial) { rewritten_.insert(serial); }

   // ---- The expected forwarding. ----

   Routes& routes() { return routes_; }
   Routes const& routes() const { return routes_; }
   Known* find(RouteId const& id);
   void forget(RouteId const& id) { routes_.erase(id); }

   // The serial of the oif set whose group the route holds.
   static std::optional<Qor::U64> setOf(std::optional<RouteView> const& route);
   // The outputs of the route, or of its backup, without those whose link is down.
   Outputs outputs(Route const& route, bool backup) const;
   // The permitted outputs of a wanted route at rest that holds this set. If a rewrite may have
   // failed, these are two.
   std::vector<Outputs> expected(Known& known, std::optional<Qor::U64> set,
                                 bool rewritesFail = false) const;
   // The outputs that are permitted beside expected() since the last rest.
   std::vector<Outputs> permitted(Known const& known) const;
   // The route was compared at rest, while it held this set.
   static void verified(Known& known, std::optional<Qor::U64> set);
   bool linkUp(Lnet::IntfId intf) const;
   // Whether the interface, or a single-hop BFD session over it, is down.
   bool failed(Lnet::IntfId intf) const;

 private:
   HookPath const path_;
   Routes routes_;
   std::unordered_map<Qor::U32, Interface::IntfOperStatus> links_;  // by IntfId::id()
   std::map<Bfd::Peer, Bfd::OperState> sessions_;
   // The serials of the oif sets whose groups were rewritten since the last restart.
   std::set<Qor::U64> rewritten_;
};

template <class Calm>
void ForwardingModel::restart(std::uint64_t failures, Calm const& calm) {
   for (auto& [id, known] : routes_) {
      known.uninterrupted = calm(id, std::as_const(known));
      known.unverified = true;
      known.rerouted.clear();
      known.mayGoBack = false;
      known.failuresAtChange = failures;
   }
   rewritten_.clear();
}

}  // namespace VelMroute
