// Whether the asynchronous table programmer's collections add up.
#include <algorithm>
#include <sstream>

#include "agent/switch/AsyncPath.h"

namespace Agent {

using Routing::Multicast::Fib::IpGenRouteKey;
using Vel::Mroute::InUseRouteHandleKey;

std::vector<Qor::String> AsyncPath::auditTables() const {
   std::vector<Qor::String> faults = auditRecords();
   auto const fault = [&](auto const&... pieces) {
      std::ostringstream os;
      (os << ... << pieces);
      faults.push_back(os.str());
   };
   auto const& chip = *mrouteSwitch();
   if (chip.inUseRouteHandleKey().size() != platform_->routesAllocated()) {
      fault("inUseRouteHandleKey has ", chip.inUseRouteHandleKey().size(), " handles, ",
            platform_->routesAllocated(), " are allocated");
   }
   for (auto const& [handle, key] : chip.inUseRouteHandleKey()) {
      Sim::Entry const* const onChip = entry(handle);
      bool const catchAll = onChip && onChip->key.kind() == IpGenRouteKey::kindCatchAll;
      if (onChip && (onChip->acceptingVlan != key.vlan() || onChip->vrfId != key.vrfId().value() ||
                     (!catchAll && onChip->key != key.routeKey()))) {
         fault("handle ", handle, " is recorded for ", key, " and is another entry's");
      }
      // Catch-all routes of both families share a key, and it goes with the first of them.
      if (key.routeKey().kind() != IpGenRouteKey::kindCatchAll &&
          chip.inUseRouteHandle(key) != handle) {
         fault("inUseRouteHandle does not lead from ", key, " to handle ", handle);
      }
   }
   for (auto const& [key, handle] : chip.inUseRouteHandle()) {
      if (!(chip.inUseRouteHandleKey(handle) == key)) {
         fault("inUseRouteHandle leads from ", key, " to handle ", handle, ", which is not its");
      }
   }
   for (auto const& [id, oifSet] : chip.mcastIdToOifSet()) {
      auto const records = chip.records(oifSet);
      if (std::none_of(records.begin(), records.end(),
                       [id = id](auto const& record) { return record->multicastId() == id; })) {
         fault("mcastIdToOifSet names ", oifSet, " for id ", id, ", which no record has");
      }
   }
   for (auto const& [oifSet, named] : chip.inUseOifSet()) {
      auto const record = chip.record(oifSet, named);
      if (record && chip.mcastIdToOifSet(record->multicastId()) != oifSet) {
         fault("mcastIdToOifSet does not name ", oifSet, " for id ", record->multicastId());
      }
   }
   for (auto const& [key, record] : chip.zombieOifSet()) {
      if (record->usedInHw()) fault("the zombie ", *record, " is marked as used in hardware");
   }
   return faults;
}

}  // namespace Agent
