// The asynchronous path of one chip: the switch (Vel/VelAsyncMrouteSwitch.h), its reactor
// (Vel/VelAsyncMrouteSm.h) and the gate in front of the hooks. The table makes all three and holds
// them.
//
// Failed writes. When a transaction fails, the record of the route is marked dirty and let go, its
// oif set object is retired from sharing, and the route is placed again, three times for one wish.
#pragma once

#include <functional>
#include <memory>

#include "Bfd/AppStatus.h"
#include "Routing/Hardware/RouteStatus.h"
#include "Vel/VelAsyncMrouteSm.h"
#include "hooks/AsyncHookGate.h"
#include "programmer/SwitchRouteTable.h"

namespace VelMroute {

class AsyncRouteTable final
      : public SwitchRouteTable<Vel::Mroute::AsyncMrouteSwitch, Vel::Mroute::AsyncMrouteSwitchSm,
                                AsyncHookGate> {
 public:
   struct Inputs {
      Qor::Name name = "switch1";
      Qor::Ptr<VelHelper::AsyncMrouteHelper> hooks = {};  // required
      // Checks the hooks against their contract; none: no checks. gate()->checks() has the faults.
      std::optional<HookChecks::Options> checks = {};
      // The VRFs in the hardware, with their numbers; required.
      Qor::Ptr<Routing::Hardware::RouteStatus const> vrfs = {};
      // The other inputs are those of the reactor; null has the consequence that its header states.
      Qor::Ptr<IntfVlanId::Table const> vlans = {};
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> config = {};
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> published = {};
      Qor::Ptr<Interface::EthIntfStatusDir const> links = {};
      Qor::Ptr<Bfd::StatusPeer const> bfdPeers = {};
      Qor::Ptr<Bfd::AppStatus> bfd = {};
      Qor::Ptr<Interface::AllIntfStatusDir const> intfs = {};
      Qor::Ptr<Interface::AllIntfStatusLocalDir const> localIntfs = {};
   };

   // RangeException "VelMroute::AsyncRouteTable::<input> null not allowed" for a missing input.
   explicit AsyncRouteTable(Inputs inputs);
   ~AsyncRouteTable() override;

   // Notifies `observer` of each transaction that a change waits for, when the change begins: the
   // change as a text for people, and the transaction.
   using XactObserver = std::function<void(Qor::String const&, Hux::XactPtr const&)>;
   void onXact(XactObserver observer) { observer_ = std::move(observer); }

   Qor::Ptr<IntfVlanId::Table const> vlans() const override { return inputs_.vlans; }
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> published() const override {
      return inputs_.published;
   }
   Needs needs(Spec const& spec) const override;
   Record newRecord(Spec const& spec, MrouteLib::OifSetPtr const& oifSet, bool foundLeft) override;
   Entry newEntry(Spec const& spec, MrouteLib::MtableOifSetPtr const& record) override;
   Hux::XactPtr point(MrouteLib::RouteHandle handle, MrouteLib::MtableOifSetPtr const& record,
                      Hux::XactPtr const& groupWrite) override;
   bool hasEntry(MrouteLib::RouteHandle handle) const override;
   Qor::U32 attempts() const override { return 3; }
   Qor::String failure(Hux::XactPtr const& xact, bool ofGroup) const override;
   std::optional<Vel::VrfId> vrfId(L3::VrfName const& vrf) const override;
   std::vector<std::pair<L3::VrfName, Vel::VrfId>> vrfs() const override;
   std::set<Lnet::IntfId> failedInterfaces() const override;
   Qor::String explain(Table table, bool foundLeft) const override;
   Qor::String explainVrf(L3::VrfName const& vrf) const override;
   Shadow const* shadow() const override {
      return gate()->checks() ? &gate()->checks()->shadow() : nullptr;
   }

 private:
   class VrfWatch;

   Qor::U32 indexOf(SwitchRecord const& record) const override { return record.multicastId(); }

   Inputs const inputs_;
   std::unique_ptr<VrfWatch> const vrfWatch_;
   XactObserver observer_;
};

std::unique_ptr<RouteTable> asyncRouteTable(AsyncRouteTable::Inputs inputs);

}  // namespace VelMroute
