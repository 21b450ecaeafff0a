// The placement of one route: the order of its writes, and its way out of the hardware.
#include <algorithm>
#include <utility>

#include "programmer/internal/ProgrammerWork.h"

namespace VelMroute {

using MrouteLib::MtableOifSetPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;

RouteTable::Spec ProgrammerWork::specOf(ProgrammedRoute const& route) const {
   WantedRoute const& wanted = route.target->wanted();
   RouteTable::Spec spec;
   spec.vrf = route.vrf.name;
   spec.vrfId = route.vrfId;
   spec.key = route.key;
   spec.vlan = route.at->vlan;
   spec.bridge = wanted.bridge;
   spec.noRpf = wanted.noRpf;
   spec.fastdrop = route.target->fastdrop();
   spec.backup = !route.at->set.currentIif().isNull();
   spec.rpaId = wanted.rpaId;
   spec.type = route.at->set.type();
   return spec;
}

// Takes the present wish as the target, in the present vlans and VRF. Returns false if the route
// cannot be placed now: it has left the hardware, and waits or failed.
bool ProgrammerWork::aim(ProgrammedRoute& route) {
   route.target = route.wish;
   route.trouble.reset();
   WishPool::Resolution const resolution = resolve(route);
   if (!resolution.placement) {
      release(route);
      wait(route, RouteState::waitingVlan);
      return false;
   }
   route.at = resolution.placement;
   auto const vrfId = table_->vrfId(route.vrf.name);
   if (!vrfId) {
      release(route);
      wait(route, RouteState::waitingVrf);
      return false;
   }
   route.vrfId = *vrfId;
   route.needs = table_->needs(specOf(route));
   if (!route.needs.never.empty()) {
      release(route);
      waitNoMore(route);
      route.trouble = std::make_unique<Qor::String>(route.needs.never);
      stateIs(route, RouteState::failed);
      return false;
   }
   return true;
}

bool ProgrammerWork::hasWantedSet(ProgrammedRoute const& route) const {
   if (!route.needs.group) return !route.record;
   return route.record && route.record->oifSet()->portVlanSet() == route.at->set;
}

// Whether the present entry has the wanted properties. A placed route without an entry needs none.
bool ProgrammerWork::hasWantedEntry(ProgrammedRoute const& route) const {
   if (route.handle.isNull()) return true;
   WantedRoute const& placed = route.placed->wanted();
   WantedRoute const& wanted = route.target->wanted();
   return route.placedVlan == route.at->vlan && placed.bridge == wanted.bridge &&
          placed.noRpf == wanted.noRpf && placed.rpaId == wanted.rpaId;
}

bool ProgrammerWork::isPlaced(ProgrammedRoute const& route) const {
   return hasWantedEntry(route) && hasWantedSet(route);
}

void ProgrammerWork::place(ProgrammedRoute& route) {
   if (route.stuck) release(route);
   if (!aim(route)) return;
   if (!route.placed) {
      if (mustStandBack(route)) return;
      if (!mustQueue(route)) placeNew(route);
      return;
   }
   if (mustLeaveFirst(route)) {
      stepAside(route);
      return;
   }
   if (isPlaced(route) && route.confirmed) {
      publish(route);
      route.placed = route.target;
      stateIs(route, RouteState::inHardware);
      return;
   }
   publish(route);
   MtableOifSetPtr record;
   if (route.needs.group) record = hasWantedSet(route) ? route.record : allocateRecord(route);
   Leaving leaving;
   // There may be no room for old and new together.
   if ((route.needs.group && !record) || !replaceEntry(route, record, leaving)) {
      stepAside(route);
      return;
   }
   pointAt(route, std::move(record));
   if (leaving.handle.isNull()) return;
   // Issued behind the writes of the new entry, in the order that the chip keeps.
   leaveEntry(leaving);
   markSiblings(route);
}

// Whether the placement has to go before the new one is made: its entry has a number that another
// VRF or interface may have by now, or there is an entry where none is needed, or none where one is.
bool ProgrammerWork::mustLeaveFirst(ProgrammedRoute const& route) const {
   bool const sameInput = route.placed->wanted().iif == route.target->wanted().iif;
   bool const renumbered = sameInput && route.placedVlan != route.at->vlan &&
                           !route.placedVlan.isNone() && !route.at->vlan.isNone();
   bool const entryComesOrGoes = route.needs.entry.has_value() == route.handle.isNull();
   return route.placedVrf != route.vrfId || renumbered || entryComesOrGoes;
}

// The route leaves the hardware, and tries with the room that it gave back.
void ProgrammerWork::stepAside(ProgrammedRoute& route) {
   release(route);
   if (!mustStandBack(route)) placeNew(route);
}

// A route in front of its line tries; the line stops when the route is refused.
void ProgrammerWork::placeWaiting(ProgrammedRoute& route, WaitingLine& line) {
   if (!route.wish) {
      waitNoMore(route);
      return;
   }
   if (!aim(route)) return;
   if (mustStandBack(route)) return;
   placeNew(route);
   if (route.waitingIn == &line) line.roomIs(false);
}

void ProgrammerWork::placeNew(ProgrammedRoute& route) {
   publish(route);
   MtableOifSetPtr const record = route.needs.group ? allocateRecord(route) : nullptr;
   if (route.needs.group && !record) {
      wait(route, RouteState::waitingGroup);
      return;
   }
   using Refusal = RouteTable::Refusal;
   Refusal const refusal = route.needs.entry ? allocateEntry(route, record) : Refusal::none;
   if (refusal == Refusal::none) {
      pointAt(route, record);
      return;
   }
   route.change.reset();  // before the record goes
   if (refusal == Refusal::writeFailed) {
      withdraw(route);
      waitNoMore(route);
      route.trouble = std::make_unique<Qor::String>("write failed " +
                                                    std::to_string(table_->attempts()) + " times");
      stateIs(route, RouteState::failed);
   } else {
      wait(route,
           refusal == Refusal::noVrf ? RouteState::waitingVrf : stateFor(*route.needs.entry));
   }
}

// ---- The line for room. ----

// A route that is not in hardware lets those go first that wait for the same room. An arrival is a
// good time for the first of them to try again.
bool ProgrammerWork::mustQueue(ProgrammedRoute& route) {
   if (recovering_) {
      std::optional<Table> const kept = keptForOthers(route);
      if (kept) wait(route, stateFor(*kept));
      return kept.has_value();
   }
   if (route.needs.group && !line(Table::group).empty() && !sharesGroup(route)) {
      queueUp(route, Table::group);
      return true;
   }
   if (!route.needs.entry || line(*route.needs.entry).empty()) return false;
   queueUp(route, *route.needs.entry);
   return true;
}

// Whether the set of the route is in hardware, and may be shared.
bool ProgrammerWork::sharesGroup(ProgrammedRoute const& route) const {
   OifSetPtr const oifSet = tableColl_->oifSet(route.at->set);
   return oifSet && table_->sharable(oifSet).value_or(false);
}

// While recovering: the table in which all free room may be needed by routes to come.
std::optional<Table> ProgrammerWork::keptForOthers(ProgrammedRoute const& route) {
   if (restart_->isFound({route.vrfId, route.key, route.at->vlan, route.target->wanted().bridge})) {
      return std::nullopt;
   }
   std::vector<Table> needed;
   if (route.needs.entry) needed.push_back(*route.needs.entry);
   if (route.needs.group && !sharesGroup(route)) needed.push_back(Table::group);
   for (Table const table : needed) {
      if (free_[static_cast<std::size_t>(table)] == 0) return table;
   }
   for (Table const table : needed)
      --free_[static_cast<std::size_t>(table)];
   return std::nullopt;
}

void ProgrammerWork::queueUp(ProgrammedRoute& route, Table table) {
   line(table).roomIs(true);
   wait(route, stateFor(table));
}

void ProgrammerWork::wait(ProgrammedRoute& route, RouteState state) {
   withdraw(route);
   stateIs(route, state);
   WaitingLine* queue = nullptr;
   for (Table const table : allTables) {
      if (state == stateFor(table)) queue = &line(table);
   }
   Qor::U64 const place = route.waitingIn == queue ? route.arrival : 0;
   waitNoMore(route);  // the set may be another one by now
   if (!queue) return;
   if (!place) ++counters_.refusals;
   queue->add(route, place);
   armRetry();
}

void ProgrammerWork::waitNoMore(ProgrammedRoute& route) {
   if (route.waitingIn) route.waitingIn->remove(route);
}

// ---- Records and entries. ----

RouteChange& ProgrammerWork::changeOf(ProgrammedRoute& route) {
   if (!route.change) route.change = std::make_unique<RouteChange>(*this, route);
   return *route.change;
}

// The record for the target's set; null when there is no group for it. Gives up zombies for room,
// at most as many as there are.
MtableOifSetPtr ProgrammerWork::allocateRecord(ProgrammedRoute& route) {
   OifSetPtr const oifSet = sharedOifSet(route.at->set);
   bool const there = table_->sharable(oifSet).has_value();
   RouteTable::Spec const spec = specOf(route);
   for (Qor::U32 purges = table_->zombies();; --purges) {
      Qor::U32 const before = table_->zombies();
      RouteTable::Record result = table_->newRecord(spec, oifSet, recovering_);
      counters_.failedWrites += result.failedWrites;
      if (result.record) {
         if (table_->zombies() < before) {
            ++counters_.resurrections;
            if (observer_ && !route.isFastdrop()) observer_->resurrected(RouteView(&route));
         }
         wrote_ = wrote_ || !there;
         RouteChange& change = changeOf(route);
         change.fresh = result.record;
         change.groupWrite = std::move(result.write);
         return std::move(result.record);
      }
      if (purges == 0 || table_->zombies() == 0) return nullptr;
      table_->purgeZombie();
      wrote_ = true;
      ++counters_.purges;
   }
}

// The one object for this set, and never an object whose record may not be shared.
OifSetPtr ProgrammerWork::sharedOifSet(MrouteLib::PortVlanSet const& set) {
   OifSetPtr const oifSet = tableColl_->newOifSet(set);
   if (table_->sharable(oifSet).value_or(true)) return oifSet;
   tableColl_->oifSetRetire(*oifSet);
   return tableColl_->newOifSet(set);
}

RouteTable::Refusal ProgrammerWork::allocateEntry(ProgrammedRoute& route,
                                                  MtableOifSetPtr const& record) {
   RouteTable::Entry const entry = table_->newEntry(specOf(route), record);
   counters_.failedWrites += entry.failedWrites;
   if (entry.handle.isNull()) {
      return entry.refusal == RouteTable::Refusal::none ? RouteTable::Refusal::noRoom
                                                        : entry.refusal;
   }
   route.handle = entry.handle;
   route.table = *route.needs.entry;
   route.confirmed = false;
   return RouteTable::Refusal::none;
}

// Gives the route another entry if the present one has other properties than wanted. Returns false
// if there is none, or while another entry of the route has the new vlan.
bool ProgrammerWork::replaceEntry(ProgrammedRoute& route, MtableOifSetPtr const& record,
                                  Leaving& leaving) {
   if (hasWantedEntry(route)) return true;
   Table const before = route.table;
   bool const inUseKeyStays = route.placedVlan == route.at->vlan;
   if (inUseKeyStays) {
      deleteEntry(route);
   } else {
      if (mustStandBack(route)) return false;
      leaving = {route.handle, before};
   }
   bool const replaced = allocateEntry(route, record) == RouteTable::Refusal::none;
   if (route.table != before) line(before).roomIs(true);
   return replaced;
}

// Whether another entry of the same route still has the vlan of this one. A wanted entry is on its
// way out of the vlan, and marks the others then; an entry that nobody wants is taken out here.
bool ProgrammerWork::mustStandBack(ProgrammedRoute& route) {
   if (route.at->vlan.isNone()) return false;
   ProgrammedRoute& own = route.owner ? *route.owner : route;
   auto const occupies = [&](ProgrammedRoute const& other) {
      return &other != &route && !other.handle.isNull() && other.placedVlan == route.at->vlan;
   };
   bool standBack = occupies(own);
   auto const drops = own.fastdrops;  // a copy: an entry that goes leaves the original
   for (RoutePtr const& drop : drops) {
      if (!occupies(*drop)) continue;
      if (drop->wish) {
         standBack = true;
      } else {
         release(*drop);
      }
   }
   if (!standBack) return false;
   waitNoMore(route);
   stateIs(route, RouteState::queued);
   return true;
}

// An entry of the route has left its vlan: entries that stood back are looked at again.
void ProgrammerWork::markSiblings(ProgrammedRoute& route) {
   ProgrammedRoute& own = route.owner ? *route.owner : route;
   auto const waits = [&](ProgrammedRoute const& other) {
      return &other != &route && other.wish && other.state == RouteState::queued;
   };
   if (waits(own)) mark(own);
   for (RoutePtr const& drop : own.fastdrops) {
      if (waits(*drop)) mark(*drop);
   }
}

void ProgrammerWork::pointAt(ProgrammedRoute& route, MtableOifSetPtr record) {
   RouteChange& change = changeOf(route);
   if (route.record != record) {
      route.previous = std::exchange(route.record, std::move(record));
   }
   if (!route.handle.isNull() && route.record) {
      change.pointing = table_->point(route.handle, route.record, change.groupWrite);
   }
   wrote_ = true;
   route.placed = route.target;
   route.placedVlan = route.at->vlan;
   route.placedVrf = route.vrfId;
   change.fresh = nullptr;
   waitNoMore(route);
   if (route.record) {
      // Routes that wait for a group of this set need none any longer.
      line(Table::group).forEachWith(route.at->set, [this](ProgrammedRoute& r) { mark(r); });
   }
   stateIs(route, RouteState::programming);
   checkChange(route);
}

// ---- The change under way. ----

void RouteChange::onState() {
   work_.mark(route_);
}

// Watches a transaction of the change that is pending. Returns false if none is.
bool ProgrammerWork::watchPending(ProgrammedRoute& route) {
   RouteChange* const change = route.change.get();
   if (!change) return false;
   for (Hux::XactPtr const& xact : {change->groupWrite, change->pointing}) {
      if (!xact || !xact->pending()) continue;
      change->notifierIs(xact.get());
      return true;
   }
   return false;
}

// Ends the change, unless it waits for a transaction. A failed group write ends it at once.
void ProgrammerWork::checkChange(ProgrammedRoute& route) {
   if (RouteChange const* const change = route.change.get()) {
      auto const failed = [](Hux::XactPtr const& xact) {
         return xact && xact->state() == Hux::Xact::State::failed;
      };
      Hux::XactPtr const write = change->groupWrite;
      Hux::XactPtr const pointing = change->pointing;
      if (failed(write)) return changeFailed(route, table_->failure(write, true));
      bool const behind = write && write->pending();
      if (!behind && failed(pointing)) return changeFailed(route, table_->failure(pointing, false));
      if (watchPending(route)) return;
   }
   changeDone(route);
}

void ProgrammerWork::changeDone(ProgrammedRoute& route) {
   route.change.reset();
   leaveRecord(route.previous);
   route.confirmed = true;
   route.attempts = 0;
   route.trouble.reset();
   stateIs(route, RouteState::inHardware);
}

// The record must not be shared any longer. The route goes back to the record that it had, if its
// entry is known to be there, and leaves the hardware otherwise.
void ProgrammerWork::changeFailed(ProgrammedRoute& route, Qor::String const& reason) {
   ++counters_.failedWrites;
   if (route.placed == route.wish) ++route.attempts;  // else the wish has changed since
   route.change.reset();
   if (route.record) {
      table_->markDirty(route.record);
      tableColl_->oifSetRetire(*route.record->oifSet());
   }
   if (route.attempts >= table_->attempts()) {
      release(route);
      route.trouble = std::make_unique<Qor::String>(
            "write failed " + std::to_string(route.attempts) + " times: " + reason);
      stateIs(route, RouteState::failed);
      return;
   }
   if (route.confirmed && route.previous) {
      route.record = std::exchange(route.previous, nullptr);
   } else {
      release(route);
   }
   stateIs(route, RouteState::queued);
   mark(route);
}

// ---- The way out. ----

// Takes the route out of hardware, entry first. Raises EntryStays if the entry cannot be deleted:
// the route keeps the entry and its group then.
void ProgrammerWork::release(ProgrammedRoute& route) {
   if (route.change) route.change->notifierIs(nullptr);
   if (!route.handle.isNull()) {
      deleteEntry(route);
      line(route.table).roomIs(true);
      markSiblings(route);
   }
   route.change.reset();
   leaveRecord(route.record);
   leaveRecord(route.previous);
   route.placed = nullptr;
   route.confirmed = false;
   withdraw(route);
}

// Deletes the entry of the route, which has no handle then.
void ProgrammerWork::deleteEntry(ProgrammedRoute& route) {
   route.stuck = !tryDelete(route.handle);
   if (route.stuck) throw EntryStays{};
   route.handle = {};
}

// Deletes an entry that its route has replaced. An entry that cannot be deleted is tried again
// together with the routes that failed.
void ProgrammerWork::leaveEntry(Leaving const& leaving) {
   if (tryDelete(leaving.handle)) {
      line(leaving.table).roomIs(true);
   } else {
      strays_.push_back(leaving);
      armRetry();
   }
}

// Returns whether the table programmer has the entry no longer. An error counts, and is over then:
// the platform has to delete an entry whose deletion it refused.
bool ProgrammerWork::tryDelete(RouteHandle handle) {
   if (!table_->hasEntry(handle)) return true;
   wrote_ = true;
   try {
      table_->deleteEntry(handle);
      return true;
   } catch (...) {
      ++counters_.thrown;
      return !table_->hasEntry(handle);
   }
}

void ProgrammerWork::leaveRecord(MtableOifSetPtr& record) {
   if (!record) return;
   line(Table::group).roomIs(true);
   wrote_ = true;
   record = nullptr;
}

// ---- The published status, and the state. ----

void ProgrammerWork::publish(ProgrammedRoute& route) {
   L3::VrfName const& vrf = route.vrf.name;
   WantedRoute const& wanted = route.target->wanted();
   if (route.isFastdrop()) {
      if (!route.published) {
         route.published = published_->addFastdrop(vrf, route.key, wanted.iif);
      }
      return;
   }
   if (!route.published) {
      published_->add(vrf, route.key);
      route.published = true;
   }
   published_->inputIs(vrf, route.key, wanted.noRpf ? Lnet::IntfId() : wanted.iif);
   // The fastdrop interfaces are part of the status of the route, which may be a new one.
   for (RoutePtr const& drop : route.fastdrops) {
      if (drop->placed && !drop->published) {
         drop->published = published_->addFastdrop(vrf, drop->key, drop->placed->wanted().iif);
      }
   }
}

void ProgrammerWork::withdraw(ProgrammedRoute& route) {
   if (!std::exchange(route.published, false)) return;
   if (route.isFastdrop()) {
      published_->removeFastdrop(route.vrf.name, route.key, route.target->wanted().iif);
      return;
   }
   // The status takes its fastdrop interfaces with it.
   if (published_->remove(route.vrf.name, route.key)) {
      for (RoutePtr const& drop : route.fastdrops)
         drop->published = false;
   }
}

void ProgrammerWork::stateIs(ProgrammedRoute& route, RouteState state) {
   if (route.state == state) return;
   programming_ -= route.state == RouteState::programming;
   programming_ += state == RouteState::programming;
   route.state = state;
   route.since = Qor::now();
   if (observer_ && route.wish && !route.isFastdrop()) observer_->stateChanged(RouteView(&route));
   changed(route);
}

void ProgrammerWork::changed(ProgrammedRoute& route) {
   if (!wake_ || route.isFastdrop() || std::exchange(route.listed, true)) return;
   listed_.emplace_back(&route);
   if (listed_.size() == 1) wake_();
}

}  // namespace VelMroute
