// The index of a rendezvous point's address. The programmers pass it to the platform unchanged.
// Only the synchronous path interprets the two sentinels.
#pragma once

#include "Qor/NumberValue.h"

namespace Wisp::Multicast::Fib {

class RpaIndex final : public Qor::NumberValue<RpaIndex, Qor::U16> {
 public:
   static constexpr char const* typeName = "Wisp::Multicast::Fib::RpaIndex";

   constexpr RpaIndex() = default;  // 0
   explicit constexpr RpaIndex(Qor::U16 value) : NumberValue(value) {}
   explicit RpaIndex(Qor::String const& strep)
         : RpaIndex(Qor::parseStrep<RpaIndex>(typeName, strep)) {}

   // The route has no rendezvous point. The route is programmed with index 0.
   static constexpr RpaIndex none() { return RpaIndex(Qor::U16{0xffff}); }
   // The route must not be programmed.
   static constexpr RpaIndex notProgrammed() { return RpaIndex(Qor::U16{0xfffe}); }
};

}  // namespace Wisp::Multicast::Fib
