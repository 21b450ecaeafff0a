#include "platform/sim/AsyncPlatform.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/Format.h"

namespace Sim {

using Bridging::VlanIdOrNone;
using Hux::XactPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Qor::String8;
using Qor::U32;
using Routing::Multicast::Fib::IpGenRouteKey;

namespace {

bool contains(std::vector<Routing::Multicast::Fib::RouteKeyType> const& types,
              Routing::Multicast::Fib::RouteKeyType type) {
   return std::find(types.begin(), types.end(), type) != types.end();
}

AsyncPlatformConfig checked(AsyncPlatformConfig config, Chip const& chip) {
   U32 const groups = chip.config().groups;
   if (config.fixedGroups > groups || config.firstFixedGroup > groups - config.fixedGroups ||
       (!config.fixedTypes.empty() && config.fixedGroups == 0)) {
      Qor::throwRange(
            "AsyncPlatformConfig::fixedGroups outside the groups of the chip not allowed");
   }
   return config;
}

}  // namespace

std::string_view nameOf(AsyncHook hook) {
   static constexpr std::string_view names[] = {
         "handleMrouteCounterMode",
         "handleWildcardCounter",
         "doCreateMrouteCounter",
         "doDeleteMrouteCounter",
         "doAllocateSharableMulticastGroup",
         "doAllocateFixedMulticastGroup",
         "doUpdateMulticastGroupInPlace",
         "doGetXactForOifSet",
         "doGetXactFailureReason",
         "doDeleteOifSet",
         "doAllocateRoute",
         "doSetMtableOifSet",
         "doGetXactForIngress",
         "doDeleteRoute",
         "routeLastAccessedTime",
         "needFixedOifSet",
         "needIngressProgramming",
         "mcastIdReusable",
         "mcastIdIsValid",
         "doGetAdjustedPollingInterval",
         "doGetAdjustedActivityPollInterval",
         "doScheduleVerify",
   };
   static_assert(std::size(names) == asyncHooks);
   return names[static_cast<std::size_t>(hook)];
}

AsyncPlatform::AsyncPlatform(Qor::Name name, Qor::Ptr<Chip> chip, AsyncPlatformConfig config,
                             Qor::Ptr<FlexCounters::CounterKeyTable> activeCounterKeyTable,
                             Qor::Ptr<MrouteLib::MrouteCounterKeyMapTable> mrouteCounterKeyMapTable)
      : AsyncMrouteHelper(std::move(name), std::move(activeCounterKeyTable),
                          std::move(mrouteCounterKeyMapTable)),
        PlatformBase(std::move(chip), config.callCost),
        config_(checked(std::move(config), *chip_)),
        queue_(Qor::make<XactQueue>(chip_->config().latency)),
        groupPool_(chip_->config().groups, config_.firstFixedGroup, config_.fixedGroups),
        routePool_(chip_->config().routes) {
   for (U32 const id : found_.groups.left()) {
      if (isFixedGroup(id)) {
         ++fixedAllocated_;
      } else {
         groupPool_.takeFound(id);
      }
      groups_.resize(id + 1);
      groups_[id].onChip = true;
   }
   for (U32 const index : found_.entries.left())
      routePool_.takeFound(index);
}

// The queue may outlive the platform, and its writes refer to the platform.
AsyncPlatform::~AsyncPlatform() {
   queue_->close();
}

// An injected failure takes the place of the write.
ChipXactPtr AsyncPlatform::issue(WriteKind kind, XactQueue::Write write, XactPtr blockingXact) {
   if (String8 fault = faults_.failure(kind); !fault.empty()) {
      write = [fault = std::move(fault)](ChipXact const&) { return fault; };
   }
   return queue_->issue(std::move(write), std::move(blockingXact), faults_.extraLatency());
}

// No caller sees the transaction of a deletion, so a failed deletion must be repeated here.
void AsyncPlatform::issueDelete(WriteKind kind, XactQueue::Write write) {
   if (String8 fault = faults_.failure(kind); !fault.empty()) {
      queue_->issue([fault = std::move(fault)](ChipXact const&) { return fault; }, nullptr,
                    faults_.extraLatency());
   }
   queue_->issue(std::move(write), nullptr, faults_.extraLatency());
}

// ---- Crash and sweep ----

void AsyncPlatform::detach(U32 applied) {
   queue_->flush(applied);
   queue_->close();
   detached_ = true;
}

bool AsyncPlatform::sweepUnadopted() {
   auto const routes = found_.entries.left();
   for (U32 const index : routes) {
      deleteFoundRoute(index);
      routePool_.give(index);
      ++found_.swept;
   }
   auto const groups = found_.groups.left();
   for (U32 const id : groups) {
      if (found_.entries.holds(id)) continue;
      claimGroup(id);
      doDeleteOifSet(id);
      ++found_.swept;
   }
   return found_.settled();
}

// ---- Groups ----

// Turns a found group into an allocated one.
void AsyncPlatform::claimGroup(U32 id) {
   found_.groups.take(id);
   groups_[id].allocated = true;
   groups_[id].xact = queue_->done();
}

// Called by the queue. Writes the members of the set to the group, which is created if an earlier
// creation failed.
String8 AsyncPlatform::applyGroup(U32 id, MrouteLib::PortVlanSet const& set) {
   bool& onChip = groups_[id].onChip;
   Refusal refusal = onChip ? chip_->groupUpdate(id, membersOf(set), set.toCpu())
                            : chip_->groupCreate(id, membersOf(set), set.toCpu());
   if (refusal.empty()) onChip = true;
   return refusal;
}

void AsyncPlatform::writeGroup(WriteKind kind, U32 id, OifSetPtr oifSet, XactPtr blockingXact) {
   if (id >= groups_.size()) groups_.resize(id + 1);
   auto write = [this, id, oifSet = std::move(oifSet)](ChipXact const&) {
      return applyGroup(id, oifSet->portVlanSet());
   };
   groups_[id].xact = issue(kind, std::move(write), std::move(blockingXact));
   groups_[id].allocated = true;
}

U32 AsyncPlatform::doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& route,
                                                    OifSetPtr oifSet, XactPtr blockingXact, bool) {
   called(Hook::doAllocateSharableMulticastGroup);
   auto const preferred = found_.entries.groupOf(route.routeKey(), route.acceptingVlanId());
   // The group of a set with backup pairs may be rewritten soon, which must not change the routes
   // whose found entries point at an equal group.
   bool const reroutable = !oifSet->portVlanSet().portVlanFrr().empty();
   auto const usable = [&](U32 id) {
      return !isFixedGroup(id) && !(reroutable && found_.entries.awaits(id));
   };
   if (auto const found =
             found_.groups.like(FoundGroups::contentOf(oifSet->portVlanSet()), preferred, usable);
       found && !isFixedGroup(*found)) {
      claimGroup(*found);
      ++found_.adopted;
      return *found;
   }
   auto const id = faults_.groupsExhausted() ? std::nullopt : groupPool_.take();
   if (!id) return invalidMulticastId;
   writeGroup(WriteKind::groupCreate, *id, std::move(oifSet), std::move(blockingXact));
   return *id;
}

