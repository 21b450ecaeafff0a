#include "Bfd/Peer.h"

#include "Qor/Hash.h"

namespace Bfd {

Qor::U32 Peer::hash() const {
   Qor::U64 const h = Qor::hashMix(static_cast<Qor::U64>(type_) << 32 | ip_.hash(), intfId_.id());
   return Qor::hashFold(Qor::hashMix(h, vrfName_.hash()));
}

Qor::String Peer::strep() const {
   return Qor::String("Value('Bfd::Peer', ** {'type': ") +
          std::to_string(static_cast<unsigned>(type_)) + ", 'ip': " + ip_.strep() +
          ", 'intfId': " + intfId_.strep() + ", 'vrfName': " + vrfName_.strep() + "})";
}

Peer::Peer(Qor::String const& strep) : Peer(Qor::parseStrep<Peer>("Bfd::Peer", strep)) {}

Peer Peer::fromStrep(Qor::StrepReader& reader) {
   reader.expect("Value('Bfd::Peer', ** {'type': ");
   auto const type =
         static_cast<SessionType>(reader.number(static_cast<Qor::U64>(lastSessionType)));
   reader.expect(", 'ip': ");
   auto const ip = Lnet::IpGenAddr::fromStrep(reader);
   reader.expect(", 'intfId': ");
   auto const intfId = Lnet::IntfId::fromStrep(reader);
   reader.expect(", 'vrfName': ");
   auto const vrfName = L3::VrfName::fromStrep(reader);
   reader.expect("})");
   return Peer(type, ip, intfId, vrfName);
}

}  // namespace Bfd
