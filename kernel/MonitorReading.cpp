// The reading of the kernel's tables: the order of the dumps, and the conclusions from the end of one.
#include <algorithm>
#include <cerrno>
#include <set>

#include "kernel/MonitorState.h"

namespace Kernel {

using Lnet::IpFamily;
using Qor::Seconds;
using Qor::U32;

namespace {

constexpr U32 mostRounds = 8;
constexpr Seconds later = 1;

// The kernel could not begin or go on with a dump that it knows.
bool passing(int error) {
   return error == EBUSY || error == ENOBUFS || error == ENOMEM || error == EAGAIN;
}

}  // namespace

void MonitorState::wantAll() {
   for (Unit& unit : units_) {
      unit.wanted = true;
      unit.blocked = unit.later = false;
      unit.round = 0;
   }
}

void MonitorState::wantTables(IpFamily family) {
   probeTables(family);
   for (Unit& unit : units_) {
      if (!unit.ofTable() || unit.family != family) continue;
      unit.wanted = true;
      unit.round = 0;
   }
}

// Several links often change at a time, so the reading waits for their end.
void MonitorState::tablesChanged(IpFamily family) {
   if (family == IpFamily::none) return;
   Seconds const now = Qor::now();
   if (staleDue_ == Qor::never) staleFirst_ = now;
   staleTables_[isV6(family)] = true;
   staleDue_ = std::min(now + options_.quietTime, staleFirst_ + options_.quietLimit);
   announce_ = true;
}

// A table that is not followed matters if a rule names it, since it hides others once it exists.
void MonitorState::probeTables(IpFamily family) {
   std::set<U32> tables;
   for (Rule const& rule : rules(family)) {
      if (rule.action == Rule::Action::table && !rule.vrf) tables.insert(rule.table);
      if (rule.vrf) tables.merge(links_.vrfTables());
   }
   for (U32 table : tables) {
      if (unitOf(family, table)) continue;
      auto const routes = std::find_if(units_.begin(), units_.end(), [](Unit const& unit) {
         return unit.kind == Unit::Kind::routes;
      });
      units_.insert(routes, Unit{Unit::Kind::existence, family, table});
   }
}

void MonitorState::startNext() {
   if (dump_ || draining_ || failed_) return;
   auto const next =
         std::find_if(units_.begin(), units_.end(), [](Unit const& unit) { return unit.wanted; });
   if (next != units_.end()) sendDump(*next);
}

void MonitorState::sendDump(Unit& unit) {
   unit.wanted = false;
   Requests requests;
   switch (++sequence_; unit.kind) {
      case Unit::Kind::links:
         requests.dumpLinks(sequence_);
         break;
      case Unit::Kind::addresses:
         requests.dumpAddresses(sequence_);
         break;
      case Unit::Kind::rules:
         requests.dumpRules(sequence_, unit.family);
         break;
      case Unit::Kind::existence:
      case Unit::Kind::routes:
         requests.dumpRoutes(sequence_, unit.family, unit.table);
         break;
   }
   if (!socket_.send(requests.bytes())) {
      unit.blocked = true;
      return retryAfter(soon);
   }
   dump_ = Dump{&unit, sequence_};
   listedRules_.clear();
   if (unit.kind == Unit::Kind::routes) routes_.dumpBegin();
   if (unit.kind == Unit::Kind::links || unit.kind == Unit::Kind::addresses) links_.dumpBegin();
}

void MonitorState::abandonDump() {
   if (!dump_) return;
   routes_.dumpAbandon();
   links_.dumpAbandon();
   dump_->unit->wanted = true;
   dump_.reset();
}

void MonitorState::endDump(int error) {
   if (passing(error)) {
      Unit& unit = *dump_->unit;
      abandonDump();
      unit.wanted = false;
      unit.blocked = true;
      return retryAfter(soon);
   }
   Dump const dump = *dump_;
   Unit& unit = *dump.unit;
   ++(dump.interrupted ? counts_.interruptedDumps : counts_.dumps);
   // After any other error the kernel has no such table. An absence proves nothing then.
   bool const complete = error == 0 && !dump.interrupted;
   bool again = dump.interrupted;
   if (unit.kind == Unit::Kind::links && links_.linksEnd(complete)) {
      tablesChanged(IpFamily::v4);
      tablesChanged(IpFamily::v6);
   }
   if (unit.kind == Unit::Kind::addresses) links_.addressesEnd(complete);
   if (unit.kind == Unit::Kind::rules && complete) endRules(dump);
   if (unit.ofTable()) again |= endRoutes(dump, error);
   dump_.reset();
   if (again && ++unit.round < mostRounds) {
      unit.wanted = true;
      return;
   }
   unit.round = 0;
   unit.later = again;
   if (again) retryAfter(later);
}

// Returns whether the table has to be dumped again.
bool MonitorState::endRoutes(Dump const& dump, int error) {
   Unit& unit = *dump.unit;
   bool const exists = error == 0;
   rulesChanged_[isV6(unit.family)] |= unit.exists != exists;
   unit.exists = exists;
   if (unit.kind != Unit::Kind::routes) return false;
   if (error != 0 && error != ENOENT) {
      routes_.dumpAbandon();
      return false;
   }
   bool again = dump.deleted && dump.revealed;
   for (RouteKey const& key : routes_.dumpEnd(unit.family, unit.table)) {
      if (!withoutRequest_[isV6(unit.family)]) {
         asks_.add(key, true, {});
      } else if (!dump.notified && !dump.interrupted && routes_.lacked(key) >= 2) {
         routes_.answered(key, nullptr, Qor::now());
      } else {
         again = true;
      }
   }
   return again;
}

void MonitorState::endRules(Dump const& dump) {
   IpFamily const family = dump.unit->family;
   std::stable_sort(listedRules_.begin(), listedRules_.end(),
                    [](Rule const& a, Rule const& b) { return a.priority < b.priority; });
   std::vector<Rule>& rules = rules_[isV6(family)];
   if (rules == listedRules_) return;
   rules.swap(listedRules_);
   rulesChanged_[isV6(family)] = true;
   probeTables(family);
}

void MonitorState::retryAfter(Seconds delay) {
   retryAt_ = std::min(retryAt_, Qor::now() + delay);
}

MonitorState::Unit const* MonitorState::unitOf(IpFamily family, U32 table) const {
   for (Unit const& unit : units_) {
      if (unit.ofTable() && unit.family == family && unit.table == table) return &unit;
   }
   return nullptr;
}

MonitorState::Unit* MonitorState::unitOf(IpFamily family, U32 table) {
   return const_cast<Unit*>(std::as_const(*this).unitOf(family, table));
}

bool MonitorState::followed(RouteKey const& key) const {
   Unit const* const unit = unitOf(key.family(), key.table);
   return unit && unit->kind == Unit::Kind::routes;
}

bool MonitorState::reading() const {
   return dump_ || draining_ || staleDue_ != Qor::never || asks_.confirming() ||
          std::any_of(units_.begin(), units_.end(),
                      [](Unit const& unit) { return unit.wanted || unit.blocked; });
}

bool MonitorState::readingLinks() const {
   return std::any_of(units_.begin(), units_.end(), [&](Unit const& unit) {
      bool const links = unit.kind == Unit::Kind::links || unit.kind == Unit::Kind::addresses;
      return links && (unit.wanted || (dump_ && dump_->unit == &unit));
   });
}

}  // namespace Kernel
