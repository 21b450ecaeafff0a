// Observes an asynchronous table programmer for a timeline.
#pragma once

#include "Vel/VelAsyncMrouteSwitch.h"
#include "agent/timeline/SwitchObserver.h"

namespace Agent {

class AsyncObserver final : public SwitchObserver<Vel::Mroute::AsyncMrouteSwitch> {
 public:
   // The switch may be destroyed before the timeline.
   AsyncObserver(Timeline& timeline, Vel::Mroute::AsyncMrouteSwitch const& mrouteSwitch)
         : SwitchObserver(timeline, mrouteSwitch) {}

   void showAll() override {
      onInUseRouteHandleKeyImmediate();
      onZombieOifSetImmediate();
      onFrrProcessingOifSetImmediate();
   }

 private:
   void onInUseRouteHandleKey(MrouteLib::RouteHandle const& handle) override {
      routeChanged(handle);
   }
   void onInUseRouteHandleKeyImmediate() override {
      routesChanged(notifier()->inUseRouteHandleKey());
   }
   void onMcastIdToOifSet(Qor::U32) override { tablesChanged(); }

   std::optional<RouteFacts> routeFacts(MrouteLib::RouteHandle handle) const override {
      Vel::Mroute::InUseRouteHandleKey const key = notifier()->inUseRouteHandleKey(handle);
      if (key == Vel::Mroute::InUseRouteHandleKey()) return std::nullopt;
      return RouteFacts{key.routeKey().pretty(), key.vlan().value(), key.vrfId().value()};
   }
   Qor::U32 group(ZombieKey const& key) const override { return key.multicastId(); }
   ZombieKey key(ZombieId const& id) const override { return {id.group, id.expiryTime}; }
   Qor::U32 index(OifSetPtr const& oifSet) const override {
      auto const record = notifier()->inUseRecord(oifSet);
      return record ? record->multicastId() : 0;
   }
   Tables tables() const override {
      auto const& s = *notifier();
      return {s.mcastIdToOifSet().size(), s.zombieOifSet().size(), s.inUseRouteHandleKey().size(),
              s.frrProcessingOifSet().size()};
   }
};

}  // namespace Agent
