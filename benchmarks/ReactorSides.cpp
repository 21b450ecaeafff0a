#include "ReactorSides.h"

namespace Bench {

ReactorInputs::ReactorInputs() : accepting("et" + std::to_string(acceptingVlan)) {
   intfVlanIdTable->intfIdToVlanIdIs(accepting, Bridging::VlanId(U64{acceptingVlan}));
   for (Lnet::IntfId const intf : {accepting, Lnet::IntfId("et1")})
      ethIntfStatusDir->newIntfStatus(intf)->operStatusIs(Interface::IntfOperStatus::up);
}

void ReactorInputs::publish(Plan const& plan) {
   auto const vrf = mfibHwStatus->vrfStatusIs(L3::VrfName("default"));
   for (U32 const n : plan.order)
      vrf->routeIs(plan.keys[n])->acceptingIntfIdIs(accepting);
}

}  // namespace Bench
