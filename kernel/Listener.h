// The calls of a Monitor: notifications to its listener, and answers to requests for one route.
#pragma once

#include <functional>

#include "kernel/Link.h"
#include "kernel/Route.h"

namespace Kernel {

// Receives the notifications. A listener may call the Monitor, but must not destroy it.
class Listener {
 public:
   virtual ~Listener() = default;

   // A new link, or a link of which any member changed.
   virtual void linkIs(Link const& link) = 0;
   virtual void linkDel(Qor::U32 index) = 0;

   // A new route, or a route whose forwarding state changed.
   virtual void routeIs(RouteKey const& key, Route const& route) = 0;
   virtual void routeDel(RouteKey const& key) = 0;
   // Brackets the routes that one turn notifies. `more`: further routes are due at once.
   virtual void routesBegin() {}
   virtual void routesEnd(bool /*more*/) {}

   // The result of Monitor::selectedTable() may have changed for inputs of the family.
   virtual void rulesChanged(Lnet::IpFamily) {}

   // The Monitor has read everything and has notified it. Follows the first reading, each overrun,
   // each silent change, and refresh().
   virtual void synced() {}
   // Notifications were lost. A reading of all state has begun, and synced() follows.
   virtual void overrun() {}
   // The socket is of no use any more, and nothing follows.
   virtual void failed() {}
};

enum class RouteAnswer {
   present,     // the route is in the table
   absent,      // the table has no such route, or an unresolved one
   unanswered,  // the kernel has no such request for the family, or the socket failed
};
using RouteAnswered = std::function<void(RouteKey const&, RouteAnswer, Route const&)>;

}  // namespace Kernel
