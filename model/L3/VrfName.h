// The name of a VRF: at most 100 bytes of any value. No VRF has the empty name.
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
   // A longer name raises RangeException "VrfName::bytes > 100 not allowed".
   explicit VrfName(Qor::String name) : name_(std::move(name)) {
      if (name_.size() > maxBytes) Qor::throwRange("VrfName::bytes > 100 not allowed");
   }

   Qor::String const& name() const { return name_; }
   bool empty() const { return name_.empty(); }
   Qor::U32 hash() const { return Qor::hashFold(Qor::hashBytes(name_.data(), name_.size())); }
   // The quoted name. There is no parsing constructor, since the constructor takes a text as a
   // name. Qor::parseStrep parses a quoted name.
   Qor::String strep() const { return Qor::quotedStrep(name_); }
   static VrfName fromStrep(Qor::StrepReader& reader) { return VrfName(reader.quoted()); }

   friend bool operator==(VrfName const&, VrfName const&) = default;
   friend std::strong_ordering operator<=>(VrfName const&, VrfName const&) = default;
   friend std::ostream& operator<<(std::ostream& out, VrfName const& v) { return out << v.name_; }

 private:
   Qor::String name_;
};

}  // namespace L3
