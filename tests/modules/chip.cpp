// A module with the simulated chip on the synchronous path. A module that does not fit the program is
// made of the same source: the build gives its description other values, or a copy of the library.
#include <stdexcept>

#include "platform/Module.h"
#include "platform/sim/SimPlatform.h"

#ifndef MODULE_ABI
#define MODULE_ABI VelMroute::moduleAbi
#endif
#ifndef MODULE_SIZE
#define MODULE_SIZE sizeof(VelMrouteModule)
#endif
#ifndef MODULE_LIBRARY
#define MODULE_LIBRARY VELMROUTE_VERSION_STRING
#endif
#ifndef MODULE_TOOLCHAIN
#define MODULE_TOOLCHAIN VELMROUTE_TOOLCHAIN
#endif
#ifndef MODULE_SYMBOL
#define MODULE_SYMBOL velMrouteModule
#endif

namespace {

Qor::Ptr<VelMroute::Platform> make(VelMroute::PlatformOptions const& options) {
   std::string const first = options.words.empty() ? "" : options.words.front().first;
   if (first == "absent") throw std::runtime_error("no device at slot 3");
   if (first == "number") throw 3;
   if (first == "nothing") return nullptr;
   if (first == "async") return VelMroute::newSimulatedAsyncPlatform();
   return VelMroute::newSimulatedSyncPlatform(options);
}

}  // namespace

#ifdef MODULE_AS_DOCUMENTED
VELMROUTE_MODULE("simulated", VelMroute::HookPath::sync, true, make)
#else
extern "C" {
extern QOR_PUBLIC VelMrouteModule const MODULE_SYMBOL;
VelMrouteModule const MODULE_SYMBOL = {MODULE_ABI,
                                       MODULE_SIZE,
                                       MODULE_LIBRARY,
                                       MODULE_TOOLCHAIN,
                                       VELMROUTE_SANITIZER,
                                       "simulated",
                                       VelMroute::HookPath::sync,
                                       true,
                                       &Qor::activityManager,
                                       make};
}
#endif
