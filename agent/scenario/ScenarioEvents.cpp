// Parses the events of a scenario. Each kind of event has a function.
#include <algorithm>

#include "agent/input/PrintableText.h"
#include "agent/input/RouteFields.h"
#include "agent/report/Views.h"
#include "agent/scenario/ScenarioFields.h"

namespace Agent::Scenario {

namespace {

Settings settingsFrom(json const& value) {
   Fields const fields(value, "scenario", {"title", "chip", "minPollingInterval", "callCost"});
   Settings settings;
   settings.title = fields.text("title");
   if (json const* chip = fields.find("chip")) {
      constexpr std::uint32_t most = 16'777'216;
      Fields const sizes(*chip, fields.at("chip"), {"groups", "routes", "boundaries", "latency"});
      if (sizes.find("groups")) settings.chip.groups = sizes.whole32("groups", 1, most);
      if (sizes.find("routes")) settings.chip.routes = sizes.whole32("routes", 1, most);
      if (sizes.find("boundaries")) {
         settings.chip.boundaries = sizes.whole32("boundaries", 1, most);
      }
      if (sizes.find("latency")) settings.chip.latency = sizes.number("latency", 0, 1000);
   }
   if (fields.find("minPollingInterval")) {
      settings.minPollingInterval = fields.number("minPollingInterval", 0, 255);
   }
   if (fields.find("callCost")) settings.callCost = fields.number("callCost", 0, 10);
   return settings;
}

void outputsOf(Route& route, json const& list, std::string const& keyPath) {
   for (std::size_t i = 0; i < listAt(list, keyPath).size(); ++i) {
      Lnet::IntfId const oif = intfAt(list[i], indexed(keyPath, i));
      bool const cpu = oif.name() == "cpu";
      auto const& known = route.oifs;
      if (cpu ? route.cpu : std::find(known.begin(), known.end(), oif) != known.end()) {
         refuse(indexed(keyPath, i), inQuotes(oif.name()) + " occurs twice");
      }
      if (cpu) {
         route.cpu = true;
      } else {
         route.oifs.push_back(oif);
      }
   }
}

Route routeFrom(json const& value) {
   Fields const fields(value, "route",
                       {"vrf", "src", "dst", "groups", "iif", "oifs", "ownOif", "backup",
                        "fastdrop", "noRpf", "bridge"});
   Route route;
   route.routes = runFields(fields);
   route.iif = portAt(fields.get("iif"), fields.at("iif"));
   outputsOf(route, fields.get("oifs"), fields.at("oifs"));
   if (fields.find("ownOif")) {
      route.ownOif = fields.text("ownOif");
      Lnet::IntfId longest;
      std::string const name = route.ownOif + std::to_string(route.routes.groups);
      if (auto bad = intfOf(name, longest); !bad.empty()) refuse(fields.at("ownOif"), bad);
   }
   if (fields.find("noRpf")) route.noRpf = fields.flag("noRpf");
   if (fields.find("bridge")) route.bridge = fields.flag("bridge");
   if (route.noRpf && route.bridge) refuse(fields.at("bridge"), "a noRpf route does not bridge");
   if (json const* list = fields.find("backup")) route.backup = portsAt(*list, fields.at("backup"));
   if (json const* list = fields.find("fastdrop")) {
      std::string const keyPath = fields.at("fastdrop");
      route.fastdrop = portsAt(*list, keyPath);
      auto const iif = std::find(route.fastdrop.begin(), route.fastdrop.end(), route.iif);
      if (iif != route.fastdrop.end()) {
         refuse(indexed(keyPath, static_cast<std::size_t>(iif - route.fastdrop.begin())),
                inQuotes(route.iif.name()) + " is the iif");
      }
   }
   return route;
}

Link linkFrom(json const& value) {
   using Interface::IntfOperStatus;
   Fields const fields(value, "link", {"intf", "state"});
   Link link;
   link.intf = portAt(fields.get("intf"), fields.at("intf"));
   link.state = fields.named("state", "link state",
                             namesOf(IntfOperStatus::up, IntfOperStatus::lowerLayerDown));
   return link;
}

Scenario::BfdSession bfdFrom(json const& value) {
   using ::Bfd::OperState;
   using ::Bfd::SessionType;
   Fields const fields(value, "bfd", {"vrf", "intf", "ip", "type", "state"});
   Lnet::IntfId const intf = portAt(fields.get("intf"), fields.at("intf"));
   std::string const text = fields.text("ip");
   auto const ip = Lnet::IpGenAddr::parse(text);
   if (!ip || ip->isMulticast() || ip->isUnspecified()) {
      refuse(fields.at("ip"), "bad address " + inQuotes(text));
   }
   auto type = SessionType::singleHop;
   if (fields.find("type")) {
      type = fields.named("type", "session type",
                          namesOf(SessionType::singleHop, ::Bfd::lastSessionType));
   }
   Names<std::optional<OperState>> names;
   for (auto const& [name, state] : namesOf(OperState::adminDown, OperState::up))
      names.emplace_back(name, state);
   names.emplace_back("removed", std::nullopt);
   Scenario::BfdSession bfd;
   bfd.state = fields.named("state", "session state", names);
   bfd.peer = ::Bfd::Peer(type, *ip, intf, vrfField(fields));
   return bfd;
}

Traffic trafficFrom(json const& value, double at) {
   Fields const fields(value, "traffic",
                       {"vrf", "src", "dst", "groups", "iif", "count", "every", "bytes"});
   Traffic traffic;
   traffic.routes = runFields(fields, true);
   traffic.iif = portAt(fields.get("iif"), fields.at("iif"));
   constexpr std::uint32_t most = maxPackets;
   if (fields.find("count")) traffic.count = fields.whole32("count", 1, most);
   if (traffic.count > 1 || fields.find("every")) {
      traffic.every = fields.number("every", 0, maxTime);
   }
   traffic.bytes = bytesField(fields);
   if (std::uint64_t{traffic.count} * traffic.routes.groups > most) {
      refuse(fields.keyPath(), "more than " + std::to_string(most) + " packets");
   }
   if (at + traffic.last() > maxTime) {
      refuse(fields.keyPath(), "the last packet is later than " + numberText(maxTime) + " s");
   }
   return traffic;
}

Config configFrom(json const& value) {
   using Routing::Multicast::Fib::CounterMode;
   Fields const fields(value, "config", {"activityPollingInterval", "counterMode", "allCounter"});
   if (value.empty()) refuse(fields.keyPath(), "no setting");
   Config config;
   if (fields.find("activityPollingInterval")) {
      config.activityPollingInterval = fields.whole32("activityPollingInterval", 1, 255);
   }
   if (fields.find("counterMode")) {
      config.counterMode = fields.named("counterMode", "counter mode",
                                        namesOf(CounterMode::disabled, CounterMode::bytes));
   }
   if (fields.find("allCounter")) config.allCounter = fields.flag("allCounter");
   return config;
}

Counter counterFrom(json const& value) {
   Fields const fields(value, "counter", {"vrf", "src", "dst", "groups", "counted"});
   Counter counter;
   counter.routes = runFields(fields);
   if (fields.find("counted")) counter.counted = fields.flag("counted");
   return counter;
}

Fault faultFrom(json const& value) {
   Fields const fields(value, "fault",
                       {"groupsExhausted", "routesExhausted", "boundariesExhausted", "hitBitsBusy",
                        "failNext", "slowNext", "rate", "seed", "failCall"});
   if (value.empty()) refuse(fields.keyPath(), "no fault");
   auto const writes =
         namesOf(VelMroute::WriteKind::groupCreate, VelMroute::WriteKind::boundaryDelete);
   constexpr std::uint32_t many = 1'000'000;
   Fault fault;
   if (fields.find("groupsExhausted")) fault.groupsExhausted = fields.flag("groupsExhausted");
   if (fields.find("routesExhausted")) fault.routesExhausted = fields.flag("routesExhausted");
   if (fields.find("boundariesExhausted")) {
      fault.boundariesExhausted = fields.flag("boundariesExhausted");
   }
   if (fields.find("hitBitsBusy")) fault.hitBitsBusy = fields.whole32("hitBitsBusy", 0, many);
   if (json const* next = fields.find("failNext")) {
      Fields const f(*next, fields.at("failNext"), {"write", "reason", "count"});
      FailNext& failNext = fault.failNext.emplace();
      failNext.write = f.named("write", "kind of write", writes);
      failNext.reason = f.text("reason");
      if (failNext.reason.empty()) refuse(f.at("reason"), "empty");
      if (f.find("count")) failNext.count = f.whole32("count", 1, many);
   }
   if (json const* next = fields.find("slowNext")) {
      Fields const f(*next, fields.at("slowNext"), {"nth", "extra"});
      SlowNext& slowNext = fault.slowNext.emplace();
      if (f.find("nth")) slowNext.nth = f.whole32("nth", 1, many);
      slowNext.extra = f.number("extra", 0, 1000);
   }
   if (json const* each = fields.find("rate")) {
      Fields const f(*each, fields.at("rate"), {"write", "probability"});
      FailRate& rate = fault.rate.emplace();
      rate.write = f.named("write", "kind of write", writes);
      rate.probability = f.number("probability", 0, 1);
   }
   if (json const* call = fields.find("failCall")) {
      Fields const f(*call, fields.at("failCall"),
                     {"nth", "refused", "writeFails", "again", "undoFails"});
      FailCall& failCall = fault.failCall.emplace();
      if (f.find("nth")) failCall.nth = f.whole32("nth", 1, many);
      if (f.find("refused")) failCall.refused = f.flag("refused");
      if (f.find("writeFails")) failCall.writeFails = f.flag("writeFails");
      if (f.find("again")) failCall.again = f.whole32("again", 1, many);
      if (f.find("undoFails")) failCall.undoFails = f.flag("undoFails");
      if (!failCall.refused && !failCall.writeFails) {
         refuse(f.keyPath(), "neither \"refused\" nor \"writeFails\"");
      }
   }
   if (fields.find("seed")) {
      fault.seed = fields.whole("seed", 0, std::numeric_limits<std::uint64_t>::max());
   }
   return fault;
}

Restart restartFrom(json const& value) {
   using Order = RestartOptions::Order;
   Fields const fields(value, "restart",
                       {"replay", "order", "seed", "begin", "over", "complete", "applied"});
   Restart restart;
   if (json const* replay = fields.find("replay"); replay && *replay != "all") {
      std::string const keyPath = fields.at("replay");
      auto& runs = restart.replay.emplace();
      for (std::size_t i = 0; i < listAt(*replay, keyPath).size(); ++i) {
         runs.push_back(runFields(
               Fields((*replay)[i], indexed(keyPath, i), {"vrf", "src", "dst", "groups"})));
      }
   }
   if (fields.find("order")) {
      restart.order = fields.named("order", "order",
                                   Names<Order>{{"sorted", Order::sorted},
                                                {"reversed", Order::reversed},
                                                {"shuffled", Order::shuffled}});
   }
   if (fields.find("seed")) {
      restart.seed = fields.whole("seed", 0, std::numeric_limits<std::uint64_t>::max());
   }
   if (fields.find("begin")) restart.begin = fields.number("begin", 0, maxTime);
   if (fields.find("over")) restart.over = fields.number("over", 0, maxTime);
   restart.complete = restart.begin + restart.over;
   if (fields.find("complete")) {
      restart.complete = fields.number("complete", restart.complete, maxTime);
   }
   if (fields.find("applied")) restart.applied = fields.whole32("applied", 0, 1'000'000);
   return restart;
}

Show showFrom(json const& value) {
   Show show;
   if (listAt(value, "show").empty()) refuse("show", "no table");
   for (std::size_t i = 0; i < value.size(); ++i) {
      std::string const name = textAt(value[i], indexed("show", i));
      try {
         viewRequest(name);
      } catch (std::invalid_argument const& error) {
         refuse(indexed("show", i), error.what());
      }
      show.views.push_back(name);
   }
   return show;
}

}  // namespace

Event eventFrom(std::string const& kind, json const& value, double at) {
   if (kind == "scenario") return settingsFrom(value);
   if (kind == "route") return routeFrom(value);
   if (kind == "withdraw") {
      return Withdraw{runFields(Fields(value, kind, {"vrf", "src", "dst", "groups"}))};
   }
   if (kind == "link") return linkFrom(value);
   if (kind == "bfd") return bfdFrom(value);
   if (kind == "traffic") return trafficFrom(value, at);
   if (kind == "config") return configFrom(value);
   if (kind == "counter") return counterFrom(value);
   if (kind == "fault") return faultFrom(value);
   if (kind == "restart") return restartFrom(value);
   if (kind == "mark") return Mark{textAt(value, kind)};
   if (kind == "show") return showFrom(value);
   return expectFrom(value);
}

}  // namespace Agent::Scenario
