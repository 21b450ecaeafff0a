// A text made of values as their operator<< prints them.
#pragma once

#include <sstream>

#include "Qor/Types.h"

namespace VelMroute {

template <class... Parts>
Qor::String text(Parts const&... parts) {
   std::ostringstream os;
   (os << ... << parts);
   return os.str();
}

}  // namespace VelMroute
