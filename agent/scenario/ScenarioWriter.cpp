#include "agent/scenario/ScenarioWriter.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "platform/Format.h"

namespace Agent {

namespace {

using nlohmann::ordered_json;
using namespace Scenario;

template <class Value>
std::string text(Value const& value) {
   return fmt::format("{}", value);
}

ordered_json runJson(RouteRun const& run) {
   ordered_json j;
   if (run.vrf.name() != "default") j["vrf"] = run.vrf.name();
   auto const& source = run.first.source();
   auto const& group = run.first.group();
   j["src"] = source.isAny() ? "*" : text(source.address());
   j["dst"] = group.isHost() ? text(group.address()) : text(group);
   if (run.groups > 1) j["groups"] = run.groups;
   return j;
}

ordered_json names(std::vector<Lnet::IntfId> const& intfs) {
   ordered_json list = ordered_json::array();
   for (Lnet::IntfId const intf : intfs)
      list.push_back(intf.name());
   return list;
}

ordered_json number(Range const& range) {
   if (range.min == range.max) return range.min;
   ordered_json j;
   if (range.min > -std::numeric_limits<double>::infinity()) j["min"] = range.min;
   if (range.max < std::numeric_limits<double>::infinity()) j["max"] = range.max;
   return j;
}

std::pair<char const*, ordered_json> json(Settings const& s) {
   ordered_json j = {{"title", s.title},
                     {"chip",
                      {{"groups", s.chip.groups},
                       {"routes", s.chip.routes},
                       {"boundaries", s.chip.boundaries},
                       {"latency", s.chip.latency}}}};
   if (s.minPollingInterval > 0) j["minPollingInterval"] = s.minPollingInterval;
   if (s.callCost > 0) j["callCost"] = s.callCost;
   return {"scenario", j};
}

std::pair<char const*, ordered_json> json(Scenario::Route const& r) {
   ordered_json j = runJson(r.routes);
   j["iif"] = r.iif.name();
   j["oifs"] = names(r.oifs);
   if (r.cpu) j["oifs"].push_back("cpu");
   if (!r.ownOif.empty()) j["ownOif"] = r.ownOif;
   if (!r.backup.empty()) j["backup"] = names(r.backup);
   if (!r.fastdrop.empty()) j["fastdrop"] = names(r.fastdrop);
   if (r.noRpf) j["noRpf"] = true;
   if (r.bridge) j["bridge"] = true;
   return {"route", j};
}

std::pair<char const*, ordered_json> json(Withdraw const& w) {
   return {"withdraw", runJson(w.routes)};
}

std::pair<char const*, ordered_json> json(Link const& l) {
   return {"link", {{"intf", l.intf.name()}, {"state", text(l.state)}}};
}

std::pair<char const*, ordered_json> json(Scenario::BfdSession const& b) {
   ordered_json j;
   if (b.peer.vrfName().name() != "default") j["vrf"] = b.peer.vrfName().name();
   j["intf"] = b.peer.intfId().name();
   j["ip"] = text(b.peer.ip());
   if (b.peer.type() != ::Bfd::SessionType::singleHop) j["type"] = text(b.peer.type());
   j["state"] = b.state ? text(*b.state) : "removed";
   return {"bfd", j};
}

std::pair<char const*, ordered_json> json(Traffic const& t) {
   ordered_json j = runJson(t.routes);
   j["iif"] = t.iif.name();
   if (t.count > 1) {
      j["count"] = t.count;
      j["every"] = t.every;
   }
   if (t.bytes != 64) j["bytes"] = t.bytes;
   return {"traffic", j};
}

std::pair<char const*, ordered_json> json(Config const& c) {
   ordered_json j;
   if (c.activityPollingInterval) j["activityPollingInterval"] = *c.activityPollingInterval;
   if (c.counterMode) j["counterMode"] = text(*c.counterMode);
   if (c.allCounter) j["allCounter"] = *c.allCounter;
   return {"config", j};
}

std::pair<char const*, ordered_json> json(Counter const& c) {
   ordered_json j = runJson(c.routes);
   if (!c.counted) j["counted"] = false;
   return {"counter", j};
}

std::pair<char const*, ordered_json> json(Fault const& f) {
   ordered_json j;
   if (f.groupsExhausted) j["groupsExhausted"] = *f.groupsExhausted;
   if (f.routesExhausted) j["routesExhausted"] = *f.routesExhausted;
   if (f.boundariesExhausted) j["boundariesExhausted"] = *f.boundariesExhausted;
   if (f.hitBitsBusy) j["hitBitsBusy"] = *f.hitBitsBusy;
   if (f.failNext) {
      j["failNext"] = {{"write", text(f.failNext->write)},
                       {"reason", f.failNext->reason},
                       {"count", f.failNext->count}};
   }
   if (f.slowNext) j["slowNext"] = {{"nth", f.slowNext->nth}, {"extra", f.slowNext->extra}};
   if (f.rate) {
      j["rate"] = {{"write", text(f.rate->write)}, {"probability", f.rate->probability}};
   }
   if (auto const& call = f.failCall) {
      j["failCall"]["nth"] = call->nth;
      if (call->refused) j["failCall"]["refused"] = true;
      if (call->writeFails) j["failCall"]["writeFails"] = true;
      if (call->again > 0) j["failCall"]["again"] = call->again;
      if (call->undoFails) j["failCall"]["undoFails"] = true;
   }
   if (f.seed) j["seed"] = *f.seed;
   return {"fault", j};
}

std::pair<char const*, ordered_json> json(Restart const& r) {
   using Order = RestartOptions::Order;
   ordered_json j = ordered_json::object();
   if (r.replay) {
      j["replay"] = ordered_json::array();
      for (RouteRun const& run : *r.replay)
         j["replay"].push_back(runJson(run));
   }
   if (r.order != Order::sorted) {
      j["order"] = r.order == Order::reversed ? "reversed" : "shuffled";
   }
   if (r.seed != 1) j["seed"] = r.seed;
   if (r.begin > 0) j["begin"] = ordered_json::parse(numberText(r.begin));
   if (r.over > 0) j["over"] = ordered_json::parse(numberText(r.over));
   if (r.complete > r.begin + r.over) j["complete"] = ordered_json::parse(numberText(r.complete));
   if (r.applied > 0) j["applied"] = r.applied;
   return {"restart", j};
}

std::pair<char const*, ordered_json> json(Mark const& m) {
   return {"mark", m.text};
}

std::pair<char const*, ordered_json> json(Show const& s) {
   return {"show", s.views};
}

std::pair<char const*, ordered_json> json(Expect const& e) {
   ordered_json j = ordered_json::object();
   for (auto const& [state, range] : e.states)
      j[nameOf(state)] = number(range);
   for (ForwardExpectation const& f : e.forward) {
      ordered_json forward = runJson(f.routes);
      forward["iif"] = f.iif.name();
      forward["to"] = f.to;
      if (f.bytes != 64) forward["bytes"] = f.bytes;
      j["forward"].push_back(forward);
   }
   if (e.check) j["check"] = true;
   return {"expect", j};
}

}  // namespace

std::string scenarioLine(Line const& line) {
   auto const [kind, value] = std::visit([](auto const& event) { return json(event); }, line.event);
   ordered_json j;
   j["at"] = ordered_json::parse(numberText(line.at));
   j[kind] = value;
   if (line.path) j["path"] = std::string(nameOf(*line.path));
   return j.dump();
}

std::string scenarioLine(Settings const& settings, PathKind path) {
   auto const [kind, value] = json(settings);
   return ordered_json{{kind, value}, {"path", std::string(nameOf(path))}}.dump();
}

}  // namespace Agent
