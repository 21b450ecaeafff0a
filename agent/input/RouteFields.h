// The fields that the text of a monitor and the JSON of a snapshot share, and their rules. Each
// operation stores its result and returns an empty text, or stores nothing and returns the reason,
// which quotes the field.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "L3/VrfName.h"
#include "Lnet/IntfId.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"

namespace Agent {

// What stands where an interface name is expected and there is none.
inline constexpr std::string_view unresolvedWord = "unresolved";

// Source and group: two addresses of one family, a multicast group, a source that is not
// multicast. The unspecified source makes the key of (*,G).
std::string routeKeyOf(std::string_view source, std::string_view group,
                       Routing::Multicast::Fib::IpGenRouteKey& key);

// An interface name as the kernel allows it, 1 to 15 bytes without blank, '/' and ':'; and
// restricted to printable ASCII, since it will be printed.
std::string intfOf(std::string_view name, Lnet::IntfId& intf);

// The VRF of a table, by name or number. The table in which a family's multicast routes are when
// nobody chose another is the VRF "default": the table named default (253) of IPv4, and main (254)
// of IPv6, which is not written in every form of output, so a missing table is "default", too.
// IPv6 routes in table default (253) are another table; their VRF is "253".
std::string vrfOf(bool v4, std::optional<std::string_view> table, L3::VrfName& vrf);

}  // namespace Agent
