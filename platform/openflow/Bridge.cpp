#include "platform/openflow/Bridge.h"

#include <fmt/format.h>

#include <chrono>
#include <utility>

#include "platform/PlatformOptions.h"
#include "platform/openflow/Connection.h"
#include "platform/openflow/Readings.h"
#include "platform/openflow/TableView.h"
#include "platform/openflow/Tables.h"

namespace OpenFlow {

using Lnet::IntfId;

namespace {

constexpr Qor::Seconds repairMin = 1;
constexpr Qor::Seconds repairMax = 300;
constexpr Qor::Seconds answerAllowed = 30;

U64 microsecondsSince1970() {
   auto const since = std::chrono::system_clock::now().time_since_epoch();
   return static_cast<U64>(std::chrono::duration_cast<std::chrono::microseconds>(since).count());
}

Options checked(Options options) {
   if (options.lastGroup < options.firstGroup ||
       options.lastGroup - options.firstGroup <= options.interfaces ||
       options.lastGroup > 0xffffff00) {
      throw VelMroute::PlatformOptionError("the range of group ids has no room for routes");
   }
   if (!options.generation) options.generation = microsecondsSince1970;
   return options;
}

// The reason why a bridge with this flow cannot be used; empty if it can.
std::string objectionTo(Flow const& flow) {
   constexpr U32 normal = 0xfffffffa, flood = 0xfffffffb, all = 0xfffffffc;
   if ((flow.cookie & ownCookies) == cookieMagic) return {};
   char const* what = flow.match.matchesAll() ? "matches everything" : nullptr;
   for (Action const& action : flow.actions) {
      if (action.kind != Action::Kind::output) continue;
      if (action.value == normal) what = "outputs to NORMAL";
      if (action.value == flood || action.value == all) what = "floods";
   }
   if (!what) return {};
   return fmt::format("the bridge has a foreign flow that {} (table {}, priority {}, cookie {:#x})",
                      what, flow.table, flow.priority, flow.cookie);
}

}  // namespace

class Bridge::Impl final : private Connection::Owner, private Tables::Sender {
 public:
   explicit Impl(Options options);
   ~Impl();

   bool interfaceIs(Port const& port);
   void interfaceDel(IntfId intf);
   void portVlanIs(IntfId intf, Bridging::VlanIdOrNone vlan);
   void changed(std::vector<Pipeline::Change> const& changes, bool urgent);
   void start();
   void stop();
   void clear();
   void turnEnds();
   bool packetOut(Bytes packet, IntfId intf);

   Options const options_;
   Listener* listener_ = nullptr;
   Qor::Ptr<Tables> const tables_;
   Connection connection_;
   TableView view_;
   bool connected_ = false;
   Numbers mutable numbers_;

 private:
   class QorClock final : public Qor::Clock::Notifiee {
    public:
      QorClock(Impl* impl, void (Impl::*handle)(), Qor::Clock const& clock)
            : impl_(impl), handle_(handle) {
         notifierIs(&clock);
      }
      void onTime() override { (impl_->*handle_)(); }

    private:
      Impl* const impl_;
      void (Impl::*const handle_)();
   };

   // ---- Connection::Owner ----
   void opened() override;
   void received(Header const& header, Bytes body) override;
   void closed(std::string const& reason) override;
   void replaced() override;
   // ---- Tables::Sender ----
   U32 send(std::string message) override { return connection_.send(std::move(message)); }
   U32 nextXid() override { return connection_.nextXid(); }
   std::size_t unsent() const override { return connection_.unsent(); }
   bool sends() const override { return connected_; }
   void flush() override { connection_.flush(); }
   void differs() override;

   void ended();
   void errorIs(U32 xid, Error error);
   void portStatus(Bytes body);
   using Taken = std::function<void(Tables::Content const*)>;
   void readTables(U64 cookie, U64 cookieMask, Taken const& taken);
   void readPorts();
   void synchronize();
   void compare(Tables::Content const& content);
   void refuse(std::string const& reason);
   void handleReading();
   void readCounts(Aggregate const& aggregate, Qor::Seconds asked);
   void handleHold();
   void handleRepair();

