// The log messages that the library raises for operators.
#pragma once

#include "Qor/Log.h"

namespace Vel {

// MROUTE_ACTIVITY_POLLING_INTERVAL_NOT_SUPPORTED. Arguments: the interval in effect, then the
// configured interval, both in seconds.
QOR_PUBLIC extern Qor::LogMessage const mrouteActivityPollingIntervalNotSupported;

}  // namespace Vel
