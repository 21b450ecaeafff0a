// Parses the expectations of a scenario.
#include <algorithm>

#include "agent/input/PrintableText.h"
#include "agent/input/RouteFields.h"
#include "agent/scenario/RouteStateName.h"
#include "agent/scenario/ScenarioFields.h"

namespace Agent::Scenario {

namespace {

ForwardExpectation forwardFrom(json const& value, std::string const& keyPath) {
   Fields const fields(value, keyPath, {"vrf", "src", "dst", "groups", "iif", "to", "bytes"});
   ForwardExpectation forward;
   forward.routes = runFields(fields, true);
   forward.iif = portAt(fields.get("iif"), fields.at("iif"));
   std::string const toPath = fields.at("to");
   json const& to = listAt(fields.get("to"), toPath);
   for (std::size_t i = 0; i < to.size(); ++i) {
      std::string const name = intfAt(to[i], indexed(toPath, i)).name();
      if (std::find(forward.to.begin(), forward.to.end(), name) != forward.to.end()) {
         refuse(indexed(toPath, i), inQuotes(name) + " occurs twice");
      }
      forward.to.push_back(name);
   }
   std::sort(forward.to.begin(), forward.to.end());
   forward.bytes = bytesField(fields);
   return forward;
}

// The ranges of an object, by interface. Empty without the key.
std::map<std::string, Range> rangesByIntf(Fields const& fields, std::string const& key) {
   std::map<std::string, Range> ranges;
   json const* value = fields.find(key);
   if (!value) return ranges;
   std::string const keyPath = fields.at(key);
   if (!value->is_object()) refuse(keyPath, kindOf(*value) + " where an object is expected");
   if (value->empty()) refuse(keyPath, "no interface");
   for (auto const& [name, range] : value->items()) {
      Lnet::IntfId intf;
      if (auto bad = intfOf(name, intf); !bad.empty()) refuse(keyPath, bad);
      std::string at = keyPath;
      ranges[name] = rangeAt(range, at.append(".").append(name));
   }
   return ranges;
}

RouteExpectation routeExpectationFrom(json const& value, std::string const& keyPath) {
   Fields const fields(value, keyPath,
                       {"vrf", "src", "dst", "groups", "state", "reason", "lastPollTime",
                        "fastdropLastPollTime", "packets", "bytes", "counter"});
   RouteExpectation route;
   route.routes = runFields(fields);
   if (fields.find("state")) {
      Names<std::string> names;
      for (auto const& [name, state] :
           namesOf(VelMroute::RouteState::queued, VelMroute::RouteState::failed))
         names.emplace_back(Agent::nameOf(state), Agent::nameOf(state));
      names.emplace_back("absent", "absent");
      route.state = fields.named("state", "state", names);
   }
   if (fields.find("reason")) route.reason = fields.text("reason");
   route.lastPollTime = optionalRange(fields, "lastPollTime");
   route.fastdropLastPollTime = rangesByIntf(fields, "fastdropLastPollTime");
   route.packets = optionalRange(fields, "packets");
   route.bytes = optionalRange(fields, "bytes");
   route.counter = optionalRange(fields, "counter");
   if (!route.state && !route.reason && !route.lastPollTime && !route.packets && !route.bytes &&
       !route.counter && route.fastdropLastPollTime.empty()) {
      refuse(fields.keyPath(), "no expectation about the route");
   }
   return route;
}

Range seenField(Fields const& fields) {
   Range const once{1, std::numeric_limits<double>::infinity()};
   json const* value = fields.find("seen");
   if (!value) return once;
   if (value->is_boolean()) return value->get<bool>() ? once : Range::exactly(0);
   return rangeAt(*value, fields.at("seen"));
}

MessageExpectation traceFrom(json const& value, std::string const& keyPath) {
   Fields const fields(value, keyPath, {"text", "level", "seen"});
   MessageExpectation expected;
   expected.text = fields.text("text");
   if (expected.text.empty()) refuse(fields.at("text"), "empty");
   if (fields.find("level")) expected.level = fields.whole32("level", 0, 9);
   expected.seen = seenField(fields);
   return expected;
}

MessageExpectation logFrom(json const& value, std::string const& keyPath) {
   Fields const fields(value, keyPath, {"name", "text", "seen"});
   MessageExpectation expected;
   expected.log = true;
   if (fields.find("name")) expected.name = fields.text("name");
   if (fields.find("text")) expected.text = fields.text("text");
   expected.seen = seenField(fields);
   return expected;
}

// Parses one object, or each object of a list.
template <class Take, class Out>
void take(Fields const& fields, std::string const& key, Take const& from, std::vector<Out>& out) {
   json const* value = fields.find(key);
   if (!value) return;
   std::string const keyPath = fields.at(key);
   if (!value->is_array()) {
      out.push_back(from(*value, keyPath));
      return;
   }
   if (value->empty()) refuse(keyPath, "empty list");
   for (std::size_t i = 0; i < value->size(); ++i)
      out.push_back(from((*value)[i], indexed(keyPath, i)));
}

std::vector<std::pair<Count, Range>> countsFrom(json const& value, std::string const& keyPath) {
   std::vector<std::string_view> known;
   for (std::size_t i = 0; i < counts; ++i)
      known.emplace_back(nameOf(static_cast<Count>(i)));
   Fields const fields(value, keyPath, known);
   if (value.empty()) refuse(keyPath, "no expectation");
   std::vector<std::pair<Count, Range>> out;
   for (std::size_t i = 0; i < counts; ++i) {
      auto const count = static_cast<Count>(i);
      if (auto const range = optionalRange(fields, nameOf(count))) out.emplace_back(count, *range);
   }
   return out;
}

}  // namespace

Expect expectFrom(json const& value) {
   std::vector<std::string_view> known = {"within", "forward", "route",     "check",    "now",
                                          "trace",  "log",     "sinceMark", "delivered"};
   for (std::size_t i = 0; i < states; ++i)
      known.emplace_back(nameOf(static_cast<State>(i)));
   Fields const fields(value, "expect", known);
   Expect expect;
   if (fields.find("within")) expect.within = fields.number("within", 0, maxTime);
   take(fields, "forward", forwardFrom, expect.forward);
   take(fields, "route", routeExpectationFrom, expect.route);
   take(fields, "trace", traceFrom, expect.messages);
   take(fields, "log", logFrom, expect.messages);
   for (std::size_t i = 0; i < states; ++i) {
      auto const state = static_cast<State>(i);
      if (auto const range = optionalRange(fields, nameOf(state))) {
         expect.states.emplace_back(state, *range);
      }
   }
   if (json const* since = fields.find("sinceMark")) {
      expect.counts = countsFrom(*since, fields.at("sinceMark"));
   }
   expect.delivered = rangesByIntf(fields, "delivered");
   expect.now = optionalRange(fields, "now");
   if (fields.find("check")) {
      expect.check = fields.flag("check");
      if (!expect.check) refuse(fields.at("check"), "must be true");
   }
   if (value.size() == (expect.within ? 1u : 0u)) refuse(fields.keyPath(), "no expectation");
   return expect;
}

}  // namespace Agent::Scenario
