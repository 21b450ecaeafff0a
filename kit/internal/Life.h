// One life of an agent on the chip of a platform, as the checks of the kit play it: a platform, a
// programmer with a checked gate, the wanted routes, and the comparisons at rest.
#pragma once

#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "hooks/internal/Text.h"
#include "kit/ChipComparison.h"
#include "kit/ForwardingModel.h"
#include "kit/KitOptions.h"
#include "kit/KitReport.h"
#include "programmer/AsyncRouteTable.h"
#include "programmer/Programmer.h"
#include "programmer/SyncRouteTable.h"

namespace VelMroute::KitParts {

// Ends a check: a comparison found a difference.
struct Difference {
   KitCulprit culprit;
   Qor::String text;
};

// Ends the run: the maker of the platforms has thrown this error.
struct MakerFailed {
   std::exception_ptr error;
};

// Ends a check that turns out to be impossible on this platform.
struct LeftOut {
   Qor::String reason;
};

// A wanted route in numbers of ports: the ports 0 and 1 are inputs, the others are outputs.
struct Wish {
   RouteKey key;
   bool otherVrf = false;  // in the second VRF of the options
   unsigned in = 0;
   std::vector<unsigned> outs = {};
   bool cpu = false;
   std::vector<unsigned> backup = {};
   bool fastdrop = false;  // on the other input
   bool bridge = false;
   bool noRpf = false;
};

std::ostream& operator<<(std::ostream& os,
                         Wish const& wish);  // "(10.0.0.1, 239.0.0.1) in 0 to 2 3"

// (10.0.0.source, 239.9.0.n), or the same with IPv6 addresses.
RouteKey sourceGroup(unsigned n, bool v6 = false, unsigned source = 1);
// (*, 239.9.0.n)
RouteKey starGroup(unsigned n);

class Life {
 public:
   static constexpr unsigned inputs = 2;
   // A wish: whether it is in the second VRF, and its key.
   using WishId = std::pair<bool, RouteKey>;

   struct Options {
      Qor::U8 polling = 255;             // seconds between two reviews of the activity
      Qor::U32 refusals = 3;             // as HookChecks::Options::refusals
      Qor::Ptr<Platform> platform = {};  // of an earlier life; null: a new one
      bool startsEmpty = true;           // the tables of the platform are
      bool restarts = false;             // the programmer takes over what it finds
   };

   // `faults` is the list of the check, so that all of its lives number their calls together.
   Life(KitOptions const& options, PlatformMaker const& make, Qor::Ptr<HookFaults> faults);
   Life(KitOptions const& options, PlatformMaker const& make, Qor::Ptr<HookFaults> faults,
        Options how);
   ~Life();

   Platform& platform() { return *platform_; }
   Probe& probe() { return *platform_->probe(); }
   Faults& faults() { return *platform_->faults(); }
   Programmer& programmer() { return *programmer_; }
   RouteTable& table() { return programmer_->table(); }
   // The gate of the chip; the other one is null.
   AsyncHookGate* async() { return async_.get(); }
   SyncHookGate* sync() { return sync_.get(); }
   Shadow const& shadow() const;

   unsigned ports() const { return static_cast<unsigned>(ports_.size()); }
   unsigned outs() const { return ports() - inputs; }
   Probe::Port const& port(unsigned n) const { return ports_[n]; }
   L3::VrfName const& vrf(bool other = false) const { return other ? otherVrf_ : vrf_; }
   Vel::VrfId vrfId(bool other) const {
      return other ? options_.otherVrfId.value_or(options_.vrfId) : options_.vrfId;
   }
   // The properties of the entry of such a route, as the programmer passes them to the table.
   RouteTable::Spec spec(RouteKey const& key, unsigned in = 0) const;
   MrouteLib::PortVlanSet set(std::vector<unsigned> const& outs, bool cpu = false) const;
   // The n-th of the sets that differ; they repeat when all of them are used up.
   MrouteLib::OifSetPtr setNumber(unsigned n) const;

   // ---- The wishes. ----

   std::map<WishId, Wish> const& wishes() const { return wishes_; }
   void want(Wish wish);
   void unwant(RouteKey const& key, bool otherVrf = false);
   void unwantAll();  // and rests
   // The link of the input goes down for the agent, so that the routes with a backup are rerouted;
   // or comes up again.
   void link(unsigned in, bool up);

   // ---- Time. ----

   void wait(Qor::Seconds seconds);
   // Lets all writes complete. A difference if one does not within the patience of the options.
   void settle();

   // ---- Packets and comparisons. ----

   // A packet of the key: from a source and to a group that the key matches.
   Probe::Packet packet(RouteKey const& key, unsigned in = 0, bool otherVrf = false) const;
   Probe::Seen send(RouteKey const& key, unsigned in = 0);
   // Settles, and compares the chip with the shadow and the shadow with the wishes. With `all` each
   // route has to be in hardware.
   void rest(bool all = true);
   void compareChip();
   void compareWishes(bool all);
   // Lets go of the programmer without an end, as a crash does, and returns the platform of the next
   // life; null if the platform has none.
   Qor::Ptr<Platform> crash(Qor::U32 applied);
   void shut();  // no hook reaches the platform any more

 private:
   ForwardingModel::Route route(Wish const& wish) const;
   std::vector<MrouteLib::PortVlan> vlansOf(ForwardingModel::Outputs const& outputs) const;
   void comparePackets();
   void compareTables();
   void checkWish(Wish const& wish, bool all, Qor::U32& entries);
   void expectEntry(Wish const& wish, unsigned in, bool drops, Qor::U32& entries);

   KitOptions const& options_;
   L3::VrfName const vrf_{"kit"}, otherVrf_{"kit-other"};
   Qor::Ptr<Qor::ActivityManager> const time_;  // null on the time of the process
   Qor::Ptr<Platform> platform_;
   std::vector<Probe::Port> ports_;
   Qor::Ptr<IntfVlanId::Table> const vlans_ = Qor::make<IntfVlanId::Table>();
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const published_ =
         Qor::make<Routing::Multicast::Fib::Hardware::Status>();
   Qor::Ptr<Routing::Multicast::Fib::VrfConfig> const config_ =
         Qor::make<Routing::Multicast::Fib::VrfConfig>();
   Qor::Ptr<Interface::EthIntfStatusDir> const links_ = Qor::make<Interface::EthIntfStatusDir>();
   OutputsPool pool_;
   std::map<WishId, Wish> wishes_;
   ForwardingModel model_;
   std::set<WishId> known_;  // of all wishes so far
   Qor::Ptr<AsyncHookGate> async_;
   Qor::Ptr<SyncHookGate> sync_;
   std::unique_ptr<Programmer> programmer_;
};

}  // namespace VelMroute::KitParts
