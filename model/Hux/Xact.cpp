#include "Hux/Xact.h"

namespace Hux {

Xact::~Xact() = default;

}  // namespace Hux
