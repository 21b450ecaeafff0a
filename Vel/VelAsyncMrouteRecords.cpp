#include "Vel/VelAsyncMrouteRecords.h"

#include <utility>

#include "Vel/VelAsyncMrouteSwitch.h"
#include "Vel/VelDescribe.h"
#include "Vel/VelTrace.h"

namespace Vel::Mroute {

AsyncMtableOifSet::AsyncMtableOifSet(MrouteLib::OifSetPtr oifSet, bool toCpu, Qor::U32 multicastId,
                                     AsyncMrouteSwitch* mrouteSwitch)
      : OifSetRecord(std::move(oifSet), toCpu, mrouteSwitch) {
   multicastId_ = multicastId;
}

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

namespace {

Qor::Type describeAsyncMtableOifSet() {
   using Record = AsyncMtableOifSet;
   using Told = Record::Notifiee;
   Qor::Describe<Record> type(typeModule);
   type.constructor<&asyncMtableOifSetFactory>(Qor::Required("oifSet"), "toCpu", "multicastId",
                                               "mrouteSwitch");
   describeOifSetRecord(type);
   type.attribute<&Record::multicastId>();
   type.attribute<&Record::usedInHw, &Record::usedInHwIs, &Told::onUsedInHw>();
   type.attribute<&Record::skipDelete, &Record::skipDeleteIs, &Told::onSkipDelete>();
   type.attribute<&Record::zombieLifetime, &Record::zombieLifetimeIs, &Told::onZombieLifetime>();
   return type;
}
Qor::TypeRegistration const asyncMtableOifSetRegistered(describeAsyncMtableOifSet);

Qor::Type describeAsyncMtableOifSetPtr() {
   Qor::Describe<AsyncMtableOifSetPtr> type(typeModule);
   type.constructible<Qor::Ptr<AsyncMtableOifSet>>("record");
   return type;
}
Qor::TypeRegistration const asyncMtableOifSetPtrRegistered(describeAsyncMtableOifSetPtr);

}  // namespace

}  // namespace Vel::Mroute
