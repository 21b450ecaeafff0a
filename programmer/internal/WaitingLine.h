// Routes that wait for room in one of the chip's tables, first come, first served. The line holds
// the routes.
#pragma once

#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "programmer/internal/ProgrammedRoute.h"

namespace VelMroute {

class WaitingLine {
 public:
   bool empty() const { return routes_.empty(); }
   std::size_t size() const { return routes_.size(); }
   // The number of routes in front of a route in this line.
   std::size_t before(ProgrammedRoute const& route) const {
      return static_cast<std::size_t>(
            std::distance(routes_.begin(), routes_.find(route.workIfAny()->arrival)));
   }
   RoutePtr first() const { return routes_.begin()->second; }

   // Whether the table may have got room since the first route was refused.
   bool room() const { return room_; }
   void roomIs(bool v) { room_ = v; }

   // A route that is in no line gets the place that it had here, or with 0 the last one. `hash` is
   // that of the set with which it waits.
   void add(ProgrammedRoute& route, Qor::U64 place, Qor::U32 hash) {
      RouteWork& work = route.work();
      work.waitingIn = this;
      work.arrival = place ? place : ++lastArrival_;
      work.waitingHash = hash;
      routes_.emplace(work.arrival, &route);
      sets_.emplace(hash, work.arrival);
   }
   // Removes a route of this line.
   void remove(ProgrammedRoute& route) {
      RouteWork& work = route.work();
      sets_.erase({work.waitingHash, work.arrival});
      work.waitingIn = nullptr;
      routes_.erase(std::exchange(work.arrival, 0));  // perhaps the last holder of the route
   }
   // Calls visit(ProgrammedRoute&), which leaves the line alone, for the routes that wait with this
   // set, and perhaps for a route whose set has the same hash.
   template <class Visit>
   void forEachWith(MrouteLib::PortVlanSet const& set, Visit const& visit) const {
      if (sets_.empty()) return;
      Qor::U32 const hash = set.hash();
      for (auto it = sets_.lower_bound({hash, 0}); it != sets_.end() && it->first == hash; ++it) {
         visit(*routes_.at(it->second));
      }
   }

 private:
   std::map<Qor::U64, RoutePtr> routes_;           // by arrival
   std::set<std::pair<Qor::U32, Qor::U64>> sets_;  // the same by the hash of the set, and arrival
   Qor::U64 lastArrival_ = 0;
   bool room_ = false;
};

}  // namespace VelMroute
