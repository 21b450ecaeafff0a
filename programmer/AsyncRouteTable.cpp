#include "programmer/AsyncRouteTable.h"

#include <utility>

#include "Qor/Exception.h"
#include "programmer/work/SwitchWatch.h"

namespace VelMroute {

using Hux::XactPtr;
using MrouteLib::MrouteFailureReason;
using MrouteLib::MtableOifSetPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Vel::Mroute::AsyncMrouteSwitch;
using Vel::Mroute::AsyncMtableOifSet;

// Notifies the programmer of zombies and VRFs that come and go.
class AsyncRouteTable::Watch {
 public:
   Watch(AsyncMrouteSwitch* chip, Routing::Hardware::RouteStatus const* vrfs)
         : zombies_(chip, listener), vrfs_(vrfs, listener) {}

   Listener* listener = nullptr;

 private:
   class Vrfs final : public Routing::Hardware::RouteStatus::Notifiee {
    public:
      Vrfs(Routing::Hardware::RouteStatus const* vrfs, Listener*& listener) : listener_(listener) {
         notifierIs(vrfs);
      }
      void onVrfStatus(L3::VrfName const&) override { onVrfStatusImmediate(); }
      void onVrfStatusImmediate() override {
         if (listener_) listener_->vrfChanged();
      }

    private:
      Listener*& listener_;
   };

   ZombieWatch<AsyncMrouteSwitch> zombies_;
   Vrfs vrfs_;
};

namespace {

AsyncRouteTable::Inputs checked(AsyncRouteTable::Inputs inputs) {
   if (!inputs.hooks) Qor::throwRange("VelMroute::AsyncRouteTable::hooks null not allowed");
   if (!inputs.vrfs) Qor::throwRange("VelMroute::AsyncRouteTable::vrfs null not allowed");
   return inputs;
}

}  // namespace

AsyncRouteTable::AsyncRouteTable(Inputs inputs)
      : inputs_(checked(std::move(inputs))),
        gate_(Qor::make<AsyncHookGate>(inputs_.hooks)),
        switch_(Vel::Mroute::asyncMrouteSwitchFactory(inputs_.name, inputs_.vrfs, gate_)),
        reactor_(Vel::Mroute::asyncMrouteSwitchSmFactory(
              {.mrouteSwitch = switch_,
               .intfVlanIdTable = inputs_.vlans,
               .mfibConfig = inputs_.config,
               .mfibHwStatus = inputs_.published,
               .mrouteHelper = gate_,
               .zombieClock = Qor::make<Qor::Clock>("zombieClock"),
               .agingClock = Qor::make<Qor::Clock>("agingClock"),
               .ethIntfStatusDir = inputs_.links,
               .bfdAllPeerStatusDir = inputs_.bfdPeers,
               .bfdAllPeerStatus = inputs_.bfd,
               .allIntfStatusDir = inputs_.intfs,
               .allIntfStatusLocalDir = inputs_.localIntfs})),
        watch_(std::make_unique<Watch>(switch_.get(), inputs_.vrfs.get())) {}

// The reactor is let go of before the switch.
AsyncRouteTable::~AsyncRouteTable() {
   gate_->openIs(false);
   endService();
}

void AsyncRouteTable::endService() {
   watch_.reset();
   reactor_ = nullptr;
   switch_ = nullptr;
   gate_->openIs(false);
}

void AsyncRouteTable::listenerIs(Listener* listener) {
   if (watch_) watch_->listener = listener;
}

// ---- Placing. ----

RouteTable::Needs AsyncRouteTable::needs(Spec const& spec) const {
   Needs needs;
   if (switch_->needIngressProgramming(spec.type)) needs.entry = Table::entry;
   return needs;
}

RouteTable::Record AsyncRouteTable::newRecord(Spec const& spec, OifSetPtr const& oifSet, bool) {
   MrouteLib::RouteKeyInfo const info(spec.key, spec.vrf, spec.vlan, spec.type);
   XactPtr const write = switch_->doAllocateMtableOifSet(info, oifSet, nullptr, 0, spec.backup);
   if (switch_->mrouteFailureReason() != MrouteFailureReason::none) return {};
   Record result;
   result.record = switch_->takeMtableOifSet();
   result.write = write;
   bool const isNew = result.record->references() == 1;
   if (observer_ && isNew && write && write->pending()) {
      observer_("group " + std::to_string(switch_->doGetMulticastId(result.record)), write);
   }
   return result;
}

RouteTable::Entry AsyncRouteTable::newEntry(Spec const& spec, MtableOifSetPtr const&) {
   switch_->doAllocateRoute(spec.key, spec.vlan, spec.bridge, spec.rpaId, spec.vrf);
   switch (switch_->mrouteFailureReason()) {
      case MrouteFailureReason::none:
         return {switch_->routeHandle(), Refusal::none, 0};
      case MrouteFailureReason::noVrfStatus:
         return {{}, Refusal::noVrf, 0};
      default:
         return {{}, Refusal::noRoom, 0};
   }
}

XactPtr AsyncRouteTable::point(RouteHandle handle, MtableOifSetPtr const& record,
                               XactPtr const& groupWrite) {
   XactPtr const pointing = switch_->doSetMtableOifSet(handle, record, groupWrite);
   if (observer_ && pointing) {
      observer_("point " + switch_->inUseRouteHandleKey(handle).routeKey().pretty(), pointing);
   }
   return pointing;
}

void AsyncRouteTable::deleteEntry(RouteHandle handle) {
   switch_->doDeleteRoute(handle);
}

bool AsyncRouteTable::hasEntry(RouteHandle handle) const {
   return bool(switch_->inUseRouteHandleKey().find(handle));
}

void AsyncRouteTable::clearResults() {
   switch_->mtableOifSetIs(nullptr);
   switch_->routeHandleIs({});
}

Qor::String AsyncRouteTable::failure(XactPtr const& xact, bool ofGroup) const {
   return ofGroup ? switch_->doGetOifSetXactFailureReason(xact)
                  : switch_->doGetIngressXactFailureReason(xact);
}

void AsyncRouteTable::markDirty(MtableOifSetPtr const& record) {
   if (auto const mine = Qor::ptrCast<AsyncMtableOifSet>(record)) mine->dirtyIs(true);
}

std::optional<bool> AsyncRouteTable::sharable(OifSetPtr const& oifSet) const {
   return sharableRecord(*switch_, oifSet);
}

Qor::U32 AsyncRouteTable::zombies() const {
   return static_cast<Qor::U32>(switch_->zombieOifSet().size());
}

void AsyncRouteTable::purgeZombie() {
   switch_->zombieOifSetDel(switch_->zombieOifSet().begin()->first);
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
   std::set<Lnet::IntfId> down = downInterfaces(inputs_.links.get());
   if (!inputs_.bfd) return down;
   for (auto const& [peer, status] : inputs_.bfd->peerStatus()) {
      bool const followed = peer.type() == Bfd::SessionType::singleHop;
      if (followed && status->status() == Bfd::OperState::down) down.insert(status->intf());
   }
   return down;
}

void AsyncRouteTable::reroute(Lnet::IntfId intf) {
   reactor_->updateFrrMtableOif(intf);
}

RouteTable::Facts AsyncRouteTable::facts(MtableOifSetPtr const& record) const {
   auto const mine = Qor::ptrCast<AsyncMtableOifSet>(record);
   if (!mine) return {};
   Facts facts = factsOf(*switch_, *mine);
   facts.index = mine->multicastId();
   return facts;
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
