// Routes that wait for room in one of the chip's tables, first come, first served. The queue holds
// them.
#pragma once

#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "agent/programmer/ProgrammedRoute.h"

namespace Agent {

class WaitingQueue {
 public:
   using RoutePtr = Qor::Ptr<ProgrammedRoute>;

   bool empty() const { return routes_.empty(); }
   std::size_t size() const { return routes_.size(); }
   // How many stand before one that stands here.
   std::size_t before(ProgrammedRoute const& route) const {
      return static_cast<std::size_t>(std::distance(routes_.begin(), routes_.find(route.arrival_)));
   }
   RoutePtr first() const { return routes_.begin()->second; }

   // Whether the table may have got room since the first was refused.
   bool room() const { return room_; }
   void roomIs(bool v) { room_ = v; }

   // A route that stands in no queue takes the place it had here, or with 0 the last one. It waits
   // with the set of its target.
   void add(ProgrammedRoute& route, Qor::U64 place) {
      route.waitingIn_ = this;
      route.arrival_ = place ? place : ++lastArrival_;
      route.waitingHash_ = route.target_->set.hash();
      routes_.emplace(route.arrival_, &route);
      sets_.emplace(route.waitingHash_, route.arrival_);
   }
   // Takes out one that stands here.
   void remove(ProgrammedRoute& route) {
      sets_.erase({route.waitingHash_, route.arrival_});
      route.waitingIn_ = nullptr;
      routes_.erase(std::exchange(route.arrival_, 0));  // perhaps the last that holds the route
   }
   // Calls visit(ProgrammedRoute&), which leaves the queue alone, for those that wait with this
   // set, and perhaps for one whose set only has the same hash.
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

}  // namespace Agent
