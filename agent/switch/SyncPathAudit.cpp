// The audit of the synchronous table programmer's collections.

#include "agent/switch/SyncPath.h"
#include "platform/Format.h"

namespace Agent {

std::vector<Qor::String> SyncPath::auditTables() const {
   std::vector<Qor::String> faults = auditRecords();
   auto const& chip = *mrouteSwitch();
   auto const compare = [&](Table table, char const* what, std::size_t size) {
      auto const count = allocated(table);
      if (count && size != *count)
         faults.push_back(fmt::format("{} {}, {} are allocated", what, size, *count));
   };
   compare(Table::entry, "number of routes of the switch:", chip.route().size());
   compare(Table::boundary, "number of boundary entries of the switch:", chip.boundary().size());
   compare(Table::group, "number of indexes in oifSetIndexColl:", chip.oifSetIndexColl().size());
   for (auto const& [handle, route] : chip.route()) {
      auto const& record = route->mtableOifSet();
      if (record && (record->deleted() || record->zombie().isZombie())) {
         faults.push_back(
               fmt::format("route {} {} holds a record that is free", handle, route->key()));
      }
      // No-RPF routes of two VRFs share a key. The key names the latest route, and is removed with
      // the first one that is deleted.
      Vel::RouteKeyVlanId const key(route->key(), route->acceptingVlanId());
      bool const shared = route->acceptingVlanId().isNone();
      if (!shared && chip.routeKeyToHandle(key) != handle) {
         faults.push_back(fmt::format("routeKeyToHandle does not lead from {} vlan {} to route {}",
                                      route->key(), route->acceptingVlanId(), handle));
      }
   }
   for (auto const& [key, handle] : chip.routeKeyToHandle()) {
      auto const route = chip.route(handle);
      if (!route || !(Vel::RouteKeyVlanId(route->key(), route->acceptingVlanId()) == key)) {
         faults.push_back(fmt::format(
               "routeKeyToHandle leads from {} to route {}, which has another key", key, handle));
      }
   }
   for (auto const& [index, inUse] : chip.oifSetIndexColl()) {
      if (!inUse || (view() && !view()->groupOf(index))) {
         faults.push_back(
               fmt::format("oifSetIndexColl names index {}, which is not allocated", index));
      }
   }
   return faults;
}

}  // namespace Agent
