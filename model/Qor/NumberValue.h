// The common part of value types that are one unsigned number with a name of its own: they compare
// and hash by the number, print it, and have it as their string form. A derived type adds its
// constructors, and with them its default value and range:
//    class VrfId final : public Qor::NumberValue<VrfId, Qor::U32> {
//     public:
//       static constexpr char const* typeName = "Vel::VrfId";    // names the type in parse errors
//       constexpr VrfId() = default;
//       explicit constexpr VrfId(Qor::U32 value) : NumberValue(value) {}
//       explicit VrfId(Qor::String const& strep);                // the parsing constructor
//    };
#pragma once

#include <compare>
#include <concepts>
#include <ostream>

#include "Qor/Hash.h"
#include "Qor/Strep.h"

namespace Qor {

template <class Derived, std::unsigned_integral Rep>
class NumberValue {
 public:
   constexpr Rep value() const { return value_; }
   U32 hash() const { return hashFold(hashMix(value_, 0)); }
   String strep() const { return std::to_string(value_); }
   static Derived fromStrep(StrepReader& reader) {
      return Derived(static_cast<Rep>(reader.number(std::numeric_limits<Rep>::max())));
   }

   friend constexpr bool operator==(Derived const& a, Derived const& b) {
      return a.value() == b.value();
   }
   friend constexpr std::strong_ordering operator<=>(Derived const& a, Derived const& b) {
      return a.value() <=> b.value();
   }
   friend std::ostream& operator<<(std::ostream& out, Derived const& v) {
      return out << +v.value();
   }

 protected:
   constexpr NumberValue() = default;
   explicit constexpr NumberValue(Rep value) : value_(value) {}

 private:
   Rep value_ = 0;
};

}  // namespace Qor
