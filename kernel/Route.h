// A multicast route of the kernel: its key, and its state as the kernel reports it.
#pragma once

#include <vector>

#include "Lnet/IpGenAddr.h"
#include "Qor/Types.h"

namespace Kernel {

// The numbers that the kernel gives to its own multicast routing tables: IPv4 packets are routed by
// the table RT_TABLE_DEFAULT, IPv6 packets by RT_TABLE_MAIN, unless a rule selects another table.
constexpr Qor::U32 defaultTable(Lnet::IpFamily family) {
   return family == Lnet::IpFamily::v6 ? 254 : 253;
}

struct RouteKey {
   Qor::U32 table = 0;
   Lnet::IpGenAddr source;  // the unspecified address in a (*,G) route
   Lnet::IpGenAddr group;

   Lnet::IpFamily family() const { return group.family(); }
   Qor::U32 hash() const {
      return Qor::hashFold(Qor::hashMix(table, Qor::hashMix(source.hash(), group.hash())));
   }
   friend bool operator==(RouteKey const&, RouteKey const&) = default;
   friend std::strong_ordering operator<=>(RouteKey const&, RouteKey const&) = default;
};

struct Route {
   // ---- The forwarding state. A change of these members is notified. ----
   // The interface at which packets are accepted. 0: the kernel names no interface, because the
   // route is unresolved or its input interface is no longer used for multicast.
   Qor::U32 input = 0;
   // The interfaces to which packets are copied, ascending, each once. The input may be among them.
   std::vector<Qor::U32> outputs;
   // A packet has arrived without a route, and the kernel waits for a daemon's answer.
   bool unresolved = false;

   // ---- Statistics, as of the latest message about the route. No change of these is notified. ----
   Qor::U64 packets = 0;  // of all packets of the source and group, also at a wrong interface
   Qor::U64 bytes = 0;
   Qor::U64 wrongInterface = 0;  // packets that arrived at another interface than `input`
   // Seconds since the last packet, or since the route was made if none has arrived. Negative: the
   // kernel gives no age.
   Qor::Seconds idle = -1;

   bool sameForwarding(Route const& other) const {
      return input == other.input && outputs == other.outputs && unresolved == other.unresolved;
   }
};

}  // namespace Kernel
