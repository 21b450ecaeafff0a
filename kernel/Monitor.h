// Follows the multicast routes, the links and the rules of a Linux kernel.
//
// A Monitor reads them once, follows their changes, and notifies a Listener. The host waits for
// fd() to become readable and calls ready(); timers run on the activity loop (Qor/Clock.h).
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
//  - A dump during which notifications arrived is repeated until one reveals no unknown route.
//  - The record of a route in a dump counts only if no notification of the route arrived since the
//    dump was requested. Otherwise the route is asked for, too.
//
// The kernel changes routes without a notification in three cases, and the Monitor then dumps the
// tables: a link was deleted, created, renamed, or got another MAC address; an interface was taken
// into multicast routing or out of it; rules were changed, for the table that decides.
//
// One socket carries requests and notifications, so the order of its messages is the order of the
// events in the kernel. A Monitor belongs to one thread, like everything on the activity loop.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Qor/Clock.h"
#include "kernel/Link.h"
#include "kernel/Route.h"
#include "kernel/Rules.h"
#include "kernel/Socket.h"

namespace Kernel {

struct MonitorOptions {
   // The tables to follow. Routes of other tables are ignored.
   std::vector<Qor::U32> ipv4Tables = {defaultTable(Lnet::IpFamily::v4)};
   std::vector<Qor::U32> ipv6Tables = {defaultTable(Lnet::IpFamily::v6)};
   Qor::Seconds quietTime = 0.002;
   Qor::Seconds quietLimit = 0.010;
   Qor::U32 messagesPerTurn = 256;  // datagrams that one ready() reads at most
   Qor::U32 routesPerTurn = 512;    // routes that one turn of the loop notifies at most
};

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

class Monitor {
 public:
   enum class Answer {
      present,     // the route is in the table
      absent,      // the table has no such route, or an unresolved one
      unanswered,  // the kernel has no such request for the family, or the socket failed
   };
   using Answered = std::function<void(RouteKey const&, Answer, Route const&)>;

   struct Counts {
      Qor::U64 notifications = 0;  // messages about routes that were not requested
      Qor::U64 malformed = 0;      // messages that were skipped
      Qor::U64 overruns = 0;
      Qor::U64 dumps = 0;             // complete dumps
      Qor::U64 interruptedDumps = 0;  // dumps that the kernel marked as inconsistent
      Qor::U64 missedByDumps = 0;     // routes that a dump lacked and the kernel had
   };

   // Sends the first requests. The listener and the socket must outlive the Monitor and belong to
   // the caller.
   Monitor(MonitorOptions options, Socket& socket, Listener& listener);
   ~Monitor();
   Monitor(Monitor const&) = delete;
   Monitor& operator=(Monitor const&) = delete;

   int fd() const;
   // Reads messages that have arrived, and never blocks. The host calls it while fd() is readable.
   void ready();

   // Whether the Monitor has read everything since the start or the latest overrun.
   bool synced() const;

   // Reads the tables again, for the statistics of all routes. synced() follows.
   void refresh();
   // Asks for the present state and statistics of one route. `answered` is called from ready(), once.
   // The Monitor calls it from its destructor for no request that is open then.
   void ask(RouteKey const& key, Answered answered);

   // The latest state of a route that was notified, with its latest statistics, or null.
   Route const* route(RouteKey const& key) const;
   Qor::U32 routes() const;
   Link const* link(Qor::U32 index) const;
   Link const* link(std::string const& name) const;
   // The rules of the family in the order in which the kernel tries them.
   std::vector<Rule> const& rules(Lnet::IpFamily family) const;
   // The table that routes packets of the family which arrive at this link, or 0 if there is none.
   // A route of another table is hidden by it.
   Qor::U32 selectedTable(Lnet::IpFamily family, Qor::U32 input) const;

   Counts const& counts() const;

 private:
   class State;
   std::unique_ptr<State> state_;
};

}  // namespace Kernel
