#include "Routing/Multicast/Fib/Hardware/VrfStatus.h"

namespace Routing::Multicast::Fib::Hardware {

VrfStatus::VrfStatus(L3::VrfName vrfName, Qor::U32& routesOfAllVrfs)
      : vrfName_(std::move(vrfName)), routesOfAllVrfs_(&routesOfAllVrfs) {}

VrfStatus::~VrfStatus() = default;

Qor::Name VrfStatus::name() const {
   return vrfName_.name();
}

// Each operation updates the count first: a notifiee then reads the right count, and the operation
// touches nothing of this entity after the notification.

VrfStatus::RoutePtr VrfStatus::routeIs(IpGenRouteKey key) {
   return route_.instantiate(*this, key, [&] {
      countAdd(1);
      return Qor::make<RouteStatus>(key);
   });
}

void VrfStatus::routeDel(IpGenRouteKey key) {
   if (!route_.map().find(key)) return;
   countTake(1);
   route_.del(*this, key);
}

VrfStatus::RouteColl::Iterator VrfStatus::routeDel(RouteColl::Iterator it) {
   countTake(1);
   return route_.del(*this, it);
}

void VrfStatus::routeDelAll() {
   countTake(route_.map().size());
   route_.delAll(*this);
}

void VrfStatus::countEnd() {
   countTake(route_.map().size());
   routesOfAllVrfs_ = nullptr;
}

void VrfStatus::countAdd(Qor::U32 routes) {
   if (routesOfAllVrfs_) *routesOfAllVrfs_ += routes;
}

void VrfStatus::countTake(Qor::U32 routes) {
   if (routesOfAllVrfs_) *routesOfAllVrfs_ -= routes;
}

}  // namespace Routing::Multicast::Fib::Hardware
