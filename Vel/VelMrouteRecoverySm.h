// Restart recovery. After the agent restarts, the hardware still holds its multicast routes, but
// the published hardware status is empty. The restart logic of the agent calls
// doAddMfibHwVrfStatus() once and doAddMfibHwStatusEntry() once for each route that it finds in
// hardware; the status is rebuilt from that. Nothing is programmed here.
//
// Traces go to a handle of their own, "VelMrouteRecovery".
#pragma once

#include "Bridging/VlanId.h"
#include "IntfVlanId/Table.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Routing/Multicast/Fib/VrfEnabledStatus.h"
#include "Vel/L3Status.h"

namespace Vel::Mroute {

class QOR_PUBLIC RecoverySm final : public Qor::StateMachine {
 public:
   // All four are held counted, and not null (assertion).
   RecoverySm(Qor::Ptr<L3Status const> velL3Status,
              Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
              Qor::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> vrfEnabledStatus,
              Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus);

   // A hardware VRF status for each VRF with multicast enabled; those that are there stay as they
   // are.
   void doAddMfibHwVrfStatus();

   // The status of a route found in hardware: of its VRF, with the interface of its vlan as the
   // accepting one, the empty one for a vlan of none or one that no interface has. Poll times of a
   // new status are 0: when the route was last used is not known. A VRF number that the L3 status
   // does not know is traced, and nothing is changed. RangeException for a VRF whose name is too
   // long ("VrfName::bytes > 100 not allowed").
   void doAddMfibHwStatusEntry(VrfId vrfId, Routing::Multicast::Fib::IpGenRouteKey const& routeKey,
                               Bridging::VlanIdOrNone vlan);

 private:
   ~RecoverySm() override;

   Qor::Ptr<L3Status const> const velL3Status_;
   Qor::Ptr<IntfVlanId::Table const> const intfVlanIdTable_;
   Qor::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> const vrfEnabledStatus_;
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const mfibHwStatus_;
};

QOR_PUBLIC Qor::ValidPtr<RecoverySm> recoverySmFactory(
      Qor::Ptr<L3Status const> velL3Status, Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
      Qor::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> vrfEnabledStatus,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus);

}  // namespace Vel::Mroute
