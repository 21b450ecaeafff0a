#include "agent/live/AgentCommand.h"

#include <fmt/format.h>

#include <iostream>

#include "agent/live/LiveAgent.h"
#include "agent/live/LiveService.h"
#include "agent/live/LiveViews.h"
#include "agent/live/SignalSource.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"
#include "kernel/LinkControl.h"

namespace Agent {

namespace {

constexpr int receiveBuffer = 32 << 20;  // bytes; a burst of 100,000 notifications fits

std::optional<Configuration> load(std::string const& file) {
   auto loaded = Configuration::load(file);
   if (auto* const faults = std::get_if<std::vector<InputError>>(&loaded)) {
      ErrorLimit errors;
      for (InputError const& fault : *faults)
         errors.print(ErrorLimit::kindOf(fault.reason), fault.toString());
      return std::nullopt;
   }
   return std::get<Configuration>(std::move(loaded));
}

// Prints the notes on the interfaces, as the kernel has them now, and why routes stay with the CPU.
void printNotes(LiveAgent& agent, EventLoop& loop) {
   agent.onSynced([&] {
      for (std::string const& note : agent.interfaceNotes())
         std::cout << note << '\n';
      for (auto const& [key, known] : agent.routes().routes()) {
         if (known.decision.inHardware()) continue;
         std::cout << fmt::format("{} of table {} stays with the CPU: {}\n", routeName(key),
                                  key.table, known.decision.text);
      }
      loop.stop();
      return false;
   });
   loop.run();
}

// "interrupted by TERM; 40 routes in hardware, 2 routes with the CPU; ..."
std::string endText(LiveAgent const& agent) {
   std::size_t placed = 0;
   auto const& routes = agent.routes().routes();
   for (auto const& [key, known] : routes)
      placed += known.decision.inHardware();
   auto const& numbers = agent.numbers();
   return fmt::format(
         "interrupted by {}; {} routes for the hardware, {} for the CPU; {} reroutes, {} lost "
         "connections",
         interruptName(), placed, routes.size() - placed, numbers.reroutes, numbers.lost);
}

}  // namespace

int runAgent(AgentOptions const& options) {
   auto configuration = load(options.configFile);
   if (!configuration) return exitFailed;
   Qor::activityManagerIs(Qor::make<Qor::ActivityManager>(Qor::ActivityManager::TimeBase::real));
   EventLoop loop;
   LiveLog log;
   log.levelIs(*logLevelNamed(options.log.empty() ? configuration->log : options.log));
   int code = exitDone;
   bool ended = false;
   auto const stop = [&](int with) {
      code = with;
      ended = true;
      loop.stop();
   };
   auto const socket = Kernel::newSocket(receiveBuffer);
   LiveAgent agent(*configuration, loop, *socket, log);
   agent.onFailed([&] { stop(exitFailed); });
   if (options.checkConfig) {
      printNotes(agent, loop);
      return outputWritten() ? code : exitFailed;
   }
   if (!Kernel::mayAdministerNetwork()) {
      log.warning(
            "without CAP_NET_ADMIN the kernel limits the receive buffer, so that bursts of changes "
            "take longer, and CPU ports do not follow their front ports");
   }
   LiveService service(agent, loop, log);
   agent.onReady([&] { service.ready(); });
   auto const reload = [&] {
      service.reloading();
      if (auto changed = load(options.configFile)) {
         if (options.log.empty()) log.levelIs(*logLevelNamed(changed->log));
         for (std::string const& name : agent.configurationIs(*std::move(changed)))
            log.warning("the changed \"" + name + "\" holds for a new process alone");
         log.notice("the configuration was read again");
      } else {
         log.error("the configuration has faults, and is not changed");
      }
      service.ready();
   };
   SignalSource signals(
         [&] {
            log.notice(endText(agent));
            service.stopping();
            agent.end(options.flush, [&] { stop(exitInterrupted); });
         },
         reload);
   loop.add(signals);
   if (!ended) loop.run();
   return code;
}

}  // namespace Agent
