#include "programmer/AsyncRouteTable.h"

#include <utility>

#include "Qor/Exception.h"

namespace VelMroute {

using Hux::XactPtr;
using MrouteLib::MrouteFailureReason;
using MrouteLib::MtableOifSetPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;

// Notifies the programmer of VRFs that come and go.
class AsyncRouteTable::VrfWatch final : public Routing::Hardware::RouteStatus::Notifiee {
 public:
   explicit VrfWatch(AsyncRouteTable& table) : table_(table) {
      notifierIs(table.inputs_.vrfs.get());
   }
   void onVrfStatus(L3::VrfName const&) override { onVrfStatusImmediate(); }
   void onVrfStatusImmediate() override {
      if (table_.listener()) table_.listener()->vrfChanged();
   }

 private:
   AsyncRouteTable& table_;
};

namespace {

AsyncRouteTable::Inputs const& checked(AsyncRouteTable::Inputs const& inputs) {
   if (!inputs.hooks) Qor::throwRange("VelMroute::AsyncRouteTable::hooks null not allowed");
   if (!inputs.vrfs) Qor::throwRange("VelMroute::AsyncRouteTable::vrfs null not allowed");
   return inputs;
}

}  // namespace

AsyncRouteTable::AsyncRouteTable(Inputs inputs)
      : SwitchRouteTable(Qor::make<AsyncHookGate>(checked(inputs).hooks, inputs.checks)),
        inputs_(std::move(inputs)),
        vrfWatch_(std::make_unique<VrfWatch>(*this)) {
   auto const chip = Vel::Mroute::asyncMrouteSwitchFactory(inputs_.name, inputs_.vrfs, gate());
   wire(chip, Vel::Mroute::asyncMrouteSwitchSmFactory(
                    {.mrouteSwitch = chip,
                     .intfVlanIdTable = inputs_.vlans,
                     .mfibConfig = inputs_.config,
                     .mfibHwStatus = inputs_.published,
                     .mrouteHelper = gate(),
                     .zombieClock = Qor::make<Qor::Clock>("zombieClock"),
                     .agingClock = Qor::make<Qor::Clock>("agingClock"),
                     .ethIntfStatusDir = inputs_.links,
                     .bfdAllPeerStatusDir = inputs_.bfdPeers,
                     .bfdAllPeerStatus = inputs_.bfd,
                     .allIntfStatusDir = inputs_.intfs,
                     .allIntfStatusLocalDir = inputs_.localIntfs}));
}

AsyncRouteTable::~AsyncRouteTable() = default;

// ---- Placing. ----

RouteTable::Needs AsyncRouteTable::needs(Spec const& spec) const {
   Needs needs;
   if (mrouteSwitch()->needIngressProgramming(spec.type)) needs.entry = Table::entry;
   return needs;
}

RouteTable::Record AsyncRouteTable::newRecord(Spec const& spec, OifSetPtr const& oifSet, bool) {
   MrouteLib::RouteKeyInfo const info(spec.key, spec.vrf, spec.vlan, spec.type);
   XactPtr const write =
         mrouteSwitch()->doAllocateMtableOifSet(info, oifSet, nullptr, 0, spec.backup);
   if (mrouteSwitch()->mrouteFailureReason() != MrouteFailureReason::none) return {};
   Record result;
   result.record = mrouteSwitch()->takeMtableOifSet();
   result.write = write;
   bool const isNew = result.record->references() == 1;
   if (observer_ && isNew && write && write->pending()) {
      observer_("group " + std::to_string(mrouteSwitch()->doGetMulticastId(result.record)), write);
   }
   return result;
}

RouteTable::Entry AsyncRouteTable::newEntry(Spec const& spec, MtableOifSetPtr const&) {
   mrouteSwitch()->doAllocateRoute(spec.key, spec.vlan, spec.bridge, spec.rpaId, spec.vrf);
   switch (mrouteSwitch()->mrouteFailureReason()) {
      case MrouteFailureReason::none:
         return {mrouteSwitch()->routeHandle(), Refusal::none, 0};
      case MrouteFailureReason::noVrfStatus:
         return {{}, Refusal::noVrf, 0};
      default:
         return {{}, Refusal::noRoom, 0};
   }
}

XactPtr AsyncRouteTable::point(RouteHandle handle, MtableOifSetPtr const& record,
                               XactPtr const& groupWrite) {
   XactPtr const pointing = mrouteSwitch()->doSetMtableOifSet(handle, record, groupWrite);
   if (observer_ && pointing) {
      observer_("point " + mrouteSwitch()->inUseRouteHandleKey(handle).routeKey().pretty(),
                pointing);
   }
   return pointing;
}

bool AsyncRouteTable::hasEntry(RouteHandle handle) const {
   return bool(mrouteSwitch()->inUseRouteHandleKey().find(handle));
}

Qor::String AsyncRouteTable::failure(XactPtr const& xact, bool ofGroup) const {
   return ofGroup ? mrouteSwitch()->doGetOifSetXactFailureReason(xact)
                  : mrouteSwitch()->doGetIngressXactFailureReason(xact);
}

// ---- VRFs, interfaces, and facts for people. ----

std::optional<Vel::VrfId> AsyncRouteTable::vrfId(L3::VrfName const& vrf) const {
   auto const status = inputs_.vrfs->vrfStatus(vrf);
   if (!status) return std::nullopt;
   return status->vrfId();
}

std::vector<std::pair<L3::VrfName, Vel::VrfId>> AsyncRouteTable::vrfs() const {
   std::vector<std::pair<L3::VrfName, Vel::VrfId>> all;
   for (auto const& [name, status] : inputs_.vrfs->vrfStatus())
      all.emplace_back(name, status->vrfId());
   return all;
}

std::set<Lnet::IntfId> AsyncRouteTable::failedInterfaces() const {
   std::set<Lnet::IntfId> down = SwitchRouteTable::failedInterfaces();
   if (!inputs_.bfd) return down;
   for (auto const& [peer, status] : inputs_.bfd->peerStatus()) {
      bool const followed = peer.type() == Bfd::SessionType::singleHop;
      if (followed && status->status() == Bfd::OperState::down) down.insert(status->intf());
   }
   return down;
}

Qor::String AsyncRouteTable::explain(Table table, bool) const {
   return table == Table::group ? "no free multicast group (failure code 8); waits for a deletion"
                                : "no free route entry (failure code 1024); waits for a deletion";
}

Qor::String AsyncRouteTable::explainVrf(L3::VrfName const& vrf) const {
   return "VRF " + vrf.name() + " has no hardware status (failure code 4096)";
}

std::unique_ptr<RouteTable> asyncRouteTable(AsyncRouteTable::Inputs inputs) {
   return std::make_unique<AsyncRouteTable>(std::move(inputs));
}

}  // namespace VelMroute
