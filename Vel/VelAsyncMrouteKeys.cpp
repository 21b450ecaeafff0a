#include "Vel/VelAsyncMrouteKeys.h"

#include "Qor/Hash.h"

namespace Vel::Mroute {

using Routing::Multicast::Fib::IpGenRouteKey;

namespace {

constexpr char zombieKeyType[] = "Vel::Mroute::ZombieKey";
constexpr char inUseKeyType[] = "Vel::Mroute::InUseRouteHandleKey";

}  // namespace

ZombieKey::ZombieKey(Qor::String const& strep)
      : ZombieKey(Qor::parseStrep<ZombieKey>(zombieKeyType, strep)) {}

Qor::String ZombieKey::strep() const {
   return "Value('Vel::Mroute::ZombieKey', ** {'multicastId': " + Qor::valueToStrep(multicastId_) +
          ", 'expiryTime': " + Qor::valueToStrep(expiryTime_) + "})";
}

ZombieKey ZombieKey::fromStrep(Qor::StrepReader& reader) {
   reader.expect("Value('Vel::Mroute::ZombieKey', ** {'multicastId': ");
   Qor::U32 const multicastId = reader.u32();
   reader.expect(", 'expiryTime': ");
   Qor::Seconds const expiryTime = reader.real();
   reader.expect("})");
   return {multicastId, expiryTime};
}

std::ostream& operator<<(std::ostream& os, ZombieKey const& key) {
   return os << key.strep();
}

InUseRouteHandleKey::InUseRouteHandleKey(Qor::String const& strep)
      : InUseRouteHandleKey(Qor::parseStrep<InUseRouteHandleKey>(inUseKeyType, strep)) {}

Qor::U32 InUseRouteHandleKey::hash() const {
   Qor::U16 const vlan = vlan_.value();
   return Qor::hashFold(
         Qor::hashMix(Qor::hashBytes(&vlan, sizeof vlan, routeKey_.hash()), vrfId_.value()));
}

Qor::String InUseRouteHandleKey::strep() const {
   return "Value('Vel::Mroute::InUseRouteHandleKey', ** {'routeKey': " +
          Qor::valueToStrep(routeKey_) + ", 'vlan': " + Qor::valueToStrep(vlan_) +
          ", 'vrfId': " + Qor::valueToStrep(vrfId_) + "})";
}

InUseRouteHandleKey InUseRouteHandleKey::fromStrep(Qor::StrepReader& reader) {
   reader.expect("Value('Vel::Mroute::InUseRouteHandleKey', ** {");
   reader.expect("'routeKey': ");
   IpGenRouteKey const routeKey = IpGenRouteKey::fromStrep(reader);
   reader.expect(", 'vlan': ");
   auto const vlan = Bridging::VlanIdOrNone::fromStrep(reader);
   reader.expect(", 'vrfId': ");
   auto const vrfId = VrfId::fromStrep(reader);
   reader.expect("})");
   return {routeKey, vlan, vrfId};
}

std::ostream& operator<<(std::ostream& os, InUseRouteHandleKey const& key) {
   return os << key.strep();
}

}  // namespace Vel::Mroute
