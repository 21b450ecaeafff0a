// A software bridge as a platform: OpenFlow 1.5 over a unix socket, on the asynchronous path.
//
// The platform owns the pipeline of the bridge: table 0 finds the interface of a packet, and table
// 1 has the routes. All flows carry a cookie of the platform, and all groups have ids of its range.
// A bridge with a foreign flow that floods, or that matches everything, is refused.
//
// Interfaces. An interface is a front port, perhaps in a vlan, and a CPU port: the other end is the
// interface of the kernel. Ports are named, so that a port which is deleted and added again is
// found under its new number. The packets of no route, and IGMP, MLD, PIM and link-local groups,
// go to the CPU port. A standby port replaces the front port while that has no link.
//
// Poll loop. Nothing here blocks, and everything runs on the thread of the activity loop:
//
//    poll {bridge.fd(), bridge.wantsWrite() ? POLLIN | POLLOUT : POLLIN} until the next deadline
//    bridge.ready(readable, writable);   // if the descriptor has an event
//    Qor::activityManager()->runDue();
//    bridge.turnEnds();                  // sends the writes of this turn, with one barrier
//
// Order. Make the bridge, give it the interfaces (interfaceIs(), portIs()) and a listener, and
// start(). After the first connected() make the programmer, which adopts the found groups and
// entries through restart(). If hooks allocate before the first connection, nothing is adopted:
// the bridge gets the groups and entries of the hooks, and loses all others.
//
// Lost connections. While there is no connection, allocations succeed and writes stay pending. With
// the next connection the platform reads the tables, and writes the differences alone.
//
// Numbers. A multicast id is the id of the group on the bridge. The handle of a route is the lower
// half of the cookie of its flow.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/Platform.h"
#include "platform/openflow/Options.h"

namespace OpenFlow {

class Bridge final : public VelMroute::Platform {
 public:
   // Throws VelMroute::PlatformOptionError for an empty range of groups.
   explicit Bridge(Options options);

   void listenerIs(Listener* listener);  // or null; outlives the bridge or is removed
   // Adds an interface, or gives it these properties. Returns false if no group id is left for it.
   bool interfaceIs(Port const& port);
   void interfaceDel(Lnet::IntfId intf);
   // The interface returns to its front port, if that has a link.
   void protectionEnds(Lnet::IntfId intf);
   bool onStandby(Lnet::IntfId intf) const;
   std::optional<bool> portUp(std::string const& name) const;  // nothing: there is no such port

   // Connects, and keeps connecting. No effect while there is a connection or an attempt.
   void start();
   // Ends the connection; the tables of the bridge stay as they are. Writes stay pending.
   void stop();
   // Deletes all flows and groups of the platform on the bridge, also those of the pipeline, behind
   // the writes of the hooks; they are gone when writesPending() is false. The next connection
   // writes the tables of the hooks again.
   void clear();

   // ---- The poll loop. ----
   int fd() const;  // -1: none; it may change in each turn
   bool wantsWrite() const;
   void ready(bool readable, bool writable);
   void turnEnds();

   bool connected() const;  // the tables have been read
   // Sends an Ethernet frame out of the CPU port of the interface. Returns false if that cannot be
   // sent at the moment.
   bool packetOut(std::span<Qor::U8 const> packet, Lnet::IntfId towardsCpuOf);

   struct Numbers {
      Qor::U64 connections = 0;                  // the times that the tables have been read
      Qor::U64 groupWrites = 0, flowWrites = 0;  // sent, of all kinds
      Qor::U64 barriers = 0;
      Qor::U64 errors = 0;    // error messages of the bridge
      Qor::U64 readings = 0;  // of packet counts, and those that read all flows
      Qor::U64 fullReadings = 0;
      Qor::Seconds lastBarrier = 0;  // the time between the latest barrier and its answer
   };
   Numbers const& numbers() const;

   // ---- VelMroute::Platform ----
   VelMroute::Abilities abilities() const override;
   Qor::Ptr<VelHelper::AsyncMrouteHelper> asyncHooks() override;
   VelMroute::View* view() override;
   VelMroute::Restart* restart() override;
   bool portIs(Lnet::IntfId intf, Qor::U32 number, Bridging::VlanIdOrNone vlan) override;
   bool writesPending() const override;
   std::vector<Qor::String> violations() const override;
   std::vector<Qor::String> audit() const override;

 private:
   class Impl;
   ~Bridge() override;

   std::unique_ptr<Impl> const impl_;
};

}  // namespace OpenFlow
