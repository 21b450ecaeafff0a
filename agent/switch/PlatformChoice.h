// The platform of a command, before it is made.
#pragma once

#include <functional>
#include <string>

#include "agent/switch/PathKind.h"
#include "platform/Platform.h"
#include "platform/PlatformOptions.h"

namespace Agent {

struct PlatformChoice {
   PathKind path = PathKind::async;
   // As Abilities::virtualTime of the platform. The time base of the activity loop precedes the
   // platform, which may have clocks.
   bool virtualTime = true;
   // Makes the platform. Throws VelMroute::PlatformOptionError for an option that the platform does
   // not know, and for a bad value.
   std::function<Qor::Ptr<VelMroute::Platform>()> make;
};

// Chooses a platform for a path, with options.
using PlatformSource =
      std::function<PlatformChoice(PathKind path, VelMroute::PlatformOptions options)>;

// A new simulated chip, with these options.
PlatformChoice simulatedPlatform(PathKind path, VelMroute::PlatformOptions options = {});

// The fault of the text of the option --chip, such as "groups=512,latency=0.01", or an empty text.
std::string chipOptionFault(std::string const& text);

}  // namespace Agent
