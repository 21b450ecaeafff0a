#include "programmer/SyncRouteTable.h"

#include <utility>

#include "Qor/Exception.h"
#include "programmer/work/SwitchWatch.h"

namespace VelMroute {

using Hux::XactPtr;
using MrouteLib::MtableOifSetPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Wisp::Multicast::Fib::RpaIndex;

// Notifies the programmer of room, and of VRFs that come and go.
class SyncRouteTable::Watch {
 public:
   Watch(Vel::MrouteSwitch* chip, Vel::L3Status const* l3Status)
         : zombies_(chip, listener), chip_(chip, listener), vrfs_(l3Status, listener) {}

   Listener* listener = nullptr;

 private:
   class Room final : public MrouteLib::SwitchChip::Notifiee {
    public:
      Room(MrouteLib::SwitchChip* chip, Listener*& listener) : listener_(listener) {
         notifierIs(chip);
      }
      void onMtableFree() override { roomIs(notifier()->mtableFree(), Table::group); }
      void onMrouteTcamFree() override { roomIs(notifier()->mrouteTcamFree(), Table::entry); }
      void onBoundaryTcamFree() override {
         roomIs(notifier()->boundaryTcamFree(), Table::boundary);
      }
      void onMrouteReviewKick() override {
         if (listener_) listener_->roomAnywhere();
      }

    private:
      void roomIs(bool free, Table table) {
         if (free && listener_) listener_->roomIs(table);
      }

      Listener*& listener_;
   };
   class Vrfs final : public Vel::L3Status::Notifiee {
    public:
      Vrfs(Vel::L3Status const* l3Status, Listener*& listener) : listener_(listener) {
         notifierIs(l3Status);
      }
      void onVrfNameToVrfId(Qor::Name const&) override { onVrfNameToVrfIdImmediate(); }
      void onVrfNameToVrfIdImmediate() override {
         if (listener_) listener_->vrfChanged();
      }

    private:
      Listener*& listener_;
   };

