// The events of a scenario, one for each line. docs/scenarios.md describes the format, and the
// members have the names of the keys in the JSON lines.
//
// Scenarios have events that captures cannot have: backups of routes, BFD sessions, packets,
// configuration, faults of the hardware, restarts, and expectations.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Bfd/OperState.h"
#include "Bfd/Peer.h"
#include "Interface/IntfOperStatus.h"
#include "L3/VrfName.h"
#include "Lnet/IntfId.h"
#include "Routing/Multicast/Fib/CounterMode.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"
#include "agent/input/InputError.h"
#include "agent/switch/PathKind.h"
#include "agent/switch/RouteReplay.h"
#include "platform/Faults.h"
#include "platform/PlatformOptions.h"

namespace Agent::Scenario {

using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;

// The largest time, in seconds, and the most groups and packets of one line.
inline constexpr double maxTime = 1e6;
inline constexpr std::uint32_t maxGroups = 1'000'000;
inline constexpr std::uint32_t maxPackets = 10'000'000;

// The routes of a line: one route, or one for each of `groups` consecutive groups.
struct RouteRun {
   L3::VrfName vrf;
   RouteKey first;
   std::uint32_t groups = 1;

   // The key of the i-th route, counted from 0. A route whose group is a range is the only route of
   // its line.
   RouteKey key(std::uint32_t i) const;
   // "(10.0.0.2, 239.1.1.1)", followed by " and 999 more" for several routes, and preceded by
   // "vrf NAME " for another VRF than "default".
   std::string toString() const;
};

// An expected range of numbers, from min to max.
struct Range {
   static constexpr double tolerance = 1e-6;  // error of sums of decimal fractions

   double min = -std::numeric_limits<double>::infinity();
   double max = std::numeric_limits<double>::infinity();

   static Range exactly(double v) { return {v, v}; }
   bool contains(double v) const { return v >= min - tolerance && v <= max + tolerance; }
   std::string toString() const;  // "3", "at least 3", "at most 3", "3 to 5"
};

// "3", "0.001", "12.5": rounded to six decimals, without zeros at the end.
std::string numberText(double value);

// ---- Changes and traffic. ----

// The sizes of the chip's tables, and the seconds from the issue of a write to its completion in an
// empty queue. The defaults are those of the simulated chip.
struct ChipSettings {
   std::uint32_t groups = 8192;
   std::uint32_t routes = 32768;
   std::uint32_t boundaries = 1024;
   double latency = 0.001;
};

// Only the first event of a scenario may be this one.
struct Settings {
   std::string title;
   ChipSettings chip;
   double minPollingInterval = 0;  // seconds; the shortest interval that the platform supports
   double callCost = 0;            // virtual seconds that each call of a hook takes

   // The settings as options of the simulated chip.
   VelMroute::PlatformOptions platformOptions() const;
};

struct Route {
   RouteRun routes;
   Lnet::IntfId iif;
   std::vector<Lnet::IntfId> oifs;  // each once
   bool cpu = false;                // "cpu" is among the outputs
   std::string ownOif;              // route i gets the output <ownOif><i + 1>, too; or empty
   std::vector<Lnet::IntfId> backup;
   std::vector<Lnet::IntfId> fastdrop;
   bool noRpf = false;
   bool bridge = false;
};

struct Withdraw {
   RouteRun routes;
};

struct Link {
   Lnet::IntfId intf;
   Interface::IntfOperStatus state{};
};

struct BfdSession {
   ::Bfd::Peer peer;
   std::optional<::Bfd::OperState> state;  // absent: the session is removed
};

struct Traffic {
   RouteRun routes;
   Lnet::IntfId iif;
   std::uint32_t count = 1;  // packets for each route
   double every = 0;         // seconds between two packets
   std::uint32_t bytes = 64;

