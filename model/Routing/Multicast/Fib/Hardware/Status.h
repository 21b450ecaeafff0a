// The status of multicast forwarding in hardware: the routes of each VRF, the polling interval in
// effect, and whether the hardware routes multicast packets.
//
// The route programmer publishes a route here before it allocates the route, and removes the status
// after it has deleted the route. Restart recovery rebuilds the VRFs and routes from the hardware.
// The per-switch reactors walk the routes in their aging reviews, and write pollingInterval. The
// agent writes hwRouting and rangeRouteHandleShared. The top-level multicast reactor watches
// hwRouting; the routing layer watches pollingInterval.
#pragma once

#include "Routing/Multicast/Fib/Hardware/VrfStatus.h"

namespace Routing::Multicast::Fib::Hardware {

class QOR_PUBLIC Status final : public Qor::Entity<Status, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<Status> {
    public:
      // A VRF was added or removed. A change of its routes notifies the notifiees of the VRF's
      // status alone.
      virtual void onVrfStatus(L3::VrfName const&) {}
      virtual void onVrfStatusImmediate() {}
      virtual void onPollingInterval() {}
      virtual void onHwRouting() {}
      virtual void onRangeRouteHandleShared() {}

    protected:
      void onImmediate() override { onVrfStatusImmediate(); }
   };
   using VrfStatusPtr = Qor::Ptr<VrfStatus>;
   // An interrupted walk keeps the name of a VRF and resumes with lowerBound(), or with
   // upperBound().
   using VrfStatusColl = Qor::Collection<Qor::OrderedMap<L3::VrfName, VrfStatusPtr>,
                                         &Notifiee::onVrfStatus, &Notifiee::onVrfStatusImmediate>;

   explicit Status(Qor::Name name = "mfibHwStatus");

   VrfStatusColl::Map const& vrfStatus() const { return vrfStatus_.map(); }
   // Returns null for a VRF without a status.
   VrfStatusPtr vrfStatus(L3::VrfName const& vrfName) const { return vrfStatus_.value(vrfName); }
   // Makes the VRF's status, without routes, or returns the present one.
   VrfStatusPtr vrfStatusIs(L3::VrfName vrfName);
   // Removes the status of the VRF, with all its routes.
   void vrfStatusDel(L3::VrfName vrfName);
   VrfStatusColl::Iterator vrfStatusDel(VrfStatusColl::Iterator it);
   void vrfStatusDelAll();
   void vrfStatusNotify(L3::VrfName vrfName) { vrfStatus_.notify(*this, vrfName); }

   // The number of routes in all VRFs, without a walk. It includes the change that a notification
   // of this entity or of one of its VRFs is about.
   Qor::U32 routes() const { return routes_; }

   // The time between two polls of the hardware for activity, in seconds; 0 until a reactor sets
   // it.
   Qor::U8 pollingInterval() const { return pollingInterval_; }
   void pollingIntervalIs(Qor::U8 v) { attrIs<&Notifiee::onPollingInterval>(pollingInterval_, v); }

   // Whether the hardware can route multicast packets.
   bool hwRouting() const { return hwRouting_; }
   void hwRoutingIs(bool v) { attrIs<&Notifiee::onHwRouting>(hwRouting_, v); }

   // Whether the platform may return a handle in use for a group range or a catch-all route
   // (IpGenRouteKey::kindGroupRange and kindCatchAll), as a chip does that keeps these routes outside
   // its route table. While this is set, the synchronous programmer accepts the handle if the route
   // that has it is of the same key and accepting vlan. Any other handle must be new: routes with
   // different keys never share a handle, and the programmer refuses one with a
   // Qor::ReinstantiationException.
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
