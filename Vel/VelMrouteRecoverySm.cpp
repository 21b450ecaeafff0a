#include "Vel/VelMrouteRecoverySm.h"

#include <utility>
#include <vector>

#include "Qor/Trace.h"
#include "Vel/VelDescribe.h"

#define RECOVERY_TRACE(level, pieces) QOR_TRACE(recoveryTrace(), velTraceSource, level, pieces)

namespace Vel::Mroute {

using Routing::Multicast::Fib::IpGenRouteKey;

namespace {

constexpr char velTraceSource[] = "VelMrouteRecoverySm";

Qor::TraceHandle& recoveryTrace() {
   static Qor::TraceHandle& handle = Qor::traceHandle("VelMrouteRecovery");
   return handle;
}

}  // namespace

RecoverySm::RecoverySm(Qor::Ptr<L3Status const> velL3Status,
                       Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
                       Qor::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> vrfEnabledStatus,
                       Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus)
      : StateMachine("RecoverySm"),
        velL3Status_(std::move(velL3Status)),
        intfVlanIdTable_(std::move(intfVlanIdTable)),
        vrfEnabledStatus_(std::move(vrfEnabledStatus)),
        mfibHwStatus_(std::move(mfibHwStatus)) {
   QOR_ASSERT(velL3Status_ != nullptr);
   QOR_ASSERT(intfVlanIdTable_ != nullptr);
   QOR_ASSERT(vrfEnabledStatus_ != nullptr);
   QOR_ASSERT(mfibHwStatus_ != nullptr);
}

RecoverySm::~RecoverySm() = default;

Qor::Ptr<RecoverySm> recoverySmFactory(
      Qor::Ptr<L3Status const> velL3Status, Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
      Qor::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> vrfEnabledStatus,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus) {
   return Qor::make<RecoverySm>(std::move(velL3Status), std::move(intfVlanIdTable),
                                std::move(vrfEnabledStatus), std::move(mfibHwStatus));
}

// The names are copied first, since a listener of a new status may enable or disable VRFs.
void RecoverySm::doAddMfibHwVrfStatus() {
   RECOVERY_TRACE(8, "doAddMfibHwVrfStatus");
   std::vector<L3::VrfName> names;
   for (auto const& [vrfName, enabled] : vrfEnabledStatus_->vrf())
      names.push_back(vrfName);
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const status = mfibHwStatus_;
   for (L3::VrfName const& vrfName : names)
      status->vrfStatusIs(vrfName);
}

void RecoverySm::doAddMfibHwStatusEntry(VrfId vrfId, IpGenRouteKey const& routeKey,
                                        Bridging::VlanIdOrNone vlan) {
   RECOVERY_TRACE(8, "doAddMfibHwStatusEntry"
                           << "( " << vrfId << ", " << routeKey << ", " << vlan << " )");
   auto const* const vrf = velL3Status_->vrfIdToVrfName().find(vrfId);
   if (!vrf) {
      RECOVERY_TRACE(7, "doAddMfibHwStatusEntry"
                              << "( " << vrfId << ", " << routeKey << ", " << vlan
                              << " ), Vrf does not exist");
      return;
   }
   L3::VrfName const vrfName(vrf->second);
   Lnet::IntfId const intfId =
         vlan.isNone() ? Lnet::IntfId()
                       : intfVlanIdTable_->vlanIdToIntfId(Bridging::VlanId(vlan.value()));
   mfibHwStatus_->vrfStatusIs(vrfName)->routeIs(routeKey)->acceptingIntfIdIs(intfId);
   RECOVERY_TRACE(7, "doAddMfibHwStatusEntry"
                           << "( " << vrfId << ", " << routeKey << ", " << vlan
                           << " ), Added route to VRF " << vrfName);
}

namespace {

Qor::Type describeRecoverySm() {
   Qor::Describe<RecoverySm> type(typeModule);
   type.base<Qor::StateMachine>();
   type.constructor<&recoverySmFactory>(
         Qor::Required("velL3Status"), Qor::Required("intfVlanIdTable"),
         Qor::Required("vrfEnabledStatus"), Qor::Required("mfibHwStatus"));
   type.operation<&RecoverySm::doAddMfibHwVrfStatus>();
   type.operation<&RecoverySm::doAddMfibHwStatusEntry>("vrfId", "routeKey", "vlan");
   return type;
}
Qor::TypeRegistration const recoverySmRegistered(describeRecoverySm);

}  // namespace

}  // namespace Vel::Mroute
