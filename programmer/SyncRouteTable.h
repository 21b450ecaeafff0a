// The synchronous path of one chip: the switch (Vel/VelSyncMrouteSwitch.h), its reactor
// (Vel/VelSyncMrouteSm.h), the gate in front of the hooks, and the part that all chips of the hooks
// share (programmer/SyncRouting.h).
//
// Operations are complete when they return, so no change is under way between two passes. The
// switch's room flags and its review kick notify the programmer of room.
//
// Failed writes. A write that fails although the platform reports room is tried three times at
// once. A set that still has no index waits for the next look at the line; a route without an entry
// fails until it changes.
//
// This path takes no route with a multicast source address, none whose rendezvous point has no
// index, and none in a VRF with a number above 65535.
#pragma once

#include <memory>

#include "Vel/VelSyncMrouteSm.h"
#include "programmer/SwitchRouteTable.h"
#include "programmer/SyncRouting.h"

namespace VelMroute {

class SyncRouteTable final
      : public SwitchRouteTable<Vel::MrouteSwitch, Vel::MrouteSwitchSm, SyncHookGate> {
 public:
   struct Inputs {
      Qor::Name name = "switch1";
      Qor::U32 switchId = 1;  // the number of the chip in calls of the hooks
      // Required: the inputs of this path that all chips share. With one chip:
      // .routing = Qor::make<VelMroute::SyncRouting>(SyncRouting::Inputs{...}).
      Qor::Ptr<SyncRouting> routing = {};
      // The other inputs are those of the reactor; null has the consequence that its header states.
      Qor::Ptr<IntfVlanId::Table const> vlans = {};
      Qor::Ptr<Interface::EthIntfStatusDir const> links = {};
      Qor::Ptr<Interface::AllIntfStatusDir const> intfs = {};
      Qor::Ptr<Interface::AllIntfStatusLocalDir const> localIntfs = {};
   };

   // RangeException "VelMroute::SyncRouteTable::routing null not allowed".
   explicit SyncRouteTable(Inputs inputs);
   ~SyncRouteTable() override;

   Qor::Ptr<SyncRouting> const& routing() const { return inputs_.routing; }

   Qor::Ptr<IntfVlanId::Table const> vlans() const override { return inputs_.vlans; }
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> published() const override {
      return inputs_.routing->inputs().published;
   }
   Needs needs(Spec const& spec) const override;
   Record newRecord(Spec const& spec, MrouteLib::OifSetPtr const& oifSet, bool foundLeft) override;
   Entry newEntry(Spec const& spec, MrouteLib::MtableOifSetPtr const& record) override;
   Hux::XactPtr point(MrouteLib::RouteHandle handle, MrouteLib::MtableOifSetPtr const& record,
                      Hux::XactPtr const& groupWrite) override;
   bool hasEntry(MrouteLib::RouteHandle handle) const override;
   void commit() override;
   Qor::U32 attempts() const override { return 3; }
   Qor::String failure(Hux::XactPtr const& xact, bool ofGroup) const override;
   std::optional<Vel::VrfId> vrfId(L3::VrfName const& vrf) const override;
   std::vector<std::pair<L3::VrfName, Vel::VrfId>> vrfs() const override;
   void swept() override;
   Qor::String explain(Table table, bool foundLeft) const override;
   Qor::String explainVrf(L3::VrfName const& vrf) const override;
   Shadow const* shadow() const override {
      return gate()->checks() ? gate()->checks()->shadow(inputs_.switchId) : nullptr;
   }

 private:
   class RoomWatch;
   class VrfWatch;

   Qor::U32 indexOf(SwitchRecord const& record) const override { return record.oifSetIndex(); }
   Vel::L3Status const& l3Status() const { return *inputs_.routing->inputs().l3Status; }

   Inputs const inputs_;
   std::unique_ptr<RoomWatch> roomWatch_;
   std::unique_ptr<VrfWatch> vrfWatch_;
};

std::unique_ptr<RouteTable> syncRouteTable(SyncRouteTable::Inputs inputs);

}  // namespace VelMroute
