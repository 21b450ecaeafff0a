// The sides together with the per-switch reactors that stand beside the programmers, and what
// those watch.
#pragma once

#include "RouteSides.h"

namespace Bench {

// What a reactor is made of beside its switch. The interface et<acceptingVlan> is the one that
// routes accept from.
struct ReactorInputs {
   ReactorInputs();
   // Publishes the plan's routes, as the routing layer does.
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

   // One review of all published routes.
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
