// The key of one route's counter: the number of the VRF in the hardware, and the route key. Ordered
// by VRF, then by route key.
#pragma once

#include <compare>
#include <ostream>

#include "Routing/Multicast/Fib/IpGenRouteKey.h"
#include "Vel/VrfId.h"

namespace MrouteLib {

class MrouteCounterKey final {
 public:
   using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
   static constexpr char const* typeName = "MrouteLib::MrouteCounterKey";

   constexpr MrouteCounterKey() = default;
   constexpr MrouteCounterKey(Vel::VrfId vrfId, IpGenRouteKey const& routeKey)
         : vrfId_(vrfId), routeKey_(routeKey) {}
   // The parsing constructor, for a text that strep() returned.
   explicit MrouteCounterKey(Qor::String const& strep)
         : MrouteCounterKey(Qor::parseStrep<MrouteCounterKey>(typeName, strep)) {}

   constexpr Vel::VrfId vrfId() const { return vrfId_; }
   constexpr IpGenRouteKey const& routeKey() const { return routeKey_; }

   Qor::U32 hash() const {
      return Qor::hashFold(Qor::hashBytes(&routeKey_, sizeof routeKey_, vrfId_.value()));
   }
   Qor::String strep() const {
      return Qor::String("Value('MrouteLib::MrouteCounterKey', ** {'vrfId': ") + vrfId_.strep() +
             ", 'routeKey': " + routeKey_.strep() + "})";
   }
   static MrouteCounterKey fromStrep(Qor::StrepReader& reader) {
      reader.expect("Value('MrouteLib::MrouteCounterKey', ** {'vrfId': ");
      auto const vrfId = Vel::VrfId::fromStrep(reader);
      reader.expect(", 'routeKey': ");
      auto const routeKey = IpGenRouteKey::fromStrep(reader);
      reader.expect("})");
      return MrouteCounterKey(vrfId, routeKey);
   }

   friend constexpr bool operator==(MrouteCounterKey const&, MrouteCounterKey const&) = default;
   friend constexpr std::strong_ordering operator<=>(MrouteCounterKey const&,
                                                     MrouteCounterKey const&) = default;
   // "(10.0.0.2, 239.10.0.7) vrfId 3"
   friend std::ostream& operator<<(std::ostream& out, MrouteCounterKey const& key) {
      return out << key.routeKey_ << " vrfId " << key.vrfId_;
   }

 private:
   Vel::VrfId vrfId_;
   IpGenRouteKey routeKey_;
};

}  // namespace MrouteLib
