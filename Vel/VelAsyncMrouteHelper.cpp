#include "Vel/VelAsyncMrouteHelper.h"

#include <utility>

#include "Vel/VelDescribe.h"

namespace VelHelper {

using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Routing::Multicast::Fib::CounterMode;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::RouteKeyType;

std::ostream& operator<<(std::ostream& os, MrouteXactType type) {
   switch (type) {
      case MrouteXactType::oifSet:
         return os << "oifSet";
      case MrouteXactType::ingress:
         return os << "ingress";
   }
   return os << static_cast<unsigned>(type);
}

std::optional<MrouteXactType> mrouteXactType(std::string_view name) {
   if (name == "oifSet") return MrouteXactType::oifSet;
   if (name == "ingress") return MrouteXactType::ingress;
   return std::nullopt;
}

AsyncMrouteHelper::AsyncMrouteHelper(
      Qor::Name name, Qor::Ptr<FlexCounters::CounterKeyTable> activeCounterKeyTable,
      Qor::Ptr<MrouteLib::MrouteCounterKeyMapTable> mrouteCounterKeyMapTable)
      : Entity(std::move(name)),
        activeCounterKeyTable_(std::move(activeCounterKeyTable)),
        mrouteCounterKeyMapTable_(std::move(mrouteCounterKeyMapTable)) {}

AsyncMrouteHelper::~AsyncMrouteHelper() {
   deletedMrouteCounterKeyDelAll();
   noHwCounterMrouteKeyDelAll();
}

void AsyncMrouteHelper::handleMrouteCounterMode(CounterMode) {}

void AsyncMrouteHelper::handleWildcardCounter(bool) {}

bool AsyncMrouteHelper::doCreateMrouteCounter(Vel::VrfId, IpGenRouteKey) {
   return true;
}

bool AsyncMrouteHelper::doDeleteMrouteCounter(Vel::VrfId, IpGenRouteKey) {
   return true;
}

Qor::U32 AsyncMrouteHelper::doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const&,
                                                             OifSetPtr, Hux::XactPtr, bool) {
   hookNotImplemented(__func__);
   return 0;
}

Qor::U32 AsyncMrouteHelper::doAllocateFixedMulticastGroup(OifSetPtr, Hux::XactPtr, Qor::U32) {
   hookNotImplemented(__func__);
   return 0;
}

void AsyncMrouteHelper::doUpdateMulticastGroupInPlace(OifSetPtr, Qor::U32) {
   hookNotImplemented(__func__);
}

Hux::XactPtr AsyncMrouteHelper::doGetXactForOifSet(Qor::U32) {
   hookNotImplemented(__func__);
   return nullptr;
}

Qor::String8 AsyncMrouteHelper::doGetXactFailureReason(Hux::XactPtr, MrouteXactType) {
   hookNotImplemented(__func__);
   return {};
}

void AsyncMrouteHelper::doDeleteOifSet(Qor::U32) {
   hookNotImplemented(__func__);
}

RouteHandle AsyncMrouteHelper::doAllocateRoute(IpGenRouteKey const&, Bridging::VlanIdOrNone, bool,
                                               Wisp::Multicast::Fib::RpaIndex, Qor::U32) {
   hookNotImplemented(__func__);
   return {};
}

void AsyncMrouteHelper::doSetMtableOifSet(RouteHandle, Qor::U32, Hux::XactPtr) {
   hookNotImplemented(__func__);
}

Hux::XactPtr AsyncMrouteHelper::doGetXactForIngress(RouteHandle) {
   hookNotImplemented(__func__);
   return nullptr;
}

void AsyncMrouteHelper::doDeleteRoute(RouteHandle) {
   hookNotImplemented(__func__);
}

Qor::Seconds AsyncMrouteHelper::routeLastAccessedTime(RouteHandle) {
   hookNotImplemented(__func__);
   return 0.0;
}

bool AsyncMrouteHelper::needFixedOifSet(RouteKeyType) {
   return false;
}

bool AsyncMrouteHelper::needIngressProgramming(RouteKeyType) {
   return true;
}

