// The placement of one route: the order of its writes, and its way out of the hardware.
#include <algorithm>
#include <utility>

#include "programmer/internal/ProgrammerWork.h"

namespace VelMroute {

using MrouteLib::MtableOifSetPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;

// Takes the present wish as the target, in the present vlans and VRF. Returns false if the route
// cannot be placed now: it has left the hardware, and waits or failed.
bool ProgrammerWork::aim(ProgrammedRoute& route, Target& target) {
   target.wish = route.wish;
   if (RouteWork* const work = route.workIfAny()) work->trouble.clear();
   route.refused = false;
   target.at = resolve(route).placement;
   if (!target.at) {
      release(route);
      wait(route, RouteState::waitingVlan, target);
      return false;
   }
   auto const vrfId = vrfIdOf(route.vrf);
   if (!vrfId) {
      release(route);
      wait(route, RouteState::waitingVrf, target);
      return false;
   }
   WantedRoute const& wanted = target.wish->wanted();
   RouteTable::Spec& spec = target.spec;
   spec.vrf = route.vrf.name;
   spec.vrfId = *vrfId;
   spec.key = route.key;
   spec.vlan = target.at->vlan;
   spec.bridge = wanted.bridge;
   spec.noRpf = wanted.noRpf;
   spec.fastdrop = target.wish->fastdrop();
   spec.backup = !target.at->set.currentIif().isNull();
   spec.rpaId = wanted.rpaId;
   spec.type = target.at->set.type();
   target.needs = table_->needs(target.spec);
   if (!target.needs.never.empty()) {
      release(route);
      waitNoMore(route);
      route.refused = true;
      failed(route, std::move(target.needs.never), target.at);
      return false;
   }
   return true;
}

// The number of the VRF in the hardware; nothing while it is not there.
std::optional<Vel::VrfId> ProgrammerWork::vrfIdOf(Vrf& vrf) const {
   if (vrf.idEpoch != vrfEpoch_) {
      vrf.id = table_->vrfId(vrf.name);
      vrf.idEpoch = vrfEpoch_;
   }
   return vrf.id;
}

bool ProgrammerWork::hasWantedSet(ProgrammedRoute const& route, Target const& target) {
   if (!target.needs.group) return !route.record;
   return route.record && route.record->oifSet()->portVlanSet() == target.at->set;
}

// Whether the present entry has the wanted properties. A placed route without an entry needs none.
bool ProgrammerWork::hasWantedEntry(ProgrammedRoute const& route, Target const& target) {
   if (route.handle.isNull()) return true;
   WantedRoute const& placed = route.placed->wanted();
   WantedRoute const& wanted = target.wish->wanted();
   return route.placedVlan == target.at->vlan && placed.bridge == wanted.bridge &&
          placed.noRpf == wanted.noRpf && placed.rpaId == wanted.rpaId;
}

void ProgrammerWork::place(ProgrammedRoute& route) {
   if (route.stuck) release(route);
   Target target;
   if (!aim(route, target)) return;
   if (!route.placed) {
      if (mustStandBack(route, target)) return;
      if (!mustQueue(route, target)) placeNew(route, target);
      return;
   }
   if (mustLeaveFirst(route, target)) {
      stepAside(route, target);
      return;
   }
   bool const sameSet = hasWantedSet(route, target);
   publish(route, target);
   if (sameSet && route.confirmed && hasWantedEntry(route, target)) {
      route.placed = target.wish;
      stateIs(route, RouteState::inHardware);
      return;
   }
   RouteTable::Record fresh;
   if (target.needs.group) {
      if (sameSet) {
         fresh.record = route.record;
      } else {
         fresh = allocateRecord(route, target);
      }
   }
   Leaving leaving;
   // There may be no room for old and new together.
   if ((target.needs.group && !fresh.record) ||
       !replaceEntry(route, target, fresh.record, leaving)) {
      fresh = {};
      stepAside(route, target);
      return;
   }
   pointAt(route, target, std::move(fresh));
   if (leaving.handle.isNull()) return;
   // Issued behind the writes of the new entry, in the order that the chip keeps.
   leaveEntry(leaving);
   markSiblings(route);
}

// Whether the placement has to go before the new one is made: its entry has a number that another
// VRF or interface may have by now, or there is an entry where none is needed, or none where one is.
bool ProgrammerWork::mustLeaveFirst(ProgrammedRoute const& route, Target const& target) {
   bool const sameInput = route.placed->wanted().iif == target.wish->wanted().iif;
   bool const renumbered = sameInput && route.placedVlan != target.at->vlan &&
                           !route.placedVlan.isNone() && !target.at->vlan.isNone();
   bool const entryComesOrGoes = target.needs.entry.has_value() == route.handle.isNull();
   return route.placedVrf != target.spec.vrfId || renumbered || entryComesOrGoes;
}

// The route leaves the hardware, and tries with the room that it gave back.
void ProgrammerWork::stepAside(ProgrammedRoute& route, Target const& target) {
   release(route);
   if (!mustStandBack(route, target)) placeNew(route, target);
}

// A route in front of its line tries; the line stops when the route is refused.
void ProgrammerWork::placeWaiting(ProgrammedRoute& route, WaitingLine& line) {
   if (!route.wish) {
      waitNoMore(route);
      return;
   }
   Target target;
   if (!aim(route, target)) return;
   if (mustStandBack(route, target)) return;
   placeNew(route, target);
   if (route.waitingIn() == &line) line.roomIs(false);
}

void ProgrammerWork::placeNew(ProgrammedRoute& route, Target const& target) {
   publish(route, target);
   RouteTable::Record fresh;
   if (target.needs.group) fresh = allocateRecord(route, target);
   if (target.needs.group && !fresh.record) {
      wait(route, RouteState::waitingGroup, target);
      return;
   }
   using Refusal = RouteTable::Refusal;
   Refusal const refusal =
         target.needs.entry ? allocateEntry(route, target, fresh.record) : Refusal::none;
   if (refusal == Refusal::none) {
      pointAt(route, target, std::move(fresh));
      return;
   }
   fresh.write = nullptr;  // before the record goes
   if (refusal == Refusal::writeFailed) {
      withdraw(route);
      waitNoMore(route);
      failed(route, "write failed " + std::to_string(table_->attempts()) + " times", target.at);
   } else {
      wait(route,
           refusal == Refusal::noVrf ? RouteState::waitingVrf : stateFor(*target.needs.entry),
           target);
   }
}

// ---- The line for room. ----

// A route that is not in hardware lets those go first that wait for the same room. An arrival is a
// good time for the first of them to try again.
bool ProgrammerWork::mustQueue(ProgrammedRoute& route, Target const& target) {
   if (recovering_) {
      std::optional<Table> const kept = keptForOthers(route, target);
      if (kept) wait(route, stateFor(*kept), target);
      return kept.has_value();
   }
   std::optional<Table> const entry = target.needs.entry;
   if (target.needs.group && !line(Table::group).empty() && !sharesGroup(target)) {
      queueUp(route, Table::group, target);
      return true;
   }
   if (!entry || line(*entry).empty()) return false;
   queueUp(route, *entry, target);
   return true;
}

// Whether the wanted set is in hardware, and may be shared.
bool ProgrammerWork::sharesGroup(Target const& target) const {
   OifSetPtr const oifSet = tableColl_->oifSet(target.at->set);
   return oifSet && table_->sharable(oifSet).value_or(false);
}

// While recovering: the table in which all free room may be needed by routes to come.
std::optional<Table> ProgrammerWork::keptForOthers(ProgrammedRoute const& route,
                                                   Target const& target) {
   RouteTable::Spec const& spec = target.spec;
   if (restart_->isFound({spec.vrfId, route.key, spec.vlan, spec.bridge})) return std::nullopt;
   std::vector<Table> needed;
   if (target.needs.entry) needed.push_back(*target.needs.entry);
   if (target.needs.group && !sharesGroup(target)) needed.push_back(Table::group);
   for (Table const table : needed) {
      if (free_[static_cast<std::size_t>(table)] == 0) return table;
   }
   for (Table const table : needed)
      --free_[static_cast<std::size_t>(table)];
   return std::nullopt;
}

void ProgrammerWork::queueUp(ProgrammedRoute& route, Table table, Target const& target) {
   line(table).roomIs(true);
   wait(route, stateFor(table), target);
}

void ProgrammerWork::wait(ProgrammedRoute& route, RouteState state, Target const& target) {
   withdraw(route);
   stateIs(route, state);
   WaitingLine* queue = nullptr;
   for (Table const table : allTables) {
      if (state == stateFor(table)) queue = &line(table);
   }
   RouteWork& work = route.work();
   Qor::U64 const place = work.waitingIn == queue ? work.arrival : 0;
   waitNoMore(route);  // the set may be another one by now
   work.at = target.at;
   if (!queue) return;
   if (!place) ++counters_.refusals;
   queue->add(route, place, target.at->set.hash());
   armRetry();
}

void ProgrammerWork::waitNoMore(ProgrammedRoute& route) {
   if (WaitingLine* const line = route.waitingIn()) line->remove(route);
}

// The route is not placed for this reason, and is looked at again when its placement changes.
void ProgrammerWork::failed(ProgrammedRoute& route, Qor::String trouble, PlacementPtr at) {
   RouteWork& work = route.work();
   work.trouble = std::move(trouble);
   work.at = std::move(at);
   stateIs(route, RouteState::failed);
}

// ---- Records and entries. ----

// Keeps the writes of a change beyond the step that began it.
RouteChange& ProgrammerWork::keepWrites(ProgrammedRoute& route, RouteWrites& writes) {
   RouteWork& work = route.work();
   if (!work.change) work.change.emplace(*this, route).writes = std::move(writes);
   return *work.change;
}

// Ends the change with these writes. Returns the record that the change held for the time until the
// entry has left it.
MtableOifSetPtr ProgrammerWork::endChange(ProgrammedRoute& route, RouteWrites& writes) {
   MtableOifSetPtr previous = std::move(writes.previous);
   writes = {};
   if (route.change()) route.work().change.reset();
   return previous;
}

// The record for the target's set; null when there is no group for it. Gives up zombies for room,
// at most as many as there are.
RouteTable::Record ProgrammerWork::allocateRecord(ProgrammedRoute& route, Target const& target) {
   auto const [oifSet, there] = sharedOifSet(*target.at);
   for (Qor::U32 purges = table_->zombies();; --purges) {
      Qor::U32 const before = table_->zombies();
      RouteTable::Record result = table_->newRecord(target.spec, oifSet, recovering_);
      counters_.failedWrites += result.failedWrites;
      if (result.record) {
         if (table_->zombies() < before) {
            ++counters_.resurrections;
            if (observer_ && !route.isFastdrop()) observer_->resurrected(RouteView(&route));
         }
         wrote_ = wrote_ || !there;
         return result;
      }
      if (purges == 0 || table_->zombies() == 0) return {};
      table_->purgeZombie();
      wrote_ = true;
      ++counters_.purges;
   }
}

// The one object for this set, and never an object whose record may not be shared; and whether there
// is a record for the object.
std::pair<OifSetPtr, bool> ProgrammerWork::sharedOifSet(Placement const& at) {
   auto const lookUp = [&] {
      at.oifSet = tableColl_->newOifSet(at.set);
      at.retired = retired_;
   };
   if (!at.oifSet || at.retired != retired_) lookUp();
   std::optional<bool> const sharable = table_->sharable(at.oifSet);
   if (sharable.value_or(true)) return {at.oifSet, sharable.has_value()};
   retire(*at.oifSet);
   lookUp();
   return {at.oifSet, false};
}

// No further route shares this object.
void ProgrammerWork::retire(MrouteLib::OifSet const& oifSet) {
   tableColl_->oifSetRetire(oifSet);
   ++retired_;
}

RouteTable::Refusal ProgrammerWork::allocateEntry(ProgrammedRoute& route, Target const& target,
                                                  MtableOifSetPtr const& record) {
   RouteTable::Entry const entry = table_->newEntry(target.spec, record);
   counters_.failedWrites += entry.failedWrites;
   if (entry.handle.isNull()) {
      return entry.refusal == RouteTable::Refusal::none ? RouteTable::Refusal::noRoom
                                                        : entry.refusal;
   }
   route.handle = entry.handle;
   route.table = *target.needs.entry;
   route.confirmed = false;
   return RouteTable::Refusal::none;
}

// Gives the route another entry if the present one has other properties than wanted. Returns false
// if there is none, or while another entry of the route has the new vlan.
bool ProgrammerWork::replaceEntry(ProgrammedRoute& route, Target const& target,
                                  MtableOifSetPtr const& record, Leaving& leaving) {
   if (hasWantedEntry(route, target)) return true;
   Table const before = route.table;
   bool const inUseKeyStays = route.placedVlan == target.at->vlan;
   if (inUseKeyStays) {
      deleteEntry(route);
   } else {
      if (mustStandBack(route, target)) return false;
      leaving = {route.handle, before};
   }
   bool const replaced = allocateEntry(route, target, record) == RouteTable::Refusal::none;
   if (route.table != before) line(before).roomIs(true);
   return replaced;
}

// Whether another entry of the same route still has the vlan of this one. A wanted entry is on its
// way out of the vlan, and marks the others then; an entry that nobody wants is taken out here.
bool ProgrammerWork::mustStandBack(ProgrammedRoute& route, Target const& target) {
   if (target.at->vlan.isNone() || !hasSiblings(route)) return false;
   ProgrammedRoute& own = route.own();
   auto const occupies = [&](ProgrammedRoute const& other) {
      return &other != &route && !other.handle.isNull() && other.placedVlan == target.at->vlan;
   };
   bool standBack = occupies(own);
   auto const drops = own.fastdrops();  // a copy: an entry that goes leaves the original
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
   if (!hasSiblings(route)) return;
   ProgrammedRoute& own = route.own();
   auto const waits = [&](ProgrammedRoute const& other) {
      return &other != &route && other.wish && other.state == RouteState::queued;
   };
   if (waits(own)) mark(own);
   for (RoutePtr const& drop : own.fastdrops()) {
      if (waits(*drop)) mark(*drop);
   }
}

void ProgrammerWork::pointAt(ProgrammedRoute& route, Target const& target,
                             RouteTable::Record fresh) {
   RouteWrites writes{.group = std::move(fresh.write)};
   if (route.record != fresh.record) {
      writes.previous = std::exchange(route.record, std::move(fresh.record));
   }
   try {
      point(route, target, writes);
   } catch (...) {
      keepWrites(route, writes);  // the entry may point at the previous record until it is deleted
      throw;
   }
}

void ProgrammerWork::point(ProgrammedRoute& route, Target const& target, RouteWrites& writes) {
   if (!route.handle.isNull() && route.record) {
      writes.pointing = table_->point(route.handle, route.record, writes.group);
   }
   wrote_ = true;
   route.placed = target.wish;
   route.placedVlan = target.at->vlan;
   route.placedVrf = target.spec.vrfId;
   waitNoMore(route);
   if (RouteWork* const work = route.workIfAny()) work->at = nullptr;
   if (route.record) {
      // Routes that wait for a group of this set need none any longer.
      line(Table::group).forEachWith(target.at->set, [this](ProgrammedRoute& r) { mark(r); });
   }
   stateIs(route, RouteState::programming);
   checkChange(route, writes);
}

// ---- The change under way. ----

void RouteChange::onState() {
   work_.mark(route_);
}

// Watches a write that is pending. Returns false if none is.
bool ProgrammerWork::watchPending(ProgrammedRoute& route, RouteWrites& writes) {
   for (Hux::XactPtr const& xact : {writes.group, writes.pointing}) {
      if (!xact || !xact->pending()) continue;
      keepWrites(route, writes).notifierIs(xact.get());
      return true;
   }
   return false;
}

// Ends the change with these writes, unless one of them is pending. A failed group write ends it at
// once.
void ProgrammerWork::checkChange(ProgrammedRoute& route, RouteWrites& writes) {
   auto const failed = [](Hux::XactPtr const& xact) {
      return xact && xact->state() == Hux::Xact::State::failed;
   };
   bool const behind = writes.group && writes.group->pending();
   if (failed(writes.group)) {
      changeFailed(route, writes, table_->failure(Hux::XactPtr(writes.group), true));
   } else if (!behind && failed(writes.pointing)) {
      changeFailed(route, writes, table_->failure(Hux::XactPtr(writes.pointing), false));
   } else if (!watchPending(route, writes)) {
      changeDone(route, writes);
   }
}

void ProgrammerWork::changeDone(ProgrammedRoute& route, RouteWrites& writes) {
   MtableOifSetPtr previous = endChange(route, writes);
   leaveRecord(previous);
   route.confirmed = true;
   if (RouteWork* const work = route.workIfAny()) {
      work->attempts = 0;
      work->trouble.clear();
      route.dropIdleWork();
   }
   stateIs(route, RouteState::inHardware);
}

// The record must not be shared any longer. The route goes back to the record that it had, if its
// entry is known to be there, and leaves the hardware otherwise.
void ProgrammerWork::changeFailed(ProgrammedRoute& route, RouteWrites& writes,
                                  Qor::String const& reason) {
   ++counters_.failedWrites;
   RouteWork& work = route.work();
   if (route.placed == route.wish) ++work.attempts;  // else the wish has changed since
   MtableOifSetPtr previous = endChange(route, writes);
   if (route.record) {
      table_->markDirty(route.record);
      retire(*route.record->oifSet());
   }
   if (work.attempts >= table_->attempts()) {
      release(route);
      leaveRecord(previous);
      failed(route, "write failed " + std::to_string(work.attempts) + " times: " + reason,
             presentPlacement(route));
      return;
   }
   if (route.confirmed && previous) {
      route.record = std::move(previous);
   } else {
      release(route);
      leaveRecord(previous);
   }
   stateIs(route, RouteState::queued);
   mark(route);
}

// ---- The way out. ----

// Takes the route out of hardware, entry first. Raises EntryStays if the entry cannot be deleted:
// the route keeps the entry and its group then.
void ProgrammerWork::release(ProgrammedRoute& route) {
   RouteChange* const change = route.change();
   if (change) change->notifierIs(nullptr);
   if (!route.handle.isNull()) {
      deleteEntry(route);
      line(route.table).roomIs(true);
      markSiblings(route);
   }
   MtableOifSetPtr previous;
   if (change) previous = endChange(route, change->writes);
   leaveRecord(route.record);
   leaveRecord(previous);
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

void ProgrammerWork::publish(ProgrammedRoute& route, Target const& target) {
   L3::VrfName const& vrf = route.vrf.name;
   if (route.isFastdrop()) {
      publishFastdrop(route);
      return;
   }
   auto const inputOf = [](WantedRoute const& wanted) {
      return wanted.noRpf ? Lnet::IntfId() : wanted.iif;
   };
   Lnet::IntfId const input = inputOf(target.wish->wanted());
   if (!route.published) {
      route.published = published_->add(vrf, route.key);
      route.published->acceptingIntfIdIs(input);
   } else if (!route.placed || inputOf(route.placed->wanted()) != input) {
      route.published->acceptingIntfIdIs(input);
   }
   // The fastdrop interfaces are part of the status of the route, which may be a new one.
   for (RoutePtr const& drop : route.fastdrops()) {
      if (drop->placed) publishFastdrop(*drop);
   }
}

void ProgrammerWork::publishFastdrop(ProgrammedRoute& drop) {
   if (drop.published) return;
   drop.published = published_->addFastdrop(drop.vrf.name, drop.key, drop.work().intf);
}

void ProgrammerWork::withdraw(ProgrammedRoute& route) {
   if (!route.published) return;
   route.published = nullptr;
   if (route.isFastdrop()) {
      published_->removeFastdrop(route.vrf.name, route.key, route.work().intf);
      return;
   }
   // The status takes its fastdrop interfaces with it.
   if (published_->remove(route.vrf.name, route.key)) {
      for (RoutePtr const& drop : route.fastdrops())
         drop->published = nullptr;
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
   if (!wake_ || route.listed || route.isFastdrop()) return;
   route.listed = true;
   listed_.emplace_back(&route);
   if (listed_.size() == 1) wake_();
}

}  // namespace VelMroute
