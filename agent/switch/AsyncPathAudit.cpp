// The audit of the asynchronous table programmer's collections.
#include <algorithm>

#include "agent/switch/AsyncPath.h"
#include "platform/Format.h"

namespace Agent {

using Routing::Multicast::Fib::IpGenRouteKey;

std::vector<Qor::String> AsyncPath::auditTables() const {
   std::vector<Qor::String> faults = auditRecords();
   auto const& chip = *mrouteSwitch();
   auto const handles = allocated(Table::entry);
   if (handles && chip.inUseRouteHandleKey().size() != *handles) {
      faults.push_back(fmt::format("inUseRouteHandleKey has {} handles, {} are allocated",
                                   chip.inUseRouteHandleKey().size(), *handles));
   }
   for (auto const& [handle, key] : chip.inUseRouteHandleKey()) {
      auto const onChip = view() ? view()->entry(handle) : std::nullopt;
      bool const catchAll = onChip && onChip->route.key.kind() == IpGenRouteKey::kindCatchAll;
      if (onChip && (onChip->route.vlan != key.vlan() || onChip->route.vrfId != key.vrfId() ||
                     (!catchAll && onChip->route.key != key.routeKey()))) {
         faults.push_back(
               fmt::format("handle {} is recorded for {}, but has another entry", handle, key));
      }
      // Catch-all routes of both families share a key, which is removed with the first of them.
      if (key.routeKey().kind() != IpGenRouteKey::kindCatchAll &&
          chip.inUseRouteHandle(key) != handle) {
         faults.push_back(
               fmt::format("inUseRouteHandle does not lead from {} to handle {}", key, handle));
      }
   }
   for (auto const& [key, handle] : chip.inUseRouteHandle()) {
      if (!(chip.inUseRouteHandleKey(handle) == key)) {
         faults.push_back(fmt::format(
               "inUseRouteHandle leads from {} to handle {}, which has another key", key, handle));
      }
   }
   for (auto const& [id, oifSet] : chip.mcastIdToOifSet()) {
      auto const records = chip.records(oifSet);
      if (std::none_of(records.begin(), records.end(),
                       [id = id](auto const& record) { return record->multicastId() == id; })) {
         faults.push_back(
               fmt::format("mcastIdToOifSet names {} for id {}, which no record has", oifSet, id));
      }
   }
   for (auto const& [oifSet, named] : chip.inUseOifSet()) {
      auto const record = chip.record(oifSet, named);
      if (record && chip.mcastIdToOifSet(record->multicastId()) != oifSet) {
         faults.push_back(fmt::format("mcastIdToOifSet does not name {} for id {}", oifSet,
                                      record->multicastId()));
      }
   }
   for (auto const& [key, record] : chip.zombieOifSet()) {
      if (record->usedInHw())
         faults.push_back(fmt::format("the zombie {} is marked as used in hardware", *record));
   }
   return faults;
}

}  // namespace Agent
