// The scalar vocabulary of the framework.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

namespace Qor {

using String = std::string;
using String8 = std::string;  // a short text, as a failure reason
using Name = std::string;     // the name of an entity
using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

// Durations and points of time alike: seconds, on the time base of Qor::now().
using Seconds = double;

// The point of time that never comes: a clock set to it is disarmed.
inline constexpr Seconds never = std::numeric_limits<Seconds>::infinity();

// The largest point of time that still counts as "will come".
inline constexpr Seconds maxFinite = std::numeric_limits<Seconds>::max();

}  // namespace Qor
