#include "agent/live/LiveAgent.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "platform/Format.h"

namespace Agent {

using Interface::IntfOperStatus;
using Lnet::IntfId;

namespace {

constexpr Qor::Seconds lookInterval = 0.05;  // between looks for the end of a start or an end
constexpr Qor::Seconds longestEnd = 5;       // of the wait for the last writes
// Within which a table loses all of its routes when its daemon ends.
constexpr Qor::Seconds emptyingTime = 0.1;
constexpr Qor::Seconds aliveInterval = 5;  // between readings of the bridge's counts

}  // namespace

class LiveAgent::MonitorSource final : public EventSource {
 public:
   explicit MonitorSource(LiveAgent& agent) : agent_(agent) {}
   int fd() const override { return agent_.monitor_->fd(); }
   void ready(bool, bool) override { agent_.monitor_->ready(); }

 private:
   LiveAgent& agent_;
};

class LiveAgent::BridgeSource final : public EventSource {
 public:
   explicit BridgeSource(OpenFlow::Bridge& bridge) : bridge_(bridge) {}
   int fd() const override { return bridge_.fd(); }
   bool wantsWrite() const override { return bridge_.wantsWrite(); }
   void ready(bool readable, bool writable) override { bridge_.ready(readable, writable); }
   void turnEnds() override { bridge_.turnEnds(); }

