// Route counters of the synchronous path: creating, deleting, reading and publishing them.
//
// A counter is written and removed in the reactor's own maps first and published afterwards. A
// listener of the published records may change the maps again, and such a change is published
// before the listener returns. So publishing always takes the present content of the maps, and goes
// on until the records agree with the maps.
#include <algorithm>

#include "Vel/VelMrouteSmReactors.h"
#include "Vel/VelTrace.h"

namespace Vel {

using Routing::Multicast::Fib::canonicalCatchAllKey;
using Routing::Multicast::Fib::Counter;

namespace {

// A reading of "unchanged" is returned as it is. A sum stops one below that value, since a reader
// would take a larger sum for "unchanged".
Qor::U64 counterSum(Qor::U64 stored, Qor::U64 read) {
   if (read == MrouteSm::unchangedCounter) return read;
   constexpr Qor::U64 highest = MrouteSm::unchangedCounter - 1;
   return stored < highest ? stored + std::min(read, highest - stored) : stored;
}

}  // namespace

// ---- Which counters there are ----

MrouteSm::CounterMode MrouteSm::counterMode() const {
   return mfibVrfConfig() ? mfibVrfConfig()->counterMode() : CounterMode::disabled;
}

bool MrouteSm::counterRouteConfigured(CounterRoute const& route) const {
   auto const* const reactor = mfibConfigVrf(route.second);
   return reactor && reactor->notifier() && reactor->notifier()->counterRoute(route.first);
}

// The first VRF, by name, whose configuration names the route; null if no configuration does.
Qor::Name const* MrouteSm::vrfOfCounterRoute(IpGenRouteKey const& key) const {
   auto const it = counterRoute_.lowerBound({key, Qor::Name()});
   return it != counterRoute_.end() && it->first.first == key ? &it->first.second : nullptr;
}

bool MrouteSm::counterWanted(IpGenRouteKey const& key) const {
   return allCounter() && (key == canonicalCatchAllKey() || vrfOfCounterRoute(key));
}

void MrouteSm::handleCounterRoute(CounterRoute route) {
   if (!initialized()) return;
   auto const self = hold();
   if (counterRouteConfigured(route)) {
      counterRoute_.insert(route, true);
      if (!allCounter()) VEL_TRACE(2, " wildcard mode not enabled " << route.first);
   } else {
      counterRoute_.take(route);
   }
   settleCounter(route.first);
}

// Updates the counters of all routes that a configuration named before or that `configs` name now.
void MrouteSm::syncCounterRoutes(std::vector<ConfigPtr> const& configs) {
   if (!initialized()) return;
   auto const self = hold();
   std::vector<CounterRoute> routes;
   for (auto const& [route, named] : counterRoute_) {
      if (!counterRouteConfigured(route)) routes.push_back(route);
   }
   for (ConfigPtr const& config : configs) {
      for (auto const& [key, named] : config->counterRoute())
         routes.emplace_back(key, config->name());
   }
   for (CounterRoute const& route : routes)
      handleCounterRoute(route);
}

void MrouteSm::handleWildcardCounter() {
   VEL_TRACE(2, "handleWildcardCounter"
                      << " - Wildcard counter enable " << allCounter());
   wildcardRefused_ = false;
   if (!initialized()) return;
   auto const self = hold();
   std::vector<IpGenRouteKey> keys{canonicalCatchAllKey()};
   for (auto const& [route, named] : counterRoute_) {
      if (keys.back() != route.first) keys.push_back(route.first);
   }
   for (IpGenRouteKey const& key : keys)
      settleCounter(key);
}

// Creates the counter if it is wanted and missing, and deletes it if it is not wanted. While
// routing is off the wildcard counter is not created.
void MrouteSm::settleCounter(IpGenRouteKey key) {
   bool const there = counter_.find(key);
   if (!counterWanted(key)) {
      if (there) deleteCounter(key);
   } else if (!there && (key != canonicalCatchAllKey() || routing())) {
      createCounter(key);
   }
}

void MrouteSm::createCounter(IpGenRouteKey key) {
   VEL_TRACE(2, " add counter " << key);
   VrfId vrfId;
   if (auto const* const vrfName = vrfOfCounterRoute(key);
       vrfName && l3Status() && key != canonicalCatchAllKey()) {
      vrfId = l3Status()->vrfNameToVrfId(*vrfName);
   }
   QOR_ASSERT(vrfId.value() <= 0xFFFF);
   if (key == canonicalCatchAllKey()) wildcardRefused_ = true;
   if (!mrouteHelper()->doCreateMrouteCounter(static_cast<Qor::U16>(vrfId.value()), key)) {
      VEL_TRACE(2, " no counter is available for " << key);
      if (counter_.find(key)) removeMfibCounter(key);
      return;
   }
   if (key == canonicalCatchAllKey()) wildcardRefused_ = false;
   // The hook may have changed the configuration, or the counter table may have no room.
   if (!counterWanted(key) || !writeCounter(key, unchangedCounter, true)) {
      mrouteHelper()->doDeleteMrouteCounter(key);
   }
}

void MrouteSm::deleteCounter(IpGenRouteKey key) {
   VEL_TRACE(2, " delete counter " << key);
   mrouteHelper()->doDeleteMrouteCounter(key);
   removeMfibCounter(key);
}

// ---- Reading and clearing ----

std::vector<MrouteSm::IpGenRouteKey> MrouteSm::counterKeys() const {
   std::vector<IpGenRouteKey> keys;
   keys.reserve(counterShadow_.size());
   for (auto const& [counter, active] : counterShadow_)
      keys.push_back(counter.key());
   return keys;
}

bool MrouteSm::countersPolled() const {
   return mfibCounterStatus() && mfibCounterStatusCtl() &&
          mfibCounterStatusCtl()->pollingRefCnt() != 0;
}

// The keys are copied before the first reading, since a written counter moves to the end of the
// shadow and would be read there again.
void MrouteSm::doCounterPolling() {
   VEL_TRACE(2, "doCounterPolling"
                      << "  Polling " << counterShadow_.size() << " counters");
   auto const self = hold();
   for (IpGenRouteKey const& key : counterKeys()) {
      if (!countersPolled()) break;
      auto const* entry = counter_.find(key);
      if (!entry || !entry->second.active) continue;
      Qor::U64 const read = mrouteHelper()->doReadMrouteCounter(key);
      entry = counter_.find(key);
      if (!entry || read == 0) continue;
      updateMfibCounter(key, counterSum(storedCounter(key), read), entry->second.active);
   }
   counterPollingClock_.arm(Qor::now() + counterPollingInterval());
}

void MrouteSm::handleClearRouteCounter(IpGenRouteKey key) {
   VEL_TRACE(2, "handleClearRouteCounter"
                      << " Key: " << key);
   auto const self = hold();
   mrouteHelper()->doClearMrouteCounter(key);
   if (auto const* const entry = counter_.find(key)) {
      updateMfibCounter(key, 0, entry->second.active);
   }
}

void MrouteSm::handleMulticastCounterMode() {
   VEL_TRACE(2, "handleMulticastCounterMode"
                      << " - Multicast Counter Mode " << counterMode());
   if (!initialized()) return;
   auto const self = hold();
   if (routing()) mrouteHelper()->handleMrouteCounterMode(counterMode());
   handleClearRouteCounter(canonicalCatchAllKey());
   for (IpGenRouteKey const& key : counterKeys()) {
      if (key != canonicalCatchAllKey()) handleClearRouteCounter(key);
   }
}

// ---- The counters kept ----

void MrouteSm::updateMfibCounter(IpGenRouteKey key, Qor::U64 value, bool active) {
   auto const self = hold();
   writeCounter(key, value, active);
}

void MrouteSm::setMfibCounterActive(IpGenRouteKey key, bool active) {
   VEL_TRACE(2, "setMfibCounterActive"
                      << " , Key: " << key << ", active: " << active);
   if (counter_.find(key)) updateMfibCounter(key, unchangedCounter, active);
}

// True if the counter has an entry here or in the counter status, where a platform may publish too.
bool MrouteSm::counterListed(IpGenRouteKey const& key) const {
   return counter_.find(key) || (mfibCounterStatus() && mfibCounterStatus()->counter().find(key));
}

// A published entry without a time stamp does not count; the reactor's own entry then decides,
// which covers an entry written at the time 0.
Qor::U64 MrouteSm::storedCounter(IpGenRouteKey const& key) const {
   auto const* const published =
         mfibCounterStatus() ? mfibCounterStatus()->counter().find(key) : nullptr;
   if (published && published->second.timeStamp != 0) return published->second.value;
   auto const* const own = counter_.find(key);
   return own ? own->second.value : 0;
}

// Returns false if the table had no room for a new counter.
bool MrouteSm::writeCounter(IpGenRouteKey const& key, Qor::U64 value, bool active) {
   VEL_TRACE(2, "updateMfibCounter"
                      << " , Key: " << key << ", value: " << value << ", active: " << active);
   // A listener of the removed counter may have entered this counter itself.
   if (!counterListed(key) && !makeCounterRoom() && !counterListed(key)) {
      VEL_TRACE(2, " no room for counter " << key);
      return false;
   }
   if (value == unchangedCounter) value = storedCounter(key);
   CounterStatus::Entry& counter = counter_.insert(key, {}).first->second;
   counterShadow_.take(Counter(counter.timeStamp, key));
   activeCounters_ -= counter.active;
   counter.value = value;
   counter.timeStamp = Qor::now();
   counter.active = active;
   counterShadow_.insert(Counter(counter.timeStamp, key), active);
   activeCounters_ += active;
   VEL_TRACE(2,
             " counterStatus size=" << counterShadow_.size() << " currActive=" << activeCounters_);
   publishCounts();
   publishCounter(key);
   return true;
}

void MrouteSm::removeMfibCounter(IpGenRouteKey key) {
   auto const self = hold();
   auto const removed = counter_.take(key);
   if (removed) {
      counterShadow_.take(Counter(removed->timeStamp, key));
      activeCounters_ -= removed->active;
   }
   VEL_TRACE(2, "removeMfibCounter"
                      << " size=" << counterShadow_.size() << " activeSize=" << activeCounters_);
   publishCounts();
   publishCounter(key);
}

// Removes the counter idle for longest from a full table. Returns false if the table has no counter
// to remove, or if a listener of the removal took the free place.
bool MrouteSm::makeCounterRoom() {
   auto const& ctl = mfibCounterStatusCtl();
   if (!ctl || ctl->limit() > ctl->currSize()) return true;
   Qor::U32 const before = counterShadow_.size();
   if (before == 0) return false;
   IpGenRouteKey const oldest = counterShadow_.begin()->first.key();
   VEL_TRACE(2, " Aging out counter " << oldest);
   mrouteHelper()->ageOutHwMcastCounter(oldest);
   removeMfibCounter(oldest);
   return counterShadow_.size() < before;
}

// ---- Publishing ----

void MrouteSm::publishCounter(IpGenRouteKey const& key) {
   auto const status = mfibCounterStatus();
   if (!status) return;
   if (auto const* const entry = counter_.find(key)) {
      status->counterIs(key, entry->second);
   } else {
      status->counterDel(key);
   }
}

void MrouteSm::publishCounts() {
   while (auto const ctl = mfibCounterStatusCtl()) {
      if (publishedSize_ < counterShadow_.size()) {
         ++publishedSize_;
         ctl->currSizeInc();
      } else if (publishedSize_ > counterShadow_.size()) {
         --publishedSize_;
         ctl->currSizeDec();
      } else if (publishedActive_ < activeCounters_) {
         ++publishedActive_;
         ctl->currActiveInc();
      } else if (publishedActive_ > activeCounters_) {
         --publishedActive_;
         ctl->currActiveDec();
      } else {
         return;
      }
   }
}

void MrouteSm::mfibCounterStatusIs(Qor::Ptr<CounterStatus> v) {
   if (v == mfibCounterStatus()) return;
   auto const self = hold();
   auto const before = std::exchange(mfibCounterStatus_, std::move(v));
   for (IpGenRouteKey const& key : counterKeys()) {
      if (before) before->counterDel(key);
      publishCounter(key);
   }
   notify<&Notifiee::onMfibCounterStatus>();
}

void MrouteSm::mfibCounterStatusCtlIs(Qor::Ptr<CounterStatusCtl> v) {
   if (v == mfibCounterStatusCtl()) return;
   auto const self = hold();
   auto const before = std::exchange(mfibCounterStatusCtl_, std::move(v));
   Qor::U32 active = std::exchange(publishedActive_, 0);
   Qor::U32 size = std::exchange(publishedSize_, 0);
   for (; active > 0; --active)
      before->currActiveDec();
   for (; size > 0; --size)
      before->currSizeDec();
   publishCounts();
   notify<&Notifiee::onMfibCounterStatusCtl>();
}

}  // namespace Vel
