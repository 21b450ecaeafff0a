// Registers the types of this namespace with the type registry.
#include "Bfd/AppStatus.h"
#include "Qor/Describe.h"

namespace Bfd {

namespace {

constexpr char typeModule[] = "Bfd";

Qor::Type describeBfdPeerStatus() {
   Qor::Describe<BfdPeerStatus> type(typeModule);
   type.attribute<&BfdPeerStatus::peer>();
   type.attribute<&BfdPeerStatus::status, &BfdPeerStatus::statusIs,
                  &BfdPeerStatus::Notifiee::onStatus>();
   type.attribute<&BfdPeerStatus::intf, &BfdPeerStatus::intfIs, &BfdPeerStatus::Notifiee::onIntf>();
   return type;
}
Qor::TypeRegistration const bfdPeerStatusRegistered(describeBfdPeerStatus);

Qor::Type describeAppStatus() {
   Qor::Describe<AppStatus> type(typeModule);
   type.collection<AppStatus::PeerStatusColl, AppStatus, &AppStatus::peerStatus,
                   &AppStatus::peerStatusDel, &AppStatus::peerStatusDelAll,
                   &AppStatus::peerStatusNotify>();
   return type;
}
Qor::TypeRegistration const appStatusRegistered(describeAppStatus);

}  // namespace

}  // namespace Bfd
