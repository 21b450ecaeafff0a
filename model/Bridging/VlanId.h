// Vlan numbers. VlanId is a vlan; VlanIdOrNone is a vlan or none (for a routed entry). The
// constructors take 64 bits and check the range before they narrow the value, so that 65537 is an
// error and not vlan 1.
#pragma once

#include "Qor/NumberValue.h"

namespace Bridging {

class VlanId final : public Qor::NumberValue<VlanId, Qor::U16> {
 public:
   static constexpr char const* typeName = "Bridging::VlanId";

   // A value outside 1 to 4094 raises RangeException "VlanId::value < 1 or > 4094 not allowed".
   explicit constexpr VlanId(Qor::U64 value) : NumberValue(checked(value)) {}
   // The parsing constructor. A number out of range raises the same error.
   explicit VlanId(Qor::String const& strep) : VlanId(Qor::parseStrep<VlanId>(typeName, strep)) {}

   static VlanId fromStrep(Qor::StrepReader& reader) {
      return VlanId(reader.number(std::numeric_limits<Qor::U64>::max()));
   }

 private:
   static constexpr Qor::U16 checked(Qor::U64 value) {
      if (value < 1 || value > 4094) Qor::throwRange("VlanId::value < 1 or > 4094 not allowed");
      return static_cast<Qor::U16>(value);
   }
};

class VlanIdOrNone final : public Qor::NumberValue<VlanIdOrNone, Qor::U16> {
 public:
   static constexpr char const* typeName = "Bridging::VlanIdOrNone";

   constexpr VlanIdOrNone() = default;                                 // none
   constexpr VlanIdOrNone(VlanId vlan) : NumberValue(vlan.value()) {}  // NOLINT: meant implicit
   // 0 means none. A value above 4094 raises RangeException "VlanIdOrNone::value > 4094 not
   // allowed".
   explicit constexpr VlanIdOrNone(Qor::U64 value) : NumberValue(checked(value)) {}
   // The parsing constructor. A number out of range raises the same error.
   explicit VlanIdOrNone(Qor::String const& strep)
         : VlanIdOrNone(Qor::parseStrep<VlanIdOrNone>(typeName, strep)) {}

   static VlanIdOrNone fromStrep(Qor::StrepReader& reader) {
      return VlanIdOrNone(reader.number(std::numeric_limits<Qor::U64>::max()));
   }

   constexpr bool isNone() const { return value() == 0; }

 private:
   static constexpr Qor::U16 checked(Qor::U64 value) {
      if (value > 4094) Qor::throwRange("VlanIdOrNone::value > 4094 not allowed");
      return static_cast<Qor::U16>(value);
   }
};

}  // namespace Bridging
