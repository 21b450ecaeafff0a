// One outgoing port/vlan pair: an interface, and the vlan in which the copy of a packet leaves it.
// Ordered by interface (in the order of Lnet::IntfId), then by vlan.
#pragma once

#include <compare>
#include <ostream>

#include "Bridging/VlanId.h"
#include "Lnet/IntfId.h"

namespace MrouteLib {

class PortVlan final {
 public:
   static constexpr char const* typeName = "MrouteLib::PortVlan";

   constexpr PortVlan() = default;
   explicit constexpr PortVlan(Lnet::IntfId intfId, Bridging::VlanIdOrNone vlanId = {})
         : intfId_(intfId), vlanId_(vlanId) {}
   // The parsing constructor, for a text that strep() returned.
   explicit PortVlan(Qor::String const& strep)
         : PortVlan(Qor::parseStrep<PortVlan>(typeName, strep)) {}

   constexpr Lnet::IntfId intfId() const { return intfId_; }
   constexpr Bridging::VlanIdOrNone vlanId() const { return vlanId_; }

   Qor::U32 hash() const { return Qor::hashFold(Qor::hashMix(intfId_.id(), vlanId_.value())); }
   Qor::String strep() const {
      return Qor::String("Value('MrouteLib::PortVlan', ** {'intfId': ") + intfId_.strep() +
             ", 'vlanId': " + vlanId_.strep() + "})";
   }
   static PortVlan fromStrep(Qor::StrepReader& reader) {
      reader.expect("Value('MrouteLib::PortVlan', ** {'intfId': ");
      auto const intf = Lnet::IntfId::fromStrep(reader);
      reader.expect(", 'vlanId': ");
      auto const vlan = Bridging::VlanIdOrNone::fromStrep(reader);
      reader.expect("})");
      return PortVlan(intf, vlan);
   }

   friend constexpr bool operator==(PortVlan const&, PortVlan const&) = default;
   friend std::strong_ordering operator<=>(PortVlan const&, PortVlan const&) = default;
   // Appends the printed form to `out`: "rtr3:1007", or "rtr3" for a pair without a vlan.
   void appendTo(Qor::String& out) const {
      out += intfId_.name();
      if (!vlanId_.isNone()) out.append(1, ':').append(std::to_string(vlanId_.value()));
   }
   friend std::ostream& operator<<(std::ostream& out, PortVlan const& pv) {
      out << pv.intfId_;
      if (!pv.vlanId_.isNone()) out << ':' << pv.vlanId_;
      return out;
   }

 private:
   Lnet::IntfId intfId_;
   Bridging::VlanIdOrNone vlanId_;
};

}  // namespace MrouteLib
