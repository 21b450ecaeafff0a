// Restart recovery. After the agent restarts, the hardware still holds its multicast routes, but
// the published hardware status is empty. The restart logic of the agent calls
// doAddMfibHwVrfStatus() once, and doAddMfibHwStatusEntry() once for each route that it finds in
// hardware. These calls rebuild the status; they program nothing. A listener of the status that
// throws ends the notification, and the error reaches the caller.
//
// Traces use the trace handle "VelMrouteRecovery".
#pragma once

#include "Bridging/VlanId.h"
#include "IntfVlanId/Table.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Routing/Multicast/Fib/VrfEnabledStatus.h"
#include "Vel/L3Status.h"

namespace Vel::Mroute {

class QOR_PUBLIC RecoverySm final : public Qor::StateMachine {
 public:
   // All four arguments are held counted, and not null (assertions).
   RecoverySm(Qor::Ptr<L3Status const> velL3Status,
              Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
              Qor::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> vrfEnabledStatus,
              Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus);

   // Makes a hardware VRF status for each VRF with multicast enabled. An existing status stays as
   // it is.
   void doAddMfibHwVrfStatus();

   // Makes the status of a route found in hardware, under the route's VRF. The accepting interface
   // is the interface of `vlan`, or the empty interface if `vlan` is none or no interface has that
   // vlan. The poll times of a new status are 0, since the time of the route's last use is unknown.
   // For a VRF number that the L3 status does not know, the call traces and changes nothing. A VRF
   // with too long a name raises RangeException "VrfName::bytes > 100 not allowed".
   void doAddMfibHwStatusEntry(VrfId vrfId, Routing::Multicast::Fib::IpGenRouteKey const& routeKey,
                               Bridging::VlanIdOrNone vlan);

 private:
   ~RecoverySm() override;

   Qor::Ptr<L3Status const> const velL3Status_;
   Qor::Ptr<IntfVlanId::Table const> const intfVlanIdTable_;
   Qor::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> const vrfEnabledStatus_;
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const mfibHwStatus_;
};

QOR_PUBLIC Qor::Ptr<RecoverySm> recoverySmFactory(
      Qor::Ptr<L3Status const> velL3Status, Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
      Qor::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> vrfEnabledStatus,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus);

}  // namespace Vel::Mroute
