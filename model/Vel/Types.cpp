// Registers the types of this namespace with the type registry.
#include "Qor/Describe.h"
#include "Vel/L3Status.h"
#include "Vel/VelCommonSmData.h"
#include "Vel/VerifyData.h"

namespace Vel {

namespace {

constexpr char typeModule[] = "Vel";

Qor::Type describeL3Status() {
   Qor::Describe<L3Status> type(typeModule);
   type.collection<L3Status::VrfColl::ByKey, L3Status, &L3Status::vrfNameToVrfId,
                   &L3Status::vrfNameToVrfIdDel, &L3Status::vrfNameToVrfIdDelAll,
                   &L3Status::vrfNameToVrfIdNotify, &L3Status::vrfNameToVrfIdIs>();
   type.collection<L3Status::VrfColl::ByValue, L3Status, &L3Status::vrfIdToVrfName,
                   &L3Status::vrfIdToVrfNameDel, &L3Status::vrfIdToVrfNameDelAll,
                   &L3Status::vrfIdToVrfNameNotify, &L3Status::vrfIdToVrfNameIs>();
   type.attribute<&L3Status::multicastReviewPending, &L3Status::multicastReviewPendingIs,
                  &L3Status::Notifiee::onMulticastReviewPending>();
   type.attribute<&L3Status::unicastReviewPending, &L3Status::unicastReviewPendingIs,
                  &L3Status::Notifiee::onUnicastReviewPending>();
   type.attribute<&L3Status::unicast6ReviewPending, &L3Status::unicast6ReviewPendingIs,
                  &L3Status::Notifiee::onUnicast6ReviewPending>();
   type.attribute<&L3Status::waitForRoutingDisabledRefCnt,
                  &L3Status::waitForRoutingDisabledRefCntIs,
                  &L3Status::Notifiee::onWaitForRoutingDisabledRefCnt>();
   type.attribute<&L3Status::multicastRoutingEnabled, &L3Status::multicastRoutingEnabledIs,
                  &L3Status::Notifiee::onMulticastRoutingEnabled>();
   type.attribute<&L3Status::numTimesMcastRoutingEnabled, &L3Status::numTimesMcastRoutingEnabledIs,
                  &L3Status::Notifiee::onNumTimesMcastRoutingEnabled>();
   type.attribute<&L3Status::multicastZombiesEnabled, &L3Status::multicastZombiesEnabledIs,
                  &L3Status::Notifiee::onMulticastZombiesEnabled>();
   return type;
}
Qor::TypeRegistration const l3StatusRegistered(describeL3Status);

Qor::Type describeVerifyData() {
   Qor::Describe<VerifyData> type(typeModule);
   type.attribute<&VerifyData::verify, &VerifyData::verifyIs, &VerifyData::Notifiee::onVerify>();
   type.attribute<&VerifyData::verifyRequired, &VerifyData::verifyRequiredIs,
                  &VerifyData::Notifiee::onVerifyRequired>();
   type.attribute<&VerifyData::retryVerify, &VerifyData::retryVerifyIs,
                  &VerifyData::Notifiee::onRetryVerify>();
   type.attribute<&VerifyData::reverify, &VerifyData::reverifyIs,
                  &VerifyData::Notifiee::onReverify>();
   type.operation<&VerifyData::doRequestVerify>();
   return type;
}
Qor::TypeRegistration const verifyDataRegistered(describeVerifyData);

Qor::Type describeVelCommonSmData() {
   Qor::Describe<VelCommonSmData> type(typeModule);
   type.attribute<&VelCommonSmData::verifyData, &VelCommonSmData::verifyDataIs,
                  &VelCommonSmData::Notifiee::onVerifyData>();
   return type;
}
Qor::TypeRegistration const velCommonSmDataRegistered(describeVelCommonSmData);

}  // namespace

}  // namespace Vel
