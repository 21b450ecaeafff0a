// The platform's number of a route entry in the hardware. All-ones is the invalid handle and the
// default.
#pragma once

#include "Qor/NumberValue.h"

namespace MrouteLib {

class RouteHandle final : public Qor::NumberValue<RouteHandle, Qor::U32> {
 public:
   static constexpr char const* typeName = "MrouteLib::RouteHandle";

   constexpr RouteHandle() : NumberValue(0xffffffff) {}
   explicit constexpr RouteHandle(Qor::U32 value) : NumberValue(value) {}
   explicit RouteHandle(Qor::String const& strep)
         : RouteHandle(Qor::parseStrep<RouteHandle>(typeName, strep)) {}

   constexpr bool isNull() const { return *this == RouteHandle(); }
};

}  // namespace MrouteLib
