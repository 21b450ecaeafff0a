// The number of a VRF in the hardware, from the hardware's route status
// (Routing/Hardware/RouteStatus.h).
#pragma once

#include "Qor/NumberValue.h"

namespace Vel {

class VrfId final : public Qor::NumberValue<VrfId, Qor::U32> {
 public:
   static constexpr char const* typeName = "Vel::VrfId";

   constexpr VrfId() = default;  // 0
   explicit constexpr VrfId(Qor::U32 value) : NumberValue(value) {}
   explicit VrfId(Qor::String const& strep) : VrfId(Qor::parseStrep<VrfId>(typeName, strep)) {}
};

}  // namespace Vel
