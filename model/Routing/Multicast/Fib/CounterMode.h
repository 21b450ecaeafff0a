// The unit of the route counters in the forwarding configuration. The library passes the mode to
// the platform and does not interpret it.
#pragma once

#include <cstdint>

#include "Qor/EnumText.h"

namespace Routing::Multicast::Fib {

enum class CounterMode : std::uint8_t { disabled = 0, packets = 1, bytes = 2 };

inline std::ostream& operator<<(std::ostream& out, CounterMode mode) {
   static constexpr char const* names[] = {"disabled", "packets", "bytes"};
   return Qor::printEnum(out, mode, names);
}

}  // namespace Routing::Multicast::Fib
