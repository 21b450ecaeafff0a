#include "MrouteLib/SwitchChip.h"

#include <utility>

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

}  // namespace MrouteLib
