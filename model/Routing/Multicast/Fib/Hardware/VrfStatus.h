// The multicast routes of one VRF that are in hardware. Made and owned by Hardware::Status; a VRF
// that was removed there may live on while somebody holds it, but its routes count no more.
#pragma once

#include <utility>

#include "L3/VrfName.h"
#include "Qor/Export.h"
#include "Routing/Multicast/Fib/Hardware/RouteStatus.h"

namespace Routing::Multicast::Fib::Hardware {

class Status;

class QOR_PUBLIC VrfStatus final : public Qor::Entity<VrfStatus> {
 public:
   class Notifiee : public Qor::NotifieeOf<VrfStatus> {
    public:
      // A route came into hardware or left it. Not told when its status changes: that entity has
      // notifiees of its own.
      virtual void onRoute(IpGenRouteKey const&) {}
      virtual void onRouteImmediate() {}

    protected:
      void onImmediate() override { onRouteImmediate(); }
   };
   using RoutePtr = Qor::Ptr<RouteStatus>;
   // A review that was interrupted goes on with route().upperBound(key), or lowerBound(key), of the
   // key it has kept, whether or not that route is still there.
   using RouteColl = Qor::Collection<Qor::OrderedMap<IpGenRouteKey, RoutePtr>, &Notifiee::onRoute,
                                     &Notifiee::onRouteImmediate>;

   Qor::Name name() const override;
   L3::VrfName const& vrfName() const { return vrfName_; }

   RouteColl::Map const& route() const { return route_.map(); }
   // Null for a route that is not in hardware.
   RoutePtr route(IpGenRouteKey const& key) const { return route_.value(key); }
   // Makes the route's status, or returns it as it is.
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

   // Takes this VRF's routes out of the count, which is not touched any more.
   void countEnd();
   void countAdd(Qor::U32 routes);
   void countTake(Qor::U32 routes);

   L3::VrfName const vrfName_;
   Qor::U32* routesOfAllVrfs_;  // in the owner; null when it has let this VRF go
   RouteColl route_;
};

}  // namespace Routing::Multicast::Fib::Hardware
