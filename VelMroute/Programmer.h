// The programmer with the route tables of both paths, and the library below (VelMroute/Async.h and
// VelMroute/Sync.h).
#pragma once

#include "VelMroute/Async.h"
#include "VelMroute/Sync.h"
#include "VelMroute/Version.h"
#include "platform/Platform.h"
#include "programmer/AsyncRouteTable.h"
#include "programmer/Found.h"
#include "programmer/Programmer.h"
#include "programmer/SyncRouteTable.h"