bool AsyncMrouteHelper::mcastIdReusable(Qor::U32) {
   return true;
}

bool AsyncMrouteHelper::mcastIdIsValid(Qor::U32 mcastId) {
   return mcastId != invalidMulticastId;
}

double AsyncMrouteHelper::doGetAdjustedPollingInterval(double const& interval) {
   return interval;
}

double AsyncMrouteHelper::doGetAdjustedActivityPollInterval(double const& interval) {
   return interval;
}

void AsyncMrouteHelper::doScheduleVerify() {}

namespace {

Qor::Type describeMrouteXactType() {
   Qor::Describe<MrouteXactType> type(Vel::typeModule);
   return type;
}
Qor::TypeRegistration const mrouteXactTypeRegistered(describeMrouteXactType);

Qor::Type describeAsyncMrouteHelper() {
   using Helper = AsyncMrouteHelper;
   Qor::Describe<Helper> type(Vel::typeModule);
   type.constructible<Qor::Name, Qor::Ptr<FlexCounters::CounterKeyTable>,
                      Qor::Ptr<MrouteLib::MrouteCounterKeyMapTable>>(
         "name", "activeCounterKeyTable", "mrouteCounterKeyMapTable");
   type.attribute<&Helper::activeCounterKeyTable>();
   type.attribute<&Helper::mrouteCounterKeyMapTable>();
   type.collection<Helper::DeletedMrouteCounterKeyColl, Helper, &Helper::deletedMrouteCounterKey,
                   &Helper::deletedMrouteCounterKeyDel, &Helper::deletedMrouteCounterKeyIs,
                   &Helper::deletedMrouteCounterKeyDelAll,
                   &Helper::deletedMrouteCounterKeyNotify>();
   type.collection<Helper::NoHwCounterMrouteKeyColl, Helper, &Helper::noHwCounterMrouteKey,
                   &Helper::noHwCounterMrouteKeyDel, &Helper::noHwCounterMrouteKeyIs,
                   &Helper::noHwCounterMrouteKeyDelAll, &Helper::noHwCounterMrouteKeyNotify>();
   type.operation<&Helper::handleMrouteCounterMode>("mode");
   type.operation<&Helper::handleWildcardCounter>("allCounter");
   type.operation<&Helper::doCreateMrouteCounter>("vrfId", "key");
   type.operation<&Helper::doDeleteMrouteCounter>("vrfId", "key");
   type.operation<&Helper::doAllocateSharableMulticastGroup>("routeKeyInfo", "oifSet",
                                                             "blockingXact", "excludeEmptyMcid");
   type.operation<&Helper::doAllocateFixedMulticastGroup>("oifSet", "blockingXact", "mcastId");
   type.operation<&Helper::doUpdateMulticastGroupInPlace>("oifSet", "mcastId");
   type.operation<&Helper::doGetXactForOifSet>("mcastId");
   type.operation<&Helper::doGetXactFailureReason>("xact", "mrouteXactType");
   type.operation<&Helper::doDeleteOifSet>("mcastId");
   type.operation<&Helper::doAllocateRoute>("routeKey", "acceptingVlanId", "bridgeAction", "rpaId",
                                            "vrfId");
   type.operation<&Helper::doSetMtableOifSet>("handle", "mcastId", "blockingXact");
   type.operation<&Helper::doGetXactForIngress>("handle");
   type.operation<&Helper::doDeleteRoute>("handle");
   type.operation<&Helper::routeLastAccessedTime>("handle");
   type.operation<&Helper::needFixedOifSet>("type");
   type.operation<&Helper::needIngressProgramming>("type");
   type.operation<&Helper::mcastIdReusable>("mcastId");
   type.operation<&Helper::mcastIdIsValid>("mcastId");
   type.operation<&Helper::doGetAdjustedPollingInterval>("interval");
   type.operation<&Helper::doGetAdjustedActivityPollInterval>("interval");
   type.operation<&Helper::doScheduleVerify>();
   return type;
}
Qor::TypeRegistration const asyncMrouteHelperRegistered(describeAsyncMrouteHelper);

}  // namespace

}  // namespace VelHelper
