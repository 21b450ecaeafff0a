#include "programmer/SyncRouteTable.h"

#include <utility>

#include "Qor/Exception.h"

namespace VelMroute {

using Hux::XactPtr;
using MrouteLib::MtableOifSetPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Wisp::Multicast::Fib::RpaIndex;

// Notifies the programmer of room.
class SyncRouteTable::RoomWatch final : public MrouteLib::SwitchChip::Notifiee {
 public:
   explicit RoomWatch(SyncRouteTable& table) : table_(table) {
      notifierIs(table.mrouteSwitch().get());
   }
   void onMtableFree() override { roomIs(notifier()->mtableFree(), Table::group); }
   void onMrouteTcamFree() override { roomIs(notifier()->mrouteTcamFree(), Table::entry); }
   void onBoundaryTcamFree() override { roomIs(notifier()->boundaryTcamFree(), Table::boundary); }
   void onMrouteReviewKick() override {
      if (table_.listener()) table_.listener()->roomAnywhere();
   }

 private:
   void roomIs(bool free, Table table) {
      if (free && table_.listener()) table_.listener()->roomIs(table);
   }

   SyncRouteTable& table_;
};

// Notifies the programmer of VRFs that come and go.
class SyncRouteTable::VrfWatch final : public Vel::L3Status::Notifiee {
 public:
   explicit VrfWatch(SyncRouteTable& table) : table_(table) { notifierIs(&table.l3Status()); }
   void onVrfNameToVrfId(Qor::Name const&) override { onVrfNameToVrfIdImmediate(); }
   void onVrfNameToVrfIdImmediate() override {
      if (table_.listener()) table_.listener()->vrfChanged();
   }

 private:
   SyncRouteTable& table_;
};

namespace {

SyncRouteTable::Inputs const& checked(SyncRouteTable::Inputs const& inputs) {
   if (!inputs.routing) Qor::throwRange("VelMroute::SyncRouteTable::routing null not allowed");
   return inputs;
}

}  // namespace

SyncRouteTable::SyncRouteTable(Inputs inputs)
      : SwitchRouteTable(Qor::make<SyncHookGate>(checked(inputs).routing->inputs().hooks,
                                                 inputs.routing->inputs().checks)),
        inputs_(std::move(inputs)) {
   SyncRouting::Inputs const& shared = inputs_.routing->inputs();
   auto const chip =
         Vel::mrouteSwitchFactory(inputs_.name, inputs_.switchId, shared.common, shared.l3Status,
                                  gate(), shared.ipStatus, shared.published);
   wire(chip, Vel::mrouteSwitchSmFactory({.switchId = inputs_.switchId,
                                          .acsd = shared.common,
                                          .l3Status = shared.l3Status,
                                          .mrouteSwitch = chip,
                                          .intfVlanIdTable = inputs_.vlans,
                                          .mfibConfig = shared.config,
                                          .mfibHwStatus = shared.published,
                                          .mrouteHelper = gate(),
                                          .zombieClock = Qor::make<Qor::Clock>("zombieClock"),
                                          .agingClock = Qor::make<Qor::Clock>("agingClock"),
                                          .ethIntfStatusDir = inputs_.links,
                                          .allIntfStatusDir = inputs_.intfs,
                                          .allIntfStatusLocalDir = inputs_.localIntfs}));
   roomWatch_ = std::make_unique<RoomWatch>(*this);
   vrfWatch_ = std::make_unique<VrfWatch>(*this);
}

SyncRouteTable::~SyncRouteTable() = default;

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
      mrouteSwitch()->doAllocateMtableOifSet(oifSet);
      result.record = mrouteSwitch()->takeMtableOifSet();
      // While there are groups that may be adopted, the table never reports itself full.
      if (result.record || foundLeft || !mrouteSwitch()->mtableFree()) break;
      ++result.failedWrites;
   }
   return result;
}

RouteTable::Entry SyncRouteTable::newEntry(Spec const& spec, MtableOifSetPtr const& record) {
   Entry result;
   while (result.failedWrites < attempts()) {
      mrouteSwitch()->doAllocateRoute(spec.key, spec.vlan, spec.bridge, record, spec.fastdrop,
                                      spec.noRpf, spec.rpaId, spec.vrf);
      result.handle = mrouteSwitch()->routeHandle();
      if (!result.handle.isNull()) return result;
      bool const room =
            spec.bridge ? mrouteSwitch()->boundaryTcamFree() : mrouteSwitch()->mrouteTcamFree();
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
   mrouteSwitch()->doSetMtableOifSet(handle, record);
   return nullptr;
}

bool SyncRouteTable::hasEntry(RouteHandle handle) const {
   return mrouteSwitch()->route(handle) || mrouteSwitch()->boundary(handle);
}

void SyncRouteTable::commit() {
   mrouteSwitch()->doCommitRouteBatch();
}

Qor::String SyncRouteTable::failure(XactPtr const&, bool) const {
   return {};
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

// The switch raises its room flags for its own deletions alone, so they are raised here.
void SyncRouteTable::swept() {
   Qor::U32 const chip = inputs_.switchId;
   if (!gate()->mtableFull(chip)) mrouteSwitch()->mtableFreeIs(true);
   if (!gate()->mrouteFull(chip)) mrouteSwitch()->mrouteTcamFreeIs(true);
   if (!gate()->mrouteBoundaryFull(chip)) mrouteSwitch()->boundaryTcamFreeIs(true);
}

Qor::String SyncRouteTable::explain(Table table, bool foundLeft) const {
   switch (table) {
      case Table::group:
         return mrouteSwitch()->mtableFree() && !foundLeft
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
