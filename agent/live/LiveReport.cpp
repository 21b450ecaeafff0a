#include "agent/live/LiveReport.h"

#include <fmt/format.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <utility>

#include "agent/live/LiveViews.h"
#include "agent/page/ReportDocument.h"

namespace Agent {

nlohmann::ordered_json liveReport(LiveAgent const& agent, Recorder const* recorder) {
   auto const sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
   ReportHead head{.kind = "live",
                   .title = "Live agent",
                   .inputs = {agent.configuration().switchSocket},
                   .result = "running",
                   .notes = agent.interfaceNotes(),
                   .summary = statusJson(agent),
                   .epoch = std::chrono::duration<double>(sinceEpoch).count() - Qor::now()};
   if (!agent.isConnected()) head.notes.insert(head.notes.begin(), agent.disconnected());
   Switch const* const theSwitch = agent.hasSwitch() ? &agent.theSwitch() : nullptr;
   ReportDocument document(std::move(head), theSwitch, recorder);
   document.addRoutes();
   for (auto const& [key, known] : agent.routes().routes()) {
      bool const trapped = !known.decision.inHardware();
      if (theSwitch && !trapped) continue;
      ReportDocument::OtherRoute route;
      route.vrf = fmt::format("table {}", key.table);
      route.key = RouteKey::fromAddresses(key.source, key.group);
      if (known.route.input) route.input = agent.interfaceName(known.route.input);
      for (Qor::U32 const output : known.route.outputs)
         route.outputs.push_back(agent.interfaceName(output));
      route.state = trapped ? ReportedState::trapped : ReportedState::waiting;
      if (!trapped) route.waitsFor = "switch";
      route.reason = trapped ? known.decision.text : agent.disconnected();
      document.add(route);
   }
   return document.json();
}

}  // namespace Agent
