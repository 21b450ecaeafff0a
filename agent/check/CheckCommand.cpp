#include "agent/check/CheckCommand.h"

#include <algorithm>
#include <iostream>

#include "agent/input/PrintableText.h"
#include "agent/input/Suggestion.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"
#include "kit/Kit.h"

namespace Agent {

int runCheck(CheckOptions const& options) {
   for (std::string const& id : options.only) {
      auto const checks = VelMroute::kitChecks();
      auto const is = [&](VelMroute::KitCheck const* check) { return id == check->id; };
      if (std::ranges::any_of(checks, is)) continue;
      printError(inQuotes(id) + " is not a check" +
                 knownNames(id, checks, &VelMroute::KitCheck::id));
      return exitUsage;
   }
   try {
      VelMroute::PlatformOptions small;
      small.add("groups=32,routes=64,boundaries=16");
      PlatformChoice const platform = options.platform.source(options.platform.path, small);
      VelMroute::KitOptions settings;
      settings.virtualTime = platform.virtualTime;
      settings.seed = options.seed;
      settings.lives = options.lives;
      settings.steps = options.steps;
      settings.room = options.room;
      settings.only = options.only;
      // The other VRF of a module's chip is not known.
      if (platform.virtualTime) settings.otherVrfId = Vel::VrfId(settings.vrfId.value() + 1);
      VelMroute::KitReport const report = VelMroute::Kit(platform.make, settings).run();
      if (options.tap) {
         printTap(std::cout, report);
      } else {
         print(std::cout, report);
      }
      return outputWritten() && report.passed() ? exitDone : exitFailed;
   } catch (std::exception const& error) {
      std::cerr << "the platform cannot be checked: " << error.what() << '\n';
      return exitFailed;
   }
}

}  // namespace Agent