 private:
   OpenFlow::Bridge& bridge_;
};

// ---- Life. ----

LiveAgent::LiveAgent(Configuration configuration, EventLoop& loop, Kernel::Socket& socket,
                     LiveLog& log, LinkControl linkControl)
      : configuration_(std::move(configuration)),
        loop_(loop),
        socket_(socket),
        log_(log),
        linkControl_(std::move(linkControl)),
        routes_({.mapped = [this](Qor::U32 ifindex) { return mapped(ifindex); },
                 .nameOf = [this](Qor::U32 ifindex) { return interfaceName(ifindex); },
                 .selectedTable =
                       [this](Lnet::IpFamily family, Qor::U32 ifindex) {
                          return monitor_->selectedTable(family, ifindex);
                       }}),
        keepAlive_(newKeepAlive()) {
   routes_.reroutesAre(configuration_.reroutes);
   routes_.onWithdrawn([this](Kernel::RouteKey const& key) { keepAlive_->forget(key); });
   makeMonitor();
}

LiveAgent::~LiveAgent() {
   if (monitorSource_) loop_.remove(*monitorSource_);
   if (bridgeSource_) loop_.remove(*bridgeSource_);
   if (bridge_) bridge_->listenerIs(nullptr);
}

void LiveAgent::makeMonitor() {
   Kernel::MonitorOptions options;
   if (!configuration_.tables.empty())
      options.ipv4Tables = options.ipv6Tables = configuration_.tables;
   monitor_ =
         std::make_unique<Kernel::Monitor>(options, socket_, static_cast<Kernel::Listener&>(*this));
   monitorSource_ = std::make_unique<MonitorSource>(*this);
   loop_.add(*monitorSource_);
}

void LiveAgent::startBridge() {
   OpenFlow::Options options;
   options.socket = configuration_.switchSocket;
   options.firstGroup = configuration_.firstGroup;
   options.lastGroup = configuration_.lastGroup;
   options.readingInterval = aliveInterval;
   options.standbyHold = configuration_.standbyHold;
   bridge_ = Qor::make<OpenFlow::Bridge>(options);
   bridge_->listenerIs(this);
   for (LiveInterface const& interface : configuration_.interfaces) {
      Intf const& numbers = interfaceMap_.intf(interface.intf);
      bridge_->portIs(interface.intf, numbers.port, numbers.vlan);
      interfaceToBridge(interface);
   }
   bridgeSource_ = std::make_unique<BridgeSource>(*bridge_);
   loop_.add(*bridgeSource_);
   bridge_->start();
}

void LiveAgent::makeSwitch() {
   PlatformChoice choice;
   choice.path = PathKind::async;
   choice.virtualTime = false;
   choice.live = true;
   choice.explains = true;
   choice.make = [bridge = bridge_]() -> Qor::Ptr<VelMroute::Platform> { return bridge; };
   // The same names in the same order get the same numbers.
   InterfaceMap interfaces;
   for (auto const& intf : interfaceMap_.intfs())
      interfaces.intf(intf->id);
   switch_ = std::make_unique<Switch>(choice, std::move(interfaces));
   switch_->onHookFault([this](VelMroute::HookFault const& fault) {
      log_.warning(fmt::format("a hook broke its contract: {}", fault));
   });
   for (L3::VrfName const& vrf : vrfs_)
      switch_->learnVrf(vrf);
   // A link that went down before the first route has no route to protect.
   for (LiveInterface const& interface : configuration_.interfaces) {
      switch_->learnIntf(interface.intf);
      // An agent that was killed leaves its disabled ports behind.
      Kernel::Link const* const cpu = monitor_->link(interface.cpu);
      if (cpu && !cpu->adminUp) disabled_.insert(interface.cpu);
      linkStateIs(interface.intf, bridge_->portUp(interface.port).value_or(false));
   }
   switch_->programmer().onChanges([this] { later_.in(0, [this] { lookAtChanges(); }); });
   routes_.switchIs(switch_.get());
   switch_->programmer().resyncEnd();
   lookForReady();
}

void LiveAgent::lookForReady() {
   Programmer const& programmer = switch_->programmer();
   if (programmer.resyncing() || !programmer.placedAll()) {
      later_.in(lookInterval, [this] { lookForReady(); });
      return;
   }
   auto const counters = programmer.counters();
   log_.notice(fmt::format(
         "{} routes of the kernel, {} of them in hardware; {} groups and entries taken "
         "over, {} removed",
         routes_.routes().size(), programmer.routes(), counters.adopted, counters.swept));
   if (ready_) ready_();
}

void LiveAgent::lookAtChanges() {
   constexpr Qor::U32 most = 512;
   bool const more =
         switch_->programmer().changes(most, [this](L3::VrfName const& vrf, RouteKey const& key) {
            auto const notified = notifiedAt_.find({vrf, key});
            if (notified == notifiedAt_.end()) return;
            auto const view = std::as_const(*switch_).programmer().view(vrf, key);
            if (view && view->state() != VelMroute::RouteState::inHardware) return;
            if (view && programmed_) programmed_(Qor::now() - notified->second);
            notifiedAt_.erase(notified);
         });
   if (more) later_.in(0, [this] { lookAtChanges(); });
}

void LiveAgent::end(bool flush, std::function<void()> ended) {
   ended_ = std::move(ended);
   if (std::exchange(ending_, true)) return;
   flush_ = flush;
   endBy_ = Qor::now() + longestEnd;
   if (switch_) switch_->programmer().end(Programmer::End::leave);
   routes_.switchIs(nullptr);  // the kernel's routes go on changing, and the programmer takes none
   endStep();
}

// First the writes that are under way, and then, with `flush`, the deletion of everything.
void LiveAgent::endStep() {
   bool const writes = isConnected() && switch_ && Qor::now() < endBy_ &&
                       (!switch_->programmer().ended() || bridge_->writesPending());
   if (!writes && flush_ && isConnected() && Qor::now() < endBy_) {
      flush_ = false;
      cleared_ = true;
      bridge_->clear();
      return later_.in(lookInterval, [this] { endStep(); });
   }
   if (writes || (isConnected() && bridge_->writesPending() && Qor::now() < endBy_))
      return later_.in(lookInterval, [this] { endStep(); });
   if (isConnected() && bridge_->writesPending())
      log_.warning("the bridge has not confirmed the last writes");
   for (std::string const& cpu : std::exchange(disabled_, {})) {
      if (Kernel::Link const* const link = monitor_->link(cpu)) linkControl_(link->index, true);
   }
   if (flush_) log_.warning("the bridge is not cleared, because it is not connected");
   log_.notice(cleared_ ? "ended; the bridge is cleared" : "ended; the bridge forwards on");
   if (bridge_) bridge_->stop();
   if (ended_) ended_();
}

std::vector<std::string> LiveAgent::configurationIs(Configuration configuration) {
   std::vector<std::string> left;
   auto const fixed = [&](char const* name, bool same) {
      if (!same) left.emplace_back(name);
   };
   Configuration const before = std::exchange(configuration_, std::move(configuration));
   Configuration& now = configuration_;
   fixed("switch", before.switchSocket == now.switchSocket);
   fixed("table", before.tables == now.tables);
   fixed("control", before.control == now.control);
   fixed("metrics", before.metrics == now.metrics);
   fixed("groups", before.firstGroup == now.firstGroup && before.lastGroup == now.lastGroup);
   fixed("standby-hold", before.standbyHold == now.standbyHold);
   keepAlive_->expiryIs(now.expiry);
   routes_.reroutesAre(now.reroutes);
   if (bridge_) {
      for (LiveInterface const& old : before.interfaces) {
         LiveInterface const* const interface = now.interface(old.intf);
         // The front port that the CPU port has followed is no longer its own.
         bool const follows = interface && interface->cpu == old.cpu && interface->standby.empty();
         if (!follows) cpuPortIs(old, true);
         if (interface) continue;
         bridge_->interfaceDel(old.intf);
         frontLinks_.erase(old.intf);
      }
      for (LiveInterface const& interface : now.interfaces) {
         LiveInterface const* const old = before.interface(interface.intf);
         if (old && old->sameAs(interface)) continue;
         if (switch_) {
            switch_->learnIntf(interface.intf);
         } else {
            Intf const& numbers = interfaceMap_.intf(interface.intf);
            bridge_->portIs(interface.intf, numbers.port, numbers.vlan);
         }
         interfaceToBridge(interface);
         linkStateIs(interface.intf, bridge_->portUp(interface.port).value_or(false));
         cpuPortFollows(interface.intf);
      }
   }
   routes_.decideAll();
   return left;
}

// ---- Routes. ----

void LiveAgent::routeIs(Kernel::RouteKey const& key, Kernel::Route const& route) {
   // A packet makes the restarted daemon look for the route. Until it has one, the former stays.
   if (route.unresolved && (deleted_.contains(key) || isHeld(key))) return;
   deleted_.erase(key);
   if (auto const held = held_.find(key.table); held != held_.end()) held->second.routes.erase(key);
   routes_.routeIs(key, route);
   LiveRoutes::Known const* const known = routes_.find(key);
   if (known->wanted && !inHardware(*known)) notifiedAt_.try_emplace(known->id, Qor::now());
}

void LiveAgent::routeDel(Kernel::RouteKey const& key) {
   if (!isHeld(key)) deleted_.insert(key);
}

void LiveAgent::routesEnd(bool more) {
   if (deleted_.empty() || more) return;
   if (configuration_.holdOnDaemonRestart <= 0) return deleteOrHold();
   if (!std::exchange(deleting_, true)) later_.in(emptyingTime, [this] { deleteOrHold(); });
}

// A daemon that ends takes all routes of its table with it. A table with one route is not held,
// because that is how a last route ends, too.
void LiveAgent::deleteOrHold() {
   deleting_ = false;
   std::map<Qor::U32, Qor::U32> deleted;
   for (Kernel::RouteKey const& key : deleted_)
      ++deleted[key.table];
   if (configuration_.holdOnDaemonRestart > 0) {
      for (auto const& [table, count] : deleted) {
         auto const held = held_.find(table);
         auto const without = count + (held == held_.end() ? 0 : held->second.routes.size());
         if (without > 1 && without == routes_.count(table)) hold(table);
      }
   }
   for (Kernel::RouteKey const& key : std::exchange(deleted_, {}))
      routes_.routeDel(key);
}

bool LiveAgent::isHeld(Kernel::RouteKey const& key) const {
   auto const held = held_.find(key.table);
   return held != held_.end() && held->second.routes.contains(key);
}

void LiveAgent::hold(Qor::U32 table) {
   Held& held = held_[table];
   held.until = Qor::now() + configuration_.holdOnDaemonRestart;
   std::erase_if(deleted_, [&](Kernel::RouteKey const& key) {
      if (key.table == table) held.routes.insert(key);
      return key.table == table;
   });
   ++numbers_.held;
   log_.notice(fmt::format("table {} is empty at once; its {} routes stay for {} s", table,
                           held.routes.size(), configuration_.holdOnDaemonRestart));
   later_.in(configuration_.holdOnDaemonRestart, [this, table] { releaseHeld(table); });
}

void LiveAgent::releaseHeld(Qor::U32 table) {
   auto const found = held_.find(table);
   if (found == held_.end() || Qor::now() < found->second.until) return;
   auto const routes = std::exchange(found->second.routes, {});
   held_.erase(found);
   if (routes.empty()) return;
   log_.notice(fmt::format("{} routes of table {} have not come back", routes.size(), table));
   for (Kernel::RouteKey const& key : routes)
      routes_.routeDel(key);
}

void LiveAgent::rulesChanged(Lnet::IpFamily) {
   decideLater();
}

void LiveAgent::synced() {
   if (bridge_ || (synced_ && !std::exchange(synced_, nullptr)())) return;
   for (std::string const& note : interfaceNotes())
      log_.warning(note);
   startBridge();
}

void LiveAgent::overrun() {
   log_.warning("notifications of the kernel were lost; its tables are read again");
}

void LiveAgent::failed() {
   log_.error("the kernel's socket has failed");
   if (failed_) failed_();
}

// ---- The bridge. ----

void LiveAgent::connected() {
   ++numbers_.connections;
   disconnected_.clear();
   log_.notice("connected to " + configuration_.switchSocket);
   if (ending_) return;
   if (!switch_) {
      makeSwitch();
   } else {
      for (LiveInterface const& interface : configuration_.interfaces)
         linkStateIs(interface.intf, bridge_->portUp(interface.port).value_or(false));
   }
}

void LiveAgent::lost(std::string const& reason) {
   ++numbers_.lost;
   disconnected_ = "the bridge is not connected: " + reason;
   log_.warning(disconnected_);
}

void LiveAgent::refused(std::string const& reason) {
   ++numbers_.refused;
   disconnected_ = "the bridge is refused: " + reason;
   log_.error(disconnected_);
}

void LiveAgent::linkChanged(IntfId intf, bool up) {
   if (switch_) linkStateIs(intf, up);
}

void LiveAgent::protectionChanged(IntfId intf, bool onStandby) {
   LiveInterface const* const interface = configuration_.interface(intf);
   if (!interface) return;
   numbers_.reroutes += onStandby;
   log_.notice(intf.name() + " sends by " +
               (onStandby ? "standby port " + interface->standby : "port " + interface->port));
}

void LiveAgent::portChanged(std::string const& name, bool there) {
   log_.info("the bridge " + std::string(there ? "has" : "no longer has") + " port " + name);
}

void LiveAgent::refresh(std::function<void()> done) {
   if (!isConnected()) return done();
   bridge_->view()->refresh([done = std::move(done)](bool) { done(); });
}

// ---- State. ----

std::optional<RouteView> LiveAgent::viewOf(LiveRoutes::Known const& known) const {
   if (!switch_ || !known.wanted) return std::nullopt;
   return std::as_const(*switch_).programmer().view(known.id.vrf, known.id.key);
}

bool LiveAgent::inHardware(LiveRoutes::Known const& known) const {
   auto const view = viewOf(known);
   return view && view->state() == VelMroute::RouteState::inHardware;
}

LiveAgent::KnownState LiveAgent::stateOf(Kernel::RouteKey const& key,
                                         LiveRoutes::Known const& known) const {
   RouteDecision const& decision = known.decision;
   if (!decision.inHardware()) {
      return {.state = ReportedState::trapped,
              .trapReason = nameOf(decision.reason),
              .reason = decision.text};
   }
   auto const view = viewOf(known);
   if (!view)
      return {.state = ReportedState::waiting, .waitsFor = "switch", .reason = disconnected_};
   KnownState state{.state = reportedState(view->state()),
                    .waitsFor = std::string(waitsFor(view->state())),
                    .reason = view->reason()};
   if (state.state != ReportedState::offloaded) return state;
   if (isHeld(key)) state.reason = "held: its daemon restarts";
   state.fault = keepAlive_->fault(key).value_or("");
   return state;
}

std::unique_ptr<KeepAlive> LiveAgent::newKeepAlive() {
   KeepAlive::Calls calls;
   calls.next =
         [this](std::optional<Kernel::RouteKey> const& behind) -> std::optional<Kernel::RouteKey> {
      auto const& routes = routes_.routes();
      for (auto it = behind ? routes.upper_bound(*behind) : routes.begin(); it != routes.end();
           ++it) {
         if (inHardware(it->second)) return it->first;
      }
      return std::nullopt;
   };
   calls.count = [this]() -> std::size_t {
      if (!switch_) return 0;
      Programmer const& programmer = switch_->programmer();
      return programmer.routes() - programmer.waiting();
   };
   calls.lastAccessed = [this](Kernel::RouteKey const& key) -> Qor::Seconds {
      LiveRoutes::Known const* const known = routes_.find(key);
      auto const view = known ? viewOf(*known) : std::nullopt;
      if (!view || view->handle().isNull()) return 0;
      return bridge_->asyncHooks()->routeLastAccessedTime(view->handle());
   };
   calls.send = [this](Kernel::RouteKey const& key, std::span<Qor::U8 const> frame) {
      LiveRoutes::Known const* const known = routes_.find(key);
      return known && isConnected() && bridge_->packetOut(frame, known->decision.input);
   };
   calls.ask = [this](Kernel::RouteKey const& key, Kernel::RouteAnswered answered) {
      monitor_->ask(key, std::move(answered));
   };
   return std::make_unique<KeepAlive>(configuration_.expiry, std::move(calls));
}

}  // namespace Agent
