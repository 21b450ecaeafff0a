// One route of a route programmer, or one of its fastdrop entries, and where it stands. Owned by
// the programmer's table; whoever works on one holds it meanwhile.
#pragma once

#include <memory>
#include <ostream>
#include <utility>

#include "L3/VrfName.h"
#include "MrouteLib/SwitchChip.h"
#include "agent/programmer/WantedRoute.h"

namespace Agent {

class RouteProgrammer;
class WaitingQueue;

// The chip's tables, as far as a route may have to wait for room in one. A route takes a group for
// its set of outputs, and an entry in one of the two others.
enum class Table { group, entry, boundary };
inline constexpr std::size_t tables = 3;

class ProgrammedRoute : public Qor::RefCounted {
 public:
   using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   enum class State {
      marked,           // a change waits for the next pass
      programming,      // writes under way
      inHardware,       // done
      waitingGroup,     // no free group; waits for a deletion. These three in the order of Table
      waitingEntry,     // no free route entry; likewise
      waitingBoundary,  // no free boundary entry; likewise
      waitingVrf,       // the VRF has no hardware status
      failed,           // given up: the writes fail, or the switch takes no such route; waits for a
                        // change of the route
   };

   ProgrammedRoute(RouteProgrammer const& programmer, L3::VrfName vrf, RouteKey const& key,
                   Bridging::VlanIdOrNone fastdropVlan)
         : programmer_(programmer), vrf_(std::move(vrf)), key_(key), fastdropVlan_(fastdropVlan) {}

   L3::VrfName const& vrf() const { return vrf_; }
   RouteKey const& key() const { return key_; }
   bool isFastdrop() const { return !fastdropVlan_.isNone(); }
   // Null when the route is on its way out.
   WantedRoute const* wanted() const { return wanted_.get(); }
   // What it is being placed as, whatever is wanted meanwhile. Null before the first time.
   WantedRoute const* target() const { return target_.get(); }
   State state() const { return state_; }
   // Why the route is not in hardware, for people; empty when it is.
   Qor::String reason() const;
   // Where it is placed; invalid and null when it is not.
   MrouteLib::RouteHandle handle() const { return handle_; }
   MrouteLib::MtableOifSetPtr const& record() const { return record_; }
   // Placements of what is wanted whose writes have failed.
   Qor::U32 attempts() const { return attempts_; }

 protected:
   ~ProgrammedRoute() override = default;

 private:
   friend class RouteProgrammer;
   friend class WaitingQueue;
   using WantedPtr = std::shared_ptr<WantedRoute const>;

   RouteProgrammer const& programmer_;
   L3::VrfName const vrf_;
   RouteKey const key_;
   Bridging::VlanIdOrNone const fastdropVlan_;  // none: the route itself
   WantedPtr wanted_;
   WantedPtr target_;
   WantedPtr placed_;  // what the entry in hardware stands for
   MrouteLib::RouteHandle handle_;
   MrouteLib::MtableOifSetPtr record_;    // the set the entry points at, once all is written
   MrouteLib::MtableOifSetPtr previous_;  // held until the entry has left it
   Qor::U32 attempts_ = 0;
   State state_ = State::marked;
   Table table_ = Table::entry;         // where handle_ is one
   bool marked_ = false;                // in the work queue
   bool confirmed_ = false;             // the entry has been written
   WaitingQueue* waitingIn_ = nullptr;  // the queue it stands in
   Qor::U64 arrival_ = 0;               // its place there
   Qor::U32 waitingHash_ = 0;           // of the set it waits with
};

std::ostream& operator<<(std::ostream& os, ProgrammedRoute::State state);

}  // namespace Agent
