// The publications of all programmers in one hardware status. Each programmer publishes a route for
// itself; the status of the route is removed with the last publication. A status that was there
// before the first publication counts as one more, which nobody takes back.
#pragma once

#include <map>
#include <tuple>
#include <utility>

#include "Routing/Multicast/Fib/Hardware/Status.h"

namespace VelMroute {

class PublishedRoutes final : public Qor::RefCounted {
 public:
   using Status = Routing::Multicast::Fib::Hardware::Status;
   using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;
   using VrfStatus = Routing::Multicast::Fib::Hardware::VrfStatus;
   using RouteStatusPtr = VrfStatus::RoutePtr;

   // The one object of this status in the process.
   static Qor::Ptr<PublishedRoutes> of(Qor::Ptr<Status> status);

   // For of() alone.
   explicit PublishedRoutes(Qor::Ptr<Status> status) : status_(std::move(status)) {}

   Qor::Ptr<Status> const& status() const { return status_; }

   // One more publication of the route, and of its fastdrop interface. Both return the status of the
   // route; null for the interface of a route without a status.
   RouteStatusPtr add(L3::VrfName const& vrf, RouteKey const& key);
   RouteStatusPtr addFastdrop(L3::VrfName const& vrf, RouteKey const& key, Lnet::IntfId intf);
   // Takes one publication back. Returns whether that removed the status of the route.
   bool remove(L3::VrfName const& vrf, RouteKey const& key);
   void removeFastdrop(L3::VrfName const& vrf, RouteKey const& key, Lnet::IntfId intf);

 private:
   // A route, or with an interface one of its fastdrop entries.
   using Id = std::tuple<L3::VrfName, RouteKey, Lnet::IntfId>;

   ~PublishedRoutes() override;
   // The status of the VRF; null without one. Most calls are for the VRF of the call before.
   Qor::Ptr<VrfStatus> vrfStatus(L3::VrfName const& vrf);
   // Takes one of the further publications back, if there are any.
   bool removeFurther(Id const& id);
   void removeFastdrops(L3::VrfName const& vrf, RouteKey const& key);

   Qor::Ptr<Status> const status_;
   // The result of the last vrfStatus(), of use while the map of the VRFs is unchanged.
   VrfStatus* last_ = nullptr;
   Qor::U64 changes_ = 0;
   // The publications after the first one, where there are any: most routes are on one chip.
   std::map<Id, Qor::U32> further_;
};

}  // namespace VelMroute
