#include "agent/explain/TraceWords.h"

#include <fmt/format.h>

#include "agent/report/ReportedState.h"
#include "platform/Format.h"

namespace Agent {

std::string namesOf(std::vector<Lnet::IntfId> const& intfs) {
   std::string names;
   for (Lnet::IntfId const intf : intfs)
      names += (names.empty() ? "" : ", ") + intf.name();
   return names;
}

std::string fateOf(PacketTrace const& packet) {
   using VelMroute::Forwarding;
   if (!packet.basis) return "have an unknown fate: the tables are neither read nor recorded";
   if (packet.verdict == Forwarding::bridged) return "stay in their vlan";
   std::vector<Lnet::IntfId> ports;
   for (auto const& copy : packet.copies())
      ports.push_back(copy.intfId());
   std::string const cpu = packet.toCpu ? "go to the CPU" : "";
   if (ports.empty()) return packet.toCpu ? cpu : "are dropped";
   return "leave by " + namesOf(ports) + (packet.toCpu ? " and " + cpu : "");
}

std::string RouteTrace::headline() const {
   if (!causes.empty()) return causes.front().text;
   std::string const from = wanted.noRpf ? std::string("every input") : packet.packet.in.name();
   bool const nowhere = expected && expected->empty() && !expectedCpu && !wanted.bridge;
   return fmt::format("{}; packets from {} {}{}", nameOf(reportedState(state)), from,
                      fateOf(packet), nowhere ? ", as wanted" : "");
}

std::string wordsOf(HistoryEvent const& event, PathKind path) {
   using Kind = HistoryEvent::Kind;
   using Action = VelMroute::HookWrite::Action;
   char const* const group = path == PathKind::async ? "group" : "oif set index";
   auto const pointed = [&] {
      return event.hasSet ? fmt::format(", pointed at {} {}", group, event.set) : "";
   };
   switch (event.kind) {
      case Kind::wanted:
         return "wanted";
      case Kind::changed:
         return "wanted with other properties";
      case Kind::withdrawn:
         return "withdrawn";
      case Kind::resurrected:
         return "its group came back from the zombies";
      case Kind::link:
         return fmt::format("link {} {}", event.intf.name(), event.up ? "up" : "down");
      case Kind::restart:
         return "the agent restarted";
      case Kind::state: {
         auto const waits = waitsFor(event.state);
         return fmt::format("{}{}{}", nameOf(reportedState(event.state)),
                            waits.empty() ? "" : " for ", waits);
      }
      case Kind::write:
         break;
   }
   auto const text = [&]() -> std::string {
      switch (event.action) {
         case Action::makeSet:
            return fmt::format("{} {} made", group, event.number);
         case Action::writeSet:
            return fmt::format("{} {} written again", group, event.number);
         case Action::shareSet:
            return fmt::format("{} {} shared", group, event.number);
         case Action::deleteSet:
            return fmt::format("{} {} deleted", group, event.number);
         case Action::makeEntry:
            return fmt::format("entry {} made{}", event.number, pointed());
         case Action::pointEntry:
            return fmt::format("entry {}{}", event.number, pointed().substr(1));
         default:
            return fmt::format("entry {} deleted", event.number);
      }
   };
   return fmt::format("{} ({})", text(), event.hook);
}

}  // namespace Agent
