// Traces packets and routes of a switch. An explainer reads the tables once, when it is made, so that
// the traces of all routes take time that is linear in their number.
//
// The tables are those of the chip if it can be read, and otherwise those of the shadow, which a
// switch that explains has (PlatformChoice::explains). An explainer is valid until the switch changes.
#pragma once

#include <map>
#include <unordered_map>

#include "agent/explain/RouteQuestion.h"
#include "agent/explain/RouteTrace.h"

namespace Agent {

// A packet that belongs to the key: of a range, one to an address at the end of the range, which
// narrower routes rarely match.
VelMroute::Probe::Packet samplePacket(RouteKey const& key);

struct RouteAnswer {
   struct Traced {
      RouteTrace trace;
      std::vector<TraceEvent> events;
      Qor::U64 eventsLeftOut = 0;  // older events of the route that the ring still has
   };
   // The answer about a route that is not wanted.
   struct Near {
      struct Taker {
         L3::VrfName vrf;
         PacketTrace packet;
         std::string group;
         SomeRoutes groupOf;  // during a replay: the holders of the found entry's group
      };
      SomeRoutes sameGroup;
      std::vector<std::string> nearest;    // routes or groups whose names differ least
      std::vector<L3::VrfName> otherVrfs;  // in which the route is wanted
      std::vector<Taker> takers;           // by VRF
   };

   static constexpr std::size_t mostEvents = 20;  // of a route

   RouteQuestion question;
   Qor::Seconds at = 0;                 // Qor::now()
   std::optional<Qor::Seconds> readAt;  // the time of the chip's tables
   std::vector<Traced> routes;
   std::optional<Near> near;  // without routes
   // The ring of events has lost those before this time.
   std::optional<Qor::Seconds> historySince;
   bool recovering = false;
   struct Use {
      std::optional<Qor::U32> used, size;
   };
   std::array<Use, VelMroute::allTables.size()> tables;
   std::size_t zombies = 0;
   std::optional<Qor::Seconds> nextExpiry;  // of a zombie
};

class Explainer {
 public:
   // Brief traces leave out the place in line, whose time is linear in the length of the line.
   enum class Detail : unsigned char { brief, full };

   explicit Explainer(Switch const& theSwitch);
   ~Explainer();
   Explainer(Explainer const&) = delete;
   Explainer& operator=(Explainer const&) = delete;

   // The way of a packet that comes in by `packet.in`, in the vlan of that interface. Nothing is
   // sent, and the link of the input has no influence.
   PacketTrace packet(VelMroute::Probe::Packet const& packet) const;
   // The trace of a packet of the route that comes in by `iif`, or by the input of the route.
   RouteTrace route(RouteView const& route, Detail detail = Detail::full,
                    std::optional<Lnet::IntfId> iif = {}) const;
   // The events of the route, the oldest first.
   std::vector<TraceEvent> events(RouteTrace const& trace) const;
   // Raises QuestionError for an interface that the switch does not have.
   RouteAnswer answer(RouteQuestion const& question) const;

 private:
   class Tables;
   class Tracing;  // of one route: ExplainerRoute.cpp
   // The routes of a record.
   struct Share {
      SomeRoutes routes;
      std::optional<RouteId> next;  // behind those that `routes` names
   };
   using Target = std::pair<VelMroute::HookTarget::Kind, Qor::U32>;

   VelMroute::Shadow const* shadow() const;  // or null
   void readFound();
   // The entry with this VRF, key and vlan that is found after a restart and not taken over yet.
   std::optional<VelMroute::View::Entry> foundEntry(Vel::VrfId vrfId, RouteKey const& key,
                                                    Bridging::VlanIdOrNone vlan) const;
   // The routes that hold the group at which a found entry points.
   SomeRoutes holdersOf(VelMroute::View::Entry const& found) const;
   RouteAnswer::Near near(RouteQuestion const& question) const;
   RouteAnswer::Near::Taker taker(L3::VrfName const& vrf, Vel::VrfId vrfId,
                                  RouteQuestion const& question) const;

   Switch const& switch_;
   std::unique_ptr<Tables> const tables_;
   std::unordered_map<void const*, Share> shares_;  // by record
   std::map<Target, std::vector<std::string>> hookFaults_;
   std::unordered_map<Qor::U32, SomeRoutes> holders_, foundAt_;  // by group, during a replay
};

}  // namespace Agent
