// The state of a BFD session, with the numbers that RFC 5880 uses on the wire.
#pragma once

#include <cstdint>

#include "Qor/EnumText.h"

namespace Bfd {

enum class OperState : std::uint8_t { adminDown = 0, down = 1, init = 2, up = 3 };

inline std::ostream& operator<<(std::ostream& out, OperState state) {
   static constexpr char const* names[] = {"adminDown", "down", "init", "up"};
   return Qor::printEnum(out, state, names);
}

}  // namespace Bfd
