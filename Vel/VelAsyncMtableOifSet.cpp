#include "Vel/VelAsyncMtableOifSet.h"

#include <utility>

#include "Vel/VelAsyncMrouteSwitch.h"
#include "Vel/VelCommon.h"

namespace Vel::Mroute {

namespace {

constexpr char velTraceSource[] = "VelAsyncMrouteSm";

}  // namespace

AsyncMtableOifSet::AsyncMtableOifSet(MrouteLib::OifSetPtr oifSet, bool toCpu, Qor::U32 multicastId,
                                     AsyncMrouteSwitch* mrouteSwitch)
      : OifSetRecord(std::move(oifSet), toCpu, mrouteSwitch), multicastId_(multicastId) {}

AsyncMtableOifSet::~AsyncMtableOifSet() = default;

void AsyncMtableOifSet::doCleanup() {
   VEL_TRACE(8, "AsyncMtableOifSet::doCleanup()");
   VEL_TRACE(7, *this << " oifset " << oifSet() << ' ' << oifSet()->portVlanSet().pretty());
   cleanUpBySwitch();
}

Qor::ValidPtr<AsyncMtableOifSet> asyncMtableOifSetFactory(MrouteLib::OifSetPtr oifSet, bool toCpu,
                                                          Qor::U32 multicastId,
                                                          AsyncMrouteSwitch* mrouteSwitch) {
   return Qor::make<AsyncMtableOifSet>(std::move(oifSet), toCpu, multicastId, mrouteSwitch);
}

std::ostream& operator<<(std::ostream& os, AsyncMtableOifSet const& record) {
   return os << "AsyncMtableOifSet(mcastId " << record.multicastId() << ", " << record.oifSet()
             << ')';
}

}  // namespace Vel::Mroute
