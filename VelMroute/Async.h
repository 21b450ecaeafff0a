// The library for users of the asynchronous path: the hooks of a platform, the table programmer, its
// reactor, the inputs of all of them, and the framework below. A user of the programmer includes
// "VelMroute/Programmer.h" instead.
#pragma once

#include "Qor/Blip.h"
#include "Qor/Clock.h"
#include "Qor/Inbox.h"
#include "Qor/Log.h"
#include "Qor/Trace.h"
#include "Vel/VelAsyncMrouteHelper.h"
#include "Vel/VelAsyncMrouteSm.h"
#include "Vel/VelAsyncMrouteSwitch.h"
#include "Vel/VelLogMessages.h"
#include "Vel/VelMrouteRecoverySm.h"
#include "VelMroute/Version.h"
