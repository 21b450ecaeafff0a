// The platform of a command, before it is made: the simulated chip on either path, or a module.
#pragma once

#include <functional>
#include <string>

#include "agent/switch/PathKind.h"
#include "agent/switch/PlatformModule.h"
#include "hooks/HookChecks.h"
#include "platform/Platform.h"
#include "platform/PlatformOptions.h"

namespace Agent {

struct PlatformChoice {
   PathKind path = PathKind::async;
   // As Abilities::virtualTime of the platform. The time base of the activity loop precedes the
   // platform, which may have clocks.
   bool virtualTime = true;
   // Makes the platform. Throws PlatformError if the platform cannot be made.
   std::function<Qor::Ptr<VelMroute::Platform>()> make;
   // The gates in front of the hooks compare each call with the contract (hooks/HookChecks.h).
   bool checksHooks = false;
   // The switch can explain its routes: it keeps the shadow of the tables and the history. The gates
   // then check the hooks, too, but a fault stops no allocation and fails no run.
   bool explains = false;
   // The options with which `make` makes the simulated chip; empty for a module.
   VelMroute::PlatformOptions options = {};
   // The platform exists already, on the present activity manager, which the switch keeps. The groups
   // and entries of an earlier process are taken over: the owner of the switch announces its routes,
   // and then calls Programmer::resyncEnd().
   bool live = false;
   // As HookChecks::Options::refusals.
   Qor::U32 refusals = VelMroute::HookChecks::Options{}.refusals;
};

// Chooses a platform for a path. The options are the sizes and times that a scenario asks for; a
// platform with tables of its own ignores them.
using PlatformSource =
      std::function<PlatformChoice(PathKind path, VelMroute::PlatformOptions options)>;

// A platform that the user named.
struct NamedPlatform {
   PathKind path = PathKind::async;
   PlatformSource source;
};

// The platform of a text NAME or NAME:OPTIONS, as "sim-sync:groups=40" or "./libmychip.so:device=0".
// The names are sim and sim-sync, for the simulated chip on the asynchronous and the synchronous
// path, and files of modules, which have a '/' in their name or end with ".so". The options follow
// those of a scenario. Throws PlatformError.
NamedPlatform namedPlatform(std::string const& text);

// A new simulated chip, with these options.
PlatformChoice simulatedPlatform(PathKind path, VelMroute::PlatformOptions options = {});

// The fault of the text of the option --chip, such as "groups=512,latency=0.01", or an empty text.
std::string chipOptionFault(std::string const& text);

}  // namespace Agent
