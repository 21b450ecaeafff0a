// The flows and groups of the interfaces: the part of the tables that does not depend on routes.
//
//    table 0   in port, vlan                       ->  table 1, with the interface as metadata
//              ... and IGMP, MLD, PIM, link-local  ->  CPU port
//              in port: CPU port                   ->  front port
//    table 1   the routes (platform/openflow/Tables.h)
//              metadata                            ->  CPU port, at the lowest priority
//
// The bridge drops a copy to the port at which its packet arrived, also in another vlan. Table 0
// therefore clears the input port of a packet.
//
// Each interface has an indirect group, which the groups of the routes name. The failure of a port
// is one change of a group for any number of routes. An interface keeps its group while the process
// lives, also after its deletion, since groups of routes may still name it.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "MrouteLib/PortVlan.h"
#include "platform/openflow/Options.h"
#include "platform/openflow/WriteQueue.h"

namespace OpenFlow {

enum class CookieKind : U8 { pipeline = 0, route = 1 };
inline constexpr U64 cookieMagic = U64{0x766d72} << 40;
inline constexpr U64 ownCookies = U64{0xffffff} << 40;     // the mask of all kinds
inline constexpr U64 kindCookies = U64{0xffffffff} << 32;  // the mask of one kind
inline constexpr U64 cookieOf(CookieKind kind, U32 number = 0) {
   return cookieMagic | static_cast<U64>(kind) << 32 | number;
}
inline bool isOwn(U64 cookie, CookieKind kind) {
   return (cookie & kindCookies) == cookieOf(kind);
}

inline constexpr U8 classifierTable = 0;
inline constexpr U8 routeTable = 1;
inline constexpr U16 lowestRoutePriority = 100;

// The metadata of packets of an interface.
inline U64 metadataOf(U32 vrfId, Bridging::VlanIdOrNone vlan) {
   return static_cast<U64>(vrfId) << 16 | vlan.value();
}

class Pipeline {
 public:
   explicit Pipeline(Options const& options) : options_(options) {}

   // ---- Interfaces ----
   bool interfaceIs(Port const& port);
   void interfaceDel(Lnet::IntfId intf);
   // Before or after interfaceIs().
   void vlanIs(Lnet::IntfId intf, Bridging::VlanIdOrNone vlan);
   // The group of an interface, also of a deleted one.
   std::optional<U32> groupOf(Lnet::IntfId intf) const;
   // The pair for which a group of a route names this group; nothing for an unknown group.
   std::optional<MrouteLib::PortVlan> memberOf(U32 group) const;
   bool isInterfaceGroup(U32 group) const {
      return group >= options_.firstGroup && group - options_.firstGroup < options_.interfaces;
   }

   // ---- Ports ----
   struct Change {
      Lnet::IntfId intf;
      std::optional<bool> link;  // of the front port
      std::optional<bool> onStandby;
   };
   // Each returns the changes of interfaces; the tables then differ from those on the bridge.
   std::vector<Change> portsAre(std::vector<PortDesc> const& ports);
   std::vector<Change> portIs(PortDesc const& port);
   std::vector<Change> portDel(PortDesc const& port);
   // Follows changed interfaces, and the end of the hold time.
   std::vector<Change> refresh();
   std::vector<Change> protectionEnds(Lnet::IntfId intf);
   Qor::Seconds nextHoldEnd() const;
   PortDesc const* port(std::string const& name) const;
   std::optional<bool> linkUp(Lnet::IntfId intf) const;
   bool onStandby(Lnet::IntfId intf) const;
   // Whether the port by which the interface sends has a link.
   std::optional<bool> sends(Lnet::IntfId intf) const;
   std::optional<U32> cpuPort(Lnet::IntfId intf) const;

   // ---- Tables ----
   // Whether these tables, found on the bridge, mean the same interfaces as the present ones.
   bool meansTheSame(std::vector<Flow> const& flows, std::vector<GroupDesc> const& groups) const;
   // The tables on the bridge.
   void foundAre(std::vector<Flow> const& flows, std::vector<GroupDesc> const& groups);
   // The writes that lead from the tables on the bridge to the present ones.
   std::vector<Write> writes();
   std::size_t flows() const { return flows_.size(); }

 private:
   struct Interface {
      Port port;
      Bridging::VlanIdOrNone vlan;  // of the routes
      bool there = false;
      bool onStandby = false;
      bool up = false;  // the front port has a link
      Qor::Seconds upSince = 0;
      bool released = false;  // the front port is used as soon as it has a link
   };

   Interface* find(Lnet::IntfId intf);
   Interface const* find(Lnet::IntfId intf) const;
   bool up(std::string const& name) const;
   GroupDesc groupFor(U32 index) const;
   void addFlows(U32 index, std::string const& front, std::map<std::string, Flow>& flows) const;
   std::map<std::string, Flow> wantedFlows() const;

   Options const& options_;
   std::vector<Interface> interfaces_;
   std::map<Lnet::IntfId, Bridging::VlanIdOrNone> vlans_;  // of the routes
   std::map<std::string, PortDesc> ports_;
   // On the bridge, or under way.
   std::map<std::string, Flow> flows_;  // by keyOf()
   std::map<U32, GroupDesc> groups_;
};

// Equal for two flows of which a bridge has only one.
std::string keyOf(Flow const& flow);
// The message that deletes this flow, and no later one with its match.
std::string deletionOf(Flow const& flow);

}  // namespace OpenFlow