U32 AsyncPlatform::doAllocateFixedMulticastGroup(OifSetPtr oifSet, XactPtr blockingXact,
                                                 U32 mcastId) {
   called(Hook::doAllocateFixedMulticastGroup);
   if (faults_.groupsExhausted() || !isFixedGroup(mcastId)) return invalidMulticastId;
   bool there = groupAllocated(mcastId);
   if (found_.groups.contains(mcastId)) {
      bool const carried =
            found_.groups.carries(mcastId, FoundGroups::contentOf(oifSet->portVlanSet()));
      claimGroup(mcastId);
      found_.adopted += carried;
      if (carried) return mcastId;
      there = true;
   }
   if (!there) ++fixedAllocated_;
   writeGroup(there ? WriteKind::groupUpdate : WriteKind::groupCreate, mcastId, std::move(oifSet),
              std::move(blockingXact));
   return mcastId;
}

void AsyncPlatform::doUpdateMulticastGroupInPlace(OifSetPtr oifSet, U32 mcastId) {
   called(Hook::doUpdateMulticastGroupInPlace);
   if (!groupAllocated(mcastId)) {
      return notAllocated(Hook::doUpdateMulticastGroupInPlace, "group", mcastId);
   }
   writeGroup(WriteKind::groupUpdate, mcastId, std::move(oifSet), nullptr);
}

XactPtr AsyncPlatform::doGetXactForOifSet(U32 mcastId) {
   called(Hook::doGetXactForOifSet);
   if (groupAllocated(mcastId)) return groups_[mcastId].xact;
   notAllocated(Hook::doGetXactForOifSet, "group", mcastId);
   return nullptr;
}

String8 AsyncPlatform::doGetXactFailureReason(XactPtr xact, VelHelper::MrouteXactType) {
   called(Hook::doGetXactFailureReason);
   if (!xact || xact->state() != Hux::Xact::State::failed) return {};
   auto const* const own = dynamic_cast<ChipXact const*>(xact.get());
   return own ? own->failureReason() : "a transaction of another platform";
}

