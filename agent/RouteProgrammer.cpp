#include "agent/RouteProgrammer.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace Agent {

using MrouteLib::MrouteFailureReason;
using MrouteLib::MtableOifSetPtr;
using MrouteLib::OifSetPtr;
using Vel::Mroute::AsyncMrouteSwitch;
using Vel::Mroute::AsyncMtableOifSet;

class RouteProgrammer::QorClock final : public Qor::Clock::Notifiee {
 public:
   explicit QorClock(RouteProgrammer& owner) : owner_(owner) {}
   void onTime() override { owner_.runPass(); }

 private:
   RouteProgrammer& owner_;
};

// A zombie that goes, for whatever reason, may leave a free group.
class RouteProgrammer::QorMrouteSwitch final : public AsyncMrouteSwitch::Notifiee {
 public:
   explicit QorMrouteSwitch(RouteProgrammer& owner) : owner_(owner) {}
   void onZombieOifSet(Vel::Mroute::ZombieKey const&) override { onZombieOifSetImmediate(); }
   void onZombieOifSetImmediate() override {
      if (owner_.waitingGroup_.empty()) return;
      owner_.groupRoom_ = true;
      owner_.schedulePass();
   }

 private:
   RouteProgrammer& owner_;
};

RouteProgrammer::RouteProgrammer(Qor::Ptr<AsyncMrouteSwitch> mrouteSwitch,
                                 Qor::Ptr<MrouteLib::MrouteTableColl> tableColl,
                                 Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus)
      : mrouteSwitch_(std::move(mrouteSwitch)),
        tableColl_(std::move(tableColl)),
        mfibHwStatus_(std::move(mfibHwStatus)),
        clock_(Qor::make<Qor::Clock>("routeProgrammer")),
        clockReactor_(std::make_unique<QorClock>(*this)),
        switchReactor_(std::make_unique<QorMrouteSwitch>(*this)) {
   clockReactor_->notifierIs(clock_.get());
   switchReactor_->notifierIs(mrouteSwitch_.get());
}

RouteProgrammer::~RouteProgrammer() {
   switchReactor_.reset();
   for (auto& [name, table] : vrfs_) {
      for (auto& [key, route] : table)
         release(*route);
   }
}

void RouteProgrammer::routeIs(L3::VrfName const& vrf, RouteKey const& key, WantedRoute wanted) {
   RoutePtr const there = find(vrf, {key, {}});
   WantedPtr const before = there ? there->wanted_ : nullptr;
   std::vector<Fastdrop> const fastdrops = wanted.fastdrop;
   WantedRoute dropped;
   dropped.set.typeIs(wanted.set.type());
   if (!want(vrf, {key, {}}, std::move(wanted))) {
      ++counters_.unchanged;
      return;
   }
   wantedRoutes_ += before == nullptr;
   for (Fastdrop const& fastdrop : fastdrops) {
      dropped.acceptingIntfId = fastdrop.intfId;
      dropped.acceptingVlan = fastdrop.vlan;
      want(vrf, {key, fastdrop.vlan}, dropped);
   }
   if (!before) return;
   for (Fastdrop const& old : before->fastdrop) {
      auto const same = [&](Fastdrop const& f) { return f.vlan == old.vlan; };
      if (std::none_of(fastdrops.begin(), fastdrops.end(), same)) {
         wantNoMore(vrf, {key, old.vlan});
      }
   }
}

void RouteProgrammer::routeDel(L3::VrfName const& vrf, RouteKey const& key) {
   RoutePtr const there = find(vrf, {key, {}});
   if (!there || !there->wanted_) return;
   WantedPtr const before = there->wanted_;
   wantNoMore(vrf, {key, {}});
   --wantedRoutes_;
   for (Fastdrop const& old : before->fastdrop)
      wantNoMore(vrf, {key, old.vlan});
}

// Whether that is different from what was wanted.
bool RouteProgrammer::want(L3::VrfName const& vrf, EntryKey const& key, WantedRoute wanted) {
   RouteTable& table = vrfs_[vrf];
   auto* entry = table.find(key);
   if (!entry) {
      entry = table.insert(key, Qor::make<Route>(*this, vrf, key.key, key.fastdropVlan)).first;
   }
   Route& route = *entry->second;
   if (route.wanted_ && *route.wanted_ == wanted) return false;
   route.wanted_ = std::make_shared<WantedRoute const>(std::move(wanted));
   route.attempts_ = 0;
   mark(route);
   return true;
}

