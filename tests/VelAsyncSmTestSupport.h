// Support for the tests of the asynchronous per-switch reactor: a simulated chip behind its
// platform, and the entities that a reactor watches.
#pragma once

#include <functional>
#include <tuple>

#include "Vel/VelAsyncMrouteSmReactors.h"
#include "VelAsyncTestSupport.h"
#include "platform/sim/AsyncPlatform.h"

namespace velAsync {

using Bridging::VlanId;
using Interface::IntfOperStatus;
using L3::VrfName;
using Lnet::IntfId;
using Lnet::IpGenAddr;
using MrouteLib::PortVlan;
using Vel::Mroute::AsyncMrouteSwitchSm;
namespace Fib = Routing::Multicast::Fib;

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

// Calls back when a zombie comes or goes.
class OnSwitch final : public AsyncMrouteSwitch::Notifiee {
 public:
   OnSwitch(Qor::Ptr<AsyncMrouteSwitch> const& chip, std::function<void(ZombieKey)> call)
         : call_(std::move(call)) {
      notifierIs(chip.get());
   }
   void onZombieOifSet(ZombieKey const& key) override { call_(key); }

 private:
   std::function<void(ZombieKey)> call_;
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

// A switch on a simulated chip with the ports et1 to et8, each in a vlan of its own (1001 to 1008).
// Routes accept from et1, in the VRF "default", which has the number 1.
class AsyncSm : public OnVirtualTime {
 protected:
   struct Route {
      RouteHandle handle;
      MrouteLib::MtableOifSetPtr record;
   };

   AsyncSm() { build({}); }
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

   void build(Sim::AsyncPlatformConfig const& config) {
      chip_ = Qor::make<Sim::Chip>(Sim::ChipConfig{4096, 4096, 1, 0.001});
      for (unsigned i = 1; i <= 8; ++i)
         EXPECT_EQ(chip_->portAdd(intf(i), i, vlan(i)), "");
      platform_ = Qor::make<Sim::AsyncPlatform>("platform", chip_, config);
      platform_->hookObserverIs([this](std::string_view hook) {
         if (onHook_) onHook_(hook);
      });
      inputs_ = Inputs();
      inputs_.mrouteHelper = platform_;
      for (unsigned i = 1; i <= 8; ++i) {
         inputs_.intfVlanIdTable->intfIdToVlanIdIs(intf(i), VlanId(Qor::U64{1000 + i}));
         inputs_.ethIntfStatusDir->newIntfStatus(intf(i))->operStatusIs(IntfOperStatus::up);
      }
      vrfs_ = Qor::make<Routing::Hardware::RouteStatus>();
      vrfs_->newVrfStatus(VrfName("default"), Vel::VrfId(1));
      freshSwitch();
   }

   static IntfId intf(unsigned i) { return IntfId("et" + std::to_string(i)); }
   static VlanIdOrNone vlan(unsigned i) { return VlanIdOrNone(Qor::U64{1000 + i}); }
   // A switch without a past, on the same chip.
   void freshSwitch() { switch_ = Qor::make<AsyncMrouteSwitch>("switch", vrfs_, platform_); }
   // The interned set to `out`, covered by `backup` against a failure of `iif`.
   OifSetPtr set(std::vector<unsigned> const& out, unsigned iif = 0,
                 std::vector<unsigned> const& backup = {},
                 RouteKeyType type = RouteKeyType::routed) {
      MrouteLib::PortVlanSet s(type);
      for (unsigned i : out)
         s.newPortVlan(PortVlan(intf(i), vlan(i)), true);
      for (unsigned i : backup)
         s.newPortVlanFrr(PortVlan(intf(i), vlan(i)), true);
      if (iif) s.currentIifIs(intf(iif));
      return tables_->newOifSet(s);
   }
   // A set like no other, which the interner does not know.
   OifSetPtr ownSet(std::vector<unsigned> const& out, unsigned iif = 0,
                    std::vector<unsigned> const& backup = {}) {
      return Qor::make<MrouteLib::OifSet>(nullptr, set(out, iif, backup)->portVlanSet());
   }
   MrouteLib::MtableOifSetPtr record(OifSetPtr const& s, Qor::U32 presetId = 0) {
      switch_->doAllocateMtableOifSet({}, s, nullptr, presetId, false);
      MrouteLib::MtableOifSetPtr const made = switch_->takeMtableOifSet();
      return made;
   }
   Route program(unsigned n, OifSetPtr const& s, Qor::U32 presetId = 0) {
      Route route{{}, record(s, presetId)};
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
         routes.push_back(program(1000 + n, ownSet({2})));
      for (Route& route : routes)
         withdraw(route);
   }
   static Qor::U32 id(Route const& route) {
      return Qor::ptrCast<AsyncMtableOifSet>(route.record)->multicastId();
   }
   // The interfaces that get the packets of route n: "et2 et3"; or why none does.
   std::string receivers(unsigned n) {
      time_->runUntil(time_->now() + 0.002);
      auto const out = chip_->forward({1, addr("10.0.0.1"), key(n).group().address(), vlan(1)});
      std::ostringstream os;
      if (out.result != Sim::Forwarding::forwarded) os << out.result;
      for (PortVlan const& copy : out.copies)
         os << (os.str().empty() ? "" : " ") << copy.intfId();
      return os.str();
   }
   void down(unsigned i, IntfOperStatus status = IntfOperStatus::down) {
      inputs_.ethIntfStatusDir->intfStatus(intf(i))->operStatusIs(status);
   }
   void expectSound() { EXPECT_EQ(platform_->audit(), Lines()); }

   std::function<void(std::string_view)> onHook_;
   Qor::Ptr<MrouteLib::MrouteTableColl> tables_ = Qor::make<MrouteLib::MrouteTableColl>();
   Qor::Ptr<Sim::Chip> chip_;
   Qor::Ptr<Sim::AsyncPlatform> platform_;
   Inputs inputs_;
   Qor::Ptr<Routing::Hardware::RouteStatus> vrfs_;
   Qor::Ptr<AsyncMrouteSwitch> switch_;
   Qor::Ptr<AsyncMrouteSwitchSm> sm_;
};

}  // namespace velAsync
