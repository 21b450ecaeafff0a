#include "agent/switch/PlatformChoice.h"

#include <utility>

#include "platform/sim/SimPlatform.h"

namespace Agent {

PlatformChoice simulatedPlatform(PathKind path, VelMroute::PlatformOptions options) {
   return {path, true, [path, options = std::move(options)] {
              return path == PathKind::async ? VelMroute::newSimulatedAsyncPlatform(options)
                                             : VelMroute::newSimulatedSyncPlatform(options);
           }};
}

std::string chipOptionFault(std::string const& text) {
   VelMroute::PlatformOptions options;
   options.add(text);
   try {
      simulatedPlatform(PathKind::async, options).make();
   } catch (VelMroute::PlatformOptionError const& error) {
      return error.what();
   }
   return {};
}

}  // namespace Agent
