// The inputs of the platform of a software bridge: options, interfaces, and the listener.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>

#include "Lnet/IntfId.h"
#include "Qor/Types.h"

namespace OpenFlow {

struct Options {
   std::string socket;  // the path of the bridge's OpenFlow socket
   // The range of group ids. The first `interfaces` ids are for interfaces, the others for routes.
   Qor::U32 firstGroup = 0x100000;
   Qor::U32 lastGroup = 0x10ffff;
   Qor::U32 interfaces = 256;
   Qor::U32 routes = 100'000;  // the most entries
   // The generation id of the master role, which has to grow from process to process. The default
   // is the time since 1970 in microseconds.
   std::function<Qor::U64()> generation = {};
   Qor::Seconds readingInterval = 5;       // between readings of the packet counts
   Qor::Seconds echoInterval = 5;          // a silent peer is asked then, and given up after three
   Qor::Seconds retryMin = 0.1;            // before the first attempt to connect again
   Qor::Seconds retryMax = 10;             // the time doubles up to this one
   Qor::Seconds standbyHold = Qor::never;  // up time of the front port that ends a protection
};

struct Port {
   Lnet::IntfId intf;
   std::string front;  // the names of ports of the bridge
   std::string cpu;
   std::optional<Qor::U16> vlan = {};  // of the packets at the front port; none: untagged
   std::array<Qor::U8, 6> mac = {};    // the source address of routed copies
   std::string standby = {};           // replaces the front port while that has no link; or empty
   Qor::U32 vrfId = 0;
};

// Notified on the thread of the activity loop. A listener may call the bridge, and does not release
// its last reference.
class Listener {
 public:
   virtual ~Listener() = default;
   // The tables have been read, and the differences are under way.
   virtual void connected() {}
   // The connection has ended, or could not be made; the platform tries again.
   virtual void lost(std::string const& /*reason*/) {}
   // The bridge is not used, and nothing was written. The platform tries again, except after
   // another agent has taken the bridge over: then it waits for start().
   virtual void refused(std::string const& /*reason*/) {}
   // The link of the front port of an interface; a missing port has none. An interface begins
   // without a link, and the links of a new connection are reported before connected().
   virtual void linkChanged(Lnet::IntfId, bool /*up*/) {}
   // The interface sends by its standby port from now on, or by its front port again.
   virtual void protectionChanged(Lnet::IntfId, bool /*onStandby*/) {}
   // The bridge has, or no longer has, a port with this name.
   virtual void portChanged(std::string const& /*name*/, bool /*there*/) {}
};

}  // namespace OpenFlow
