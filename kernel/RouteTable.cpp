#include "kernel/RouteTable.h"

#include <algorithm>

namespace Kernel {

using Qor::Seconds;
using Qor::U32;

namespace {

void takeStatistics(Route& to, Route const& from) {
   to.packets = from.packets;
   to.bytes = from.bytes;
   to.wrongInterface = from.wrongInterface;
   to.idle = from.idle;
}

}  // namespace

// A state that was disturbed by a notification has to be quiet again before it is due.
void RouteTable::latestIs(RouteKey const& key, Entry& entry, Route const* route, Seconds now,
                          bool disturbed) {
   Change* change = entry.change.get();
   bool const due = !change || disturbed;
   if (!change) {
      bool const same =
            route ? entry.present && entry.shown.sameForwarding(*route) : !entry.present;
      if (same) {
         if (route) takeStatistics(entry.shown, *route);
         return;
      }
      entry.change = std::make_unique<Change>();
      change = entry.change.get();
      change->first = now;
   } else if (due) {
      due_.erase({change->due, key});
   }
   change->present = route != nullptr;
   change->route = route ? *route : Route{};
   if (!due) return;
   change->due = std::min(now + quietTime_, change->first + quietLimit_);
   due_.insert({change->due, key});
}

void RouteTable::notified(RouteKey const& key, Route const* route, Seconds now) {
   if (!route && !dumping_ && !entries_.find(key)) return;
   Entry& entry = entries_.insert(key, {}).first->second;
   entry.notifiedIn = dump_;
   entry.lacked = 0;
   latestIs(key, entry, route, now, true);
   dropIfEmpty(key, entry);
}

void RouteTable::answered(RouteKey const& key, Route const* route, Seconds now) {
   if (!route && !entries_.find(key)) return;
   Entry& entry = entries_.insert(key, {}).first->second;
   // An answer is as exact as a notification: no record of the same dump is newer for certain.
   entry.notifiedIn = dump_;
   entry.lacked = 0;
   latestIs(key, entry, route, now, false);
   dropIfEmpty(key, entry);
}

void RouteTable::dumpBegin() {
   ++dump_;
   dumping_ = true;
}

RouteTable::Listing RouteTable::listed(RouteKey const& key, Route const& route, Seconds now) {
   Entry& entry = entries_.insert(key, {}).first->second;
   entry.listedIn = dump_;
   entry.lacked = 0;
   Route const* const before = entry.latest();
   if (entry.notifiedIn == dump_ && !(before && before->sameForwarding(route))) {
      return Listing::conflict;
   }
   bool const revealed = !before;
   latestIs(key, entry, &route, now, false);
   return revealed ? Listing::revealed : Listing::known;
}

std::vector<RouteKey> RouteTable::dumpEnd(Lnet::IpFamily family, U32 table) {
   std::vector<RouteKey> lacking;
   for (auto& [key, entry] : entries_) {
      if (key.table != table || key.family() != family || !entry.latest()) continue;
      if (entry.listedIn == dump_ || entry.notifiedIn == dump_) continue;
      ++entry.lacked;
      lacking.push_back(key);
   }
   dumpAbandon();
   return lacking;
}

void RouteTable::dumpAbandon() {
   if (!dumping_) return;
   dumping_ = false;
   std::vector<RouteKey> empty;
   for (auto const& [key, entry] : entries_) {
      if (!entry.present && !entry.change) empty.push_back(key);
   }
   for (RouteKey const& key : empty)
      entries_.take(key);
}

void RouteTable::dropIfEmpty(RouteKey const& key, Entry const& entry) {
   if (!entry.present && !entry.change && !dumping_) entries_.take(key);
}

U32 RouteTable::lacked(RouteKey const& key) const {
   auto const* found = entries_.find(key);
   return found ? found->second.lacked : 0;
}

Route const* RouteTable::latest(RouteKey const& key) const {
   auto const* found = entries_.find(key);
   return found ? found->second.latest() : nullptr;
}

Route const* RouteTable::shown(RouteKey const& key) const {
   auto const* found = entries_.find(key);
   return found && found->second.present ? &found->second.shown : nullptr;
}

void RouteTable::notify(Listener& listener, Seconds now, U32 most) {
   bool begun = false;
   for (U32 n = 0; n < most && nextDue() <= now; ++n) {
      RouteKey const key = due_.begin()->second;
      due_.erase(due_.begin());
      Entry& entry = entries_.find(key)->second;
      std::unique_ptr<Change> const change = std::move(entry.change);
      bool const before = entry.present;
      bool const same =
            change->present ? before && entry.shown.sameForwarding(change->route) : !before;
      entry.present = change->present;
      entry.shown = std::move(change->route);
      shownCount_ += U32{entry.present} - U32{before};
      if (!same && !begun) {
         begun = true;
         listener.routesBegin();
      }
      if (!same && entry.present) listener.routeIs(key, entry.shown);
      if (!same && !entry.present) listener.routeDel(key);
      dropIfEmpty(key, entry);
   }
   if (begun) listener.routesEnd(nextDue() <= now);
}

}  // namespace Kernel
