// The requests for single routes: those that wait, and those that the kernel has not answered yet.
// The number of the latter is bounded, so that their answers take little of the receive buffer.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "Qor/HashMap.h"
#include "kernel/Listener.h"
#include "kernel/Socket.h"

namespace Kernel {

class RouteAsks {
 public:
   struct Ask {
      RouteKey key;
      bool lacking = false;  // a dump lacked the route
      std::vector<RouteAnswered> answered;
   };

   // Adds a request. Requests for the same route that wait become one.
   void add(RouteKey const& key, bool lacking, RouteAnswered answered);
   // Sends as many requests as the bound allows. False: the socket did not take them.
   bool send(Socket& socket, Qor::U32& sequence);
   // The request of this sequence number, which is complete now.
   std::optional<Ask> take(Qor::U32 sequence);
   // The answers are lost: the requests wait again.
   void lost();
   std::vector<Ask> takeAll();

   bool waiting() const { return !waiting_.empty(); }
   // Whether routes that a dump lacked have not been answered yet.
   bool confirming() const { return lacking_ != 0; }

 private:
   static constexpr std::size_t mostSent = 64;

   Qor::U64 next_ = 0;
   std::map<Qor::U64, Ask> waiting_;  // in the order of arrival
   Qor::HashMap<RouteKey, Qor::U64> waitingByKey_;
   std::map<Qor::U32, Ask> sent_;  // by sequence number
   Qor::U32 lacking_ = 0;
};

}  // namespace Kernel
