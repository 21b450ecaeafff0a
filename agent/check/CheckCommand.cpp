#include "agent/check/CheckCommand.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "agent/input/PrintableText.h"
#include "agent/input/Suggestion.h"
#include "agent/process/Signals.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"
#include "agent/report/Progress.h"
#include "kit/Kit.h"

namespace Agent {

namespace {

using nlohmann::ordered_json;
using VelMroute::KitResult;

std::string textOf(auto value) {
   std::ostringstream text;
   text << value;
   return std::move(text).str();
}

ordered_json findingJson(VelMroute::KitFinding const& finding, VelMroute::HookPath path) {
   ordered_json json = {
         {"number", finding.check->number},
         {"id", finding.check->id},
         {"result", finding.result == KitResult::leftOut ? "leftOut" : textOf(finding.result)}};
   if (!finding.reason.empty()) json["reason"] = finding.reason;
   if (finding.result == KitResult::failed) {
      json["atFault"] = textOf(finding.culprit);
      json["checked"] = finding.check->sentence(path);
   }
   if (!finding.text.empty()) json["text"] = finding.text;
   return json;
}

ordered_json reportJson(VelMroute::KitReport const& report, bool interrupted) {
   ordered_json checks = ordered_json::array();
   for (VelMroute::KitFinding const& finding : report.findings)
      checks.push_back(findingJson(finding, report.path));
   return {{"path", textOf(report.path)},
           {"seed", report.seed},
           {"interrupted", interrupted},
           {"passed", report.passed()},
           {"counts",
            {{"passed", report.count(KitResult::passed)},
             {"failed", report.count(KitResult::failed)},
             {"leftOut", report.count(KitResult::leftOut)}}},
           {"checks", std::move(checks)}};
}

}  // namespace

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
      if (options.format.json) {
         printJson(std::cout, reportJson(report, cut), options.format.style);
      } else if (options.tap) {
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