   Readings readings_;
   std::string lastText_;  // of the listener, so that each text is passed once
   bool refusing_ = false;
   bool reading_ = false;  // packet counts
   std::optional<Aggregate> lastAggregate_;
   Qor::Seconds repair_ = repairMin;
   Qor::Ptr<Qor::Clock> const readingClock_;
   Qor::Ptr<Qor::Clock> const holdClock_;
   Qor::Ptr<Qor::Clock> const repairClock_;
   QorClock readingReactor_;
   QorClock holdReactor_;
   QorClock repairReactor_;
};

Bridge::Impl::Impl(Options options)
      : options_(checked(std::move(options))),
        tables_(Qor::make<Tables>(options_)),
        connection_(options_, *this),
        view_(*tables_,
              [this](Taken const& taken) {
                 if (!connected_) return taken(nullptr);
                 readTables(cookieOf(CookieKind::route), kindCookies, taken);
              }),
        readingClock_(Qor::make<Qor::Clock>("bridge reading")),
        holdClock_(Qor::make<Qor::Clock>("bridge hold")),
        repairClock_(Qor::make<Qor::Clock>("bridge repair")),
        readingReactor_(this, &Impl::handleReading, *readingClock_),
        holdReactor_(this, &Impl::handleHold, *holdClock_),
        repairReactor_(this, &Impl::handleRepair, *repairClock_) {
   tables_->senderIs(this);
}

Bridge::Impl::~Impl() {
   tables_->interrupted();
   tables_->senderIs(nullptr);
}

// ---- The connection ----

void Bridge::Impl::start() {
   lastText_.clear();
   connection_.start();
}

void Bridge::Impl::stop() {
   connection_.stop();
   ended();
}

void Bridge::Impl::ended() {
   connected_ = false;
   tables_->interrupted();
   reading_ = false;
   lastAggregate_.reset();
   readingClock_->timeMinIs(Qor::never);
   repairClock_->timeMinIs(Qor::never);
   readings_.dropAll();
}

void Bridge::Impl::opened() {
   readPorts();
}

void Bridge::Impl::closed(std::string const& reason) {
   bool const was = connected_;
   ended();
   if (refusing_) return;
   bool const repeated = std::exchange(lastText_, reason) == reason && !was;
   if (!repeated && listener_) listener_->lost(reason);
}

void Bridge::Impl::replaced() {
   ended();
   if (listener_) listener_->refused("another agent has taken the bridge over");
}

// The connection closes before the text is passed, so that the listener sees it closed.
void Bridge::Impl::refuse(std::string const& reason) {
   refusing_ = true;
   connection_.fail(reason);
   refusing_ = false;
   if (std::exchange(lastText_, reason) != reason && listener_) listener_->refused(reason);
}

void Bridge::Impl::received(Header const& header, Bytes body) {
   switch (header.type) {
      case MessageType::error:
         return errorIs(header.xid, errorOf(body));
      case MessageType::barrierReply:
         if (tables_->queue().barrierAnswered(header.xid)) {
            numbers_.lastBarrier = tables_->queue().lastBarrier();
         }
         return;
      case MessageType::multipartReply:
         return readings_.answer(header.xid, body);
      case MessageType::portStatus:
         return portStatus(body);
      default:
         return;
   }
}

void Bridge::Impl::errorIs(U32 xid, Error error) {
   ++numbers_.errors;
   if (tables_->queue().errorIs(xid, error)) return;
   if (readings_.error(xid)) return tables_->note("a reading: " + textOf(error));
   tables_->note("no write of the platform: " + textOf(error));
}

// ---- Reading, and writing the differences ----

void Bridge::Impl::readPorts() {
   auto const ports = std::make_shared<std::vector<PortDesc>>();
   readings_.add(
         connection_.send(portDescRequest()), Multipart::portDesc,
         [ports](Bytes body) { portsOf(body, *ports); },
         [this, ports](bool good) {
            if (!good) {
               if (connection_.open()) connection_.fail("the bridge does not list its ports");
               return;
            }
            changed(tables_->pipeline().portsAre(*ports), false);
            synchronize();
         });
   connection_.flush();
}

void Bridge::Impl::readTables(U64 cookie, U64 cookieMask, Taken const& taken) {
   auto const content = std::make_shared<Tables::Content>();
   auto const good = std::make_shared<bool>(true);
   readings_.add(
         connection_.send(groupDescRequest()), Multipart::groupDesc,
         [content](Bytes body) { groupsOf(body, content->groups); },
         [good](bool read) { *good = *good && read; });
   readings_.add(
         connection_.send(flowDescRequest(cookie, cookieMask)), Multipart::flowDesc,
         [content](Bytes body) { flowsOf(body, content->flows); },
         [content, good, taken](bool read) { taken(*good && read ? content.get() : nullptr); });
   connection_.flush();
}

// Reads all flows, since a foreign flow may make the bridge useless.
void Bridge::Impl::synchronize() {
   readTables(0, 0, [this](Tables::Content const* content) {
      if (content) return compare(*content);
      if (connection_.open()) connection_.fail("the bridge does not list its tables");
   });
}

void Bridge::Impl::compare(Tables::Content const& content) {
   for (Flow const& flow : content.flows) {
      std::string const objection = objectionTo(flow);
      if (!objection.empty()) return refuse(objection);
   }
   bool const first = !connected_;
   connected_ = true;
   lastText_.clear();
   connection_.proved();
   tables_->resync(content);
   if (!first) return;
   ++numbers_.connections;
   repair_ = repairMin;
   readingClock_->timeMinIs(Qor::now() + options_.readingInterval);
   if (listener_) listener_->connected();
}

void Bridge::Impl::differs() {
   if (!connected_ || repairClock_->timeMin() != Qor::never) return;
   repairClock_->timeMinIs(Qor::now() + repair_);
   repair_ = std::min(repair_ * 2, repairMax);
}

// The writes under way are made good by the comparison, as after a lost connection.
void Bridge::Impl::handleRepair() {
   repairClock_->timeMinIs(Qor::never);
   if (!connected_) return;
   // The comparison takes the tables for the result of all writes, so none may be under way.
   if (!tables_->queue().empty()) return repairClock_->timeMinIs(Qor::now() + repairMin);
   tables_->interrupted();
   synchronize();
}

void Bridge::Impl::clear() {
   if (connected_) tables_->clear();
}

void Bridge::Impl::turnEnds() {
   if (connected_) {
      tables_->queue().turnEnds();
      if (tables_->queue().waitingForBarrier() > answerAllowed) {
         return connection_.fail("no answer to a barrier");
      }
   }
   if (readings_.waiting() > answerAllowed) return connection_.fail("no answer to a question");
   connection_.flush();
}

bool Bridge::Impl::packetOut(Bytes packet, IntfId intf) {
   constexpr std::size_t most = 0x8000;
   auto const port = tables_->pipeline().cpuPort(intf);
   if (!connected_ || !port || packet.size() > most || connection_.unsent() > (1 << 20)) {
      return false;
   }
   connection_.send(OpenFlow::packetOut(packet, *port));
   return true;
}

// ---- Ports and interfaces ----

void Bridge::Impl::portStatus(Bytes body) {
   auto const [reason, port] = portStatusOf(body);
   Pipeline& pipeline = tables_->pipeline();
   bool const was = pipeline.port(port.name) != nullptr;
   changed(reason == PortReason::deletion ? pipeline.portDel(port) : pipeline.portIs(port), true);
   bool const is = pipeline.port(port.name) != nullptr;
   if (was != is && listener_) listener_->portChanged(port.name, is);
}

// The tables are written before the listener is notified.
void Bridge::Impl::changed(std::vector<Pipeline::Change> const& changes, bool urgent) {
   if (connected_) tables_->writePipeline(urgent);
   if (connected_ && urgent) turnEnds();
   holdClock_->timeMinIs(tables_->pipeline().nextHoldEnd());
   for (Pipeline::Change const& change : changes) {
      if (change.onStandby && listener_) {
         listener_->protectionChanged(change.intf, *change.onStandby);
      }
      if (change.link && listener_) listener_->linkChanged(change.intf, *change.link);
   }
}

bool Bridge::Impl::interfaceIs(Port const& port) {
   if (!tables_->pipeline().interfaceIs(port)) return false;
   changed(tables_->pipeline().refresh(), false);
   return true;
}

void Bridge::Impl::interfaceDel(IntfId intf) {
   tables_->pipeline().interfaceDel(intf);
   changed(tables_->pipeline().refresh(), false);
}

void Bridge::Impl::portVlanIs(IntfId intf, Bridging::VlanIdOrNone vlan) {
   tables_->pipeline().vlanIs(intf, vlan);
   changed({}, false);
}

void Bridge::Impl::handleHold() {
   changed(tables_->pipeline().refresh(), true);
}

// ---- Packet counts ----

// A reading that is still under way is not joined by another one.
void Bridge::Impl::handleReading() {
   readingClock_->timeMinIs(Qor::now() + options_.readingInterval);
   if (!connected_ || reading_ || tables_->routesThere() == 0) return;
   reading_ = true;
   ++numbers_.readings;
   auto const aggregate = std::make_shared<Aggregate>();
   Qor::Seconds const asked = Qor::now();
   // Without a write meanwhile, the number of flows is known.
   bool const quiet = tables_->queue().empty();
   U64 const writes = tables_->flowWrites();
   readings_.add(
         connection_.send(aggregateRequest(cookieOf(CookieKind::route), kindCookies)),
         Multipart::aggregateStats, [aggregate](Bytes body) { *aggregate = aggregateOf(body); },
         [this, aggregate, asked, quiet, writes](bool good) {
            if (!good) {
               reading_ = false;
               return;
            }
            bool const waits = repairClock_->timeMin() != Qor::never;
            if (quiet && !waits && writes == tables_->flowWrites() &&
                aggregate->flows != tables_->routeFlowsThere()) {
               tables_->note("another program has changed the flows of routes");
               differs();
            }
            readCounts(*aggregate, asked);
         });
   connection_.flush();
}

void Bridge::Impl::readCounts(Aggregate const& aggregate, Qor::Seconds asked) {
   if (lastAggregate_ == aggregate) {
      reading_ = false;
      return;
   }
   ++numbers_.fullReadings;
   auto const flows = std::make_shared<std::vector<Flow>>();
   readings_.add(
         connection_.send(flowDescRequest(cookieOf(CookieKind::route), kindCookies)),
         Multipart::flowDesc,
         [this, flows, asked](Bytes body) {
            flows->clear();
            flowsOf(body, *flows);
            for (Flow const& flow : *flows) {
               if (!isOwn(flow.cookie, CookieKind::route)) continue;
               tables_->countIs(static_cast<U32>(flow.cookie), flow.packets, asked);
            }
         },
         [this, aggregate](bool good) {
            reading_ = false;
            if (good) lastAggregate_ = aggregate;
         });
   connection_.flush();
}

// ---- Bridge ----

Bridge::Bridge(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Bridge::~Bridge() = default;

void Bridge::listenerIs(Listener* listener) {
   impl_->listener_ = listener;
}

bool Bridge::interfaceIs(Port const& port) {
   auto const self = hold();
   return impl_->interfaceIs(port);
}

void Bridge::interfaceDel(IntfId intf) {
   auto const self = hold();
   impl_->interfaceDel(intf);
}

void Bridge::protectionEnds(IntfId intf) {
   auto const self = hold();
   impl_->changed(impl_->tables_->pipeline().protectionEnds(intf), true);
}

bool Bridge::onStandby(IntfId intf) const {
   return impl_->tables_->pipeline().onStandby(intf);
}

std::optional<bool> Bridge::portUp(std::string const& name) const {
   PortDesc const* const port = impl_->tables_->pipeline().port(name);
   if (!port) return std::nullopt;
   return port->up;
}

void Bridge::start() {
   impl_->start();
}

void Bridge::stop() {
   impl_->stop();
}

void Bridge::clear() {
   impl_->clear();
}

int Bridge::fd() const {
   return impl_->connection_.fd();
}

bool Bridge::wantsWrite() const {
   return impl_->connection_.wantsWrite();
}

void Bridge::ready(bool readable, bool writable) {
   auto const self = hold();
   impl_->connection_.ready(readable, writable);
}

void Bridge::turnEnds() {
   auto const self = hold();
   impl_->turnEnds();
}

bool Bridge::connected() const {
   return impl_->connected_;
}

bool Bridge::packetOut(std::span<U8 const> packet, IntfId towardsCpuOf) {
   return impl_->packetOut(packet, towardsCpuOf);
}

Bridge::Numbers const& Bridge::numbers() const {
   Numbers& numbers = impl_->numbers_;
   numbers.groupWrites = impl_->tables_->groupWrites();
   numbers.flowWrites = impl_->tables_->flowWrites();
   numbers.barriers = impl_->tables_->queue().barriers();
   return numbers;
}

VelMroute::Abilities Bridge::abilities() const {
   VelMroute::Abilities all;
   all.missToCpu = all.otherInputPasses = true;
   all.cpu = false;  // a copy to the CPU beside the others would be forwarded twice
   return all;
}

Qor::Ptr<VelHelper::AsyncMrouteHelper> Bridge::asyncHooks() {
   return impl_->tables_;
}

VelMroute::View* Bridge::view() {
   return &impl_->view_;
}

VelMroute::Restart* Bridge::restart() {
   return impl_->tables_.get();
}

bool Bridge::portIs(IntfId intf, U32, Bridging::VlanIdOrNone vlan) {
   auto const self = hold();
   impl_->portVlanIs(intf, vlan);
   return true;
}

bool Bridge::writesPending() const {
   return impl_->tables_->writesPending();
}

std::vector<Qor::String> Bridge::violations() const {
   return impl_->tables_->violations();
}

std::vector<Qor::String> Bridge::audit() const {
   std::vector<Qor::String> all = violations();
   auto const& notes = impl_->tables_->notes();
   all.insert(all.end(), notes.begin(), notes.end());
   return all;
}

}  // namespace OpenFlow
