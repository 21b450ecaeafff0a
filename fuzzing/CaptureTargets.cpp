// The targets `monitor` (a line of a capture), `snapshot` (the JSON of a table) and `capture`
// (files of both, plain and compressed).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>

#include "agent/input/CaptureReader.h"
#include "agent/input/RouteFields.h"
#include "fuzzing/Target.h"
#include "tests/CaptureTestSupport.h"

namespace Fuzz {

using namespace Agent;

namespace {

std::string addressText(Lnet::IpGenPrefix const& prefix) {
   return (std::ostringstream() << prefix.address()).str();
}

// The name of the VRF's table in a capture, which vrfOf() maps back to the VRF.
std::string tableOf(MrouteEvent const& route) {
   bool const v4 = route.key.group().family() == Lnet::IpFamily::v4;
   if (route.vrf.name() == "default") return v4 ? "default" : "main";
   return !v4 && route.vrf.name() == "253" ? "default" : std::string(route.vrf.name());
}

void checkRoute(MrouteEvent const& route) {
   auto const& source = route.key.source();
   auto const& group = route.key.group();
   require(group.isHost() && group.address().isMulticast(), "the group is not a multicast address");
   require(source.family() == group.family(), "source and group have different families");
   require(source.isAny() || (source.isHost() && !source.address().isMulticast()),
           "the source is neither any source nor a unicast address");
   require(!route.vrf.empty(), "the route has no VRF");
   for (Lnet::IntfId const oif : route.oifs)
      require(bool(oif), "an output has no name");
}

std::string lineOf(CaptureTime const& time, MrouteEvent const& route) {
   std::string line = route.deleted ? "Deleted " : "";
   Lnet::IpGenPrefix const& source = route.key.source();
   line += "(" +
           (source.isAny() ? route.key.group().family() == Lnet::IpFamily::v4 ? "0.0.0.0" : "::"
                           : addressText(source)) +
           "," + addressText(route.key.group()) + ") Iif: ";
   line += route.iif ? route.iif.name() : std::string(unresolvedWord);
   if (!route.oifs.empty()) line += " Oifs:";
   for (Lnet::IntfId const oif : route.oifs)
      line += " " + oif.name();
   line += route.resolved ? " State: resolved" : " State: unresolved";
   (void)time;
   return line + " Table: " + tableOf(route);
}

std::string lineOf(CaptureTime const&, LinkEvent const& link) {
   using enum Interface::IntfOperStatus;
   char const* word = "UNKNOWN";
   for (auto const& [status, name] :
        {std::pair(up, "UP"), std::pair(down, "DOWN"), std::pair(testing, "TESTING"),
         std::pair(dormant, "DORMANT"), std::pair(notPresent, "NOTPRESENT"),
         std::pair(lowerLayerDown, "LOWERLAYERDOWN")}) {
      if (link.status == status) word = name;
   }
   return (link.deleted ? "Deleted " : "") + std::to_string(link.ifindex) + ": " +
          link.intf.name() + "@if1: <" + (link.adminUp ? "UP" : "") + "> qdisc noqueue state " +
          word + " \\ link/ether";
}

std::string lineOf(CaptureTime const&, SnapshotEvent const&) {
   throw Finding("a line is parsed as a snapshot");
}

// A line whose parsing gives the event again.
std::string lineOf(CaptureEvent const& event) {
   CaptureTime const& time = timeOf(event);
   std::string stamp;
   if (time.stamped) {
      using namespace std::chrono;
      microseconds const whole(time.unixMicroseconds);
      auto const day = floor<days>(whole);
      year_month_day const date{sys_days(day)};
      hh_mm_ss<microseconds> const clock(whole - day);
      char text[64];
      std::snprintf(text, sizeof text, "[%04d-%02u-%02uT%02d:%02d:%02d.%06d] ",
                    static_cast<int>(date.year()), unsigned(date.month()), unsigned(date.day()),
                    static_cast<int>(clock.hours().count()),
                    static_cast<int>(clock.minutes().count()),
                    static_cast<int>(clock.seconds().count()),
                    static_cast<int>(clock.subseconds().count()));
      stamp = text;
   }
   return stamp + std::visit([&](auto const& e) { return lineOf(time, e); }, event);
}

void runMonitor(std::string_view input) {
   MonitorParser parser;
   CaptureEvent event;
   auto const result = parser.parse(input, event);
   if (result == MonitorParser::Result::malformed) {
      std::string const& reason = parser.reason();
      std::size_t const at = reason.rfind(" (column ");
      require(at != std::string::npos && at > 0, "the reason has no column: " + reason);
      std::size_t const column = std::stoul(reason.substr(at + 9));
      require(column >= 1 && column <= input.size() + 1,
              "the column is outside the line: " + reason);
   }
   if (result != MonitorParser::Result::event) return;
   if (auto const* route = std::get_if<MrouteEvent>(&event)) {
      checkRoute(*route);
   } else {
      auto const& link = std::get<LinkEvent>(event);
      require(link.intf && link.ifindex > 0, "a link has no name or no index");
      require(!link.deleted || link.status == Interface::IntfOperStatus::notPresent,
              "a deleted link has another status than notPresent");
   }
   // The parser that read the input must parse the written line, regardless of its earlier input.
   std::string const text = lineOf(event);
   CaptureEvent again = SnapshotEvent();
   require(parser.parse(text, again) == MonitorParser::Result::event,
           text + " is rejected: " + parser.reason());
   require(
         render(again) == render(event) && lineOf(again) == text,
         "the event " + render(event) + ", written as " + text + ", is parsed as " + render(again));
}

// ---- Snapshots. ----

std::string jsonOf(SnapshotEvent const& snapshot) {
   nlohmann::ordered_json list = nlohmann::ordered_json::array();
   for (MrouteEvent const& route : snapshot.routes) {
      bool const v4 = route.key.group().family() == Lnet::IpFamily::v4;
      Lnet::IpGenPrefix const& source = route.key.source();
      nlohmann::ordered_json hops = nlohmann::ordered_json::array();
      for (Lnet::IntfId const oif : route.oifs)
         hops.push_back({{"oif", oif.name()}});
      list.push_back({{"src", source.isAny() ? v4 ? "0.0.0.0" : "::" : addressText(source)},
                      {"dst", addressText(route.key.group())},
                      {"iif", route.iif ? route.iif.name() : std::string(unresolvedWord)},
                      {"multipath", hops},
                      {"state", route.resolved ? "resolved" : "unresolved"},
                      {"table", tableOf(route)}});
   }
   return list.dump();
}

void runSnapshot(std::string_view input) {
   SnapshotParser parser;
   SnapshotEvent event;
   event.routes.resize(1);
   if (!parser.parse(input, event)) {
      require(event.routes.size() == 1 && event.scopes.empty(),
              "a rejected snapshot changes the event");
      require(!parser.reason().empty(), "a rejected snapshot has no reason");
      require(parser.position() <= input.size(), "the position of the error is behind the end");
      require(parser.excerpt().empty() || (parser.excerpt().data() >= input.data() &&
                                           parser.excerpt().data() + parser.excerpt().size() <=
                                                 input.data() + input.size()),
              "the excerpt of the error is not a part of the input");
      return;
   }
   require(nlohmann::json::accept(input) && input.find('\0') == std::string_view::npos,
           "an accepted snapshot is not JSON, or has a NUL byte");
   for (MrouteEvent const& route : event.routes) {
      checkRoute(route);
      require(event.covers(route.vrf, route.key), "no scope of the snapshot covers a route");
   }
   // An accepted text that begins like a snapshot must end where its brackets close, whether the
   // text arrives as a whole or byte by byte.
   if (SnapshotParser::looksLikeJson(input)) {
      std::string_view rest;
      require(JsonExtent().closed(input, rest), "the extent of an accepted text does not end");
      require(rest.find_first_not_of(" \t\r\n") == std::string_view::npos,
              "the extent of an accepted text ends before the text");
      JsonExtent bytewise;
      std::size_t at = 0;
      std::string_view none;
      while (!bytewise.closed(input.substr(at, 1), none))
         require(++at < input.size(), "byte by byte, the extent of an accepted text does not end");
      require(at + 1 + rest.size() == input.size(), "byte by byte, the extent ends elsewhere");
   }
   // A table of `ip` does not name a VRF without routes.
   std::erase_if(event.scopes, [&](SnapshotEvent::Scope const& scope) {
      return std::ranges::none_of(event.routes, [&](MrouteEvent const& route) {
         return scope.vrf == route.vrf && scope.family == route.key.group().family();
      });
   });
   std::string const text = jsonOf(event);
   SnapshotEvent again;
   require(parser.parse(text, again), text + " is rejected: " + parser.reason());
   require(render(again) == render(event),
           "the snapshot " + render(event) + " is written and parsed as " + render(again));
}

// ---- Files. ----

// The events and errors that the reader delivers for a file, as texts; at the end the number of
// lines.
std::vector<std::string> delivered(std::string_view bytes) {
   CaptureReader reader(MemoryFile(bytes).fd(), "input");
   std::vector<std::string> out;
   CaptureEvent event;
   CaptureState state;
   double time = 0;
   while (true) {
      auto const result = reader.next(event);
      if (result == CaptureReader::Result::end) break;
      if (result == CaptureReader::Result::event) {
         require(timeOf(event).time >= time, "the time of an event is before the event before it");
         time = timeOf(event).time;
         state.apply(event);
         out.push_back(std::to_string(time) + ' ' + render(event));
      } else {
         InputError const& error = reader.error();
         require(!error.reason.empty(), "an error has no reason");
         require(error.position.line <= reader.lines() + 1, "an error has a line behind the end");
         out.push_back(error.toString());
         for (char const c : out.back())
            require((c >= ' ' && c <= '~') || c == '\n',
                    "an error contains unprintable characters");
      }
   }
   require(reader.next(event) == CaptureReader::Result::end,
           "the reader delivers an event or an error after the end");
   out.push_back(std::to_string(reader.lines()) + " lines");
   return out;
}

void runCapture(std::string_view input) {
   std::vector<std::string> const plain = delivered(input);
   if (input.starts_with("\x1f\x8b")) return;
   std::size_t const half = input.size() / 2;
   require(delivered(gzip(input)) == plain, "the compressed file gives other events or errors");
   require(delivered(gzip(input.substr(0, half)) + gzip(input.substr(half))) == plain,
           "the file in two gzip members gives other events or errors");
   std::size_t const ends = std::count(input.begin(), input.end(), '\n');
   std::size_t const lines = ends + (!input.empty() && input.back() != '\n');
   require(plain.back() == std::to_string(lines) + " lines" ||
                 std::ranges::any_of(plain, [](auto& s) { return s.starts_with("input:"); }),
           "the reader counts another number of lines");
}

// ---- Seeds and words. ----

std::vector<std::string> monitorSeeds() {
   std::vector<std::string> seeds;
   for (auto const& file : examples("events.txt.gz")) {
      std::vector<std::string> const lines = linesOf(file);
      for (std::size_t i = 0; i < lines.size(); i += 1 + lines.size() / 60)
         seeds.push_back(lines[i]);
   }
   return seeds;
}

// The first routes of each bundled table.
std::vector<std::string> snapshotSeeds() {
   std::vector<std::string> seeds = {"[]"};
   for (auto const& file : examples(".json.gz")) {
      LineSource source(file.string());
      source.next();
      std::string_view const text = source.text();
      std::size_t end = 0;
      for (int routes = 0; routes < 5; ++routes)
         end = text.find(",{\"src\"", end + 1);
      seeds.push_back(std::string(text.substr(0, end)) + ']');
   }
   for (auto const& file : examples("frr/mroute.json")) {
      std::string text;
      for (std::string const& line : linesOf(file))
         text += line + '\n';
      seeds.push_back(text);
   }
   return seeds;
}

std::vector<std::string> captureSeeds() {
   std::vector<std::string> seeds;
   std::string const snapshot = snapshotSeeds().back();
   for (auto const& file : examples("events.txt.gz")) {
      std::string text;
      for (std::string const& line : linesOf(file, 12))
         text += line + '\n';
      seeds.push_back(text);
      seeds.push_back(snapshot + '\n' + text);
      seeds.push_back(gzip(text));
      seeds.push_back(gzip(snapshot.substr(0, 50)) + gzip(snapshot.substr(50) + '\n' + text));
   }
   return seeds;
}

std::vector<std::string> const monitorWords = {"Deleted ",
                                               "Iif: ",
                                               "Oifs: ",
                                               "State: ",
                                               "resolved",
                                               "unresolved",
                                               "Table: ",
                                               "default",
                                               "main",
                                               "253",
                                               "(ttl 2)",
                                               ", offload",
                                               "\\",
                                               " packets, ",
                                               " bytes",
                                               "[nsid current]",
                                               "[nsid 3]",
                                               "[MROUTE]",
                                               "[LINK]",
                                               "[ROUTE]",
                                               "<NO-CARRIER,UP>",
                                               "LOWER_UP",
                                               "state DOWN",
                                               "mtu 1500",
                                               "qdisc noop",
                                               "master br0",
                                               "\\ link/ether",
                                               "@if2: ",
                                               "(0.0.0.0,239.1.1.1)",
                                               "(::,ff3e::1)",
                                               "[2026-11-21T03:13:27.100001] ",
                                               "[1970-01-01T00:00:00.000000]",
                                               "pimreg",
                                               "4294967296",
                                               "\t",
                                               "\r",
                                               "event NONE",
                                               "xdp/id:1"};

std::vector<std::string> snapshotWords() {
   return {"[",
           "]",
           "{",
           "}",
           ",",
           "\"src\":",
           "\"dst\":",
           "\"iif\":",
           "\"multipath\":",
           "\"oif\":",
           "\"ttl\":5",
           "\"state\":",
           "\"table\":",
           "253",
           "-1",
           "1e999",
           "null",
           "true",
           "\"resolved\"",
           "\"unresolved\"",
           "\"10.0.0.2\"",
           "\"239.1.1.1\"",
           "\"ff3e::1\"",
           "\"239.1.1.1\":{",
           "\"*\":{",
           "\"default\":{",
           "\"installed\":0",
           "\"oil\":{",
           "\"inboundInterface\":",
           "\"<iif?>\"",
           "\"\\u0000\"",
           "\"rtr0\"",
           "\\",
           "\"",
           "[[[[[[[[",
           "\xc3\x28"};
}

}  // namespace

Target monitorTarget() {
   return {runMonitor, monitorSeeds, monitorWords};
}

Target captureTarget() {
   std::vector<std::string> words = monitorWords;
   for (std::string const& word : snapshotWords())
      words.push_back(word);
   words.insert(words.end(), {"\n", "\r\n", "#", "\x1f\x8b"});
   return {runCapture, captureSeeds, words};
}

Target snapshotTarget() {
   return {runSnapshot, snapshotSeeds, snapshotWords()};
}

}  // namespace Fuzz
