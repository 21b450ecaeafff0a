// Stream output of enumerations whose values are small numbers.
#pragma once

#include <cstddef>
#include <ostream>

#include "Qor/Types.h"

namespace Qor {

// Prints names[value]; prints the number if `names` has no text there, so that a trace shows a
// value from a newer peer or a corrupted input too.
template <class E, std::size_t N>
std::ostream& printEnum(std::ostream& out, E value, char const* const (&names)[N]) {
   auto const number = static_cast<std::size_t>(value);
   if (number < N && names[number]) return out << names[number];
   return out << number;
}

}  // namespace Qor
