#include "agent/switch/SwitchHistory.h"

#include "Qor/Clock.h"

namespace Agent {

static_assert(sizeof(HistoryEvent) <= 104);  // as the header says

SwitchHistory::~SwitchHistory() = default;

HistoryEvent& SwitchHistory::add(Kind kind) {
   HistoryEvent event;
   event.at = Qor::now();
   event.kind = kind;
   event.call = call_;
   if (ring_.size() < capacity_) return ring_.emplace_back(event);
   HistoryEvent& oldest = ring_[first_];
   first_ = (first_ + 1) % ring_.size();
   ++lost_;
   return oldest = event;
}

void SwitchHistory::route(Kind kind, L3::VrfName const& vrf, RouteKey const& key) {
   auto const id = vrfs_.find(vrf);
   if (id == vrfs_.end()) return;
   HistoryEvent& event = add(kind);
   event.vrfId = id->second;
   event.key = key;
}

void SwitchHistory::link(Lnet::IntfId intf, bool up) {
   HistoryEvent& event = add(Kind::link);
   event.intf = intf;
   event.up = up;
}

void SwitchHistory::restart() {
   add(Kind::restart);
}

void SwitchHistory::stateChanged(VelMroute::RouteView const& route) {
   auto const id = vrfs_.find(route.vrf());
   if (id == vrfs_.end()) return;
   HistoryEvent& event = add(Kind::state);
   event.vrfId = id->second;
   event.key = route.key();
   event.state = route.state();
}

void SwitchHistory::resurrected(VelMroute::RouteView const& route) {
   this->route(Kind::resurrected, route.vrf(), route.key());
}

void SwitchHistory::wrote(VelMroute::HookWrite const& write) {
   call_ = write.call.number;
   HistoryEvent& event = add(Kind::write);
   event.hook = write.call.hook;
   event.action = write.action;
   event.number = write.number;
   event.hasSet = write.set.has_value();
   event.set = write.set.value_or(0);
   event.hasBefore = write.before.has_value();
   event.before = write.before.value_or(0);
   if (!write.key) return;
   event.vrfId = Vel::VrfId(write.vrfId);
   event.key = *write.key;
}

// The numbers of the calls ascend in the ring, so the latest event of a call is found by bisection.
HistoryEvent* SwitchHistory::writeOf(Qor::U64 call) {
   std::size_t low = 0, high = ring_.size();
   while (low < high) {
      std::size_t const middle = low + (high - low) / 2;
      if (at(middle).call < call) {
         low = middle + 1;
      } else {
         high = middle;
      }
   }
   for (; low < ring_.size() && at(low).call == call; ++low) {
      if (at(low).kind == Kind::write) return &at(low);
   }
   return nullptr;
}

void SwitchHistory::pending(Qor::U64 call) {
   if (HistoryEvent* const event = writeOf(call)) event->outcome = HistoryEvent::Outcome::pending;
}

void SwitchHistory::completed(Qor::U64 call, bool succeeded) {
   HistoryEvent* const event = writeOf(call);
   if (!event) return;
   event->outcome = succeeded ? HistoryEvent::Outcome::done : HistoryEvent::Outcome::failed;
   event->doneAt = Qor::now();
}

}  // namespace Agent
