// The targets `scenario` (the lines of a scenario) and `map` (an interface map).
#include <nlohmann/json.hpp>

#include "agent/input/InputKind.h"
#include "agent/input/InterfaceMap.h"
#include "agent/input/LineSource.h"
#include "agent/scenario/ScenarioParser.h"
#include "agent/scenario/ScenarioWriter.h"
#include "fuzzing/Target.h"

namespace Fuzz {

using namespace Agent;

namespace {

using Result = ScenarioParser::Result;

// Whether the scenario writer writes the whole event. It omits most expectations.
bool isWrittenWhole(Scenario::Event const& event) {
   auto const* const e = std::get_if<Scenario::Expect>(&event);
   return !e || (!e->within && e->route.empty() && e->counts.empty() && e->delivered.empty() &&
                 e->messages.empty() && !e->now);
}

std::string written(Scenario::Line const& line) {
   if (auto const* const settings = std::get_if<Scenario::Settings>(&line.event))
      return scenarioLine(*settings, line.path.value_or(PathKind::async));
   return scenarioLine(line);
}

void checkWritten(Scenario::Line const& line) {
   if (!isWrittenWhole(line.event)) return;
   std::string const text = written(line);
   ScenarioParser parser;
   Scenario::Line again;
   require(parser.parse(text, again) == Result::event, text + " is rejected: " + parser.reason());
   require(written(again) == text, text + " is parsed as " + written(again));
}

void runScenario(std::string_view input) {
   ScenarioParser parser;
   std::size_t events = 0;
   std::size_t settings = 0;
   std::size_t refused = 0;
   bool firstRefused = false;
   Scenario::Line line;
   for (std::size_t at = 0; at < input.size();) {
      std::size_t const end = std::min(input.find('\n', at), input.size());
      std::string_view text = input.substr(at, end - at);
      at = end + 1;
      if (text.ends_with('\r')) text.remove_suffix(1);
      Scenario::Line const before = line;
      Result const result = parser.parse(text, line);
      require(kindOf(text) == InputKind::scenario || result != Result::event,
              "a line without the form of a scenario line is parsed as an event");
      if (result == Result::event) {
         events += 1;
         require(text.find('\0') == std::string_view::npos,
                 "a line with a NUL byte is parsed as an event");
         require(line.at >= before.at && line.at <= Agent::Scenario::maxTime,
                 "the time of a line is before the line before it, or above the maximum");
         bool const setting = std::holds_alternative<Scenario::Settings>(line.event);
         require(!setting || events == 1, "a scenario line is accepted behind another event");
         settings += setting;
         checkWritten(line);
      } else {
         require(line.at == before.at && written(line) == written(before),
                 "a rejected line changes the event");
         refused += result == Result::malformed;
         firstRefused = firstRefused || (result == Result::malformed && events == 0);
         require(result == Result::skipped || !parser.reason().empty(),
                 "a rejected line has no reason");
      }
   }
   if (input.starts_with("\x1f\x8b") || input.size() > LineSource::pieceLimit) return;
   ScenarioFile const file = ScenarioFile::read(MemoryFile(input).path());
   if (!file.errors.empty() && file.errors.front().position.line == 0) {
      require(firstRefused, "a file is refused as a whole though its first line is good");
      return;
   }
   require(file.errors.size() == refused && file.lines.size() == events - settings,
           "reading the file gives other events or errors than reading its lines");
}

void runMap(std::string_view input) {
   MemoryFile const file(input);
   InterfaceMap map;
   if (auto const error = map.load(file.path())) {
      require(!error->reason.empty(), "a rejected map has no reason");
      require(map.intfs().empty(), "a rejected map leaves interfaces behind");
      require(!map.intf(Lnet::IntfId("rtr0")).cpu && map.byPort(1),
              "the map is not usable after a rejected file");
      return;
   }
   auto const textOf = [](InterfaceMap const& of) {
      std::string text;
      for (auto const& intf : of.intfs()) {
         require(intf->cpu == (intf->port == 0),
                 "an interface has neither a port nor the CPU, or both");
         require(!intf->port || of.byPort(intf->port) == intf.get(),
                 "two interfaces have the same port");
         require(of.byVlan(intf->vlan) == intf.get(), "two interfaces have the same vlan");
         text += intf->id.name() + " vlan=" + std::to_string(intf->vlan.value());
         if (intf->port) text += " port=" + std::to_string(intf->port);
         text += '\n';
      }
      return text;
   };
   std::string const text = textOf(map);
   InterfaceMap again;
   auto const error = again.load(MemoryFile(text).path());
   require(!error, text + " is rejected: " + (error ? error->reason : ""));
   require(textOf(again) == text, text + " is parsed as " + textOf(again));
   // An interface that the map does not name gets unused numbers.
   Intf const& other = map.intf(Lnet::IntfId("\x01"));
   require(map.byPort(other.port) == &other && map.byVlan(other.vlan) == &other,
           "a new interface gets numbers that are in use");
}

// Each bundled scenario, and each of its lines alone.
std::vector<std::string> scenarioSeeds() {
   std::vector<std::string> seeds;
   for (auto const& file : examples(".jsonl")) {
      std::string text;
      for (std::string const& line : linesOf(file)) {
         text += line + '\n';
         seeds.push_back(line);
      }
      seeds.push_back(text);
   }
   return seeds;
}

std::vector<std::string> mapSeeds() {
   return {"",
           "# ports\nrtr2 port=1 vlan=1007   # the uplink\r\n\n  rtr0\tvlan=4094 port=2\n"
           "pimreg vlan=1006",
           "rtr0 port=65535 vlan=1\npim6reg10 vlan=4094\n"};
}

}  // namespace

Target scenarioTarget() {
   // Tokens of JSON; the keys and the values of the bundled scenarios follow.
   std::vector<std::string> words = {"{",
                                     "}",
                                     "[",
                                     "]",
                                     ",",
                                     ":",
                                     "\n",
                                     "\"cpu\"",
                                     "\"*\"",
                                     "1e6",
                                     "-1",
                                     "0.0000001",
                                     "18446744073709551615",
                                     "null",
                                     "true",
                                     "\"ff3e::1\"",
                                     "\"239.1.1.0/24\"",
                                     "\\u0000",
                                     "{\"min\": 1}",
                                     "{\"max\": 2}",
                                     "\"removed\"",
                                     "#"};
   for (std::string const& seed : scenarioSeeds()) {
      auto const json = nlohmann::json::parse(seed, nullptr, false);
      if (!json.is_object()) continue;
      auto const flat = json.flatten();
      for (auto const& [path, value] : flat.items()) {
         words.push_back('"' + path.substr(path.rfind('/') + 1) + "\":");
         words.push_back(value.dump());
      }
   }
   std::sort(words.begin(), words.end());
   words.erase(std::unique(words.begin(), words.end()), words.end());
   return {runScenario, scenarioSeeds, words};
}

Target mapTarget() {
   return {runMap,
           mapSeeds,
           {"rtr0", "rtr1", "pimreg", "pim6reg1", " port=", " vlan=", "1", "4094", "4095", "65535",
            "65536", "0", "#", "\n", "\r\n", "\t", "="}};
}

}  // namespace Fuzz
