// Registers the types of this namespace with the type registry.
#include "Qor/Describe.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"

namespace Routing::Multicast::Fib::Hardware {

namespace {

constexpr char typeModule[] = "Routing::Multicast::Fib::Hardware";

Qor::Type describeRouteStatus() {
   Qor::Describe<RouteStatus> type(typeModule);
   type.attribute<&RouteStatus::key>();
   type.attribute<&RouteStatus::acceptingIntfId, &RouteStatus::acceptingIntfIdIs,
                  &RouteStatus::Notifiee::onAcceptingIntfId>();
   type.attribute<&RouteStatus::lastPollTime, &RouteStatus::lastPollTimeIs,
                  &RouteStatus::Notifiee::onLastPollTime>();
   type.collection<RouteStatus::FastdropColl, RouteStatus, &RouteStatus::fastdropLastPollTime,
                   &RouteStatus::fastdropLastPollTimeDel, &RouteStatus::fastdropLastPollTimeDelAll,
                   &RouteStatus::fastdropLastPollTimeNotify,
                   &RouteStatus::fastdropLastPollTimeIs>();
   return type;
}
Qor::TypeRegistration const routeStatusRegistered(describeRouteStatus);

Qor::Type describeVrfStatus() {
   Qor::Describe<VrfStatus> type(typeModule);
   type.attribute<&VrfStatus::vrfName>();
   type.collection<VrfStatus::RouteColl, VrfStatus, &VrfStatus::route, &VrfStatus::routeDel,
                   &VrfStatus::routeDelAll, &VrfStatus::routeNotify, &VrfStatus::routeIs>();
   return type;
}
Qor::TypeRegistration const vrfStatusRegistered(describeVrfStatus);

Qor::Type describeStatus() {
   Qor::Describe<Status> type(typeModule);
   type.attribute<&Status::routes>();
   type.attribute<&Status::pollingInterval, &Status::pollingIntervalIs,
                  &Status::Notifiee::onPollingInterval>();
   type.attribute<&Status::hwRouting, &Status::hwRoutingIs, &Status::Notifiee::onHwRouting>();
   type.attribute<&Status::rangeRouteHandleShared, &Status::rangeRouteHandleSharedIs,
                  &Status::Notifiee::onRangeRouteHandleShared>();
   type.collection<Status::VrfStatusColl, Status, &Status::vrfStatus, &Status::vrfStatusDel,
                   &Status::vrfStatusDelAll, &Status::vrfStatusNotify, &Status::vrfStatusIs>();
   return type;
}
Qor::TypeRegistration const statusRegistered(describeStatus);

}  // namespace

}  // namespace Routing::Multicast::Fib::Hardware
