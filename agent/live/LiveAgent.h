// The live agent: it follows the multicast routes of the kernel, and keeps a software bridge in step
// with them.
//
// Start. The links of the kernel come first, because the bridge needs the MAC addresses of the
// interfaces. Then the bridge connects. With its tables read, the switch is made on it, and takes
// over the groups and entries of an earlier agent: the link states are applied, the routes of the
// kernel are announced, and what no route has taken over is removed.
//
// Lost connections. Without the bridge the routes of the kernel are followed on. The bridge forwards
// by its tables meanwhile, and gets the differences when it is there again.
//
// CPU ports. The agent disables and enables them. At the start it enables those whose front port has
// a link, because an agent that was killed may have left them disabled.
//
// End. Without `flush` the bridge goes on forwarding. CPU ports that the agent has disabled are
// enabled, because nobody would do it later.
#pragma once

#include <memory>
#include <optional>
#include <set>

#include "agent/inspect/InspectedRun.h"
#include "agent/live/Configuration.h"
#include "agent/live/EventLoop.h"
#include "agent/live/KeepAlive.h"
#include "agent/live/Later.h"
#include "agent/live/LiveLog.h"
#include "agent/live/LiveRoutes.h"
#include "agent/report/ReportedState.h"
#include "kernel/LinkControl.h"
#include "kernel/Monitor.h"
#include "platform/openflow/Bridge.h"

namespace Agent {

class LiveAgent final : public InspectedRun, Kernel::Listener, OpenFlow::Listener {
 public:
   // Uses the present activity manager, which is in real time. The loop, the socket and the log
   // outlive the agent. `linkControl` enables and disables CPU ports.
   using LinkControl = std::function<std::string(Qor::U32 index, bool enabled)>;
   LiveAgent(Configuration configuration, EventLoop& loop, Kernel::Socket& socket, LiveLog& log,
             LinkControl linkControl = Kernel::linkEnabledIs);
   ~LiveAgent() override;

   // The configuration changed. Returns the directives that a new process alone takes over.
   std::vector<std::string> configurationIs(Configuration configuration);
   Configuration const& configuration() const { return configuration_; }

   // Called when the kernel's links, rules and routes have been read for the first time. The bridge
   // is left alone if the handler returns false.
   void onSynced(std::function<bool()> handler) { synced_ = std::move(handler); }
   // Called when the routes are on the bridge for the first time.
   void onReady(std::function<void()> handler) { ready_ = std::move(handler); }
   // Called when a route has come into hardware, with the seconds since the monitor notified it.
   void onProgrammed(std::function<void(Qor::Seconds)> handler) {
      programmed_ = std::move(handler);
   }
   // Called when the kernel cannot be followed any more.
   void onFailed(std::function<void()> handler) { failed_ = std::move(handler); }
   // Ends the agent, in the turns of the loop; then calls `ended`. With `flush` the bridge is
   // cleared.
   void end(bool flush, std::function<void()> ended);

   // ---- Questions. ----

   bool isConnected() const { return bridge_ && bridge_->connected(); }
   // Why the bridge is not connected; empty while it is.
   std::string const& disconnected() const { return disconnected_; }
   bool hasSwitch() const { return switch_ != nullptr; }
   Switch const& theSwitch() const { return *switch_; }
   LiveRoutes const& routes() const { return routes_; }
   Kernel::Monitor const& monitor() const { return *monitor_; }
   OpenFlow::Bridge const* bridge() const { return bridge_.get(); }
   KeepAlive const& keepAlive() const { return *keepAlive_; }
   // The state of a route, as the members of these names of RouteRow.
   struct KnownState {
      ReportedState state = ReportedState::offloaded;
      std::string waitsFor = {}, trapReason = {}, reason = {}, fault = {};
   };
   KnownState stateOf(Kernel::RouteKey const& key, LiveRoutes::Known const& known) const;
   // The route of the switch; nothing for a route that the switch does not have.
   std::optional<RouteView> viewOf(LiveRoutes::Known const& known) const;
   std::string interfaceName(Qor::U32 ifindex) const;
   // The VRF of the interface; nothing for an interface that the kernel does not have.
   std::optional<L3::VrfName> vrfOf(Qor::U32 ifindex) const;
   // Each interface of the kernel's routes without a port, and each interface of the configuration
   // that is missing, a line each; and the warnings.
   std::vector<std::string> interfaceNotes() const;
   // Reads the tables of the bridge back, and then calls `done`.
   void refresh(std::function<void()> done);
   struct Numbers {
      Qor::U64 connections = 0, lost = 0, refused = 0;  // of the bridge
      Qor::U64 held = 0;                                // tables that emptied at once
      Qor::U64 reroutes = 0;  // failed interfaces whose routes took another way
   };
   Numbers const& numbers() const { return numbers_; }