   ZombieWatch<Vel::MrouteSwitch> zombies_;
   Room chip_;
   Vrfs vrfs_;
};

namespace {

SyncRouteTable::Inputs checked(SyncRouteTable::Inputs inputs) {
   if (!inputs.routing) Qor::throwRange("VelMroute::SyncRouteTable::routing null not allowed");
   return inputs;
}

}  // namespace

SyncRouteTable::SyncRouteTable(Inputs inputs)
      : inputs_(checked(std::move(inputs))),
        gate_(Qor::make<SyncHookGate>(inputs_.routing->inputs().hooks)) {
   SyncRouting::Inputs const& shared = inputs_.routing->inputs();
   switch_ = Vel::mrouteSwitchFactory(inputs_.name, inputs_.switchId, shared.common,
                                      shared.l3Status, gate_, shared.ipStatus, shared.published);
   reactor_ = Vel::mrouteSwitchSmFactory({.switchId = inputs_.switchId,
                                          .acsd = shared.common,
                                          .l3Status = shared.l3Status,
                                          .mrouteSwitch = switch_,
                                          .intfVlanIdTable = inputs_.vlans,
                                          .mfibConfig = shared.config,
                                          .mfibHwStatus = shared.published,
                                          .mrouteHelper = gate_,
                                          .zombieClock = Qor::make<Qor::Clock>("zombieClock"),
                                          .agingClock = Qor::make<Qor::Clock>("agingClock"),
                                          .ethIntfStatusDir = inputs_.links,
                                          .allIntfStatusDir = inputs_.intfs,
                                          .allIntfStatusLocalDir = inputs_.localIntfs});
   watch_ = std::make_unique<Watch>(switch_.get(), shared.l3Status.get());
}

SyncRouteTable::~SyncRouteTable() {
   gate_->openIs(false);
   endService();
}

// The reactor is let go of before the switch.
void SyncRouteTable::endService() {
   watch_.reset();
   reactor_ = nullptr;
   switch_ = nullptr;
   gate_->openIs(false);
}

void SyncRouteTable::gateIs(bool open) {
   gate_->openIs(open);
}

void SyncRouteTable::listenerIs(Listener* listener) {
   if (watch_) watch_->listener = listener;
}

// ---- Placing. ----

RouteTable::Needs SyncRouteTable::needs(Spec const& spec) const {
   Needs needs;
   if (spec.vrfId.value() > 0xFFFF) {
      needs.never =
            "the number of VRF " + spec.vrf.name() + ", " + spec.vrfId.strep() + ", is above 65535";
   } else if (spec.bridge) {
      needs.group = false;
      needs.entry = Table::boundary;
      if (spec.vlan.isNone()) needs.never = "a boundary entry needs a vlan";
   } else if (spec.key.source().address().isMulticast()) {
      needs.never = "the source is a multicast address";
   } else if (spec.rpaId == RpaIndex::notProgrammed()) {
      needs.never = "its rendezvous point has no index in the hardware";
   } else {
      needs.group = !spec.fastdrop;
      needs.entry = Table::entry;
   }
   return needs;
}

RouteTable::Record SyncRouteTable::newRecord(Spec const&, OifSetPtr const& oifSet, bool foundLeft) {
   Record result;
   while (result.failedWrites < attempts()) {
      switch_->doAllocateMtableOifSet(oifSet);
      result.record = switch_->takeMtableOifSet();
      // While there are groups that may be adopted, the table never reports itself full.
      if (result.record || foundLeft || !switch_->mtableFree()) break;
      ++result.failedWrites;
   }
   return result;
}

RouteTable::Entry SyncRouteTable::newEntry(Spec const& spec, MtableOifSetPtr const& record) {
   Entry result;
   while (result.failedWrites < attempts()) {
      switch_->doAllocateRoute(spec.key, spec.vlan, spec.bridge, record, spec.fastdrop, spec.noRpf,
                               spec.rpaId, spec.vrf);
      result.handle = switch_->routeHandle();
      if (!result.handle.isNull()) return result;
      bool const room = spec.bridge ? switch_->boundaryTcamFree() : switch_->mrouteTcamFree();
      if (!room) {
         result.refusal = Refusal::noRoom;
         return result;
      }
      ++result.failedWrites;
   }
   result.refusal = Refusal::writeFailed;
   return result;
}

XactPtr SyncRouteTable::point(RouteHandle handle, MtableOifSetPtr const& record, XactPtr const&) {
   switch_->doSetMtableOifSet(handle, record);
   return nullptr;
}

void SyncRouteTable::deleteEntry(RouteHandle handle) {
   switch_->doDeleteRoute(handle);
}

bool SyncRouteTable::hasEntry(RouteHandle handle) const {
   return switch_->route(handle) || switch_->boundary(handle);
}

void SyncRouteTable::commit() {
   switch_->doCommitRouteBatch();
}

void SyncRouteTable::clearResults() {
   switch_->mtableOifSetIs(nullptr);
   switch_->routeHandleIs({});
}

Qor::String SyncRouteTable::failure(XactPtr const&, bool) const {
   return {};
}

void SyncRouteTable::markDirty(MtableOifSetPtr const& record) {
   if (auto const mine = Qor::ptrCast<Vel::MtableOifSet>(record)) mine->dirtyIs(true);
}

std::optional<bool> SyncRouteTable::sharable(OifSetPtr const& oifSet) const {
   return sharableRecord(*switch_, oifSet);
}

Qor::U32 SyncRouteTable::zombies() const {
   return static_cast<Qor::U32>(switch_->zombieOifSet().size());
}

void SyncRouteTable::purgeZombie() {
   switch_->zombieOifSetDel(switch_->zombieOifSet().begin()->first);
}

// ---- VRFs, interfaces, and facts for people. ----

std::optional<Vel::VrfId> SyncRouteTable::vrfId(L3::VrfName const& vrf) const {
   auto const* const known = l3Status().vrfNameToVrfId().find(vrf.name());
   if (!known) return std::nullopt;
   return known->second;
}

std::vector<std::pair<L3::VrfName, Vel::VrfId>> SyncRouteTable::vrfs() const {
   std::vector<std::pair<L3::VrfName, Vel::VrfId>> all;
   for (auto const& [name, id] : l3Status().vrfNameToVrfId())
      all.emplace_back(L3::VrfName(name), id);
   return all;
}

std::set<Lnet::IntfId> SyncRouteTable::failedInterfaces() const {
   return downInterfaces(inputs_.links.get());
}

void SyncRouteTable::reroute(Lnet::IntfId intf) {
   reactor_->updateFrrMtableOif(intf);
}

// The switch raises its room flags for its own deletions alone, so they are raised here.
void SyncRouteTable::swept() {
   Qor::U32 const chip = inputs_.switchId;
   if (!gate_->mtableFull(chip)) switch_->mtableFreeIs(true);
   if (!gate_->mrouteFull(chip)) switch_->mrouteTcamFreeIs(true);
   if (!gate_->mrouteBoundaryFull(chip)) switch_->boundaryTcamFreeIs(true);
}

RouteTable::Facts SyncRouteTable::facts(MtableOifSetPtr const& record) const {
   auto const mine = Qor::ptrCast<Vel::MtableOifSet>(record);
   if (!mine) return {};
   Facts facts = factsOf(*switch_, *mine);
   facts.index = mine->oifSetIndex();
   return facts;
}

Qor::String SyncRouteTable::explain(Table table, bool foundLeft) const {
   switch (table) {
      case Table::group:
         return switch_->mtableFree() && !foundLeft
                      ? "the replication table could not be written; waits for the next review"
                      : "no free multicast group; waits for a deletion";
      case Table::entry:
         return "no free route entry; waits for a deletion";
      default:
         return "no free boundary entry; waits for a deletion";
   }
}

Qor::String SyncRouteTable::explainVrf(L3::VrfName const& vrf) const {
   return "VRF " + vrf.name() + " has no id";
}

std::unique_ptr<RouteTable> syncRouteTable(SyncRouteTable::Inputs inputs) {
   return std::make_unique<SyncRouteTable>(std::move(inputs));
}

}  // namespace VelMroute
