// The latest events of a switch, in one ring for all routes: wishes, states, links, and the writes
// that the hooks requested.
//
// Cost. The ring has room for `capacity` events of 104 bytes, 416 KiB in all, which it takes as the
// first events come. An event is stored with its numbers alone: no text is made and nothing is
// allocated before somebody asks.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <vector>

#include "Lnet/IntfId.h"
#include "hooks/HookObserver.h"
#include "programmer/Programmer.h"

namespace Agent {

struct HistoryEvent {
   enum class Kind : unsigned char {
      wanted,       // the owner wants the route
      changed,      // ... with other properties, such as outputs
      withdrawn,    // ... no longer
      state,        // the state of the route in `state`
      resurrected,  // the route brought a zombie's group back
      link,         // the link of `intf` came up or went down
      restart,      // the agent crashed and started
      write,        // a hook was called that changes a table
   };
   enum class Outcome : unsigned char { done, pending, failed };

   Qor::Seconds at = 0;  // as of Qor::now()
   Kind kind{};
   bool up = false;                // of a link
   VelMroute::RouteState state{};  // of a route
   VelMroute::HookWrite::Action action{};
   Outcome outcome = Outcome::done;  // of a write
   Qor::U32 number = 0;              // of a write: the index of the set, or the handle
   Qor::U32 set = 0;                 // of a write of an entry, if hasSet: the index of its set
   bool hasSet = false;
   bool hasBefore = false;
   Lnet::IntfId intf;
   Qor::Seconds doneAt = 0;  // of a write that was pending: the time of its completion
   char const* hook = "";
   Qor::U64 call = 0;    // of a write: the number of the call; otherwise that of the write before
   Qor::U32 before = 0;  // of an entry that is pointed, if hasBefore: the index of the set before
   Vel::VrfId vrfId;     // of a route and an entry, as `key`
   VelMroute::RouteKey key;

   bool ofEntry() const {
      return kind == Kind::write && action >= VelMroute::HookWrite::Action::makeEntry;
   }
};

class SwitchHistory final : public VelMroute::HookObserver, public VelMroute::Programmer::Observer {
 public:
   using Kind = HistoryEvent::Kind;
   using RouteKey = VelMroute::RouteKey;

   static constexpr std::size_t defaultCapacity = 4096;

   explicit SwitchHistory(std::size_t capacity = defaultCapacity) : capacity_(capacity) {}

   // The number of a VRF, before its first route.
   void vrfIs(L3::VrfName const& vrf, Vel::VrfId id) { vrfs_[vrf] = id; }
   void route(Kind kind, L3::VrfName const& vrf, RouteKey const& key);
   void link(Lnet::IntfId intf, bool up);
   void restart();

   // Visits the events from the oldest to the latest.
   template <class Visit>
   void forEach(Visit&& visit) const {
      for (std::size_t i = 0; i < ring_.size(); ++i)
         visit(ring_[(first_ + i) % ring_.size()]);
   }
   // The number of events that the ring no longer has.
   Qor::U64 lost() const { return lost_; }
   // The time of the oldest event that the ring has.
   Qor::Seconds since() const { return ring_.empty() ? 0 : ring_[first_].at; }

   void stateChanged(VelMroute::RouteView const& route) override;
   void resurrected(VelMroute::RouteView const& route) override;
   void wrote(VelMroute::HookWrite const& write) override;
   void pending(Qor::U64 call) override;
   void completed(Qor::U64 call, bool succeeded) override;

 private:
   ~SwitchHistory() override;

   HistoryEvent& add(Kind kind);
   HistoryEvent& at(std::size_t i) { return ring_[(first_ + i) % ring_.size()]; }
   HistoryEvent* writeOf(Qor::U64 call);

   std::size_t const capacity_;
   std::vector<HistoryEvent> ring_;
   std::size_t first_ = 0;  // the oldest event, once the ring is full
   Qor::U64 lost_ = 0;
   Qor::U64 call_ = 0;  // the latest write
   std::map<L3::VrfName, Vel::VrfId> vrfs_;
};

}  // namespace Agent
