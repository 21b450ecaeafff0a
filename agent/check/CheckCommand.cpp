#include "agent/check/CheckCommand.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "agent/input/PrintableText.h"
#include "agent/input/Suggestion.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"
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

ordered_json reportJson(VelMroute::KitReport const& report) {
   ordered_json checks = ordered_json::array();
   for (VelMroute::KitFinding const& finding : report.findings)
      checks.push_back(findingJson(finding, report.path));
   return {{"path", textOf(report.path)},
           {"seed", report.seed},
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
      if (options.format.json) {
         printJson(std::cout, reportJson(report), options.format.style);
      } else if (options.tap) {
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
