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
      : oifSet_(std::move(oifSet)),
        mrouteSwitch_(mrouteSwitch),
        multicastId_(multicastId),
        toCpu_(toCpu) {
   QOR_ASSERT(oifSet_ != nullptr);
   if (mrouteSwitch_) mrouteSwitch_->recordMade(*this);
}

AsyncMtableOifSet::~AsyncMtableOifSet() {
   if (mrouteSwitch_) mrouteSwitch_->recordGone(*this);
}

void AsyncMtableOifSet::zeroReferencesIs(bool) {
   notify<&Notifiee::onZeroReferences>();
   if (hasNotifiees()) return;
   doCleanup();
}

void AsyncMtableOifSet::doCleanup() {
   VEL_TRACE(8, "AsyncMtableOifSet::doCleanup()");
   VEL_TRACE(7, *this << " oifset " << oifSet_ << ' ' << oifSet_->portVlanSet().pretty());
   if (!mrouteSwitch_) return;
   Qor::Ptr<AsyncMtableOifSet> const self(this);
   mrouteSwitch_->handleFreeMtableOifSet(self);
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
