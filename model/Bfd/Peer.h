// Names a BFD session. The session type is the first field of the key: only a single-hop session
// speaks for the interface it runs on, so only its going down may reroute that interface's sets.
// Ordered by session type, address, interface, VRF.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <utility>

#include "L3/VrfName.h"
#include "Lnet/IntfId.h"
#include "Lnet/IpGenAddr.h"
#include "Qor/EnumText.h"
#include "Qor/Export.h"

namespace Bfd {

enum class SessionType : std::uint8_t {
   none = 0,
   singleHop = 1,  // over one interface, to a neighbour on it
   multihop = 2,   // routed, not tied to an interface
   micro = 3,      // over one member link of an aggregate
};

inline constexpr SessionType lastSessionType = SessionType::micro;

inline std::ostream& operator<<(std::ostream& out, SessionType type) {
   static constexpr char const* names[] = {"none", "singleHop", "multihop", "micro"};
   return Qor::printEnum(out, type, names);
}

class QOR_PUBLIC Peer final {
 public:
   Peer() = default;
   Peer(SessionType type, Lnet::IpGenAddr const& ip, Lnet::IntfId intfId, L3::VrfName vrfName)
         : type_(type), ip_(ip), intfId_(intfId), vrfName_(std::move(vrfName)) {}
   // The parsing constructor, of the form that strep() writes.
   explicit Peer(Qor::String const& strep);

   SessionType type() const { return type_; }
   Lnet::IpGenAddr const& ip() const { return ip_; }
   Lnet::IntfId intfId() const { return intfId_; }
   L3::VrfName const& vrfName() const { return vrfName_; }

   Qor::U32 hash() const;
   Qor::String strep() const;
   static Peer fromStrep(Qor::StrepReader& reader);

   friend bool operator==(Peer const&, Peer const&) = default;
   friend std::strong_ordering operator<=>(Peer const&, Peer const&) = default;
   // "singleHop 10.0.0.2 rtr1 default"
   friend std::ostream& operator<<(std::ostream& out, Peer const& p) {
      return out << p.type_ << ' ' << p.ip_ << ' ' << p.intfId_ << ' ' << p.vrfName_;
   }

 private:
   SessionType type_ = SessionType::none;
   Lnet::IpGenAddr ip_;
   Lnet::IntfId intfId_;
   L3::VrfName vrfName_;
};

}  // namespace Bfd