void RouteProgrammer::wantNoMore(L3::VrfName const& vrf, EntryKey const& key) {
   RoutePtr const route = find(vrf, key);
   if (!route || !route->wanted_) return;
   route->wanted_.reset();
   mark(*route);
}

RouteProgrammer::RoutePtr RouteProgrammer::find(L3::VrfName const& vrf, EntryKey const& key) const {
   auto const table = vrfs_.find(vrf);
   auto const* entry = table == vrfs_.end() ? nullptr : table->second.find(key);
   return entry ? entry->second : nullptr;
}

void RouteProgrammer::vrfReady(L3::VrfName const& vrf) {
   auto const table = vrfs_.find(vrf);
   if (table == vrfs_.end()) return;
   for (auto& [key, route] : table->second) {
      if (route->state_ == State::waitingVrf) mark(*route);
   }
}

RouteProgrammer::Route const* RouteProgrammer::route(L3::VrfName const& vrf,
                                                     RouteKey const& key) const {
   RoutePtr const route = find(vrf, {key, {}});
   return route && route->wanted_ ? route.get() : nullptr;
}

void RouteProgrammer::mark(Route& route) {
   if (route.marked_) return;
   route.marked_ = true;
   work_.push_back(&route);
   schedulePass();
}

void RouteProgrammer::schedulePass() {
   if (clock_->timeMin() > Qor::now()) clock_->timeMinIs(Qor::now());
}

// One pass: what is marked first, since it may give room; then those who wait for room.
void RouteProgrammer::runPass() {
   Qor::U32 budget = routesPerPass;
   for (; budget > 0 && !work_.empty(); --budget) {
      RoutePtr const route = std::move(work_.front());
      work_.pop_front();
      process(*route);
   }
   budget = wake(waitingGroup_, groupRoom_, budget);
   budget = wake(waitingEntry_, entryRoom_, budget);
   bool const more = !work_.empty() || (groupRoom_ && !waitingGroup_.empty()) ||
                     (entryRoom_ && !waitingEntry_.empty());
   clock_->timeMinIs(more ? Qor::now() : Qor::never);
}

// Lets waiting routes try, first come first served, until one is refused again.
Qor::U32 RouteProgrammer::wake(WaitingQueue& queue, bool& room, Qor::U32 budget) {
   for (; room && budget > 0 && !queue.empty(); --budget) {
      RoutePtr const route = queue.begin()->second;
      if (route->wanted_) {
         route->target_ = route->wanted_;
         placeAnew(*route);
         if (route->waitingIn_ == &queue) room = false;
      } else {
         waitNoMore(*route);
      }
   }
   if (queue.empty()) room = false;
   return budget;
}

void RouteProgrammer::process(Route& route) {
   route.marked_ = false;
   if (!route.wanted_) {
      remove(route);
      return;
   }
   if (route.state_ == State::programming) {
      checkChange(route);
      if (route.state_ != State::inHardware) return;
   }
   if (route.state_ == State::failed && route.attempts_ != 0) return;
   place(route);
}

void RouteProgrammer::remove(Route& route) {
   release(route);
   waitNoMore(route);
   stateIs(route, State::marked);
   if (!route.wanted_)
      vrfs_[route.vrf_].take(
            {route.key_, route.fastdropVlan_});  // else wanted again in the meantime
}

// Looks at the transactions of the change under way, and watches the one it waits for.
void RouteProgrammer::checkChange(Route& route) {
   for (Hux::XactPtr const& xact : {route.oifSetXact_, route.ingressXact_}) {
      if (!xact) continue;
      if (xact->pending()) {
         route.xactReactor_.notifierIs(xact);
         return;
      }
      if (xact->state() == Hux::Xact::State::failed) {
         route.failure_ = xact == route.oifSetXact_
                                ? mrouteSwitch_->doGetOifSetXactFailureReason(xact)
                                : mrouteSwitch_->doGetIngressXactFailureReason(xact);
         changeFailed(route);
         return;
      }
   }
   route.xactReactor_.notifierIs(nullptr);
   route.oifSetXact_ = route.ingressXact_ = nullptr;
   if (route.previous_) groupRoom_ = true;
   route.previous_ = nullptr;
   route.confirmed_ = true;
   route.attempts_ = 0;
   stateIs(route, State::inHardware);
}

