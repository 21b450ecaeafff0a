#include "agent/programmer/RouteProgrammer.h"

#include <utility>

namespace Agent {

using MrouteLib::MtableOifSetPtr;
using MrouteLib::OifSetPtr;

class RouteProgrammer::QorClock final : public Qor::Clock::Notifiee {
 public:
   QorClock(RouteProgrammer& owner, void (RouteProgrammer::*due)(), Qor::Clock* clock)
         : owner_(owner), due_(due) {
      notifierIs(clock);
   }
   void onTime() override { (owner_.*due_)(); }

 private:
   RouteProgrammer& owner_;
   void (RouteProgrammer::*const due_)();
};

// An entry that is to be deleted once the one that replaces it is written.
struct RouteProgrammer::Leaving {
   MrouteLib::RouteHandle handle;
   Table table = Table::entry;
};

RouteProgrammer::RouteProgrammer(Qor::Ptr<MrouteLib::MrouteTableColl> tableColl,
                                 Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus)
      : tableColl_(std::move(tableColl)),
        mfibHwStatus_(std::move(mfibHwStatus)),
        clock_(Qor::make<Qor::Clock>("routeProgrammer")),
        clockReactor_(std::make_unique<QorClock>(*this, &RouteProgrammer::runPass, clock_.get())),
        retry_(Qor::make<Qor::Clock>("routeProgrammerRetry")),
        retryReactor_(
              std::make_unique<QorClock>(*this, &RouteProgrammer::handleRetry, retry_.get())) {}

RouteProgrammer::~RouteProgrammer() = default;

void RouteProgrammer::Counters::add(Counters const& other) {
   resurrections += other.resurrections;
   purges += other.purges;
   failedWrites += other.failedWrites;
   unchanged += other.unchanged;
   refusals += other.refusals;
}

void RouteProgrammer::releaseAll() {
   for (auto& [name, table] : vrfs_) {
      for (auto& [key, route] : table)
         release(*route);
   }
   if (std::exchange(wrote_, false)) commit();
}

// ---- What is wanted. ----

void RouteProgrammer::routeIs(L3::VrfName const& vrf, RouteKey const& key, WantedRoute wanted) {
   RoutePtr const there = find(vrf, {key, {}});
   Route::WantedPtr const before = there ? there->wanted_ : nullptr;
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
   Route::WantedPtr const before = there->wanted_;
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
      entry = table.insert(key, newRoute(vrf, key.key, key.fastdropVlan)).first;
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

RouteProgrammer::RoutePtr RouteProgrammer::newRoute(L3::VrfName const& vrf, RouteKey const& key,
                                                    Bridging::VlanIdOrNone fastdropVlan) {
   return Qor::make<Route>(*this, vrf, key, fastdropVlan);
}

Qor::U32 RouteProgrammer::waiting() const {
   std::size_t sum = 0;
   for (WaitingQueue const& queue : waiting_)
      sum += queue.size();
   return static_cast<Qor::U32>(sum);
}

std::optional<RouteProgrammer::Place> RouteProgrammer::placeInLine(Route const& route) const {
   for (std::size_t i = 0; i < tables; ++i) {
      if (route.waitingIn_ != &waiting_[i]) continue;
      return Place{static_cast<Table>(i), waiting_[i].before(route), waiting_[i].size()};
   }
   return std::nullopt;
}

// ---- Placing. ----

void RouteProgrammer::place(Route& route) {
   route.target_ = route.wanted_;
   if (!route.placed_) {
      if (mustStandBack(route)) return;
      if (!mustQueue(route)) placeAnew(route);
      return;
   }
   WantedRoute const& wanted = *route.target_;
   if (*route.placed_ == wanted) {
      stateIs(route, State::inHardware);
      return;
   }
   publish(route);
   bool const group = needsGroup(route);
   MtableOifSetPtr record;
   if (group) {
      bool const stays = route.record_ && route.placed_->set == wanted.set;
      record = stays ? route.record_ : allocateRecord(route);
   }
   Leaving leaving;
   // Without room for old and new together the route steps aside, and tries with what it gave back.
   if ((group && !record) || !replaceEntry(route, record, leaving)) {
      release(route);
      placeAnew(route);
      return;
   }
   if (record == route.record_ && route.confirmed_) {  // nothing changes in hardware
      route.placed_ = route.target_;
      stateIs(route, State::inHardware);
      return;
   }
   pointAt(route, std::move(record));
   // Issued behind the new entry's writes, in the order that the chip keeps.
   if (leaving.handle.isNull()) return;
   leaveEntry(leaving.handle, leaving.table);
   markFastdrops(route);
}

// A route that is not in hardware lets those go first who wait for what it needs. That somebody
// comes is a good time for the first of them to try again.
bool RouteProgrammer::mustQueue(Route& route) {
   if (recovery_) {
      std::optional<Table> const kept = keptForOthers(route);
      if (kept) wait(route, stateFor(*kept));
      return kept.has_value();
   }
   if (!queue(Table::group).empty() && needsGroup(route)) {
      OifSetPtr const oifSet = tableColl_->oifSet(route.target_->set);
      if (!oifSet || !sharable(oifSet).value_or(false)) {
         queueUp(route, Table::group);
         return true;
      }
   }
   if (queue(Table::entry).empty() && queue(Table::boundary).empty()) return false;
   std::optional<Table> const table = entryTable(route);
   if (!table || queue(*table).empty()) return false;
   queueUp(route, *table);
   return true;
}

// During a recovery: the table in which all that there is may be what others come for.
std::optional<Table> RouteProgrammer::keptForOthers(Route const& route) {
   if (recovery_->found(route)) return std::nullopt;
   std::vector<Table> needed;
   if (auto const table = entryTable(route)) needed.push_back(*table);
   OifSetPtr const oifSet = needsGroup(route) ? tableColl_->oifSet(route.target_->set) : nullptr;
   bool const shares = oifSet && sharable(oifSet).value_or(false);
   if (needsGroup(route) && !shares) needed.push_back(Table::group);
   auto const free = [this](Table table) -> Qor::U32& {
      return recovery_->free[static_cast<std::size_t>(table)];
   };
   for (Table const table : needed) {
      if (free(table) == 0) return table;
   }
   for (Table const table : needed)
      --free(table);
   return std::nullopt;
}

void RouteProgrammer::queueUp(Route& route, Table table) {
   queue(table).roomIs(true);
   wait(route, stateFor(table));
}

void RouteProgrammer::placeAnew(Route& route) {
   publish(route);
   bool const group = needsGroup(route);
   MtableOifSetPtr const record = group ? allocateRecord(route) : nullptr;
   if (group && !record) {
      wait(route, State::waitingGroup);
      return;
   }
   State const state = entryTable(route) ? allocateEntry(route, record) : State::programming;
   if (state == State::programming) {
      pointAt(route, record);
   } else {
      dropChange(route);
      wait(route, state);
   }
}

// Gives the route another entry if the present one has other properties than wanted. False: there
// is none to be had.
bool RouteProgrammer::replaceEntry(Route& route, MtableOifSetPtr const& record, Leaving& leaving) {
   WantedRoute const& placed = *route.placed_;
   WantedRoute const& wanted = *route.target_;
   bool const inUseKeyStays = placed.acceptingVlan == wanted.acceptingVlan;
   bool const entryStays = inUseKeyStays && placed.bridgeAction == wanted.bridgeAction &&
                           placed.noRpf == wanted.noRpf && placed.rpaId == wanted.rpaId;
   if (route.handle_.isNull() || entryStays) return true;
   Table const before = route.table_;
   if (inUseKeyStays) {
      deleteEntry(std::exchange(route.handle_, {}));
   } else {
      leaving = {route.handle_, before};
   }
   bool const replaced = allocateEntry(route, record) == State::programming;
   if (route.table_ != before) queue(before).roomIs(true);
   return replaced;
}

// State::programming, or what becomes of the route without an entry.
RouteProgrammer::State RouteProgrammer::allocateEntry(Route& route, MtableOifSetPtr const& record) {
   clearTheWay(route);
   Entry const entry = newEntry(route, record);
   if (entry.handle.isNull()) return entry.whyNot;
   route.handle_ = entry.handle;
   route.table_ = entry.table;
   route.confirmed_ = false;
   return State::programming;
}

// Whether the route itself still has the entry for this fastdrop's interface. It is on its way out
// of it, and marks its fastdrops then.
bool RouteProgrammer::mustStandBack(Route const& route) const {
   if (!route.isFastdrop()) return false;
   RoutePtr const own = find(route.vrf_, {route.key_, {}});
   return own && !own->handle_.isNull() && own->placed_->acceptingVlan == route.fastdropVlan_;
}

// Takes out the fastdrop entry for the interface that is the route's input from now on.
void RouteProgrammer::clearTheWay(Route const& route) {
   if (route.isFastdrop() || route.target_->acceptingVlan.isNone()) return;
   RoutePtr const fastdrop = find(route.vrf_, {route.key_, route.target_->acceptingVlan});
   if (fastdrop && !fastdrop->wanted_) release(*fastdrop);
}

void RouteProgrammer::markFastdrops(Route const& route) {
   if (route.isFastdrop() || !route.wanted_) return;
   for (Fastdrop const& fastdrop : route.wanted_->fastdrop) {
      RoutePtr const entry = find(route.vrf_, {route.key_, fastdrop.vlan});
      if (entry && entry->state_ == State::marked) mark(*entry);
   }
}

void RouteProgrammer::pointAt(Route& route, MtableOifSetPtr record) {
   if (route.record_ != record) {
      route.previous_ = std::exchange(route.record_, std::move(record));
   }
   if (!route.handle_.isNull() && route.record_) point(route);
   wrote_ = true;
   route.placed_ = route.target_;
   waitNoMore(route);
   if (route.record_) markThoseWhoShare(route.placed_->set);
   stateIs(route, State::programming);
   checkChange(route);
}

// The record for the route's wanted set; null when there is no group for it.
MtableOifSetPtr RouteProgrammer::allocateRecord(Route& route) {
   OifSetPtr const oifSet = sharedOifSet(route.target_->set);
   bool const there = sharable(oifSet).has_value();
   for (Qor::U32 purges = zombies();; --purges) {
      Qor::U32 const before = zombies();
      if (MtableOifSetPtr const record = newRecord(route, oifSet)) {
         counters_.resurrections += zombies() < before;
         wrote_ = wrote_ || !there;
         return record;
      }
      if (purges == 0 || zombies() == 0) return nullptr;
      purgeOldestZombie();
      wrote_ = true;
      ++counters_.purges;
   }
}

// The one object for this set; never one whose record may not be shared.
OifSetPtr RouteProgrammer::sharedOifSet(MrouteLib::PortVlanSet const& set) {
   OifSetPtr const oifSet = tableColl_->newOifSet(set);
   if (sharable(oifSet).value_or(true)) return oifSet;
   retire(oifSet);
   return tableColl_->newOifSet(set);
}

// Takes the route out of hardware, entry first.
void RouteProgrammer::release(Route& route) {
   dropChange(route);
   if (!route.handle_.isNull()) {
      leaveEntry(std::exchange(route.handle_, {}), route.table_);
      markFastdrops(route);
   }
   leaveRecord(route.record_);
   leaveRecord(route.previous_);
   route.placed_.reset();
   route.confirmed_ = false;
   withdraw(route);
}

void RouteProgrammer::leaveEntry(MrouteLib::RouteHandle handle, Table table) {
   deleteEntry(handle);
   queue(table).roomIs(true);
   wrote_ = true;
}

void RouteProgrammer::leaveRecord(MtableOifSetPtr& record) {
   if (!record) return;
   queue(Table::group).roomIs(true);
   wrote_ = true;
   record = nullptr;
}

// ---- The hardware status, and where a route stands. ----

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

Qor::String ProgrammedRoute::reason() const {
   if (state_ == State::inHardware) return {};
   if (state_ == State::marked) return "not looked at yet";
   return programmer_.reason(*this);
}

std::ostream& operator<<(std::ostream& os, ProgrammedRoute::State state) {
   static constexpr char const* names[] = {"marked",       "programming",  "inHardware",
                                           "waitingGroup", "waitingEntry", "waitingBoundary",
                                           "waitingVrf",   "failed"};
   return os << names[static_cast<unsigned>(state)];
}

}  // namespace Agent
