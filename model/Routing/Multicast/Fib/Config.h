// The multicast forwarding configuration of one VRF, as far as the hardware layer follows it: the
// routes to count, and requests to clear counters. The routes themselves are not here: the routing
// layer passes them to the operations of the table programmers.
//
// The routing layer writes the configuration. The per-VRF reactors of both paths watch
// counterRoute; those of the synchronous path watch clearCounterRoute too.
#pragma once

#include <utility>

#include "Qor/Collection.h"
#include "Qor/Entity.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"

namespace Routing::Multicast::Fib {

class Config final : public Qor::Entity<Config, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<Config> {
    public:
      // The route must be counted from now on, or not any more.
      virtual void onCounterRoute(IpGenRouteKey const&) {}
      virtual void onCounterRouteImmediate() {}
      // The route's counter must be cleared now, unless the request was removed.
      virtual void onClearCounterRoute(IpGenRouteKey const&) {}
      virtual void onClearCounterRouteImmediate() {}

    protected:
      void onImmediate() override {
         onCounterRouteImmediate();
         onClearCounterRouteImmediate();
      }
   };
   using CounterRouteColl =
         Qor::Collection<Qor::OrderedMap<IpGenRouteKey, bool>, &Notifiee::onCounterRoute,
                         &Notifiee::onCounterRouteImmediate>;
   using ClearCounterRouteColl =
         Qor::Collection<Qor::OrderedMap<IpGenRouteKey, Qor::U64>, &Notifiee::onClearCounterRoute,
                         &Notifiee::onClearCounterRouteImmediate>;

   // `name` is the name of the VRF.
   explicit Config(Qor::Name name) : Entity(std::move(name)) {}

   // The routes with a counter of their own. The map is a set: all values are true.
   CounterRouteColl::Map const& counterRoute() const { return counterRoute_.map(); }
   bool counterRoute(IpGenRouteKey const& key) const { return counterRoute_.value(key); }
   void counterRouteIs(IpGenRouteKey key) { counterRoute_.is(*this, key, true); }
   void counterRouteDel(IpGenRouteKey key) { counterRoute_.del(*this, key); }
   CounterRouteColl::Iterator counterRouteDel(CounterRouteColl::Iterator it) {
      return counterRoute_.del(*this, it);
   }
   void counterRouteDelAll() { counterRoute_.delAll(*this); }
   void counterRouteNotify(IpGenRouteKey key) { counterRoute_.notify(*this, key); }

   // The number of requests to clear a route's counter. Each change of the number is a request. The
   // removal of an entry notifies onClearCounterRoute too, but is not a request.
   ClearCounterRouteColl::Map const& clearCounterRoute() const { return clearCounterRoute_.map(); }
   Qor::U64 clearCounterRoute(IpGenRouteKey const& key) const {
      return clearCounterRoute_.value(key);
   }
   void clearCounterRouteIs(IpGenRouteKey key, Qor::U64 requests) {
      clearCounterRoute_.is(*this, key, requests);
   }
   void clearCounterRouteInc(IpGenRouteKey key) {
      clearCounterRouteIs(key, clearCounterRoute(key) + 1);
   }
   void clearCounterRouteDel(IpGenRouteKey key) { clearCounterRoute_.del(*this, key); }
   ClearCounterRouteColl::Iterator clearCounterRouteDel(ClearCounterRouteColl::Iterator it) {
      return clearCounterRoute_.del(*this, it);
   }
   void clearCounterRouteDelAll() { clearCounterRoute_.delAll(*this); }
   void clearCounterRouteNotify(IpGenRouteKey key) { clearCounterRoute_.notify(*this, key); }

 private:
   ~Config() override = default;

   CounterRouteColl counterRoute_;
   ClearCounterRouteColl clearCounterRoute_;
};

}  // namespace Routing::Multicast::Fib
