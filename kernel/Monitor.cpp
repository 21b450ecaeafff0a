#include "kernel/Monitor.h"

#include <algorithm>

#include "kernel/MonitorState.h"

namespace Kernel {

using Lnet::IpFamily;
using Qor::Seconds;
using Qor::U32;

Monitor::Monitor(MonitorOptions options, Socket& socket, Listener& listener)
      : state_(std::make_unique<MonitorState>(std::move(options), socket, listener)) {}

Monitor::~Monitor() = default;

int Monitor::fd() const {
   return state_->socket().fd();
}

void Monitor::ready() {
   state_->ready();
}

bool Monitor::synced() const {
   return state_->synced();
}

void Monitor::refresh() {
   state_->refresh();
}

void Monitor::ask(RouteKey const& key, Answered answered) {
   state_->ask(key, std::move(answered));
}

Route const* Monitor::route(RouteKey const& key) const {
   return state_->routes().shown(key);
}

U32 Monitor::routes() const {
   return state_->routes().size();
}

Link const* Monitor::link(U32 index) const {
   return state_->links().find(index);
}

Link const* Monitor::link(std::string const& name) const {
   return state_->links().find(name);
}

void Monitor::forEachLink(std::function<void(Link const&)> const& visit) const {
   state_->links().forEach(visit);
}

std::vector<Rule> const& Monitor::rules(IpFamily family) const {
   return state_->rules(family);
}

U32 Monitor::selectedTable(IpFamily family, U32 input) const {
   return state_->selectedTable(family, input);
}

Monitor::Counts const& Monitor::counts() const {
   return state_->counts();
}

// ---- The turn. ----

MonitorState::MonitorState(MonitorOptions options, Socket& socket, Listener& listener)
      : options_(std::move(options)),
        socket_(socket),
        listener_(listener),
        routes_(options_.quietTime, options_.quietLimit) {
   units_.push_back({Unit::Kind::links});
   units_.push_back({Unit::Kind::addresses});
   for (IpFamily family : {IpFamily::v4, IpFamily::v6})
      units_.push_back({Unit::Kind::rules, family});
   for (U32 table : options_.ipv4Tables)
      units_.push_back({Unit::Kind::routes, IpFamily::v4, table});
   for (U32 table : options_.ipv6Tables)
      units_.push_back({Unit::Kind::routes, IpFamily::v6, table});
   clockReactor_.notifierIs(clock_.get());
   send();
}

void MonitorState::ready() {
   if (failed_) return;
   busy_ = true;
   bool more = true;
   std::size_t bytes = 0;
   for (U32 n = 0; more && n < options_.messagesPerTurn && bytes < options_.bytesPerTurn; ++n) {
      std::span<std::byte const> datagram;
      Socket::Result const result = socket_.receive(datagram);
      more = result != Socket::Result::empty;
      if (result == Socket::Result::failed) return fail();
      if (result == Socket::Result::overrun) handleOverrun();
      if (result != Socket::Result::message) continue;
      bytes += datagram.size();
      MessageReader reader(datagram);
      Message message;
      for (auto read = reader.next(message); read != MessageReader::Result::end;
           read = reader.next(message)) {
         if (read == MessageReader::Result::message) handle(message);
         if (read == MessageReader::Result::malformed) ++counts_.malformed;
      }
   }
   // The kernel drops notifications until the buffer is empty, so nothing is read before.
   if (!more && std::exchange(draining_, false)) wantAll();
   work();
}

void MonitorState::refresh() {
   announce_ = true;
   wantTables(IpFamily::v4);
   wantTables(IpFamily::v6);
   if (!busy_) send();
}

void MonitorState::ask(RouteKey const& key, RouteAnswered answered) {
   if (failed_) return answered(key, RouteAnswer::unanswered, {});
   asks_.add(key, false, std::move(answered));
   if (!busy_) send();
}

void MonitorState::handleClock() {
   if (draining_) return ready();
   Seconds const now = Qor::now();
   busy_ = true;
   if (staleDue_ <= now) {
      staleDue_ = Qor::never;
      for (IpFamily family : {IpFamily::v4, IpFamily::v6}) {
         if (std::exchange(staleTables_[isV6(family)], false)) wantTables(family);
      }
   }
   if (retryAt_ <= now) {
      retryAt_ = Qor::never;
      for (Unit& unit : units_)
         unit.wanted |= std::exchange(unit.blocked, false) | std::exchange(unit.later, false);
   }
   if (started_ && !failed_) routes_.notify(listener_, now, options_.routesPerTurn);
   work();
}

// Calls the listener, then sends, since a listener may have asked for more.
void MonitorState::work() {
   if (failed_) return clock_->timeMinIs(Qor::never);
   busy_ = true;
   startNext();
   notifyLinks();
   notifyProgress();
   busy_ = false;
   send();
}

void MonitorState::send() {
   startNext();
   if (!draining_ && !asks_.send(socket_, sequence_)) retryAfter(soon);
   Seconds next = std::min(staleDue_, retryAt_);
   if (started_) next = std::min(next, routes_.nextDue());
   // A turn may have ended behind the last message, and then the socket is not readable any more.
   if (draining_) next = Qor::now();
   clock_->timeMinIs(next);
}

void MonitorState::notifyLinks() {
   if (!draining_ && !readingLinks()) links_.notify(listener_);
}

// The reading is complete when nothing is wanted and no route waits for its confirmation. All
// changes that it revealed have been notified `quietLimit` later.
void MonitorState::notifyProgress() {
   if (reading()) {
      completeAt_ = Qor::never;
      return;
   }
   for (IpFamily family : {IpFamily::v4, IpFamily::v6}) {
      if (std::exchange(rulesChanged_[isV6(family)], false)) listener_.rulesChanged(family);
   }
   started_ = true;
   if (!announce_) return;
   completeAt_ = std::min(completeAt_, Qor::now());
   bool const settled = routes_.nextDue() > completeAt_ + options_.quietLimit;
   if (!settled) return;
   announce_ = false;
   synced_ = true;
   completeAt_ = Qor::never;
   listener_.synced();
}

U32 MonitorState::selectedTable(IpFamily family, U32 input) const {
   Link const* const link = links_.find(input);
   if (!link) return 0;
   RuleInput of{link->name, {}, 0};
   Link const* const master = link->master != 0 ? links_.find(link->master) : nullptr;
   if (master && master->vrfTable != 0) {
      of.vrf = master->name;
      of.vrfTable = master->vrfTable;
   }
   return Kernel::selectedTable(rules(family), of, [&](U32 table) {
      Unit const* const unit = unitOf(family, table);
      return unit && unit->exists;
   });
}

}  // namespace Kernel
