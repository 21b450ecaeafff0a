#include "Vel/VelSyncMrouteRecords.h"

#include "Vel/VelCommon.h"
#include "Vel/VelSyncMrouteSwitch.h"

namespace Vel {

namespace {

constexpr char velTraceSource[] = "VelSyncMrouteSm";

}  // namespace

MtableOifSet::MtableOifSet(MrouteLib::OifSetPtr oifSet, bool toCpu, MrouteSwitch* mrouteSwitch)
      : OifSetRecord(std::move(oifSet), toCpu, mrouteSwitch) {}

MtableOifSet::~MtableOifSet() = default;

void MtableOifSet::doCleanup() {
   VEL_TRACE(3, "doCleanup"
                      << " (oifset): " << *this);
   cleanUpBySwitch();
}

Qor::ValidPtr<MtableOifSet> mtableOifSetFactory(MrouteLib::OifSetPtr oifSet, bool toCpu,
                                                MrouteSwitch* mrouteSwitch) {
   return Qor::make<MtableOifSet>(std::move(oifSet), toCpu, mrouteSwitch);
}

std::ostream& operator<<(std::ostream& os, MtableOifSet const& record) {
   return os << "MtableOifSet(oifSetIndex " << record.oifSetIndex() << ", " << record.oifSet()
             << ')';
}

Route::~Route() = default;

Qor::ValidPtr<Route> routeFactory(MrouteLib::RouteHandle handle,
                                  Routing::Multicast::Fib::IpGenRouteKey const& key,
                                  Bridging::VlanIdOrNone acceptingVlanId) {
   return Qor::make<Route>(handle, key, acceptingVlanId);
}

Boundary::~Boundary() = default;

}  // namespace Vel
