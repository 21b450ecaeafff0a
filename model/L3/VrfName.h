// The name of a VRF: at most 100 bytes of any value. The empty name is no VRF's.
#pragma once

#include <compare>
#include <ostream>
#include <utility>

#include "Qor/Hash.h"
#include "Qor/Strep.h"

namespace L3 {

class VrfName final {
 public:
   static constexpr std::size_t maxBytes = 100;

   VrfName() = default;
   // RangeException "VrfName::bytes > 100 not allowed" for a longer name.
   explicit VrfName(Qor::String name) : name_(std::move(name)) {
      if (name_.size() > maxBytes) Qor::throwRange("VrfName::bytes > 100 not allowed");
   }

   Qor::String const& name() const { return name_; }
   bool empty() const { return name_.empty(); }
   Qor::U32 hash() const { return Qor::hashFold(Qor::hashBytes(name_.data(), name_.size())); }
   // The quoted name. A text given to the constructor is a name, so there is no parsing
   // constructor; Qor::parseStrep reads a whole string form.
   Qor::String strep() const { return Qor::quotedStrep(name_); }
   static VrfName fromStrep(Qor::StrepReader& reader) { return VrfName(reader.quoted()); }

   friend bool operator==(VrfName const&, VrfName const&) = default;
   friend std::strong_ordering operator<=>(VrfName const&, VrfName const&) = default;
   friend std::ostream& operator<<(std::ostream& out, VrfName const& v) { return out << v.name_; }

 private:
   Qor::String name_;
};

}  // namespace L3
