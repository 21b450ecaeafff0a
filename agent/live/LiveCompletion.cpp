#include "agent/live/LiveCompletion.h"

#include <limits>
#include <sstream>

#include "agent/inspect/Inspector.h"

namespace Agent {

namespace {

constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

RouteNames routeNames(LiveAgent const& agent) {
   return {[&agent](RouteNames::Route const& offer) {
              for (auto const& [key, known] : agent.routes().routes()) {
                 offer(known.id.vrf.name(),
                       key.source.isUnspecified() ? "*" : key.source.toString(),
                       key.group.toString());
              }
           },
           [&agent](auto const& offer) {
              for (LiveInterface const& interface : agent.configuration().interfaces)
                 offer(interface.intf.name());
           }};
}

// The completions of a command of the inspector.
Completion inspected(LiveAgent& agent, std::string_view command) {
   std::ostringstream none;
   return Inspector(agent, none, false, Inspector::Rights::reading).complete(command, unlimited);
}

Completion completion(LiveAgent& agent, std::string_view line) {
   constexpr std::string_view inspect = "inspect ";
   bool const ofInspector = line.starts_with(inspect);
   CompletionList list(ofInspector ? line.substr(inspect.size()) : line, unlimited);
   if (list.before().empty()) {
      if (!ofInspector) list.offerAll(liveCommands);
      return ofInspector ? inspected(agent, line.substr(inspect.size())) : std::move(list).take();
   }
   std::string const& command = list.before()[0].text;
   if (command == "explain") {
      completeQuestion(list, 1, routeNames(agent));
   } else if (command == "show") {
      completeView(list, 1, liveViews, routeNames(agent));
   } else if (agent.hasSwitch()) {
      return inspected(agent, ofInspector ? line.substr(inspect.size()) : line);
   }
   return std::move(list).take();
}

}  // namespace

std::string completionsOf(LiveAgent& agent, std::string_view line) {
   std::string text;
   for (std::string const& word : completion(agent, line).words)
      text += word + '\n';
   return text;
}

}  // namespace Agent