// The record must not be shared any more. The route goes back to the set it was at, if its entry is
// known to be there, and is marked for another placement or given up.
void RouteProgrammer::changeFailed(Route& route) {
   ++counters_.failedWrites;
   if (route.placed_ == route.wanted_) ++route.attempts_;  // else it is wanted differently by now
   route.xactReactor_.notifierIs(nullptr);
   route.oifSetXact_ = route.ingressXact_ = nullptr;
   if (auto const record = Qor::ptrCast<AsyncMtableOifSet>(route.record_)) {
      record->dirtyIs(true);
      tableColl_->oifSetRetire(*record->oifSet());
   }
   bool const givenUp = route.attempts_ >= maxAttempts;
   if (!givenUp && route.confirmed_ && route.previous_) {
      route.record_ = std::exchange(route.previous_, nullptr);
      auto const placed = std::make_shared<WantedRoute>(*route.placed_);
      placed->set = route.record_->oifSet()->portVlanSet();
      route.placed_ = placed;
   } else {
      release(route);
   }
   stateIs(route, givenUp ? State::failed : State::marked);
   if (!givenUp) mark(route);
}

void RouteProgrammer::place(Route& route) {
   route.target_ = route.wanted_;
   if (!route.placed_) {
      if (!mustQueue(route)) placeAnew(route);
      return;
   }
   WantedRoute const& wanted = *route.target_;
   if (*route.placed_ == wanted) {
      stateIs(route, State::inHardware);
      return;
   }
   publish(route);
   MtableOifSetPtr const record =
         route.placed_->set == wanted.set ? route.record_ : allocateRecord(route);
   MrouteLib::RouteHandle leaving;
   // Without room for old and new together the route steps aside, and tries with what it gave back.
   if (!record || !replaceEntry(route, leaving)) {
      release(route);
      placeAnew(route);
      return;
   }
   if (record == route.record_ && route.confirmed_) {  // nothing changes in hardware
      route.placed_ = route.target_;
      stateIs(route, State::inHardware);
      return;
   }
   pointAt(route, record);
   if (!leaving.isNull()) {
      // Issued behind the new entry's writes, in the order that the chip keeps.
      mrouteSwitch_->doDeleteRoute(leaving);
      entryRoom_ = true;
   }
}

// A route that is not in hardware lets those go first who wait for what it needs. That somebody
// comes is a good time for the first of them to try again.
bool RouteProgrammer::mustQueue(Route& route) {
   if (!waitingGroup_.empty() && needsGroup(route)) {
      groupRoom_ = true;
      wait(route, State::waitingGroup);
      return true;
   }
   if (!waitingEntry_.empty() && mrouteSwitch_->needIngressProgramming(route.target_->set.type())) {
      entryRoom_ = true;
      wait(route, State::waitingEntry);
      return true;
   }
   return false;
}

bool RouteProgrammer::needsGroup(Route const& route) const {
   OifSetPtr const oifSet = tableColl_->oifSet(route.target_->set);
   auto const record = oifSet ? mrouteSwitch_->inUseRecord(oifSet) : nullptr;
   return !record || record->dirty();
}

void RouteProgrammer::placeAnew(Route& route) {
   publish(route);
   MtableOifSetPtr const record = allocateRecord(route);
   if (!record) {
      wait(route, State::waitingGroup);
   } else if (!mrouteSwitch_->needIngressProgramming(route.target_->set.type()) ||
              allocateEntry(route)) {
      pointAt(route, record);
   } else {
      route.oifSetXact_ = nullptr;
      wait(route, mrouteSwitch_->mrouteFailureReason() == MrouteFailureReason::noVrfStatus
                        ? State::waitingVrf
                        : State::waitingEntry);
   }
}

// Gives the route another entry if the present one has other properties than wanted, and says which
// entry is to be deleted once the new one is written. False: there is none to be had.
bool RouteProgrammer::replaceEntry(Route& route, MrouteLib::RouteHandle& leaving) {
   WantedRoute const& placed = *route.placed_;
   WantedRoute const& wanted = *route.target_;
   bool const inUseKeyStays = placed.acceptingVlan == wanted.acceptingVlan;
   bool const entryStays = inUseKeyStays && placed.bridgeAction == wanted.bridgeAction &&
                           placed.rpaId == wanted.rpaId;
   if (route.handle_.isNull() || entryStays) return true;
   if (inUseKeyStays) {
      mrouteSwitch_->doDeleteRoute(std::exchange(route.handle_, {}));
   } else {
      leaving = route.handle_;
   }
   return allocateEntry(route);
}

