// The multicast routes of one VRF in hardware. Hardware::Status makes and holds the VRF statuses. A
// removed VRF status lives on while other code holds it, but Hardware::Status does not count its
// routes any more.
#pragma once

#include <utility>

#include "L3/VrfName.h"
#include "Qor/Export.h"
#include "Qor/ObjectMap.h"
#include "Routing/Multicast/Fib/Hardware/RouteStatus.h"

namespace Routing::Multicast::Fib::Hardware {

class Status;

class QOR_PUBLIC VrfStatus final : public Qor::Entity<VrfStatus> {
 public:
   class Notifiee : public Qor::NotifieeOf<VrfStatus> {
    public:
      // A route was added or removed. A change of a route's status notifies the notifiees of that
      // status alone.
      virtual void onRoute(IpGenRouteKey const&) {}
      virtual void onRouteImmediate() {}

    protected:
      void onImmediate() override { onRouteImmediate(); }
   };
   using RoutePtr = Qor::Ptr<RouteStatus>;
   // Not in the order of the keys. An interrupted walk keeps the place of a route and resumes with
   // route().from(place). The route may have been removed.
   using RouteColl = Qor::Collection<Qor::ObjectMap<RouteStatus, &RouteStatus::key>,
                                     &Notifiee::onRoute, &Notifiee::onRouteImmediate>;

   Qor::Name name() const override;
   L3::VrfName const& vrfName() const { return vrfName_; }

   RouteColl::Map const& route() const { return route_.map(); }
   // Returns null for a route that is not in hardware.
   RoutePtr route(IpGenRouteKey const& key) const { return route_.value(key); }
   // Makes the route's status, or returns the present one.
   RoutePtr routeIs(IpGenRouteKey key);
   void routeDel(IpGenRouteKey key);
   RouteColl::Iterator routeDel(RouteColl::Iterator it);
   void routeDelAll();
   void routeNotify(IpGenRouteKey key) { route_.notify(*this, key); }

 private:
   friend class Status;
   template <class T, class... Args>
   friend Qor::Ptr<T> Qor::make(Args&&... args);
   VrfStatus(L3::VrfName vrfName, Qor::U32& routesOfAllVrfs);
   ~VrfStatus() override;

   // Subtracts this VRF's routes from the count of all VRFs, and leaves the count alone from then
   // on.
   void countEnd();
   void countAdd(Qor::U32 routes);
   void countTake(Qor::U32 routes);

   L3::VrfName const vrfName_;
   Qor::U32* routesOfAllVrfs_;  // in Hardware::Status; null after countEnd()
   RouteColl route_;
};

}  // namespace Routing::Multicast::Fib::Hardware