void AsyncPlatform::doDeleteOifSet(U32 mcastId) {
   called(Hook::doDeleteOifSet);
   if (!groupAllocated(mcastId)) return notAllocated(Hook::doDeleteOifSet, "group", mcastId);
   // A found entry may still point at the group, so the chip would refuse the deletion.
   if (found_.entries.holds(mcastId)) {
      bool const certain = !groups_[mcastId].xact->pending();
      groups_[mcastId].allocated = false;
      return found_.groups.giveBack(
            mcastId, certain ? std::optional(contentOf(*chip_->group(mcastId))) : std::nullopt);
   }
   issueDelete(WriteKind::groupDelete, [this, mcastId](ChipXact const&) -> String8 {
      if (!groups_[mcastId].onChip) return {};
      Refusal refusal = chip_->groupDelete(mcastId);
      if (refusal.empty()) groups_[mcastId].onChip = false;
      return refusal;
   });
   groups_[mcastId].allocated = false;
   groups_[mcastId].xact = nullptr;
   if (isFixedGroup(mcastId)) {
      --fixedAllocated_;
   } else {
      groupPool_.give(mcastId);
   }
}

// ---- Routes ----

RouteHandle AsyncPlatform::doAllocateRoute(IpGenRouteKey const& routeKey,
                                           VlanIdOrNone acceptingVlanId, bool bridgeAction,
                                           Wisp::Multicast::Fib::RpaIndex rpaId, U32 vrfId) {
   called(Hook::doAllocateRoute);
   Entry entry;
   entry.vrfId = vrfId;
   entry.key = routeKey;
   entry.acceptingVlan = acceptingVlanId;
   entry.bridge = bridgeAction;
   entry.rpaIndex = rpaId;
   auto index = found_.entries.find(Vel::VrfId(vrfId), routeKey, acceptingVlanId);
   if (index && adoptRoute(*index, entry)) return RouteHandle(*index);
   if (!index) index = faults_.routesExhausted() ? std::nullopt : routePool_.take();
   if (!index) return RouteHandle();
   auto write = [this, index = *index, entry](ChipXact const& xact) {
      return settled(index, xact, chip_->routeCreate(index, entry));
   };
   if (*index >= routes_.size()) routes_.resize(*index + 1);
   routes_[*index] = {issue(WriteKind::routeCreate, std::move(write), nullptr), nullptr};
   return RouteHandle(*index);
}

// Called by the queue for a write of the entry, which another route may have by now.
String8 AsyncPlatform::settled(U32 index, ChipXact const& xact, String8 refusal) {
   if (!refusal.empty()) return refusal;
   for (ChipXactPtr* const mine : {&routes_[index].create, &routes_[index].point}) {
      if (mine->get() == &xact) *mine = queue_->done();
   }
   return {};
}

// Adopts a found entry. An entry that differs in a property that no write changes is deleted
// instead: false is returned, and the caller creates its entry under the same number.
bool AsyncPlatform::adoptRoute(U32 index, Entry const& wanted) {
   Entry const& there = *chip_->routes().find(index);
   if (there.bridge != wanted.bridge || there.rpaIndex != wanted.rpaIndex) {
      deleteFoundRoute(index);
      return false;
   }
   found_.entries.take(index);
   if (index >= routes_.size()) routes_.resize(index + 1);
   routes_[index] = {queue_->done(), nullptr};
   adoptedAt_[index] = there.group;
   ++found_.adopted;
   return true;
}

void AsyncPlatform::deleteFoundRoute(U32 index) {
   found_.entries.take(index);
   issueDelete(WriteKind::routeDelete,
               [this, index](ChipXact const&) { return deleteFromChip(index); });
}

// Called by the queue.
String8 AsyncPlatform::deleteFromChip(U32 index) {
   found_.entries.release(index);
   return chip_->routeDelete(index);
}

// Another route may have the handle when the write is applied. The write therefore keeps the
// transaction that creates its own entry, and looks only at the chip's state of the group.
void AsyncPlatform::doSetMtableOifSet(RouteHandle handle, U32 mcastId, XactPtr blockingXact) {
   called(Hook::doSetMtableOifSet);
   if (!routeAllocated(handle))
      return notAllocated(Hook::doSetMtableOifSet, "route", handle.value());
   if (!groupAllocated(mcastId)) return notAllocated(Hook::doSetMtableOifSet, "group", mcastId);
   RouteState& route = routes_[handle.value()];
   auto const adopted = adoptedAt_.extract(handle.value());
   if (!adopted.empty() && adopted.mapped() == mcastId) {
      found_.entries.release(handle.value());
      route.point = queue_->done();
      return;
   }
   auto write = [this, index = handle.value(), mcastId,
                 create = route.create](ChipXact const& xact) -> String8 {
      if (create->state() == Hux::Xact::State::failed) {
         return fmt::format("route entry not created: {}", create->failureReason());
      }
      if (!groups_[mcastId].onChip) return fmt::format("multicast group {} not created", mcastId);
      found_.entries.release(index);
      return settled(index, xact, chip_->routePoint(index, mcastId));
   };
   route.point = issue(WriteKind::routePoint, std::move(write), std::move(blockingXact));
}

