// The way of a packet through a switch, and the state of the route that it belongs to, as values.
// Explainer.h makes them; ExplainJson.h and ExplainText.h print them.
//
// Origin. Each fact is recorded (by the programmer, and by the shadow of the hooks' calls), read
// (from the tables of the chip, as of RouteAnswer::readAt), or seen (activity and counters).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/switch/Switch.h"

namespace Agent {

enum class Basis : unsigned char { recorded, read, seen };

// The entry that decides on a packet.
struct TraceEntry {
   RouteKey key;
   MrouteLib::RouteHandle handle;
   Bridging::VlanIdOrNone vlan;  // that it accepts; none: all
   bool boundary = false;
   bool drops = false;             // a fastdrop entry
   std::optional<Qor::U32> group;  // the number on the chip, or of a recorded entry the index
};

struct TraceOutput {
   MrouteLib::PortVlan to;
   bool copy = false;       // a copy comes out there
   std::optional<bool> up;  // the link; nothing if it is not known
};

struct PacketTrace {
   VelMroute::Probe::Packet packet;  // `in` is empty for any interface
   std::optional<bool> inputUp;      // the link of `in`
   std::optional<Basis> basis;       // of the tables; nothing: neither read nor recorded
   VelMroute::Forwarding verdict{};
   // The entry that the packet hits. With the verdict wrongVlan, the entry of the longest match,
   // which the packet does not hit.
   std::optional<TraceEntry> entry;
   std::vector<TraceOutput> outputs;  // the members of the group as written
   bool toCpu = false;
   bool missed = false;  // no entry took the packet, so that the platform decides on the CPU

   std::vector<MrouteLib::PortVlan> copies() const;
};

// A mistake, worst first in RouteTrace::causes.
struct Cause {
   char const* kind;  // "inputDown"
   std::string text;  // "input rtr1 is down: no packet arrives"
};

// Some routes of many.
struct SomeRoutes {
   static constexpr std::size_t named = 4;  // number of routes in `some`, at most

   std::size_t count = 0;
   std::vector<RouteId> some;

   void add(RouteId const& id) {
      if (count++ < named) some.push_back(id);
   }
};

struct RouteTrace {
   struct Fastdrop {
      Lnet::IntfId intf;
      Bridging::VlanIdOrNone vlan;
      bool inHardware = false;
      std::optional<Qor::Seconds> lastHit;  // 0: no activity poll has seen a packet
   };
   enum class RerouteState : unsigned char { ready, waiting, rerouted };
   struct Reroute {
      std::vector<MrouteLib::PortVlan> to;
      bool cpu = false;
      Lnet::IntfId whenFails;
      std::optional<bool> linkUp;  // of whenFails
      RerouteState state{};
   };

   RouteId id;
   WantedRoute wanted;
   Bridging::VlanIdOrNone vlan;  // of the input
   VelMroute::RouteState state{};
   Qor::Seconds since = 0;
   std::string reason;                     // why the route is not in hardware
   std::optional<RouteView::Place> place;  // in line for room; of full traces alone
   PacketTrace packet;
   bool ownEntry = false;  // the packet hits the entry of the route
   // The members that the present wish asks for. Nothing while a vlan is missing.
   std::optional<std::vector<MrouteLib::PortVlan>> expected;
   bool expectedCpu = false;
   MrouteLib::RouteHandle handle;
   std::optional<RecordRow> record;
   std::string group;  // the name of the group; empty without a record
   SomeRoutes sharedWith;
   // During the replay after a restart: the found entries that point at the group of the route, the
   // group of the found entry that forwards until the route has its place, and its holders.
   SomeRoutes sharedWithFound;
   std::optional<std::string> foundGroup;
   SomeRoutes foundGroupOf;
   std::optional<Qor::Seconds> lastHit;  // 0: no activity poll has seen a packet
   std::optional<Qor::U64> packets, bytes, counter;
   std::vector<Fastdrop> fastdrops;
   std::optional<Reroute> reroute;
   bool compared = false;  // the chip has been compared with the calls of the hooks
   std::vector<std::string> differences;
   std::vector<std::string> hookFaults;  // of the calls for the route's entry and its set
   std::vector<Cause> causes;            // empty: all is well

   bool inHardware() const { return state == VelMroute::RouteState::inHardware; }
   // The first cause, or where copies come out, in one line.
   std::string headline() const;
};

// An event of the route's life (agent/switch/SwitchHistory.h).
struct TraceEvent {
   Qor::Seconds at = 0;
   std::string text;                    // "group 7 written (doAllocateSharableMulticastGroup)"
   HistoryEvent::Outcome outcome{};     // of a write
   std::optional<Qor::Seconds> doneAt;  // of a write that was pending
};

}  // namespace Agent
