// The fields that monitor lines, snapshots and scenarios share, and their rules. Each operation
// stores its result and returns an empty text, or stores nothing and returns the reason, which
// quotes the field.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "L3/VrfName.h"
#include "Lnet/IntfId.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"

namespace Agent {

// Stands in place of an interface name if there is none.
inline constexpr std::string_view unresolvedWord = "unresolved";

// The route key of a source and a group. Both have one address family, the group is multicast, and
// the source is not. The unspecified source makes the key of (*,G).
std::string routeKeyOf(std::string_view source, std::string_view group,
                       Routing::Multicast::Fib::IpGenRouteKey& key);

// An interface name as the kernel allows it: 1 to 15 bytes without blank, '/' and ':'. The bytes
// are printable ASCII, because tables print the name.
std::string intfOf(std::string_view name, Lnet::IntfId& intf);

// The VRF of a table, given by name or number. The kernel's table for multicast routes is the VRF
// "default": the table default (253) for IPv4, and the table main (254) for IPv6. A missing table
// is the VRF "default", too, because some forms of output omit main. The table default (253) of
// IPv6 is another table, and its VRF is "253".
std::string vrfOf(bool v4, std::optional<std::string_view> table, L3::VrfName& vrf);

}  // namespace Agent
