#include "agent/page/Outages.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace Agent {

using nlohmann::ordered_json;
using VelMroute::OutputsPtr;
using VelMroute::RouteId;

namespace {

// Whether a copy leaves at each backup interface.
bool sendsByBackup(VelMroute::Outputs const& outputs,
                   std::map<std::string, unsigned> const& copies) {
   auto const& backup = outputs.backup();
   return !backup.empty() && std::all_of(backup.begin(), backup.end(), [&](Lnet::IntfId intf) {
      return copies.contains(intf.name());
   });
}

bool sendsTo(VelMroute::Outputs const& outputs, std::string_view receiver) {
   auto const& ports = outputs.ports();
   return (outputs.cpu() && receiver == "cpu") ||
          std::any_of(ports.begin(), ports.end(),
                      [&](Lnet::IntfId intf) { return intf.name() == receiver; });
}

}  // namespace

void Outages::packet(RouteId const& stream, OutputsPtr const& outputs,
                     std::map<std::string, unsigned> const& copies, double time) {
   ++packets_;
   auto found = streams_.find(stream);
   if (found == streams_.end()) {
      if (!outputs) {
         ++unwanted_;
         return;
      }
      if (streams_.size() == maxStreams) {
         ++untracked_;
         return;
      }
      found = streams_.emplace(stream, Stream{}).first;
   }
   Stream& its = found->second;
   if (its.outputs != outputs) {
      // A receiver that is not wanted any more has no outage from the change on.
      for (auto it = its.outages.begin(); it != its.outages.end();) {
         auto& [name, outage] = *it;
         if (outputs && sendsTo(*outputs, name)) {
            ++it;
            continue;
         }
         outage.seconds = time - outage.since;
         totals_.end(stream, name, outage);
         it = its.outages.erase(it);
      }
      its.outputs = outputs;
   }
   its.latest = time;
   if (!its.outputs) {
      ++unwanted_;
      return;
   }
   bool const byBackup = sendsByBackup(*its.outputs, copies);
   auto const receive = [&](std::string const& name) {
      Receiver& receiver = totals_.receivers[name];
      ++receiver.packets;
      auto const outage = its.outages.find(name);
      if (!byBackup && !copies.contains(name)) {
         ++receiver.lost;
         Outage& present =
               outage == its.outages.end() ? its.outages[name] = {time} : outage->second;
         ++present.packets;
      } else if (outage != its.outages.end()) {
         outage->second.seconds = time - outage->second.since;
         totals_.end(stream, name, outage->second);
         its.outages.erase(outage);
      }
   };
   for (Lnet::IntfId const intf : its.outputs->ports())
      receive(intf.name());
   if (its.outputs->cpu()) receive("cpu");
}

void Outages::Totals::end(RouteId const& stream, std::string const& name, Outage const& outage) {
   Receiver& receiver = receivers[name];
   ++receiver.outages;
   receiver.total += outage.seconds;
   receiver.open = receiver.open || outage.open;
   if (outage.seconds > receiver.longest || receiver.outages == 1) {
      receiver.longest = outage.seconds;
      receiver.longestAt = outage.since;
   }
   auto const longer = [](Listed const& a, Listed const& b) {
      return a.outage.seconds > b.outage.seconds;
   };
   Listed listed{stream, name, outage};
   longest.insert(std::upper_bound(longest.begin(), longest.end(), listed, longer), listed);
   if (longest.size() > maxListed) longest.pop_back();
}

ordered_json Outages::json() const {
   Totals all = totals_;
   for (auto const& [id, stream] : streams_) {
      for (auto const& [name, outage] : stream.outages) {
         all.end(id, name, {outage.since, stream.latest - outage.since, outage.packets, true});
      }
   }
   ordered_json receivers = ordered_json::array(), longest = ordered_json::array();
   for (auto const& [name, receiver] : all.receivers) {
      receivers.push_back({{"oif", name},
                           {"packets", receiver.packets},
                           {"lost", receiver.lost},
                           {"outages", receiver.outages},
                           {"longestSeconds", receiver.longest},
                           {"longestAt", receiver.longestAt},
                           {"totalSeconds", receiver.total},
                           {"open", receiver.open}});
   }
   for (Listed const& one : all.longest) {
      longest.push_back({{"vrf", one.stream.vrf.name()},
                         {"route", one.stream.key.pretty()},
                         {"oif", one.receiver},
                         {"at", one.outage.since},
                         {"seconds", one.outage.seconds},
                         {"lost", one.outage.packets},
                         {"open", one.outage.open}});
   }
   return {{"packets", packets_},
           {"unwanted", unwanted_},
           {"untracked", untracked_},
           {"receivers", std::move(receivers)},
           {"longest", std::move(longest)}};
}

}  // namespace Agent