   // ---- InspectedRun; the input of a live agent is not continued by commands. ----
   Switch& theSwitch() override { return *switch_; }
   bool runUntil(Qor::Seconds) override { return false; }
   bool runToEnd() override { return false; }
   Qor::Seconds nextInput() override { return Qor::never; }
   bool inMemory() const override { return false; }

 private:
   struct FrontLink {
      bool up = false;
      Qor::Seconds since = 0;
   };
   // The routes of a table whose daemon restarts.
   struct Held {
      std::set<Kernel::RouteKey> routes;  // those that have not come back
      Qor::Seconds until = 0;
   };
   // The facts about a link on which decisions on routes depend.
   struct LinkPlace {
      std::string name;
      Qor::U32 master = 0;

      friend bool operator==(LinkPlace const&, LinkPlace const&) = default;
   };

   class MonitorSource;
   class BridgeSource;

   // ---- Kernel::Listener. ----
   void linkIs(Kernel::Link const& link) override;
   void linkDel(Qor::U32 index) override;
   void routeIs(Kernel::RouteKey const& key, Kernel::Route const& route) override;
   void routeDel(Kernel::RouteKey const& key) override;
   void routesEnd(bool more) override;
   void rulesChanged(Lnet::IpFamily family) override;
   void synced() override;
   void overrun() override;
   void failed() override;

   // ---- OpenFlow::Listener. ----
   void connected() override;
   void lost(std::string const& reason) override;
   void refused(std::string const& reason) override;
   void linkChanged(Lnet::IntfId intf, bool up) override;
   void protectionChanged(Lnet::IntfId intf, bool onStandby) override;
   void portChanged(std::string const& name, bool there) override;

   void makeMonitor();
   void startBridge();
   void makeSwitch();
   void interfaceToBridge(LiveInterface const& interface);
   std::optional<Lnet::IntfId> mapped(Qor::U32 ifindex) const;
   L3::VrfName vrfOf(Kernel::Link const& link) const;
   void linkStateIs(Lnet::IntfId intf, bool up);
   void cpuPortFollows(Lnet::IntfId intf);
   void watchStandby(Lnet::IntfId intf);
   void cpuPortIs(LiveInterface const& interface, bool up);
   void deleteOrHold();
   void hold(Qor::U32 table);
   bool isHeld(Kernel::RouteKey const& key) const;
   void releaseHeld(Qor::U32 table);
   void restore(Lnet::IntfId intf, bool again);
   void endStep();
   void lookForReady();
   void lookAtChanges();
   void decideLater();
   std::unique_ptr<KeepAlive> newKeepAlive();
   bool inHardware(LiveRoutes::Known const& known) const;

   Configuration configuration_;
   EventLoop& loop_;
   Kernel::Socket& socket_;
   LiveLog& log_;
   LinkControl const linkControl_;
   Qor::Ptr<Qor::ActivityManager> const activity_ = Qor::activityManager();
   std::unique_ptr<Kernel::Monitor> monitor_;
   Qor::Ptr<OpenFlow::Bridge> bridge_;
   std::unique_ptr<MonitorSource> monitorSource_;
   std::unique_ptr<BridgeSource> bridgeSource_;
   std::unique_ptr<Switch> switch_;
   LiveRoutes routes_;
   std::unique_ptr<KeepAlive> keepAlive_;
   std::map<Qor::U32, LinkPlace> places_;  // by index of the kernel
   InterfaceMap interfaceMap_;             // as the switch has it
   std::map<Lnet::IntfId, L3::VrfName> vrfOf_;
   std::map<Lnet::IntfId, FrontLink> frontLinks_;           // as last applied
   std::set<Lnet::IntfId> watched_;                         // interfaces whose standby is looked at
   std::set<std::string> disabled_;                         // CPU ports that an agent has disabled
   std::vector<L3::VrfName> vrfs_{L3::VrfName("default")};  // by VRF id
   std::set<Kernel::RouteKey> deleted_;                     // by the kernel, and not applied yet
   std::map<Qor::U32, Held> held_;                          // by table
   Later later_;
   std::string disconnected_ = "the bridge has not answered yet";
   std::function<bool()> synced_;
   std::function<void()> ready_;
   std::function<void()> ended_;
   std::function<void()> failed_;
   std::function<void(Qor::Seconds)> programmed_;
   std::map<RouteId, Qor::Seconds> notifiedAt_;  // of routes that are not in hardware yet
   bool deleting_ = false;                       // deletions of the kernel wait for more
   bool deciding_ = false;                       // a decision on all routes is due
   bool flush_ = false;                          // the bridge has still to be cleared
   bool cleared_ = false;
   bool ending_ = false;
   Qor::Seconds endBy_ = 0;
   Numbers numbers_;
};

}  // namespace Agent
