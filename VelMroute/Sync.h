// The library for users of the synchronous path: the hooks of a platform, the table programmer, its
// reactor, the reactor of the agent, the inputs of all of them, and the framework below. A user of the
// programmer includes "VelMroute/Programmer.h" instead.
#pragma once

#include "Qor/Blip.h"
#include "Qor/Clock.h"
#include "Qor/Inbox.h"
#include "Qor/Log.h"
#include "Qor/Trace.h"
#include "Vel/VelLogMessages.h"
#include "Vel/VelMrouteRecoverySm.h"
#include "Vel/VelMrouteSm.h"
#include "Vel/VelSyncMrouteHelper.h"
#include "Vel/VelSyncMrouteSm.h"
#include "Vel/VelSyncMrouteSwitch.h"
#include "VelMroute/Version.h"
