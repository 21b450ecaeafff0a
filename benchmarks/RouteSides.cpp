#include "RouteSides.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <utility>

namespace Bench {

namespace {

MrouteLib::PortVlan port(std::size_t n) {
   return MrouteLib::PortVlan(Lnet::IntfId("et" + std::to_string(n % 4096)));
}

// Reserves memory for `count` elements and touches it, so that it is resident from now on.
template <class T>
void touch(std::vector<T>& vector, std::size_t count) {
   vector.resize(count);
   vector.clear();
}

}  // namespace

TwinHooks& opaque(TwinHooks& hooks) {
   TwinHooks* volatile through = &hooks;
   return *through;
}

IpGenRouteKey keyOf(std::size_t n) {
   return IpGenRouteKey::fromAddresses(Lnet::IpGenAddr::v4(0x0a000001),
                                       Lnet::IpGenAddr::v4(0xe0000000 + static_cast<U32>(n)));
}

MrouteLib::OifSetPtr oifSet(std::size_t n, Lnet::IntfId currentIif) {
   MrouteLib::PortVlanSet set(Routing::Multicast::Fib::RouteKeyType::routed);
   set.newPortVlan(port(n), true);
   set.newPortVlan(port(n / 4096 + n + 1), true);
   if (!currentIif.isNull()) {
      set.currentIifIs(currentIif);
      set.newPortVlanFrr(port(n + 2), true);
      set.newPortVlanFrr(port(n + 3), true);
   }
   return Qor::make<MrouteLib::OifSet>(nullptr, set);
}

Plan::Plan(std::size_t routeCount, std::size_t setCount, Lnet::IntfId currentIif)
      : order(routeCount) {
   keys.reserve(routeCount);
   sets.reserve(setCount);
   for (std::size_t n = 0; n < routeCount; ++n)
      keys.push_back(keyOf(n));
   for (std::size_t n = 0; n < setCount; ++n)
      sets.push_back(oifSet(n, currentIif));
   std::iota(order.begin(), order.end(), 0);
   std::shuffle(order.begin(), order.end(), std::mt19937(7));
}

AsyncSide::AsyncSide(Plan const& plan, InjectedTime::TimeBase base, Qor::Ptr<AsyncHooks> chip)
      : time(base), hooks(std::move(chip)), plan_(plan), routes_(plan.routes()) {
   hooks->tables.reserve(plan.routes());
   touch(held_, plan.sets.size());
   vrfs->newVrfStatus(vrfName_, Vel::VrfId(vrfId));
}

SyncSide::SyncSide(Plan const& plan, InjectedTime::TimeBase base, Qor::Ptr<SyncHooks> chip)
      : time(base), hooks(std::move(chip)), plan_(plan), handles_(plan.routes()) {
   hooks->tables.reserve(plan.routes());
   touch(held_, plan.sets.size());
   l3Status->vrfNameToVrfIdIs(vrfName_.name(), Vel::VrfId(vrfId));
}

TwinSide::TwinSide(Plan const& plan) : plan_(plan), handles_(plan.routes()) {
   hooks.tables.reserve(plan.routes());
   touch(held_, plan.sets.size());
}

}  // namespace Bench
