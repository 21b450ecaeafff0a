#include "Vel/VelSyncMrouteRecords.h"

#include "Vel/VelDescribe.h"
#include "Vel/VelSyncMrouteSwitch.h"
#include "Vel/VelTrace.h"

namespace Vel {

MtableOifSet::MtableOifSet(MrouteLib::OifSetPtr oifSet, bool toCpu, MrouteSwitch* mrouteSwitch)
      : OifSetRecord(std::move(oifSet), toCpu, mrouteSwitch) {
   softwareOnly_ =
         carried().portVlanSet().type() == Routing::Multicast::Fib::RouteKeyType::softwareOnly;
}

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

namespace {

Qor::Type describeMtableOifSet() {
   Qor::Describe<MtableOifSet> type(typeModule);
   type.constructor<&mtableOifSetFactory>(Qor::Required("oifSet"), "toCpu", "mrouteSwitch");
   describeOifSetRecord(type);
   type.attribute<&MtableOifSet::oifSetIndex, &MtableOifSet::oifSetIndexIs,
                  &MtableOifSet::Notifiee::onOifSetIndex>();
   type.attribute<&MtableOifSet::softwareOnly>();
   return type;
}
Qor::TypeRegistration const mtableOifSetRegistered(describeMtableOifSet);

Qor::Type describeMtableOifSetPtr() {
   Qor::Describe<MtableOifSetPtr> type(typeModule);
   type.constructible<Qor::Ptr<MtableOifSet>>("record");
   return type;
}
Qor::TypeRegistration const mtableOifSetPtrRegistered(describeMtableOifSetPtr);

Qor::Type describeRoute() {
   using Told = Route::Notifiee;
   Qor::Describe<Route> type(typeModule);
   type.constructor<&routeFactory>("handle", "key", "acceptingVlanId");
   type.attribute<&Route::handle>();
   type.attribute<&Route::key>();
   type.attribute<&Route::acceptingVlanId>();
   type.attribute<&Route::fastdrop, &Route::fastdropIs, &Told::onFastdrop>();
   type.attribute<&Route::rpaId, &Route::rpaIdIs, &Told::onRpaId>();
   type.attribute<&Route::vrfId, &Route::vrfIdIs, &Told::onVrfId>();
   type.attribute<&Route::mtableOifSet, &Route::mtableOifSetIs, &Told::onMtableOifSet>();
   type.attribute<&Route::noAge, &Route::noAgeIs, &Told::onNoAge>();
   type.attribute<&Route::vxlan, &Route::vxlanIs, &Told::onVxlan>();
   return type;
}
Qor::TypeRegistration const routeRegistered(describeRoute);

Qor::Type describeBoundary() {
   Qor::Describe<Boundary> type(typeModule);
   type.constructible<MrouteLib::RouteHandle, Boundary::IpGenRouteKey, Bridging::VlanId>(
         "handle", "key", "vlanId");
   type.attribute<&Boundary::handle>();
   type.attribute<&Boundary::key>();
   type.attribute<&Boundary::vlanId>();
   type.attribute<&Boundary::vrfId, &Boundary::vrfIdIs>();
   return type;
}
Qor::TypeRegistration const boundaryRegistered(describeBoundary);

}  // namespace

}  // namespace Vel
