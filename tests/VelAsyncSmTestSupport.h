// Support for the tests of the asynchronous per-switch reactor: a simulated chip behind its
// platform, and the entities that a reactor watches.
#pragma once

#include <functional>
#include <tuple>

#include "Journal.h"
#include "SimTestSupport.h"
#include "Vel/VelAsyncMrouteSmReactors.h"
#include "platform/sim/AsyncPlatform.h"

namespace velAsync {

using namespace testSupport;
using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Interface::IntfOperStatus;
using L3::VrfName;
using Lnet::IntfId;
using Lnet::IpGenAddr;
using MrouteLib::OifSetPtr;
using MrouteLib::PortVlan;
using MrouteLib::RouteHandle;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::RouteKeyType;
using Vel::Mroute::AsyncMrouteSwitch;
using Vel::Mroute::AsyncMrouteSwitchSm;
using Vel::Mroute::AsyncMtableOifSet;
using Vel::Mroute::InUseRouteHandleKey;
using Vel::Mroute::ZombieKey;
namespace Fib = Routing::Multicast::Fib;

struct Journal : testSupport::Journal {
   Journal() : testSupport::Journal("VelAsyncMrouteSm") {}
};

// Calls back each time the clock fires.
class OnTime final : public Qor::Clock::Notifiee {
 public:
   OnTime(Qor::Ptr<Qor::Clock const> const& clock, std::function<void()> call)
         : call_(std::move(call)) {
      notifierIs(clock);
   }
   void onTime() override { call_(); }

 private:
   std::function<void()> call_;
};

// The arguments of a reactor beside its switch, in their order.
struct Inputs {
   Qor::Ptr<IntfVlanId::Table> intfVlanIdTable = Qor::make<IntfVlanId::Table>();
   Qor::Ptr<Fib::VrfConfig> mfibConfig = Qor::make<Fib::VrfConfig>();
   Qor::Ptr<Fib::Hardware::Status> mfibHwStatus = Qor::make<Fib::Hardware::Status>();
   Qor::Ptr<VelHelper::AsyncMrouteHelper> mrouteHelper;
   Qor::Ptr<Qor::Clock> zombieClock = Qor::make<Qor::Clock>("zombieClock");
   Qor::Ptr<Qor::Clock> agingClock = Qor::make<Qor::Clock>("agingClock");
   Qor::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir =
         Qor::make<Interface::EthIntfStatusDir>();
   Qor::Ptr<Bfd::StatusPeer> bfdAllPeerStatusDir = Qor::make<Bfd::StatusPeer>();
   Qor::Ptr<Bfd::AppStatus> bfdAllPeerStatus = Qor::make<Bfd::AppStatus>();
   Qor::Ptr<Interface::AllIntfStatusDir> allIntfStatusDir =
         Qor::make<Interface::AllIntfStatusDir>();
   Qor::Ptr<Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir =
         Qor::make<Interface::AllIntfStatusLocalDir>();

   auto all() {
      return std::tie(intfVlanIdTable, mfibConfig, mfibHwStatus, mrouteHelper, zombieClock,
                      agingClock, ethIntfStatusDir, bfdAllPeerStatusDir, bfdAllPeerStatus,
                      allIntfStatusDir, allIntfStatusLocalDir);
   }
   Qor::Ptr<AsyncMrouteSwitchSm> sm(Qor::Ptr<AsyncMrouteSwitch> const& chip) {
      return std::apply(
            [&](auto&... in) { return Vel::Mroute::AsyncMrouteSwitchSmIs(chip, in...); }, all());
   }
};

class AsyncSm : public OnSwitchWithReactor<Inputs> {
 protected:
   struct Route {
      RouteHandle handle;
      MrouteLib::MtableOifSetPtr record;
   };

   AsyncSm() { build(); }
   ~AsyncSm() override {
      sm_ = nullptr;
      forgetPosition();  // no test inherits one
   }
   // A review that is complete forgets where the last slice stopped: this one, of a single route.
   void forgetPosition() {
      Inputs in;
      in.mfibConfig = nullptr;
      in.mfibHwStatus->vrfStatusIs(VrfName("default"))->routeIs(key(0));
      in.sm(switch_)->doRouteAgingReview();
      switch_->deletedIs(false);  // as the end of that reactor has marked it
   }

   void build() {
      buildPorts({4096, 4096, 1, 0.001});
      platform_ = Qor::make<Sim::AsyncPlatform>("platform", chip_, Sim::AsyncPlatformConfig());
      platform_->hookObserverIs([this](std::string_view hook) {
         if (onHook_) onHook_(hook);
      });
      inputs_.mrouteHelper = platform_;
      vrfs_ = Qor::make<Routing::Hardware::RouteStatus>();
      vrfs_->newVrfStatus(VrfName("default"), Vel::VrfId(1));
      freshSwitch();
   }

   // A switch without a past, on the same chip.
   void freshSwitch() { switch_ = Qor::make<AsyncMrouteSwitch>("switch", vrfs_, platform_); }
   MrouteLib::MtableOifSetPtr record(OifSetPtr const& s) {
      switch_->doAllocateMtableOifSet({}, s, nullptr, 0, false);
      return switch_->takeMtableOifSet();
   }
   Route program(unsigned n, OifSetPtr const& s) {
      Route route{{}, record(s)};
      switch_->doAllocateRoute(key(n), vlan(1), false, {}, VrfName("default"));
      route.handle = switch_->routeHandle();
      switch_->doSetMtableOifSet(route.handle, route.record, nullptr);
      return route;
   }
   void withdraw(Route& route) {
      switch_->doDeleteRoute(route.handle);
      route = {};
   }
   // As many zombies, which expire together three seconds from now.
   void zombies(unsigned count) {
      std::vector<Route> routes;
      for (unsigned n = 0; n < count; ++n)
         routes.push_back(program(1000 + n, set({2})));
      for (Route& route : routes)
         withdraw(route);
   }
   // After the writes of the last two milliseconds.
   std::string receivers(unsigned n) {
      time_->runUntil(time_->now() + 0.002);
      return OnSwitchWithReactor::receivers(n);
   }
   void expectSound() { EXPECT_EQ(platform_->audit(), Lines()); }

   std::function<void(std::string_view)> onHook_;
   Qor::Ptr<Sim::AsyncPlatform> platform_;
   Qor::Ptr<Routing::Hardware::RouteStatus> vrfs_;
   Qor::Ptr<AsyncMrouteSwitch> switch_;
   Qor::Ptr<AsyncMrouteSwitchSm> sm_;
};

}  // namespace velAsync