bool RouteProgrammer::allocateEntry(Route& route) {
   WantedRoute const& wanted = *route.target_;
   mrouteSwitch_->doAllocateRoute(route.key_, wanted.acceptingVlan, wanted.bridgeAction,
                                  wanted.rpaId, route.vrf_);
   if (mrouteSwitch_->mrouteFailureReason() != MrouteFailureReason::none) return false;
   route.handle_ = mrouteSwitch_->routeHandle();
   route.confirmed_ = false;
   return true;
}

void RouteProgrammer::pointAt(Route& route, MtableOifSetPtr record) {
   if (route.record_ != record) {
      route.previous_ = std::exchange(route.record_, std::move(record));
   }
   if (!route.handle_.isNull()) {
      route.ingressXact_ =
            mrouteSwitch_->doSetMtableOifSet(route.handle_, route.record_, route.oifSetXact_);
   }
   route.placed_ = route.target_;
   if (xactObserver_ && route.ingressXact_) {
      xactObserver_("point " + route.key_.pretty(), route.ingressXact_);
   }
   waitNoMore(route);
   markThoseWhoShare(route.placed_->set);
   stateIs(route, State::programming);
   checkChange(route);
}

// The record for the route's wanted set; null when there is no group for it.
MtableOifSetPtr RouteProgrammer::allocateRecord(Route& route) {
   WantedRoute const& wanted = *route.target_;
   MrouteLib::RouteKeyInfo const info(route.key_, route.vrf_, wanted.acceptingVlan,
                                      wanted.set.type());
   OifSetPtr const oifSet = sharedOifSet(wanted.set);
   bool const frrRoute = !wanted.set.currentIif().isNull();
   auto const& zombies = mrouteSwitch_->zombieOifSet();
   for (Qor::U32 purges = zombies.size();; --purges) {
      Qor::U32 const before = zombies.size();
      route.oifSetXact_ = mrouteSwitch_->doAllocateMtableOifSet(info, oifSet, nullptr, 0, frrRoute);
      if (mrouteSwitch_->mrouteFailureReason() == MrouteFailureReason::none) {
         counters_.resurrections += zombies.size() < before;
         break;
      }
      if (purges == 0 || !purgeOldestZombie()) return nullptr;
   }
   MtableOifSetPtr const record = mrouteSwitch_->mtableOifSet();
   mrouteSwitch_->mtableOifSetIs(nullptr);
   bool const isNew = record->references() == 1;
   if (xactObserver_ && isNew && route.oifSetXact_ && route.oifSetXact_->pending()) {
      xactObserver_("group " + std::to_string(mrouteSwitch_->doGetMulticastId(record)),
                    route.oifSetXact_);
   }
   return record;
}

// The one object for this set; never one whose record may not be shared.
OifSetPtr RouteProgrammer::sharedOifSet(MrouteLib::PortVlanSet const& set) {
   OifSetPtr const oifSet = tableColl_->newOifSet(set);
   auto const record = mrouteSwitch_->inUseRecord(oifSet);
   if (!record || !record->dirty()) return oifSet;
   tableColl_->oifSetRetire(*oifSet);
   return tableColl_->newOifSet(set);
}

bool RouteProgrammer::purgeOldestZombie() {
   auto const& zombies = mrouteSwitch_->zombieOifSet();
   if (zombies.empty()) return false;
   mrouteSwitch_->zombieOifSetDel(zombies.begin()->first);
   ++counters_.purges;
   return true;
}

// Takes the route out of hardware, entry first.
void RouteProgrammer::release(Route& route) {
   route.xactReactor_.notifierIs(nullptr);
   route.oifSetXact_ = route.ingressXact_ = nullptr;
   if (!route.handle_.isNull()) {
      mrouteSwitch_->doDeleteRoute(std::exchange(route.handle_, {}));
      entryRoom_ = true;
   }
   if (route.record_ || route.previous_) groupRoom_ = true;
   route.record_ = nullptr;
   route.previous_ = nullptr;
   route.placed_.reset();
   route.confirmed_ = false;
   withdraw(route);
}

