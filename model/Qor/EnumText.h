// Printing of enumerations whose values are small numbers.
#pragma once

#include <cstddef>
#include <ostream>

#include "Qor/Types.h"

namespace Qor {

// Writes the name at the value's place in `names`, or the number where there is none, so that a
// value from a newer peer or from a corrupted input can still be told in a trace.
template <class E, std::size_t N>
std::ostream& printEnum(std::ostream& out, E value, char const* const (&names)[N]) {
   auto const number = static_cast<std::size_t>(value);
   if (number < N && names[number]) return out << names[number];
   return out << number;
}

}  // namespace Qor
