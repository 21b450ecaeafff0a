// The operational status of an interface, with the numbers of RFC 2863.
#pragma once

#include <cstdint>

#include "Qor/EnumText.h"

namespace Interface {

enum class IntfOperStatus : std::uint8_t {
   up = 1,
   down = 2,
   testing = 3,
   unknown = 4,
   dormant = 5,
   notPresent = 6,
   lowerLayerDown = 7,
};

inline std::ostream& operator<<(std::ostream& out, IntfOperStatus status) {
   static constexpr char const* names[] = {nullptr,   "up",      "down",       "testing",
                                           "unknown", "dormant", "notPresent", "lowerLayerDown"};
   return Qor::printEnum(out, status, names);
}

}  // namespace Interface
