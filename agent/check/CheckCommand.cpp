#include "agent/check/CheckCommand.h"

#include <algorithm>
#include <iostream>

#include "agent/input/PrintableText.h"
#include "agent/input/Suggestion.h"
#include "agent/process/Signals.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"
#include "agent/report/Progress.h"
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
      Signals const signals;
      Progress progress;
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
      settings.onCheck = [&](std::size_t done, std::size_t all) {
         progress.show(done, all, "checks");
      };
      settings.interrupted = [] { return interrupted(); };
      // The other VRF of a module's chip is not known.
      if (platform.virtualTime) settings.otherVrfId = Vel::VrfId(settings.vrfId.value() + 1);
      VelMroute::KitReport const report = VelMroute::Kit(platform.make, settings).run();
      bool const cut = std::ranges::any_of(report.findings, [](auto const& finding) {
         return finding.reason == VelMroute::kitInterrupted;
      });
      if (options.tap) {
         printTap(std::cout, report);
         if (cut) std::cout << "Bail out! interrupted by " << interruptName() << '\n';
      } else {
         print(std::cout, report);
         if (cut) std::cout << "interrupted by " << interruptName() << '\n';
      }
      return exitCode(outputWritten() && report.passed(), cut);
   } catch (std::exception const& error) {
      printError(std::string("the platform cannot be checked: ") + error.what());
      return exitFailed;
   }
}

}  // namespace Agent
