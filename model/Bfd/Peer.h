// The key of a BFD session. The session type is part of the key because fast reroute acts on
// single-hop sessions alone: only such a session shows the state of the interface it runs on.
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
   singleHop = 1,  // to a neighbour on one interface
   multihop = 2,   // routed, on no particular interface
   micro = 3,      // on one member link of an aggregate
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
   // The parsing constructor, for a text that strep() returned.
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
