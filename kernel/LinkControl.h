// Enables and disables interfaces of the kernel.
#pragma once

#include <string>

#include "Qor/Types.h"

namespace Kernel {

// Sets the administrative state of the interface with this index, and waits for the kernel's answer,
// which follows at once. Returns an empty text, or the reason why the kernel refuses: "Operation not
// permitted" without CAP_NET_ADMIN.
std::string linkEnabledIs(Qor::U32 index, bool enabled);

// Whether the process has CAP_NET_ADMIN.
bool mayAdministerNetwork();

}  // namespace Kernel
