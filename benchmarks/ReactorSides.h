// The sides with a per-switch reactor beside the table programmer, and the inputs of the reactor.
#pragma once

#include "RouteSides.h"

namespace Bench {

// The inputs of a reactor apart from its switch. All routes accept from the interface
// et<acceptingVlan>.
struct ReactorInputs {
   ReactorInputs();
   // Publishes the routes of the plan in the hardware status, as the routing layer does.
   void publish(Plan const& plan);

   Lnet::IntfId const accepting;
   Qor::Ptr<IntfVlanId::Table> const intfVlanIdTable = Qor::make<IntfVlanId::Table>();
   Qor::Ptr<Routing::Multicast::Fib::VrfConfig> const mfibConfig =
         Qor::make<Routing::Multicast::Fib::VrfConfig>();
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const mfibHwStatus =
         Qor::make<Routing::Multicast::Fib::Hardware::Status>();
   Qor::Ptr<Qor::Clock> const zombieClock = Qor::make<Qor::Clock>("zombieClock");
   Qor::Ptr<Qor::Clock> const agingClock = Qor::make<Qor::Clock>("agingClock");
   Qor::Ptr<Interface::EthIntfStatusDir> const ethIntfStatusDir =
         Qor::make<Interface::EthIntfStatusDir>();
};

class AsyncReactorSide : public AsyncSide {
 public:
   using AsyncSide::AsyncSide;

   // Reviews all published routes once, in as many passes as the quota of a pass requires.
   void review() {
      U32 const passes = (inputs.mfibHwStatus->routes() + sm->agingQuota - 1) / sm->agingQuota;
      for (U32 n = 0; n < passes; ++n)
         sm->doRouteAgingReview();
   }

   ReactorInputs inputs;
   Qor::Ptr<Vel::Mroute::AsyncMrouteSwitchSm> const sm = Vel::Mroute::AsyncMrouteSwitchSmIs(
         sw, inputs.intfVlanIdTable, inputs.mfibConfig, inputs.mfibHwStatus, hooks,
         inputs.zombieClock, inputs.agingClock, inputs.ethIntfStatusDir, nullptr, nullptr, nullptr,
         nullptr);
};

class SyncReactorSide : public SyncSide {
 public:
   using SyncSide::SyncSide;

   // Reviews all published routes once. The end of a review changes mrouteReviewKick.
   void review() {
      U64 const kicks = sw->mrouteReviewKick();
      while (sw->mrouteReviewKick() == kicks)
         sm->doRouteAgingReview();
   }

   ReactorInputs inputs;
   Qor::Ptr<Vel::MrouteSwitchSm> const sm = Vel::MrouteSwitchSmIs(
         1, nullptr, l3Status, sw, inputs.intfVlanIdTable, inputs.mfibConfig, inputs.mfibHwStatus,
         hooks, inputs.zombieClock, inputs.agingClock, inputs.ethIntfStatusDir, nullptr, nullptr);
};

}  // namespace Bench
