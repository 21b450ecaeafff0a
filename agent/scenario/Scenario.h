// What a scenario says, one event a line: the kinds of events and their properties, as
// docs/scenarios.md explains them to people. The members are named as the keys of the JSON lines
// are.
//
// A scenario tells what captures cannot: backups of routes, BFD sessions, packets, configuration,
// faults of the hardware, and what is expected of all that.
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
#include "agent/switch/Path.h"
#include "agent/switch/Replay.h"
#include "platform/sim/Chip.h"

namespace Agent::Scenario {

using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;

// The largest time, in seconds, and the most groups and packets of one line.
inline constexpr double maxTime = 1e6;
inline constexpr std::uint32_t maxGroups = 1'000'000;
inline constexpr std::uint32_t maxPackets = 10'000'000;

// The routes a line is about: one, or one for each of `groups` consecutive groups.
struct RouteRun {
   L3::VrfName vrf;
   RouteKey first;
   std::uint32_t groups = 1;

   // The key of the i-th route, counted from 0. A route of a range of groups stands alone.
   RouteKey key(std::uint32_t i) const;
   // "(10.0.0.2, 239.1.1.1)", and of several routes " and 999 more"; in another VRF than "default"
   // with "vrf NAME " in front.
   std::string toString() const;
};

// The numbers that are as expected: from min to max.
struct Range {
   static constexpr double tolerance = 1e-6;  // what sums of decimal fractions may be off by

   double min = -std::numeric_limits<double>::infinity();
   double max = std::numeric_limits<double>::infinity();

   static Range exactly(double v) { return {v, v}; }
   bool contains(double v) const { return v >= min - tolerance && v <= max + tolerance; }
   std::string toString() const;  // "3", "at least 3", "at most 3", "3 to 5"
};

// "3", "0.001", "12.5": as few digits as tell it, at most six decimals.
std::string numberText(double value);

// ---- What may go on in a run. ----

// Stands in the first event line only.
struct Settings {
   std::string title;
   Sim::ChipConfig chip;
   double minPollingInterval = 0;  // seconds; the shortest the platform can keep
   double callCost = 0;            // seconds that each call of a hook takes
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

struct Bfd {
   ::Bfd::Peer peer;
   std::optional<::Bfd::OperState> state;  // absent: the session is removed
};

struct Traffic {
   RouteRun routes;
   Lnet::IntfId iif;
   std::uint32_t count = 1;  // packets for each route
   double every = 0;         // seconds between them
   std::uint32_t bytes = 64;

   double last() const { return (count - 1) * every; }  // when the last follows the first
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

// A write of this kind fails, as often as `count` says.
struct FailNext {
   Sim::WriteKind write{};
   std::string reason;
   std::uint32_t count = 1;
};
struct SlowNext {
   std::uint32_t nth = 1;
   double extra = 0;  // seconds
};
struct FailRate {
   Sim::WriteKind write{};
   double probability = 0;
};
// One call of a platform hook, the nth from now, fails in the way it can (Sim::Faults).
struct FailCall {
   std::uint32_t nth = 1;
   bool refused = false;
   bool writeFails = false;
   std::uint32_t again = 0;
   bool undoFails = false;
};

// Only what is set changes.
struct Fault {
   std::optional<bool> groupsExhausted;
   std::optional<bool> routesExhausted;
   std::optional<bool> boundariesExhausted;
   std::optional<std::uint32_t> hitBitsBusy;  // how many readings
   std::optional<FailNext> failNext;
   std::optional<SlowNext> slowNext;
   std::optional<FailRate> rate;
   std::optional<FailCall> failCall;
   std::optional<std::uint64_t> seed;
};

// The agent crashes and starts again; the chip goes on.
struct Restart {
   std::optional<std::vector<RouteRun>> replay;  // the routes that are told again; absent: all
   RestartOptions::Order order = RestartOptions::Order::sorted;
   std::uint64_t seed = 1;
   double begin = 0;           // seconds until the first of them is told
   double over = 0;            // seconds from the first of them to the last
   double complete = 0;        // seconds until they are said to be all
   std::uint32_t applied = 0;  // writes under way that still reach the chip
};

// What is counted "since the mark" counts from here.
struct Mark {
   std::string text;
};

struct Show {
   std::vector<std::string> views;  // each a name that viewNamed() knows
};

// ---- What is expected. ----

// How many there are now.
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

// How often it has happened; reported since the mark.
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
   // The player's own, about the packets of traffic lines:
   sent,
   lost,        // came out nowhere
   duplicated,  // came out of one interface more than once
   // All kinds of writes together.
   writes,
};
inline constexpr std::size_t counts = 19;
inline constexpr std::size_t targetCounts = 15;  // those before `sent`

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
   std::optional<std::string> state;   // RouteProgrammer::State by name, or "absent"
   std::optional<std::string> reason;  // a part of it
   std::optional<Range> lastPollTime;
   std::map<std::string, Range> fastdropLastPollTime;  // by interface
   std::optional<Range> packets;
   std::optional<Range> bytes;
   std::optional<Range> counter;
};

// How often a message appears: a trace of the handle VelMroute, or a log message for operators.
struct MessageExpectation {
   bool log = false;
   unsigned level = 9;  // of a trace: levels up to this one count
   std::string name;    // of a log message; empty for any
   std::string text;    // a part of it; may be empty for a log message
   Range seen{1};       // how often since the mark

   std::string toString() const;  // "trace \"Review completed\" of level 0 to 2"
};

struct Expect {
   std::optional<double> within;  // seconds until which it may become true; the lines behind wait
   std::vector<ForwardExpectation> forward;
   std::vector<RouteExpectation> route;
   std::vector<std::pair<State, Range>> states;
   std::vector<std::pair<Count, Range>> counts;
   std::map<std::string, Range> delivered;  // copies by interface, since the mark
   std::vector<MessageExpectation> messages;
   std::optional<Range> now;  // the time at which this is looked at
   bool check = false;        // that all routes forward as wanted
};

using Event = std::variant<Settings, Route, Withdraw, Link, Bfd, Traffic, Config, Counter, Fault,
                           Restart, Mark, Show, Expect>;

// One line of a scenario.
struct Line {
   InputPosition where;
   double at = 0;
   std::optional<Path> path;  // played on this path alone; absent: on both
   Event event;
};

}  // namespace Agent::Scenario
