#include "Vel/VelAsyncMrouteKeys.h"

#include "Qor/Hash.h"
#include "Vel/VelDescribe.h"

namespace Vel::Mroute {

using Routing::Multicast::Fib::IpGenRouteKey;

namespace {

constexpr char inUseKeyType[] = "Vel::Mroute::InUseRouteHandleKey";

}  // namespace

InUseRouteHandleKey::InUseRouteHandleKey(Qor::String const& strep)
      : InUseRouteHandleKey(Qor::parseStrep<InUseRouteHandleKey>(inUseKeyType, strep)) {}

Qor::U32 InUseRouteHandleKey::hash() const {
   Qor::U64 const where = Qor::U64{vrfId_.value()} << 16 | vlan_.value();
   return Qor::hashFold(Qor::hashBytes(&routeKey_, sizeof routeKey_, where));
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

namespace {

Qor::Type describeZombieKey() {
   Qor::Describe<ZombieKey> type(typeModule);
   type.constructible<Qor::U32, Qor::Seconds>("multicastId", "expiryTime");
   type.attribute<&ZombieKey::multicastId>();
   type.attribute<&ZombieKey::expiryTime>();
   type.operation<&ZombieKey::isZombie>();
   return type;
}
Qor::TypeRegistration const zombieKeyRegistered(describeZombieKey);

Qor::Type describeInUseRouteHandleKey() {
   Qor::Describe<InUseRouteHandleKey> type(typeModule);
   type.constructible<IpGenRouteKey, Bridging::VlanIdOrNone, VrfId>("routeKey", "vlan", "vrfId");
   type.attribute<&InUseRouteHandleKey::routeKey>();
   type.attribute<&InUseRouteHandleKey::vlan>();
   type.attribute<&InUseRouteHandleKey::vrfId>();
   return type;
}
Qor::TypeRegistration const inUseRouteHandleKeyRegistered(describeInUseRouteHandleKey);

}  // namespace

}  // namespace Vel::Mroute