void RouteProgrammer::wait(Route& route, State state) {
   withdraw(route);
   stateIs(route, state);
   WaitingQueue* const queue = state == State::waitingGroup   ? &waitingGroup_
                               : state == State::waitingEntry ? &waitingEntry_
                                                              : nullptr;
   Qor::U64 const arrival = route.waitingIn_ == queue ? route.arrival_ : 0;
   waitNoMore(route);  // the set it waits for may be another one now
   if (!queue) return;
   if (!arrival) ++counters_.refusals;
   route.waitingIn_ = queue;
   route.arrival_ = arrival ? arrival : ++lastArrival_;
   queue->emplace(route.arrival_, &route);
   if (queue != &waitingGroup_) return;
   route.waitingHash_ = route.target_->set.hash();
   waitingSets_.emplace(route.waitingHash_, route.arrival_);
}

void RouteProgrammer::waitNoMore(Route& route) {
   if (!route.waitingIn_) return;
   RoutePtr const self(&route);
   if (route.waitingIn_ == &waitingGroup_) {
      waitingSets_.erase({route.waitingHash_, route.arrival_});
   }
   route.waitingIn_->erase(route.arrival_);
   route.waitingIn_ = nullptr;
   route.arrival_ = 0;
}

// Routes that wait for a group of this set need none any more. One whose set only has the same hash
// is marked in vain.
void RouteProgrammer::markThoseWhoShare(MrouteLib::PortVlanSet const& set) {
   if (waitingSets_.empty()) return;
   Qor::U32 const hash = set.hash();
   for (auto it = waitingSets_.lower_bound({hash, 0});
        it != waitingSets_.end() && it->first == hash; ++it) {
      mark(*waitingGroup_.at(it->second));
   }
}

void RouteProgrammer::publish(Route const& route) {
   if (route.isFastdrop()) {
      auto const vrfStatus = mfibHwStatus_->vrfStatus(route.vrf_);
      auto const status = vrfStatus ? vrfStatus->route(route.key_) : nullptr;
      Qor::Name const& name = route.target_->acceptingIntfId.name();
      if (status && !status->fastdropLastPollTime().find(name)) {
         status->fastdropLastPollTimeIs(name, 0);
      }
      return;
   }
   mfibHwStatus_->vrfStatusIs(route.vrf_)
         ->routeIs(route.key_)
         ->acceptingIntfIdIs(route.target_->acceptingIntfId);
   // The fastdrop entries are part of the route's status, which may be a new one.
   for (Fastdrop const& fastdrop : route.target_->fastdrop) {
      RoutePtr const entry = find(route.vrf_, {route.key_, fastdrop.vlan});
      if (entry && entry->placed_) publish(*entry);
   }
}

void RouteProgrammer::withdraw(Route const& route) {
   auto const vrfStatus = mfibHwStatus_->vrfStatus(route.vrf_);
   if (!vrfStatus) return;
   if (!route.isFastdrop()) {
      vrfStatus->routeDel(route.key_);
   } else if (auto const status = vrfStatus->route(route.key_); status && route.target_) {
      status->fastdropLastPollTimeDel(route.target_->acceptingIntfId.name());
   }
}

void RouteProgrammer::stateIs(Route& route, State state) {
   programming_ -= route.state_ == State::programming;
   programming_ += state == State::programming;
   route.state_ = state;
}

Qor::String RouteProgrammer::Route::reason() const {
   switch (state_) {
      case State::inHardware:
         return {};
      case State::marked:
         return "not looked at yet";
      case State::programming:
         return "transactions under way";
      case State::waitingGroup:
         return "no free multicast group (failure code 8); waits for a deletion";
      case State::waitingEntry:
         return "no free route entry (failure code 1024); waits for a deletion";
      case State::waitingVrf:
         return "VRF " + vrf_.name() + " has no hardware status (failure code 4096)";
      case State::failed:
         return "write failed " + std::to_string(attempts_) + " times: " + failure_;
   }
   return {};
}

std::ostream& operator<<(std::ostream& os, RouteProgrammer::State state) {
   static constexpr char const* names[] = {"marked",       "programming",  "inHardware",
                                           "waitingGroup", "waitingEntry", "waitingVrf",
                                           "failed"};
   return os << names[static_cast<unsigned>(state)];
}

}  // namespace Agent