   double last() const { return (count - 1) * every; }  // seconds from the first to the last
};

struct Config {
   std::optional<unsigned> activityPollingInterval;  // 1 to 255 seconds
   std::optional<Routing::Multicast::Fib::CounterMode> counterMode;
   std::optional<bool> allCounter;
};

struct Counter {
   RouteRun routes;
   bool counted = true;
};

// The next `count` writes of this kind fail.
struct FailNext {
   VelMroute::WriteKind write{};
   std::string reason;
   std::uint32_t count = 1;
};
// The nth write from now takes `extra` more seconds.
struct SlowNext {
   std::uint32_t nth = 1;
   double extra = 0;
};
// Each write of this kind fails with this probability, 0 to 1.
struct FailRate {
   VelMroute::WriteKind write{};
   double probability = 0;
};
// The nth call of a platform hook from now fails: the hook refuses it, or its writes fail. The
// members are those of VelMroute::Faults::FailedCall.
struct FailCall {
   std::uint32_t nth = 1;
   bool refused = false;
   bool writeFails = false;
   std::uint32_t again = 0;
   bool undoFails = false;
};

// Members without a value change nothing.
struct Fault {
   std::optional<bool> groupsExhausted;
   std::optional<bool> routesExhausted;
   std::optional<bool> boundariesExhausted;
   std::optional<std::uint32_t> hitBitsBusy;  // number of readings that fail because of a busy chip
   std::optional<FailNext> failNext;
   std::optional<SlowNext> slowNext;
   std::optional<FailRate> rate;
   std::optional<FailCall> failCall;
   std::optional<std::uint64_t> seed;
};

// The agent crashes and starts again, while the chip keeps its tables.
struct Restart {
   std::optional<std::vector<RouteRun>> replay;  // the routes that are replayed; absent: all
   RestartOptions::Order order = RestartOptions::Order::sorted;
   std::uint64_t seed = 1;
   double begin = 0;           // seconds until the first route is replayed
   double over = 0;            // seconds from the first route to the last
   double complete = 0;        // seconds until the end of the replay
   std::uint32_t applied = 0;  // writes under way that still reach the chip
};

// Counts "since the mark" begin here.
struct Mark {
   std::string text;
};

struct Show {
   std::vector<std::string> views;  // texts that viewRequest() accepts
};

// ---- Expectations. ----

// Quantities of the present.
enum class State : unsigned char {
   wanted,
   inHardware,
   waiting,
   failed,
   groups,
   zombies,
   entries,
   rerouting,
};
inline constexpr std::size_t states = 8;

// Numbers of occurrences, counted since the mark.
enum class Count : unsigned char {
   groupCreate,
   groupUpdate,
   groupDelete,
   routeCreate,
   routePoint,
   routeDelete,
   boundaryCreate,
   boundaryDelete,
   resurrections,
   purges,
   failedWrites,
   unchanged,
   refusals,
   adopted,
   swept,
   // Counts of the player, about the packets of traffic lines:
   sent,
   lost,        // packets without a copy
   duplicated,  // packets with two copies or more at one interface
   // The sum of all kinds of writes.
   writes,
};
inline constexpr std::size_t counts = 19;
inline constexpr std::size_t testbedCounts = 15;  // number of counts before `sent`

char const* nameOf(State state);
char const* nameOf(Count count);

struct ForwardExpectation {
   RouteRun routes;
   Lnet::IntfId iif;
   std::vector<std::string> to;  // ascending, each once; "cpu" is the CPU
   std::uint32_t bytes = 64;
};

struct RouteExpectation {
   RouteRun routes;
   std::optional<std::string> state;   // nameOf(RouteState), or "absent"
   std::optional<std::string> reason;  // a part of the route's reason
   std::optional<Range> lastPollTime;
   std::map<std::string, Range> fastdropLastPollTime;  // by interface
   std::optional<Range> packets;
   std::optional<Range> bytes;
   std::optional<Range> counter;
};

// How often a message appears: a trace of the handle VelMroute, or a log message for operators.
struct MessageExpectation {
   bool log = false;
   unsigned level = 9;  // traces of this level and of lower ones count
   std::string name;    // name of the log message; empty: any log message
   std::string text;    // a part of the message; may be empty for a log message
   Range seen{1};       // number of messages since the mark

   std::string toString() const;  // "trace \"Review completed\" of level 0 to 2"
};

struct Expect {
   std::optional<double> within;  // seconds after which it fails; the next line waits until then
   std::vector<ForwardExpectation> forward;
   std::vector<RouteExpectation> route;
   std::vector<std::pair<State, Range>> states;
   std::vector<std::pair<Count, Range>> counts;
   std::map<std::string, Range> delivered;  // copies by interface, since the mark
   std::vector<MessageExpectation> messages;
   std::optional<Range> now;  // the present time
   bool check = false;        // all routes forward as wanted
};

using Event = std::variant<Settings, Route, Withdraw, Link, BfdSession, Traffic, Config, Counter,
                           Fault, Restart, Mark, Show, Expect>;

// One line of a scenario.
struct Line {
   InputPosition where;
   double at = 0;
   std::optional<PathKind> path;  // the only path that plays the line; absent: both paths do
   Event event;
};

}  // namespace Agent::Scenario
