// Whether the synchronous table programmer's collections add up.
#include <sstream>

#include "agent/switch/SyncPath.h"

namespace Agent {

std::vector<Qor::String> SyncPath::auditTables() const {
   std::vector<Qor::String> faults = auditRecords();
   auto const fault = [&](auto const&... pieces) {
      std::ostringstream os;
      (os << ... << pieces);
      faults.push_back(os.str());
   };
   auto const& chip = *mrouteSwitch();
   if (chip.route().size() != platform_->routesAllocated()) {
      fault("the switch has ", chip.route().size(), " routes, ", platform_->routesAllocated(),
            " are allocated");
   }
   if (chip.boundary().size() != platform_->boundariesAllocated()) {
      fault("the switch has ", chip.boundary().size(), " boundary entries, ",
            platform_->boundariesAllocated(), " are allocated");
   }
   for (auto const& [handle, route] : chip.route()) {
      auto const& record = route->mtableOifSet();
      if (record && (record->deleted() || record->zombie().isZombie())) {
         fault("route ", handle, ' ', route->key(), " holds a record that is free");
      }
      // No-RPF routes of two VRFs share a key, which names the latest and goes with the first.
      Vel::RouteKeyVlanId const key(route->key(), route->acceptingVlanId());
      bool const shared = route->acceptingVlanId().isNone();
      if (!shared && chip.routeKeyToHandle(key) != handle) {
         fault("routeKeyToHandle does not lead from ", route->key(), " vlan ",
               route->acceptingVlanId(), " to route ", handle);
      }
   }
   for (auto const& [key, handle] : chip.routeKeyToHandle()) {
      auto const route = chip.route(handle);
      if (!route || !(Vel::RouteKeyVlanId(route->key(), route->acceptingVlanId()) == key)) {
         fault("routeKeyToHandle leads from ", key, " to route ", handle, ", which is not its");
      }
   }
   if (chip.oifSetIndexColl().size() != platform_->groupsAllocated()) {
      fault("oifSetIndexColl has ", chip.oifSetIndexColl().size(), " indexes, ",
            platform_->groupsAllocated(), " are allocated");
   }
   for (auto const& [index, inUse] : chip.oifSetIndexColl()) {
      if (!inUse || platform_->groupOf(index) == Sim::noGroup) {
         fault("oifSetIndexColl names index ", index, ", which is not allocated");
      }
   }
   return faults;
}

}  // namespace Agent
