// Life of the synchronous switch; allocation of oif sets.
#include "Vel/VelSyncMrouteSwitch.h"

#include <cmath>
#include <sstream>
#include <utility>

#include "Vel/VelCommon.h"
#include "Vel/VelDescribe.h"
#include "Vel/VelTrace.h"

namespace Vel {

using MrouteLib::OifSetPtr;
using MrouteLib::PortVlanSet;

MrouteSwitch::MrouteSwitch(Qor::Name name, Qor::U32 switchId, Qor::Ptr<VelCommonSmData> acsd,
                           Qor::Ptr<L3Status> l3Status,
                           Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper,
                           Qor::Ptr<Ip::Status const> ipStatus,
                           Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus)
      : OifSetTables(std::move(name), switchId),
        acsd_(std::move(acsd)),
        l3Status_(std::move(l3Status)),
        mrouteHelper_(std::move(mrouteHelper)),
        ipStatus_(std::move(ipStatus)),
        mfibHwStatus_(std::move(mfibHwStatus)) {
   QOR_ASSERT(l3Status_ != nullptr);
   QOR_ASSERT(mrouteHelper_ != nullptr);
   handleInitialized();
}

// The end of the switch. The reference count stays at one during this function, so the platform and
// the listeners may take and drop references to the switch.
void MrouteSwitch::zeroReferencesIs(bool) {
   deletedIs(true);
   // The chip is cleared only once. This function runs again if a listener kept a reference to the
   // switch, and a new switch may use the chip by then.
   if (!std::exchange(ended_, true)) doCleanup();
   mtableOifSetIs(nullptr);
   routeKeyToHandleDelAll();
   routeDelAll();
   boundaryDelAll();
   zombieOifSetDelAll();
   recordNamesDelAll();
   oifSetIndexCollDelAll();
}

MrouteSwitch::~MrouteSwitch() {
   releaseRecords();
}

Qor::Ptr<MrouteSwitch> mrouteSwitchFactory(
      Qor::Name name, Qor::U32 switchId, Qor::Ptr<VelCommonSmData> acsd,
      Qor::Ptr<L3Status> l3Status, Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper,
      Qor::Ptr<Ip::Status const> ipStatus,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus) {
   return Qor::make<MrouteSwitch>(std::move(name), switchId, std::move(acsd), std::move(l3Status),
                                  std::move(mrouteHelper), std::move(ipStatus),
                                  std::move(mfibHwStatus));
}

void MrouteSwitch::handleInitialized() {
   VEL_TRACE(2, "handleInitialized"
                      << ", switch # " << switchId());
   if (initialized_) return;
   mrouteHelper_->mrouteSwitchInit(switchId(), true);
   attrIs<&Notifiee::onInitialized>(initialized_, true);
}

void MrouteSwitch::doCleanup() {
   VEL_TRACE(2, "doCleanup"
                      << ", switch # " << switchId());
   if (initialized_) mrouteHelper_->mrouteSwitchInit(switchId(), false);
}

void MrouteSwitch::zombieLifetimeIs(Qor::Seconds v) {
   if (!(v >= 0) || !std::isfinite(v)) {
      Qor::throwRange("MrouteSwitch::zombieLifetime < 0 or not finite not allowed");
   }
   attrIs<&Notifiee::onZombieLifetime>(zombieLifetime_, v);
}

void MrouteSwitch::requestVerify() const {
   if (acsd_) acsd_->requestVerify();
}

// ---- Allocation ----

// An empty set is never shared: each record has an index of its own, outside the table.
void MrouteSwitch::publishEmptySet(OifSetPtr const& oifSet) {
   Qor::U32 const oifSetIndex = mrouteHelper_->doAllocateMtableOifSet(switchId(), 0, oifSet);
   QOR_ASSERT(oifSetIndex != invalidOifSetIndex());
   VEL_TRACE(2, "Empty port vlan set. OifSetIndex: " << oifSetIndex);
   RecordPtr const record = mtableOifSetFactory(oifSet, oifSet->portVlanSet().toCpu(), this);
   record->oifSetIndexIs(oifSetIndex);
   mtableOifSetIs(record);
   requestVerify();
}

// Publishes the in-use record of an oif set if a further route may share the record. A zombie is
// resurrected. Returns false for a dirty record.
bool MrouteSwitch::shareRecord(OifSetPtr const& oifSet, RecordPtr const& existing) {
   if (existing->dirty()) {
      VEL_TRACE(2, "Existing dirty oifSetIndex: " << existing->oifSetIndex());
      return false;
   }
   VEL_TRACE(2, "Found an existing oif set");
   if (existing->zombie().isZombie()) {
      VEL_TRACE(2, "Resurrecting zombie oifSetIndex: 0x" << std::hex << existing->oifSetIndex());
      resurrect(existing);
      existing->zombieIs(ZombieKey());
      // A failure during the record's time as a zombie has removed its set from frrMtableOifSet.
      if (oifSet->portVlanSet().currentIif() != Lnet::IntfId() && !frrMtableOifSet().find(oifSet)) {
         VEL_TRACE(2, " Adding Frr oifSetIndex: " << existing->oifSetIndex());
         frrMtableOifSetIs(oifSet, existing);
      }
   }
   VEL_TRACE(2, "Sharing existing oifSetIndex: " << existing->oifSetIndex());
   mtableOifSetIs(existing);
   requestVerify();
   return true;
}

void MrouteSwitch::doAllocateMtableOifSet(OifSetPtr oifSet) {
   PortVlanSet const& pvSet = oifSet->portVlanSet();
   VEL_TRACE(2, "doAllocateMtableOifSet"
                      << ", PortVlanSet: " << pvSet);
   if (pvSet.portVlan().empty()) return publishEmptySet(oifSet);
   VEL_TRACE(2, "Non-empty port vlan set");
   RecordPtr const existing = inUseRecord(oifSet);
   if (existing && shareRecord(oifSet, existing)) return;

   if (mrouteHelper_->mtableFull(switchId())) {
      VEL_TRACE(2, "No multicast group available. Skipping oif allocation");
      mtableOifSetIs(nullptr);
      mtableFreeIs(false);
      return;
   }
   bool const dirtyIndex = existing && existing->oifSetIndex() != 0;
   Qor::U32 const oifSetIndex = mrouteHelper_->doAllocateMtableOifSet(
         switchId(), dirtyIndex ? VelHelper::MrouteSmHelper::freshOifSetIndex : 0, oifSet);
   if (oifSetIndex == invalidOifSetIndex()) {
      VEL_TRACE(2, "Full multicast replication table. Skipping oif allocation");
      mtableOifSetIs(nullptr);
      return;
   }
   // Hooks that do nothing return the index 0 for every set: the newest record has the index.
   if (oifSetIndexColl(oifSetIndex) && !noopAgent()) {
      // The text of the assertion is behaviour, its blanks included.
      // clang-format off
      QOR_ASSERT(oifSetIndexColl( oifSetIndex ) == false);
      // clang-format on
   }
   oifSetIndexCollIs(oifSetIndex, true);
   RecordPtr const record = mtableOifSetFactory(oifSet, pvSet.toCpu(), this);
   record->oifSetIndexIs(oifSetIndex);
   inUseOifSetIs(oifSet, record);
   if (pvSet.currentIif() != Lnet::IntfId()) {
      VEL_TRACE(2, " Adding Frr oifSetIndex: " << oifSetIndex);
      frrMtableOifSetIs(oifSet, record);
   }
   mtableOifSetIs(record);
   VEL_TRACE(2, "Allocated oifSetIndex: " << oifSetIndex);
   requestVerify();
}

namespace {

Qor::Type describeMrouteSwitch() {
   using Switch = MrouteSwitch;
   using Told = Switch::Notifiee;
   Qor::Describe<Switch> type(typeModule);
   type.base<MrouteLib::SwitchChip>();
   type.constructor<&mrouteSwitchFactory>("name", "switchId", "acsd", Qor::Required("l3Status"),
                                          Qor::Required("mrouteHelper"), "ipStatus",
                                          "mfibHwStatus");
   type.attribute<&Switch::acsd>();
   type.attribute<&Switch::l3Status>();
   type.attribute<&Switch::mrouteHelper>();
   type.attribute<&Switch::ipStatus>();
   type.attribute<&Switch::mfibHwStatus>();
   type.attribute<&Switch::zombieLifetime, &Switch::zombieLifetimeIs, &Told::onZombieLifetime>();
   type.attribute<&Switch::deleted, &Switch::deletedIs, &Told::onDeleted>();
   type.attribute<&Switch::initialized, nullptr, &Told::onInitialized>();
   describeOifSetTables<Switch, Switch::OifSetTables>(type);
   type.collection<Switch::OifSetIndexColl, Switch, &Switch::oifSetIndexColl,
                   &Switch::oifSetIndexCollDel, &Switch::oifSetIndexCollIs,
                   &Switch::oifSetIndexCollDelAll, &Switch::oifSetIndexCollNotify>();
   type.collection<Switch::RouteColl, Switch, &Switch::route, &Switch::routeDel,
                   &Switch::routeDelAll, &Switch::routeNotify>();
   type.operation<&Switch::routeIs>("handle", "key", "acceptingVlanId");
   type.collection<Switch::BoundaryColl, Switch, &Switch::boundary, &Switch::boundaryDel,
                   &Switch::boundaryDelAll, &Switch::boundaryNotify>();
   type.operation<&Switch::boundaryIs>("handle", "key", "vlanId");
   type.collection<Switch::RouteKeyToHandleColl, Switch, &Switch::routeKeyToHandle,
                   &Switch::routeKeyToHandleDel, &Switch::routeKeyToHandleIs,
                   &Switch::routeKeyToHandleDelAll, &Switch::routeKeyToHandleNotify>();
   type.operation<&Switch::doAllocateMtableOifSet>("oifSet");
   type.operation<&Switch::doAllocateRoute>("routeKey", "acceptingVlanId", "bridge", "mtableOifSet",
                                            "fastDrop", "noRpf", "rpaId", "vrfName");
   type.operation<&Switch::doSetMtableOifSet>("handle", "mtableOifSet");
   type.operation<&Switch::doDeleteRoute>("handle");
   type.operation<&Switch::doCommitRouteBatch>();
   type.operation<&Switch::handleFreeMtableOifSet>("record");
   type.operation<&Switch::handleVerify>();
   type.operation<&Switch::handleInitialized>();
   type.operation<&Switch::doCleanup>();
   type.operation<&Switch::requestVerify>();
   return type;
}
Qor::TypeRegistration const mrouteSwitchRegistered(describeMrouteSwitch);

}  // namespace

}  // namespace Vel
