// The base of the value types that wrap one unsigned number. Such a value compares, hashes and
// prints as its number, and the decimal number is its string representation. A derived type adds
// its constructors, which determine its default value and its range:
//    class VrfId final : public Qor::NumberValue<VrfId, Qor::U32> {
//     public:
//       static constexpr char const* typeName = "Vel::VrfId";    // in the texts of parse errors
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
