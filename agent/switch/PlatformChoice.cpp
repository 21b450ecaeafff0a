#include "agent/switch/PlatformChoice.h"

#include <algorithm>
#include <utility>

#include "agent/input/Suggestion.h"
#include "platform/sim/SimPlatform.h"

namespace Agent {

namespace {

using VelMroute::PlatformOptions;

using Make = std::function<Qor::Ptr<VelMroute::Platform>()>;

// The text of the error, with a suggestion for an unknown option.
std::string optionFault(VelMroute::PlatformOptionError const& error) {
   std::string text = error.what();
   if (auto const* const unknown = dynamic_cast<VelMroute::UnknownPlatformOption const*>(&error)) {
      Suggestion suggestion(unknown->word());
      std::ranges::for_each(unknown->known(), [&](auto& name) { suggestion.offer(name); });
      text += suggestion.text();
   }
   return text;
}

// The hooks of a platform must be those of the path that it was announced for.
Qor::Ptr<VelMroute::Platform> checked(std::string const& name, PathKind path, Make const& make) {
   auto const fail = [&](std::string const& text) { throw PlatformError(name + ": " + text); };
   Qor::Ptr<VelMroute::Platform> platform;
   try {
      platform = make();
   } catch (Qor::Exception const& error) {
      fail(error.message());
   } catch (VelMroute::PlatformOptionError const& error) {
      fail(optionFault(error));
   } catch (std::exception const& error) {
      fail(error.what());
   } catch (...) {
      fail("an unknown error");
   }
   if (!platform) fail("it made no platform");
   bool const async = platform->asyncHooks() != nullptr, sync = platform->syncHooks() != nullptr;
   if (async == sync) fail(async ? "it has hooks of both paths" : "it has no hooks");
   if (async != (path == PathKind::async))
      fail("it has no hooks of the path " + std::string(nameOf(path)));
   return platform;
}

}  // namespace

PlatformChoice simulatedPlatform(PathKind path, PlatformOptions options) {
   auto const make = [path, options] {
      return checked("sim", path, [&] {
         return path == PathKind::async ? VelMroute::newSimulatedAsyncPlatform(options)
                                        : VelMroute::newSimulatedSyncPlatform(options);
      });
   };
   return {path, true, make, false, false, std::move(options)};
}

NamedPlatform namedPlatform(std::string const& text) {
   std::size_t const colon = text.find(':');
   std::string const name = text.substr(0, colon);
   PlatformOptions given;
   if (colon != std::string::npos) given.add(text.substr(colon + 1));
   if (name == "sim" || name == "sim-sync") {
      PathKind const path = name == "sim" ? PathKind::async : PathKind::sync;
      return {path, [given](PathKind onPath, PlatformOptions options) {
                 options.words.insert(options.words.end(), given.words.begin(), given.words.end());
                 return simulatedPlatform(onPath, std::move(options));
              }};
   }
   if (name.find('/') == std::string::npos && !name.ends_with(".so")) {
      Suggestion suggestion(name);
      suggestion.offer("sim");
      suggestion.offer("sim-sync");
      throw PlatformError('"' + name +
                          "\" is not a platform (known: sim, sim-sync, or the file of a module, as "
                          "./libmychip.so)" +
                          suggestion.text());
   }
   VelMrouteModule const& module = openModule(name);
   return {module.path, [name, given, &module](PathKind, PlatformOptions const&) {
              return PlatformChoice{module.path, module.virtualTime, [name, given, &module] {
                                       return checked(name, module.path,
                                                      [&] { return module.make(given); });
                                    }};
           }};
}

std::string chipOptionFault(std::string const& text) {
   VelMroute::PlatformOptions options;
   options.add(text);
   try {
      VelMroute::newSimulatedAsyncPlatform(options);
   } catch (VelMroute::PlatformOptionError const& error) {
      return optionFault(error);
   }
   return {};
}

}  // namespace Agent
