// The changes that each message causes.
#include <cerrno>

#include "kernel/MonitorState.h"

namespace Kernel {

using Lnet::IpFamily;
using Qor::U32;

void MonitorState::handle(Message& message) {
   // A notification may carry the number of another socket, whose request caused the change.
   if (message.port != socket_.port()) return handleNotification(message);
   if (dump_ && dump_->sequence == message.sequence) return handleRecord(message);
   if (auto ask = asks_.take(message.sequence)) handleAnswer(*ask, message);
}

void MonitorState::handleNotification(Message& message) {
   if (auto const* route = std::get_if<RouteMessage>(&message.content)) {
      notifiedRoute(*route);
   } else if (auto const* link = std::get_if<LinkMessage>(&message.content)) {
      if (links_.linkIs(*link, false)) {
         tablesChanged(IpFamily::v4);
         tablesChanged(IpFamily::v6);
      }
   } else if (auto const* address = std::get_if<AddressMessage>(&message.content)) {
      links_.addressIs(*address, false);
   } else if (auto const* rule = std::get_if<RuleMessage>(&message.content)) {
      for (Unit& unit : units_)
         unit.wanted |= unit.kind == Unit::Kind::rules && unit.family == rule->family;
   } else if (auto const* forwarding = std::get_if<ForwardingMessage>(&message.content)) {
      tablesChanged(forwarding->family);
   }
}

void MonitorState::notifiedRoute(RouteMessage const& message) {
   ++counts_.notifications;
   IpFamily const family = message.key.family();
   if (Unit* const unit = unitOf(family, message.key.table); unit && !unit->exists) {
      unit->exists = true;
      rulesChanged_[isV6(family)] = true;
   }
   if (!followed(message.key)) return;
   if (dump_ && dump_->unit->family == family) {
      dump_->notified = true;
      dump_->deleted |= message.deleted;
   }
   routes_.notified(message.key, message.deleted ? nullptr : &message.route, Qor::now());
}

void MonitorState::handleRecord(Message& message) {
   dump_->interrupted |= message.interrupted;
   if (auto const* end = std::get_if<EndMessage>(&message.content)) {
      endDump(end->error);
   } else if (auto const* route = std::get_if<RouteMessage>(&message.content)) {
      listedRoute(*route);
   } else if (auto const* link = std::get_if<LinkMessage>(&message.content)) {
      links_.linkIs(*link, true);
   } else if (auto const* address = std::get_if<AddressMessage>(&message.content)) {
      links_.addressIs(*address, true);
   } else if (auto const* rule = std::get_if<RuleMessage>(&message.content)) {
      if (rule->family == dump_->unit->family) listedRules_.push_back(rule->rule);
   }
}

void MonitorState::listedRoute(RouteMessage const& message) {
   Unit const& unit = *dump_->unit;
   if (unit.kind != Unit::Kind::routes || message.key.table != unit.table ||
       message.key.family() != unit.family) {
      return;
   }
   switch (routes_.listed(message.key, message.route, Qor::now())) {
      case RouteTable::Listing::known:
         break;
      case RouteTable::Listing::revealed:
         dump_->revealed = true;
         if (unit.round != 0) ++counts_.missedByDumps;
         break;
      case RouteTable::Listing::conflict:
         asks_.add(message.key, false, {});
         break;
   }
}

void MonitorState::handleAnswer(RouteAsks::Ask& ask, Message& message) {
   RouteAnswer answer = RouteAnswer::unanswered;
   Route state;
   if (auto const* route = std::get_if<RouteMessage>(&message.content)) {
      if (route->key == ask.key) {
         answer = RouteAnswer::present;
         state = route->route;
         if (followed(ask.key)) routes_.answered(ask.key, &state, Qor::now());
         if (ask.lacking) ++counts_.missedByDumps;
      }
   } else if (auto const* end = std::get_if<EndMessage>(&message.content)) {
      if (handleRefusal(ask, end->error)) answer = RouteAnswer::absent;
   }
   for (RouteAnswered const& answered : ask.answered)
      answered(ask.key, answer, state);
}

// Returns whether the table has no such route.
bool MonitorState::handleRefusal(RouteAsks::Ask const& ask, int error) {
   IpFamily const family = ask.key.family();
   if (error == ENOENT) {
      // The answer is the same for a route that is unresolved. If a dump lacked the route, too, the
      // route is believed to have gone; it is notified again when it is resolved.
      Route const* const latest = routes_.latest(ask.key);
      if (latest && (!latest->unresolved || ask.lacking)) {
         routes_.answered(ask.key, nullptr, Qor::now());
      }
      return true;
   }
   bool const known = error == ENOMEM || error == ENOBUFS;  // the kernel has such a request
   if (!known) withoutRequest_[isV6(family)] = true;
   Unit* const unit = unitOf(family, ask.key.table);
   if (!unit || !ask.lacking) return false;
   // Another dump decides.
   if (known) {
      unit->blocked = true;
      retryAfter(soon);
   } else {
      unit->wanted = true;
   }
   return false;
}

void MonitorState::handleOverrun() {
   ++counts_.overruns;
   if (std::exchange(draining_, true)) return;
   abandonDump();
   asks_.lost();
   synced_ = false;
   announce_ = true;
   listener_.overrun();
}

void MonitorState::fail() {
   failed_ = true;
   synced_ = false;
   abandonDump();
   for (RouteAsks::Ask const& ask : asks_.takeAll()) {
      for (RouteAnswered const& answered : ask.answered)
         answered(ask.key, RouteAnswer::unanswered, {});
   }
   listener_.failed();
   clock_->timeMinIs(Qor::never);
}

}  // namespace Kernel
