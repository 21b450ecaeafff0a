// The options and the counters of a Monitor.
#pragma once

#include <vector>

#include "kernel/Route.h"

namespace Kernel {

struct MonitorOptions {
   // The tables to follow. Routes of other tables are ignored.
   std::vector<Qor::U32> ipv4Tables = {defaultTable(Lnet::IpFamily::v4)};
   std::vector<Qor::U32> ipv6Tables = {defaultTable(Lnet::IpFamily::v6)};
   Qor::Seconds quietTime = 0.002;
   Qor::Seconds quietLimit = 0.010;
   // One ready() reads at most so many datagrams, and no further one behind so many bytes.
   Qor::U32 messagesPerTurn = 256;
   Qor::U32 bytesPerTurn = 1 << 18;
   Qor::U32 routesPerTurn = 512;  // routes that one turn of the loop notifies at most
};

struct MonitorCounts {
   Qor::U64 notifications = 0;  // messages about routes that were not requested
   Qor::U64 malformed = 0;      // messages that were skipped
   Qor::U64 overruns = 0;
   Qor::U64 dumps = 0;             // complete dumps
   Qor::U64 interruptedDumps = 0;  // dumps that the kernel marked as inconsistent
   Qor::U64 missedByDumps = 0;     // routes that a dump lacked and the kernel had
};

}  // namespace Kernel
