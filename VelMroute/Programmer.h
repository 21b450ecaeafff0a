// The programmer with the route tables of both paths, checked hooks, and the library below
// (VelMroute/Async.h and VelMroute/Sync.h).
#pragma once

#include "VelMroute/Async.h"
#include "VelMroute/Sync.h"
#include "VelMroute/Version.h"
#include "hooks/HookChecks.h"
#include "platform/Platform.h"
#include "programmer/AsyncRouteTable.h"
#include "programmer/Found.h"
#include "programmer/Programmer.h"
#include "programmer/SyncRouteTable.h"
