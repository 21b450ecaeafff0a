// Follows the multicast routes, the links and the rules of a Linux kernel.
//
// A Monitor reads them once, follows their changes, and notifies a Listener. The host waits for
// fd() to become readable and calls ready(); timers run on the activity loop (Qor/Clock.h). A host
// that waits in whole milliseconds adds up to one of them to the quiet time.
//
// Order at the start: all links, then the rules, then the routes, then synced(). After an overrun
// of the receive buffer the Monitor reads all of it again, and notifies the differences.
//
// Routes are coalesced: daemons write a route in three or four steps, and the interim sets of
// outputs lose packets. A route is notified when it was quiet for `quietTime`, at most `quietLimit`
// after its first change, each route on its own. The last state wins. A route that returns to the
// state that was notified last is not notified.
//
// A dump that lacks a route proves nothing: if routes are deleted during a dump, the kernel skips
// as many others at the boundaries of its messages, and marks nothing. Therefore:
//  - A known route that a dump lacks is asked for by a request of its own. Only the kernel's answer
//    that the route does not exist deletes it. If the kernel has no such request for the family, the
//    route is deleted when a second dump lacks it and no notification arrived during that dump.
//  - A dump during which routes were deleted is repeated until one reveals no unknown route.
//  - The record of a route in a dump counts only if no notification of the route arrived since the
//    dump was requested. Otherwise the route is asked for, too.
//
// The kernel changes the inputs and outputs of routes without a notification when a link is deleted
// and when a daemon takes an interface into multicast routing or out of it (for which there is a
// notification of its own). The Monitor then dumps the tables, and also when a link is created,
// renamed, or gets another MAC address.
//
// One socket carries requests and notifications, so the order of its messages is the order of the
// events in the kernel. A Monitor belongs to one thread, like everything on the activity loop.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kernel/Listener.h"
#include "kernel/MonitorOptions.h"
#include "kernel/Rules.h"
#include "kernel/Socket.h"

namespace Kernel {

class MonitorState;

class Monitor {
 public:
   using Answer = RouteAnswer;
   using Answered = RouteAnswered;
   using Counts = MonitorCounts;

   // Sends the first requests. The listener and the socket must outlive the Monitor and belong to
   // the caller.
   Monitor(MonitorOptions options, Socket& socket, Listener& listener);
   ~Monitor();
   Monitor(Monitor const&) = delete;
   Monitor& operator=(Monitor const&) = delete;

   int fd() const;
   // Reads messages that have arrived, and never blocks. The host calls it while fd() is readable.
   // Links are notified here, and routes in the turns of the activity loop.
   void ready();

   // Whether the Monitor has read everything since the start or the latest overrun.
   bool synced() const;

   // Reads the tables again, for the statistics of all routes. synced() follows.
   void refresh();
   // Asks for the present state and statistics of one route. ready() calls `answered` once, and
   // ask() itself does if the socket has failed. The destructor drops the requests that are open.
   void ask(RouteKey const& key, Answered answered);

   // The latest state of a route that was notified, with its latest statistics, or null.
   Route const* route(RouteKey const& key) const;
   Qor::U32 routes() const;
   Link const* link(Qor::U32 index) const;
   Link const* link(std::string const& name) const;
   // By ascending index.
   void forEachLink(std::function<void(Link const&)> const& visit) const;
   // The rules of the family in the order in which the kernel tries them.
   std::vector<Rule> const& rules(Lnet::IpFamily family) const;
   // The table that routes the packets of this link, or 0 if there is none. It hides the routes of
   // all other tables, whether or not it has a route of the same source and group (Rules.h).
   Qor::U32 selectedTable(Lnet::IpFamily family, Qor::U32 input) const;

   Counts const& counts() const;

 private:
   std::unique_ptr<MonitorState> state_;
};

}  // namespace Kernel
