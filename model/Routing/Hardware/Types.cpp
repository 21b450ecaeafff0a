// Registers the types of this namespace with the type registry.
#include "Qor/Describe.h"
#include "Routing/Hardware/RouteStatus.h"

namespace Routing::Hardware {

namespace {

constexpr char typeModule[] = "Routing::Hardware";

Qor::Type describeVrfStatus() {
   Qor::Describe<VrfStatus> type(typeModule);
   type.attribute<&VrfStatus::vrfName>();
   type.attribute<&VrfStatus::vrfId>();
   return type;
}
Qor::TypeRegistration const vrfStatusRegistered(describeVrfStatus);

Qor::Type describeRouteStatus() {
   Qor::Describe<RouteStatus> type(typeModule);
   type.collection<RouteStatus::VrfStatusColl, RouteStatus, &RouteStatus::vrfStatus,
                   &RouteStatus::vrfStatusDel, &RouteStatus::vrfStatusDelAll,
                   &RouteStatus::vrfStatusNotify>();
   type.operation<&RouteStatus::newVrfStatus>("vrfName", "vrfId");
   return type;
}
Qor::TypeRegistration const routeStatusRegistered(describeRouteStatus);

}  // namespace

}  // namespace Routing::Hardware
