// Observes the collections that both table programmers have, for a timeline. The collections differ
// in their types, so this is a template.
#pragma once

#include <set>

#include "agent/timeline/SwitchTracks.h"

namespace Agent {

// Each path derives an observer and adds the collections whose names differ: a change of the routes
// calls routeChanged() or routesChanged(), and a change of the groups calls tablesChanged().
template <class MrouteSwitch>
class SwitchObserver : public SwitchTracks, public MrouteSwitch::Notifiee {
 protected:
   using ZombieKey = typename MrouteSwitch::ZombieOifSetColl::Key;
   using OifSetPtr = MrouteLib::OifSetPtr;
   using MrouteSwitch::Notifiee::notifier;

   SwitchObserver(Timeline& timeline, MrouteSwitch const& mrouteSwitch)
         : SwitchTracks(timeline, mrouteSwitch.name()) {
      this->notifierIs(&mrouteSwitch);
   }

   virtual std::optional<RouteFacts> routeFacts(MrouteLib::RouteHandle handle) const = 0;
   virtual Qor::U32 group(ZombieKey const& key) const = 0;
   virtual ZombieKey key(ZombieId const& id) const = 0;
   // The multicast id or the oif set index of the set's record in use; 0 without one.
   virtual Qor::U32 index(OifSetPtr const& oifSet) const = 0;

   void routeChanged(MrouteLib::RouteHandle handle) {
      if (detailed()) route(handle, routeFacts(handle));
      tablesChanged();
   }
   // `all` is the switch's collection of routes, by handle.
   template <class Routes>
   void routesChanged(Routes const& all) {
      tablesChanged();
      if (!detailed()) return;
      routesThere([this](MrouteLib::RouteHandle handle) { return routeFacts(handle).has_value(); });
      for (auto const& entry : all) {
         if (!shown(entry.first)) route(entry.first, routeFacts(entry.first));
      }
   }

   void onZombieOifSet(ZombieKey const& key) override {
      zombie(idOf(key), zombieFacts(key));
      tablesChanged();
   }
   void onZombieOifSetImmediate() override {
      zombiesThere([this](ZombieId const& id) {
         return notifier()->zombieOifSet(key(id)).get() != nullptr;
      });
      for (auto const& entry : notifier()->zombieOifSet()) {
         ZombieId const id = idOf(entry.first);
         if (!shown(id)) zombie(id, zombieFacts(entry.first));
      }
      tablesChanged();
   }

   void onFrrProcessingOifSet(OifSetPtr const& oifSet) override {
      waits(oifSet, bool(notifier()->frrProcessingOifSet(oifSet)));
      tablesChanged();
   }
   void onFrrProcessingOifSetImmediate() override {
      std::set<Qor::U64> waiting;
      for (auto const& entry : notifier()->frrProcessingOifSet())
         waiting.insert(entry.first->serial());
      reroutesThere([&](Qor::U64 serial) { return waiting.contains(serial); });
      for (auto const& entry : notifier()->frrProcessingOifSet())
         waits(entry.first, true);
      tablesChanged();
   }

   void onInUseOifSet(OifSetPtr const& oifSet) override {
      inUse(oifSet, bool(notifier()->inUseOifSet(oifSet)));
   }
   void onFrrMtableOifSet(OifSetPtr const& oifSet) override {
      announce("frrMtableOifSet", oifSet, bool(notifier()->frrMtableOifSet(oifSet)));
   }
   void onDeleted() override { gone(); }

   bool deleted() const override { return notifier()->deleted(); }

 private:
   void waits(OifSetPtr const& oifSet, bool there) {
      reroute(oifSet, there, there ? index(oifSet) : 0);
   }
   ZombieId idOf(ZombieKey const& key) const { return {key.expiryTime(), group(key)}; }
   std::optional<ZombieFacts> zombieFacts(ZombieKey const& key) const {
      auto const record = notifier()->zombieOifSet(key);
      if (!record) return std::nullopt;
      OifSetPtr const oifSet = record->oifSet();
      return ZombieFacts{oifSet, notifier()->inUseOifSet(oifSet) == record};
   }
};

}  // namespace Agent
