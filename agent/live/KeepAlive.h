// Keeps the routes of the kernel alive while the switch forwards their packets. A routing daemon
// watches the kernel's counts, and gives up a source without packets. While the hardware's count of
// a route advances, the agent therefore sends a packet of this route to the kernel, with a TTL or
// hop limit of 1: the kernel counts it, and forwards it to no output. When the traffic stops, the
// route ages out as without the switch.
//
// The routes are visited in turn, one after another and evenly over a third of the expiry time. A
// visit sends at most one packet.
//
// A visit also compares the counts. If the kernel counts packets of a route that is in hardware, and
// the hardware counts none, the packets do not arrive at the port of the input.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Qor/Clock.h"
#include "kernel/Listener.h"

namespace Agent {

// The Ethernet frame of a keep-alive: a UDP packet without payload to the discard port.
std::vector<Qor::U8> keepAliveFrame(Lnet::IpGenAddr const& source, Lnet::IpGenAddr const& group);

class KeepAlive {
 public:
   using Key = Kernel::RouteKey;

   // The functions of the agent that a visit calls.
   struct Calls {
      // The next route in hardware behind this one, or the first of all; nothing if there is none.
      std::function<std::optional<Key>(std::optional<Key> const& behind)> next;
      std::function<std::size_t()> count;  // the number of routes in hardware
      // The time of the last packet in hardware, as AsyncMrouteHelper::routeLastAccessedTime().
      std::function<Qor::Seconds(Key const& key)> lastAccessed;
      // Sends a frame into the input interface of the route. Returns false if it cannot be sent.
      std::function<bool(Key const& key, std::span<Qor::U8 const> frame)> send;
      // Asks the kernel for its count.
      std::function<void(Key const& key, Kernel::RouteAnswered answered)> ask;
   };

   KeepAlive(Qor::Seconds expiry, Calls calls);

   void expiryIs(Qor::Seconds expiry) { expiry_ = expiry; }
   // The route is no longer in hardware.
   void forget(Key const& key) { visited_.erase(key); }
   // "the kernel counts 120 packets, and the switch none"; nothing without such a difference.
   std::optional<std::string> fault(Key const& key) const;

   struct Numbers {
      Qor::U64 sent = 0, unsent = 0;
   };
   Numbers const& numbers() const { return numbers_; }

 private:
   class Tick final : public Qor::Clock::Notifiee {
    public:
      explicit Tick(KeepAlive& owner) : owner_(owner) {}
      void onTime() override { owner_.tick(); }

    private:
      KeepAlive& owner_;
   };
   // The state of a route as of its last visit.
   struct Visited {
      Qor::Seconds accessed = 0;
      Qor::U64 kernelPackets = 0;
      Qor::U64 sent = 0;  // keep-alives since the kernel's count was read
      bool counted = false;
      Qor::U64 missed = 0;  // packets that the kernel alone has counted
   };

   void tick();
   void visit(Key const& key);
   void compare(Key const& key, Kernel::RouteAnswer answer, Kernel::Route const& route,
                bool forwarded);

   Qor::Seconds expiry_;
   Calls const calls_;
   std::map<Key, Visited> visited_;
   std::optional<Key> last_;  // visited
   double due_ = 0;           // routes that are due for a visit, and their fraction
   Numbers numbers_;
   Qor::Ptr<Qor::Clock> const clock_ = Qor::make<Qor::Clock>("keepAlive");
   Tick reactor_{*this};
};

}  // namespace Agent
