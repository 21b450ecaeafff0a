// The routes that a Monitor knows, and the coalescing of their changes.
//
// A route has a shown state, which is the one that was notified last, and at times a pending change
// with the time at which it is due. A deleted route stays in the table as an empty entry while a
// dump is under way, so that a record of the dump that is older than the deletion is recognised.
#pragma once

#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "Qor/HashMap.h"
#include "kernel/Listener.h"

namespace Kernel {

class RouteTable {
 public:
   enum class Listing {
      known,     // the record confirms or updates a known route
      revealed,  // the route was unknown
      conflict,  // the record differs from a notification that may be newer
   };

   RouteTable(Qor::Seconds quietTime, Qor::Seconds quietLimit)
         : quietTime_(quietTime), quietLimit_(quietLimit) {}

   // The kernel has notified the state of a route; null: it was deleted.
   void notified(RouteKey const& key, Route const* route, Qor::Seconds now);
   // The kernel has answered a request for a route; null: it has none.
   void answered(RouteKey const& key, Route const* route, Qor::Seconds now);

   // Between the two, listed() takes the records of the dump of one table.
   void dumpBegin();
   Listing listed(RouteKey const& key, Route const& route, Qor::Seconds now);
   // Returns the routes of the table that the dump lacked.
   std::vector<RouteKey> dumpEnd(Lnet::IpFamily family, Qor::U32 table);
   // The dump ends without a result.
   void dumpAbandon();
   // How many dumps in succession lacked the route.
   Qor::U32 lacked(RouteKey const& key) const;

   // The latest state of a route, pending changes included, or null.
   Route const* latest(RouteKey const& key) const;
   // The state that was notified last, or null.
   Route const* shown(RouteKey const& key) const;
   Qor::U32 size() const { return shownCount_; }

   // When the next change is due; Qor::never if none is pending.
   Qor::Seconds nextDue() const {
      if (due_.empty()) return Qor::never;
      return due_.begin()->first;
   }
   // Notifies the listener of at most `most` changes that are due.
   void notify(Listener& listener, Qor::Seconds now, Qor::U32 most);

 private:
   struct Change {
      Route route;
      bool present = false;
      Qor::Seconds first = 0;
      Qor::Seconds due = 0;
   };
   struct Entry {
      Route shown;
      bool present = false;
      Qor::U32 notifiedIn = 0;  // the dump during or after which a notification arrived
      Qor::U32 listedIn = 0;    // the latest dump that had the route
      Qor::U32 lacked = 0;
      std::unique_ptr<Change> change;

      Route const* latest() const {
         if (change) return change->present ? &change->route : nullptr;
         return present ? &shown : nullptr;
      }
   };

   void latestIs(RouteKey const& key, Entry& entry, Route const* route, Qor::Seconds now,
                 bool disturbed);
   void dropIfEmpty(RouteKey const& key, Entry const& entry);

   Qor::Seconds const quietTime_;
   Qor::Seconds const quietLimit_;
   Qor::HashMap<RouteKey, Entry> entries_;
   std::set<std::pair<Qor::Seconds, RouteKey>> due_;
   Qor::U32 shownCount_ = 0;
   Qor::U32 dump_ = 1;  // the number of the dump under way, or of the latest one
   bool dumping_ = false;
};

}  // namespace Kernel
