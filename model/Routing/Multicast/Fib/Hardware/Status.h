// What multicast forwarding is in hardware: the routes of each VRF, the polling interval in effect,
// and whether the hardware routes multicast at all.
//
// The route programmer publishes a route here before it allocates it and removes it after it is
// deleted; restart recovery rebuilds VRFs and routes from the hardware. The per-switch reactors
// walk the routes when they review activity, and write pollingInterval. The agent writes hwRouting
// and rangeRouteHandleShared. The top-level multicast reactor watches hwRouting, and the routing
// layer pollingInterval.
#pragma once

#include "Routing/Multicast/Fib/Hardware/VrfStatus.h"

namespace Routing::Multicast::Fib::Hardware {

class QOR_PUBLIC Status final : public Qor::Entity<Status, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<Status> {
    public:
      // A VRF was added or removed. Not told when its routes change: that entity has notifiees of
      // its own.
      virtual void onVrfStatus(L3::VrfName const&) {}
      virtual void onVrfStatusImmediate() {}
      virtual void onPollingInterval() {}
      virtual void onHwRouting() {}
      virtual void onRangeRouteHandleShared() {}

    protected:
      void onImmediate() override { onVrfStatusImmediate(); }
   };
   using VrfStatusPtr = Qor::Ptr<VrfStatus>;
   // A walk that was interrupted goes on as in VrfStatus::RouteColl.
   using VrfStatusColl = Qor::Collection<Qor::OrderedMap<L3::VrfName, VrfStatusPtr>,
                                         &Notifiee::onVrfStatus, &Notifiee::onVrfStatusImmediate>;

   explicit Status(Qor::Name name = "mfibHwStatus");

   VrfStatusColl::Map const& vrfStatus() const { return vrfStatus_.map(); }
   // Null for a VRF that is not here.
   VrfStatusPtr vrfStatus(L3::VrfName const& vrfName) const { return vrfStatus_.value(vrfName); }
   // Makes the VRF's status without routes, or returns it as it is.
   VrfStatusPtr vrfStatusIs(L3::VrfName vrfName);
   // Removes the VRF with all its routes.
   void vrfStatusDel(L3::VrfName vrfName);
   VrfStatusColl::Iterator vrfStatusDel(VrfStatusColl::Iterator it);
   void vrfStatusDelAll();
   void vrfStatusNotify(L3::VrfName vrfName) { vrfStatus_.notify(*this, vrfName); }

   // How many routes all VRFs have. It is right whenever a notifiee of this entity or of one of its
   // VRFs is told, and costs no walk.
   Qor::U32 routes() const { return routes_; }

   // How often the hardware is polled for activity, in whole seconds; 0 until a reactor has set it.
   Qor::U8 pollingInterval() const { return pollingInterval_; }
   void pollingIntervalIs(Qor::U8 v) { attrIs<&Notifiee::onPollingInterval>(pollingInterval_, v); }

   bool hwRouting() const { return hwRouting_; }
   void hwRoutingIs(bool v) { attrIs<&Notifiee::onHwRouting>(hwRouting_, v); }

   // On a chip that keeps group ranges and the catch-all outside its route table, the platform may
   // return a handle that is in use already when such a route (IpGenRouteKey::kindGroupRange and
   // kindCatchAll) is allocated again. While this is set, the synchronous programmer takes that
   // handle, if the route that has it is of the same key and accepting vlan; otherwise every handle
   // must be new. Routes with different keys never share a handle: the programmer refuses that with
   // a Qor::ReinstantiationException.
   bool rangeRouteHandleShared() const { return rangeRouteHandleShared_; }
   void rangeRouteHandleSharedIs(bool v) {
      attrIs<&Notifiee::onRangeRouteHandleShared>(rangeRouteHandleShared_, v);
   }

 private:
   ~Status() override;

   VrfStatusColl vrfStatus_;
   Qor::U32 routes_ = 0;
   Qor::U8 pollingInterval_ = 0;
   bool hwRouting_ = false;
   bool rangeRouteHandleShared_ = false;
};

}  // namespace Routing::Multicast::Fib::Hardware
