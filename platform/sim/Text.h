// Texts put together from printable pieces.
#pragma once

#include <sstream>

#include "Qor/Types.h"

namespace Sim {

template <class... Pieces>
Qor::String text(Pieces const&... pieces) {
   std::ostringstream os;
   (os << ... << pieces);
   return os.str();
}

}  // namespace Sim
