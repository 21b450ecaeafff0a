// The scalar types of the framework.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "Qor/Standard.h"

namespace Qor {

using String = std::string;
using String8 = std::string;  // a short text, such as the reason of a failure
using Name = std::string;     // the name of an entity
using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

// A duration in seconds, or a point in time in seconds on the time base of Qor::now().
using Seconds = double;

// The point in time that never comes. A clock set to it is disarmed.
inline constexpr Seconds never = std::numeric_limits<Seconds>::infinity();

// The latest point in time that does come.
inline constexpr Seconds maxFinite = std::numeric_limits<Seconds>::max();

}  // namespace Qor