XactPtr AsyncPlatform::doGetXactForIngress(RouteHandle handle) {
   called(Hook::doGetXactForIngress);
   if (routeAllocated(handle)) return routes_[handle.value()].point;
   notAllocated(Hook::doGetXactForIngress, "route", handle.value());
   return nullptr;
}

void AsyncPlatform::doDeleteRoute(RouteHandle handle) {
   called(Hook::doDeleteRoute);
   if (!routeAllocated(handle)) return notAllocated(Hook::doDeleteRoute, "route", handle.value());
   RouteState& route = routes_[handle.value()];
   auto write = [this, index = handle.value(), create = route.create](ChipXact const&) -> String8 {
      if (create->state() == Hux::Xact::State::failed) return {};
      return deleteFromChip(index);
   };
   issueDelete(WriteKind::routeDelete, std::move(write));
   route = {};
   adoptedAt_.erase(handle.value());
   if (handle.value() < lastAccessed_.size()) lastAccessed_[handle.value()] = 0;
   routePool_.give(handle.value());
}

// Until the entry of the route is on the chip, the entry of an earlier route may have its number.
Qor::Seconds AsyncPlatform::routeLastAccessedTime(RouteHandle handle) {
   called(Hook::routeLastAccessedTime);
   if (!routeAllocated(handle)) {
      notAllocated(Hook::routeLastAccessedTime, "route", handle.value());
      return 0.0;
   }
   if (routes_[handle.value()].create->state() != Hux::Xact::State::succeeded) return 0.0;
   if (lastAccessed_.size() < routes_.size()) lastAccessed_.resize(routes_.size());
   Qor::Seconds& lastAccessed = lastAccessed_[handle.value()];
   // A chip that is not read now keeps its hits, and the platform has the time of the last reading.
   if (!faults_.refused()) lastAccessed = chip_->routes().find(handle.value())->lastHit;
   return lastAccessed;
}

// ---- Counters, settings and the audit ----

void AsyncPlatform::handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode) {
   called(Hook::handleMrouteCounterMode);
}

void AsyncPlatform::handleWildcardCounter(bool) {
   called(Hook::handleWildcardCounter);
}

// Each entry of the chip has its own count, so a route counter needs no allocation.
bool AsyncPlatform::doCreateMrouteCounter(Vel::VrfId, IpGenRouteKey) {
   called(Hook::doCreateMrouteCounter);
   return !faults_.refused();
}

bool AsyncPlatform::doDeleteMrouteCounter(Vel::VrfId, IpGenRouteKey) {
   called(Hook::doDeleteMrouteCounter);
   return true;
}

bool AsyncPlatform::needFixedOifSet(RouteKeyType type) {
   called(Hook::needFixedOifSet);
   return contains(config_.fixedTypes, type);
}

bool AsyncPlatform::needIngressProgramming(RouteKeyType type) {
   called(Hook::needIngressProgramming);
   return !contains(config_.noIngressTypes, type);
}

bool AsyncPlatform::mcastIdReusable(U32) {
   called(Hook::mcastIdReusable);
   return true;
}

bool AsyncPlatform::mcastIdIsValid(U32 mcastId) {
   called(Hook::mcastIdIsValid);
   return mcastId != invalidMulticastId;
}

double AsyncPlatform::doGetAdjustedPollingInterval(double const& interval) {
   called(Hook::doGetAdjustedPollingInterval);
   return std::max(interval, config_.minPollingInterval);
}

double AsyncPlatform::doGetAdjustedActivityPollInterval(double const& interval) {
   called(Hook::doGetAdjustedActivityPollInterval);
   return std::max(interval, config_.minPollingInterval);
}

void AsyncPlatform::doScheduleVerify() {
   called(Hook::doScheduleVerify);
}

std::vector<Qor::String> AsyncPlatform::audit() const {
   std::vector<Qor::String> faults = auditChip();
   // The chip lags behind the allocations while writes are under way.
   if (queue_->pending() > 0) return faults;

   for (U32 id = 0; id < groups_.size(); ++id) {
      GroupState const& group = groups_[id];
      if (group.onChip != (chip_->group(id) != nullptr)) {
         faults.push_back(
               fmt::format("group {}: the platform and the chip differ on its existence", id));
      } else if (group.onChip && !group.allocated && !found_.groups.contains(id)) {
         faults.push_back(fmt::format("group {} is on the chip, but not allocated", id));
      }
   }
   for (U32 index = 0; index < routes_.size(); ++index) {
      ChipXactPtr const& create = routes_[index].create;
      bool const expected = found_.entries.left().contains(index) ||
                            (create && create->state() == Hux::Xact::State::succeeded);
      if (expected != (chip_->routes().find(index) != nullptr)) {
         faults.push_back(fmt::format(
               "route entry {}: the platform and the chip differ on its existence", index));
      }
   }
   return faults;
}

}  // namespace Sim
