// The status of one route in hardware: its accepting interface, and when it was last used.
//
// The route programmer makes the status before it allocates the route, and sets the accepting
// interface and the fastdrop entries. After a restart of the agent, recovery makes the status. The
// aging reviews read these attributes and write the poll times. The routing layer watches the poll
// times and ages the routes that stay idle.
#pragma once

#include <memory>

#include "Lnet/IntfId.h"
#include "Qor/Collection.h"
#include "Qor/Entity.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"

namespace Routing::Multicast::Fib::Hardware {

class RouteStatus final : public Qor::Entity<RouteStatus> {
 public:
   class Notifiee : public Qor::NotifieeOf<RouteStatus> {
    public:
      virtual void onAcceptingIntfId() {}
      virtual void onLastPollTime() {}
      // The fastdrop entry of the named interface was added, removed, or used at a later time.
      virtual void onFastdropLastPollTime(Qor::Name const&) {}
      virtual void onFastdropLastPollTimeImmediate() {}

    protected:
      void onImmediate() override { onFastdropLastPollTimeImmediate(); }
   };
   using FastdropColl = Qor::Collection<Qor::OrderedMap<Qor::Name, Qor::Seconds>,
                                        &Notifiee::onFastdropLastPollTime,
                                        &Notifiee::onFastdropLastPollTimeImmediate>;

   explicit RouteStatus(IpGenRouteKey const& key) : key_(key) {}

   Qor::Name name() const override { return key_.pretty(); }
   IpGenRouteKey const& key() const { return key_; }

   // Empty for a route that accepts packets from any interface.
   Lnet::IntfId acceptingIntfId() const { return acceptingIntfId_; }
   void acceptingIntfIdIs(Lnet::IntfId v) {
      attrIs<&Notifiee::onAcceptingIntfId>(acceptingIntfId_, v);
   }

   // The time at which a review last found the route in use, on the Qor::now() time base; 0 if none
   // did.
   Qor::Seconds lastPollTime() const { return lastPollTime_; }
   void lastPollTimeIs(Qor::Seconds v) { attrIs<&Notifiee::onLastPollTime>(lastPollTime_, v); }

   // The fastdrop entries. An entry drops the packets of this route that arrive at an interface.
   // Its key is the name of the interface; its value is the time at which a review last found the
   // entry in use, or 0.
   FastdropColl::Map const& fastdropLastPollTime() const {
      static FastdropColl::Map const none;
      return fastdrop_ ? fastdrop_->map() : none;
   }
   // Returns 0 for an interface without a fastdrop entry too.
   Qor::Seconds fastdropLastPollTime(Qor::Name const& intfName) const {
      return fastdrop_ ? fastdrop_->value(intfName) : 0;
   }
   void fastdropLastPollTimeIs(Qor::Name intfName, Qor::Seconds time) {
      fastdrop().is(*this, intfName, time);
   }
   void fastdropLastPollTimeDel(Qor::Name intfName) { fastdrop().del(*this, intfName); }
   FastdropColl::Iterator fastdropLastPollTimeDel(FastdropColl::Iterator it) {
      return fastdrop().del(*this, it);
   }
   void fastdropLastPollTimeDelAll() { fastdrop().delAll(*this); }
   void fastdropLastPollTimeNotify(Qor::Name intfName) { fastdrop().notify(*this, intfName); }

 private:
   ~RouteStatus() override = default;

   FastdropColl& fastdrop() {
      if (!fastdrop_) fastdrop_ = std::make_unique<FastdropColl>();
      return *fastdrop_;
   }

   IpGenRouteKey const key_;
   Lnet::IntfId acceptingIntfId_;
   Qor::Seconds lastPollTime_ = 0;
   // Null until the first entry: of very many routes, few have a fastdrop entry.
   std::unique_ptr<FastdropColl> fastdrop_;
};

}  // namespace Routing::Multicast::Fib::Hardware
