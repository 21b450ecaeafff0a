// Observes a synchronous table programmer for a timeline.
#pragma once

#include "Vel/VelSyncMrouteSwitch.h"
#include "agent/timeline/SwitchObserver.h"

namespace Agent {

class SyncObserver final : public SwitchObserver<Vel::MrouteSwitch> {
 public:
   // The switch may be destroyed before the timeline.
   SyncObserver(Timeline& timeline, Vel::MrouteSwitch const& mrouteSwitch)
         : SwitchObserver(timeline, mrouteSwitch) {}

   void showAll() override {
      onRouteImmediate();
      onZombieOifSetImmediate();
      onFrrProcessingOifSetImmediate();
   }

 private:
   void onRoute(MrouteLib::RouteHandle const& handle) override { routeChanged(handle); }
   void onRouteImmediate() override { routesChanged(notifier()->route()); }
   void onOifSetIndexColl(Qor::U32) override { tablesChanged(); }

   std::optional<RouteFacts> routeFacts(MrouteLib::RouteHandle handle) const override {
      auto const route = notifier()->route(handle);
      if (!route) return std::nullopt;
      return RouteFacts{route->key().pretty(), route->acceptingVlanId().value(), route->vrfId()};
   }
   Qor::U32 group(ZombieKey const& key) const override { return key.groupId(); }
   ZombieKey key(ZombieId const& id) const override { return {id.group, id.expiryTime}; }
   Qor::U32 index(OifSetPtr const& oifSet) const override {
      auto const record = notifier()->inUseRecord(oifSet);
      return record ? record->oifSetIndex() : 0;
   }
   Tables tables() const override {
      auto const& s = *notifier();
      return {s.oifSetIndexColl().size(), s.zombieOifSet().size(), s.route().size(),
              s.frrProcessingOifSet().size()};
   }
};

}  // namespace Agent
