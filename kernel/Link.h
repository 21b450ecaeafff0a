// An interface of the kernel.
#pragma once

#include <array>
#include <string>

#include "Interface/IntfOperStatus.h"
#include "Qor/Types.h"

namespace Kernel {

using MacAddress = std::array<Qor::U8, 6>;

struct Link {
   Qor::U32 index = 0;
   std::string name;
   std::string kind;  // "veth", "vrf", "bridge", ...; empty for a physical interface
   MacAddress mac{};  // zero for an interface without an Ethernet address
   bool adminUp = false;
   // Down if the interface is disabled or has no carrier. If the driver reports no state, the
   // carrier alone decides. An interface that is not up forwards nothing.
   Interface::IntfOperStatus status = Interface::IntfOperStatus::unknown;
   Qor::U32 master = 0;    // the index of the VRF, bridge or bond that the interface belongs to
   Qor::U32 vrfTable = 0;  // the table of the VRF, if the interface is a VRF
   // Whether the interface has addresses. An IPv6 address is mostly the link-local one, and shows
   // that IPv6 is enabled on the interface.
   bool hasIpv4 = false;
   bool hasIpv6 = false;

   friend bool operator==(Link const&, Link const&) = default;
};

}  // namespace Kernel
