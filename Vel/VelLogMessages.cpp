#include "Vel/VelLogMessages.h"

namespace Vel {

constinit Qor::LogMessage const mrouteActivityPollingIntervalNotSupported = {
      "MROUTE_ACTIVITY_POLLING_INTERVAL_NOT_SUPPORTED",
      4,
      "The configured value is less than minimum supported activity polling interval, activity "
      "polling interval is set to the minimum supported value.",
      "The value is set to the minimum supported value of %ds instead of the configured %ds",
      Qor::noActionRequired,
      0.0,
      1.0,
};

}  // namespace Vel
