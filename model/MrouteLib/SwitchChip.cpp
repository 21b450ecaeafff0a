#include "MrouteLib/SwitchChip.h"

#include <utility>

#include "Qor/Describe.h"

namespace MrouteLib {

MtableOifSet::~MtableOifSet() = default;

SwitchChipBase::SwitchChipBase(Qor::Name name, Qor::U32 switchId)
      : Entity(std::move(name)), switchId_(switchId) {}

SwitchChipBase::~SwitchChipBase() = default;

AsyncSwitchChip::AsyncSwitchChip(Qor::Name name, Qor::U32 switchId)
      : Entity(std::move(name), switchId) {}

AsyncSwitchChip::~AsyncSwitchChip() = default;

SwitchChip::SwitchChip(Qor::Name name, Qor::U32 switchId) : Entity(std::move(name), switchId) {}

SwitchChip::~SwitchChip() = default;

namespace {

constexpr char typeModule[] = "MrouteLib";

Qor::Type describeMtableOifSet() {
   Qor::Describe<MtableOifSet> type(typeModule);
   type.attribute<&MtableOifSet::oifSet>();
   return type;
}
Qor::TypeRegistration const mtableOifSetRegistered(describeMtableOifSet);

Qor::Type describeSwitchChipBase() {
   using Chip = SwitchChipBase;
   using Told = Chip::Notifiee;
   Qor::Describe<Chip> type(typeModule);
   type.attribute<&Chip::switchId>();
   type.attribute<&Chip::routeHandle, &Chip::routeHandleIs, &Told::onRouteHandle>();
   type.attribute<&Chip::mtableOifSet, &Chip::mtableOifSetIs, &Told::onMtableOifSet>();
   type.operation<&Chip::takeMtableOifSet>();
   return type;
}
Qor::TypeRegistration const switchChipBaseRegistered(describeSwitchChipBase);

Qor::Type describeAsyncSwitchChip() {
   using Chip = AsyncSwitchChip;
   Qor::Describe<Chip> type(typeModule);
   type.base<SwitchChipBase>();
   type.attribute<&Chip::mrouteFailureReason, &Chip::mrouteFailureReasonIs,
                  &Chip::Notifiee::onMrouteFailureReason>();
   return type;
}
Qor::TypeRegistration const asyncSwitchChipRegistered(describeAsyncSwitchChip);

Qor::Type describeSwitchChip() {
   using Chip = SwitchChip;
   using Told = Chip::Notifiee;
   Qor::Describe<Chip> type(typeModule);
   type.base<SwitchChipBase>();
   type.attribute<&Chip::mtableFree, &Chip::mtableFreeIs, &Told::onMtableFree>();
   type.attribute<&Chip::mrouteTcamFree, &Chip::mrouteTcamFreeIs, &Told::onMrouteTcamFree>();
   type.attribute<&Chip::boundaryTcamFree, &Chip::boundaryTcamFreeIs, &Told::onBoundaryTcamFree>();
   type.attribute<&Chip::mrouteReviewKick, &Chip::mrouteReviewKickIs, &Told::onMrouteReviewKick>();
   return type;
}
Qor::TypeRegistration const switchChipRegistered(describeSwitchChip);

}  // namespace

}  // namespace MrouteLib
