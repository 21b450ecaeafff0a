#include "hooks/AsyncHookChecks.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Qor/Clock.h"
#include "hooks/HookQuestion.h"
#include "hooks/internal/Text.h"

namespace VelMroute {

using Hux::Xact;
using Hux::XactPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Qor::U32;

// ---- Transactions. ----

// Follows the latest transaction of a set or an entry.
class AsyncHookChecks::Watch final : public Xact::Notifiee {
 public:
   Watch(AsyncHookChecks& checks, XactPtr xact, XactPtr blocking, std::shared_ptr<Written> set,
         Target target)
         : checks_(checks),
           xact_(std::move(xact)),
           blocking_(std::move(blocking)),
           set_(std::move(set)),
           target_(target),
           call_(checks.call()),
           since_(Qor::now()),
           wasPending_(xact_->pending()) {
      notifierIs(xact_);
      checks_.pending_.emplace(call_.number, this);
      auto const& observer = checks_.options().observer;
      if (!wasPending_) {
         onState();
      } else if (observer) {
         observer->pending(call_.number);
      }
   }
   ~Watch() override { checks_.pending_.erase(call_.number); }

   XactPtr const& xact() const { return xact_; }
   bool wasPending() const { return wasPending_; }

   void onState() override {
      if (!checks_.onHomeThread()) fault(HookDuty::xactThread, "changed on another thread");
      Xact::State const before = std::exchange(state_, xact_->state());
      if (before != Xact::State::pending) {
         return fault(HookDuty::xactTwice, "changed its state after its completion");
      }
      checks_.pending_.erase(call_.number);
      if (blocking_ && blocking_->pending()) {
         fault(HookDuty::blockingIgnored, "completed before its blocking transaction");
      }
      bool const succeeded = state_ == Xact::State::succeeded;
      auto const& observer = checks_.options().observer;
      if (observer && wasPending_) observer->completed(call_.number, succeeded);
      if (target_.isSet) {
         (succeeded ? set_->succeeded : set_->failed) = true;
      } else if (succeeded && set_ && set_->failed && !set_->succeeded) {
         fault(HookDuty::pointedAtFailedSet,
               "succeeded, but the entry points at a group whose writes have all failed");
      }
   }
   // A later write or a deletion has replaced the write.
   void waitNoMore() { checks_.pending_.erase(call_.number); }
   // Asked in each call of a hook, while the transaction is the oldest that is pending.
   void lookAtAge() {
      bool const waits = blocking_ && blocking_->pending();
      if (waits) since_ = Qor::now();
      Qor::Seconds const patience = checks_.options().patience;
      if (patience == 0 || Qor::now() - since_ <= patience) return;
      checks_.pending_.erase(call_.number);
      fault(HookDuty::xactNever, text("is pending for more than ", patience, " s"));
   }

 private:
   // A transaction has one fault, the first.
   void fault(HookDuty duty, Qor::String const& how) {
      if (std::exchange(faulty_, true)) return;
      checks_.fault(duty, {call_.hook, call_.number, Qor::now(), call_.target},
                    text("the transaction of ", target_, ' ', how));
   }

   AsyncHookChecks& checks_;
   XactPtr const xact_;
   XactPtr const blocking_;  // or null
   std::shared_ptr<Written> const set_;
   Target const target_;  // the set whose members are written, or the entry that is pointed at it
   HookCall const call_;  // that began the write
   Qor::Seconds since_;
   bool const wasPending_;
   Xact::State state_ = Xact::State::pending;
   bool faulty_ = false;
};

AsyncHookChecks::AsyncHookChecks(Hooks& hooks, Options options)
      : HookChecks(HookPath::async, std::move(options)), hooks_(hooks) {
   shadow_.observerIs(this->options().observer.get());
}

// The watches take themselves off the list of the pending ones.
AsyncHookChecks::~AsyncHookChecks() {
   sets_.clear();
   entries_.clear();
   replaced_.clear();
}

void AsyncHookChecks::begins(char const* hook) {
   HookChecks::begins(hook);
   if (replaced_.size() >= sweepAt_) {
      std::erase_if(replaced_, [](auto const& watch) { return !watch->xact()->pending(); });
      sweepAt_ = 2 * replaced_.size() + 16;
   }
   if (!pending_.empty()) pending_.begin()->second->lookAtAge();
}

void AsyncHookChecks::drop(Writes& writes) {
   if (!writes.latest) return;
   writes.before = writes.latest->wasPending() ? writes.latest->xact() : nullptr;
   if (writes.latest->xact()->pending()) {
      writes.latest->waitNoMore();
      replaced_.push_back(std::move(writes.latest));
   } else {
      writes.latest.reset();
   }
}

void AsyncHookChecks::watch(Writes& writes, XactPtr const& xact, XactPtr const& blockingXact,
                            Target target) {
   drop(writes);
   writes.latest = std::make_unique<Watch>(*this, xact, blockingXact, writes.set, target);
}

// A platform may have one complete transaction object for all its writes that are complete at once.
// So the transaction of the write before is stale if it is complete and has been pending.
void AsyncHookChecks::seen(Writes& writes, XactPtr const& xact, Target target) {
   if (writes.faulty) return;
   writes.faulty = true;
   if (!xact) return fault(HookDuty::xactNull, text("no transaction for ", target));
   bool const isLatest = writes.latest && writes.latest->xact() == xact;
   if (!isLatest && xact == writes.before && !xact->pending()) {
      return fault(HookDuty::xactStale,
                   text("the transaction of ", target, " is that of the write before the last"));
   }
   writes.faulty = false;
   if (!isLatest) watch(writes, xact, nullptr, target);
}

void AsyncHookChecks::written(Writes& writes, XactPtr const& xact, XactPtr const& blockingXact,
                              Target target) {
   writes.faulty = true;
   if (!xact)
      return fault(HookDuty::xactNull, text("no transaction for ", target, " after a write"));
   bool const isLatest = writes.latest && writes.latest->xact() == xact;
   bool const wasLatest = isLatest && writes.latest->wasPending();
   if (!xact->pending() && (wasLatest || xact == writes.before)) {
      return fault(HookDuty::xactStale, text("the transaction of ", target,
                                             " after a write is that of an earlier write"));
   }
   writes.faulty = false;
   // One transaction may be that of both writes while it is pending.
   if (!isLatest || !xact->pending()) watch(writes, xact, blockingXact, target);
}

// ---- Groups. ----

bool AsyncHookChecks::knownSet(U32 id) {
   aboutSet(id);
   if (shadow_.set(id)) return true;
   fault(HookDuty::setUnknown, text(group(id), " is not allocated"));
   return false;
}

void AsyncHookChecks::denied(Qor::String why) {
   fault(HookDuty::setValidity, std::move(why));
   denied_.reset();
}

// A platform says by mcastIdIsValid whether an allocation was refused, and may have a number of its
// own for "no group". It then has one such number, which never names a group.
bool AsyncHookChecks::isRefusal(U32 id) {
   constexpr U32 invalid = Hooks::invalidMulticastId;
   bool const valid = HookQuestion::ask([&] { return hooks_.mcastIdIsValid(id); });
   if (valid && id == invalid) {
      stop(HookDuty::setValidity, "the invalid id is said to name a group");
   } else if (valid) {
      valid_.insert(id);
      if (denied_ == id || (denied_ && deletedAt_ < 0)) {
         denied(text("group ", *denied_,
                     " was given out, and said to be no group: the allocation "
                     "after it got ",
                     group(id), " without a deletion in between"));
      }
      return false;
   }
   if (id != invalid && valid_.contains(id)) {
      denied(text(group(id), " is given out, and said to be no group; it was one before"));
   } else if (denied_ && denied_ != id) {
      denied(text("groups ", *denied_, " and ", id, " are both said to be no group"));
   } else if (id != invalid && refusedByInvalid_) {
      denied(text(group(id), " is given out, and said to be no group, as is ", invalid));
   } else if (id != invalid) {
      denied_ = id;
   }
   refusedByInvalid_ = refusedByInvalid_ || id == invalid;
   return !valid;
}

// A deletion may take effect later than its call, so an empty table may refuse for a while.
void AsyncHookChecks::refused(bool ofGroups) {
   Qor::Seconds const emptySince = ofGroups ? deletedAt_ : routeDeletedAt_;
   bool const empty = ofGroups ? shadow_.sets() == 0 : shadow_.routes() == 0;
   bool const certain = empty && options().startsEmpty && !roomLost() &&
                        Qor::now() - emptySince > options().patience;
   U32& inRow = ofGroups ? refusals_ : routeRefusals_;
   inRow = certain ? inRow + 1 : 0;
   if (inRow == 0 || inRow != options().refusals) return;
   fault(HookDuty::refusedWhenEmpty, text(inRow, " allocations in a row are refused, while no ",
                                          ofGroups ? "group" : "entry", " is allocated"));
   inRow = 0;
}

U32 AsyncHookChecks::groupAllocated(U32 id, OifSetPtr const& oifSet, XactPtr const& blockingXact,
                                    bool fixed, bool excludeEmptyMcid) {
   if (isRefusal(id)) {
      if (!fixed) refused(true);
      return id;
   }
   refusals_ = 0;
   aboutSet(id);
   MrouteLib::PortVlanSet const& set = oifSet->portVlanSet();
   Shadow::Set const* const live = shadow_.set(id);
   if (live && !(fixed && live->fixed)) {
      bool const emptyOnes = !fixed && !live->fixed && live->empty() && set.portVlan().empty() &&
                             live->toCpu == set.toCpu();
      if (!emptyOnes) {
         stop(HookDuty::setTwice,
              text(group(id), " is given out, and in use since ", live->lastCall));
      } else if (excludeEmptyMcid) {
         stop(HookDuty::setShared,
              text(group(id), " of an empty set is given out for a set that may be rewritten"));
      }
      shadow_.setShared(id, call());
      return id;
   }
   XactPtr const xact = HookQuestion::ask([&] { return hooks_.doGetXactForOifSet(id); });
   if (!xact && options().stops) {
      if (!live) hooks_.doDeleteOifSet(id);
      stop(HookDuty::xactNull, text("no transaction for ", group(id), " after its allocation"));
   }
   if (live) {
      shadow_.setWritten(id, set, call());
   } else {
      shadow_.setMade(id, set, fixed, call());
      sets_[id].set = std::make_shared<Written>();
   }
   shadow_.setXactIs(id, xact);
   written(sets_[id], xact, blockingXact, group(id));
   return id;
}

U32 AsyncHookChecks::doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                                      OifSetPtr const& oifSet,
                                                      XactPtr const& blockingXact,
                                                      bool excludeEmptyMcid) {
   begins("doAllocateSharableMulticastGroup");
   U32 const id = hooks_.doAllocateSharableMulticastGroup(routeKeyInfo, oifSet, blockingXact,
                                                          excludeEmptyMcid);
   return groupAllocated(id, oifSet, blockingXact, false, excludeEmptyMcid);
}

U32 AsyncHookChecks::doAllocateFixedMulticastGroup(OifSetPtr const& oifSet,
                                                   XactPtr const& blockingXact, U32 mcastId) {
   begins("doAllocateFixedMulticastGroup");
   U32 const id = hooks_.doAllocateFixedMulticastGroup(oifSet, blockingXact, mcastId);
   return groupAllocated(id, oifSet, blockingXact, true, false);
}

void AsyncHookChecks::doUpdateMulticastGroupInPlace(OifSetPtr const& oifSet, U32 mcastId) {
   begins("doUpdateMulticastGroupInPlace");
   bool const known = knownSet(mcastId);
   hooks_.doUpdateMulticastGroupInPlace(oifSet, mcastId);
   if (!known) return;
   XactPtr const xact = HookQuestion::ask([&] { return hooks_.doGetXactForOifSet(mcastId); });
   shadow_.setWritten(mcastId, oifSet->portVlanSet(), call());
   shadow_.setXactIs(mcastId, xact);
   written(sets_[mcastId], xact, nullptr, group(mcastId));
}

XactPtr AsyncHookChecks::doGetXactForOifSet(U32 mcastId) {
   begins("doGetXactForOifSet");
   bool const known = knownSet(mcastId);
   XactPtr xact = hooks_.doGetXactForOifSet(mcastId);
   if (known) seen(sets_[mcastId], xact, group(mcastId));
   return xact;
}

void AsyncHookChecks::doDeleteOifSet(U32 mcastId) {
   begins("doDeleteOifSet");
   deletedAt_ = Qor::now();
   if (knownSet(mcastId)) {
      Shadow::Set const& set = *shadow_.set(mcastId);
      U32 pointing = 0;  // an entry whose pointing has failed stays where it was
      if (set.users == 1 && set.entries > 0) {
         shadow_.forEachEntry([&](RouteHandle, Shadow::Entry const& entry) {
            bool const failed = entry.write && entry.write->state() == Xact::State::failed;
            pointing += entry.set == mcastId && !failed;
         });
      }
      if (pointing > 0) {
         fault(HookDuty::setInUse,
               text(group(mcastId), " is deleted, and ", pointing, " entries point at it"));
      }
      if (set.users == 1) drop(sets_[mcastId]);
      shadow_.setDeleted(mcastId, call());
   }
   hooks_.doDeleteOifSet(mcastId);
}

bool AsyncHookChecks::mcastIdIsValid(U32 mcastId) {
   begins("mcastIdIsValid");
   aboutSet(mcastId);
   bool const valid = hooks_.mcastIdIsValid(mcastId);
   if (!valid && shadow_.set(mcastId)) {
      fault(HookDuty::setValidity, text(group(mcastId), " is allocated, and said to be no group"));
   }
   return valid;
}

Qor::String8 AsyncHookChecks::doGetXactFailureReason(XactPtr const& xact,
                                                     VelHelper::MrouteXactType type) {
   begins("doGetXactFailureReason");
   Qor::String8 reason = hooks_.doGetXactFailureReason(xact, type);
   bool const failed = xact && xact->state() == Xact::State::failed;
   if (failed && reason.empty()) {
      fault(HookDuty::reasonMissing, text("no reason for a failed transaction of type ", type));
   } else if (!failed && xact && !reason.empty()) {
      fault(HookDuty::reasonEarly,
            text("a reason for a transaction that has not failed: ", reason));
   }
   return reason;
}

// ---- Entries. ----

bool AsyncHookChecks::knownEntry(RouteHandle handle) {
   aboutEntry(handle);
   if (shadow_.entry(handle)) return true;
   fault(HookDuty::entryUnknown, text(entry(handle), " is not allocated"));
   return false;
}

RouteHandle AsyncHookChecks::doAllocateRoute(IpGenRouteKey const& routeKey,
                                             Bridging::VlanIdOrNone acceptingVlanId,
                                             bool bridgeAction,
                                             Wisp::Multicast::Fib::RpaIndex rpaId, U32 vrfId) {
   begins("doAllocateRoute");
   RouteHandle const handle =
         hooks_.doAllocateRoute(routeKey, acceptingVlanId, bridgeAction, rpaId, vrfId);
   if (handle.isNull()) {
      refused(false);
      return handle;
   }
   routeRefusals_ = 0;
   aboutEntry(handle);
   if (Shadow::Entry const* const live = shadow_.entry(handle)) {
      stop(HookDuty::entryTwice, text(entry(handle), " is given out for ", routeKey,
                                      ", and in use for ", live->key, " since ", live->lastCall));
      return handle;
   }
   Shadow::Entry made;
   made.vrfId = vrfId;
   made.key = routeKey;
   made.vlan = acceptingVlanId;
   made.bridge = bridgeAction;
   made.rpa = rpaId;
   made.lastCall = call();
   shadow_.entryMade(handle, std::move(made));
   entries_[handle.value()].hit = 0.0;
   return handle;
}

void AsyncHookChecks::doSetMtableOifSet(RouteHandle handle, U32 mcastId,
                                        XactPtr const& blockingXact) {
   begins("doSetMtableOifSet");
   bool const set = knownSet(mcastId);
   bool const known = knownEntry(handle);
   if (set && !HookQuestion::ask([&] { return hooks_.mcastIdIsValid(mcastId); })) {
      fault(HookDuty::setValidity, text(group(mcastId), " is allocated, and said to be no group"));
   }
   hooks_.doSetMtableOifSet(handle, mcastId, blockingXact);
   if (!known || !set) return;
   XactPtr const xact = HookQuestion::ask([&] { return hooks_.doGetXactForIngress(handle); });
   shadow_.entryPointed(handle, mcastId, call());
   shadow_.entryXactIs(handle, xact);
   Writes& writes = entries_[handle.value()];
   writes.set = sets_[mcastId].set;
   written(writes, xact, blockingXact, entry(handle));
}

XactPtr AsyncHookChecks::doGetXactForIngress(RouteHandle handle) {
   begins("doGetXactForIngress");
   bool const known = knownEntry(handle);
   XactPtr xact = hooks_.doGetXactForIngress(handle);
   if (known && shadow_.entry(handle)->set) seen(entries_[handle.value()], xact, entry(handle));
   return xact;
}

// The library has forgotten the route, also if the hook throws.
void AsyncHookChecks::doDeleteRoute(RouteHandle handle) {
   begins("doDeleteRoute");
   routeDeletedAt_ = Qor::now();
   if (knownEntry(handle)) {
      drop(entries_[handle.value()]);
      shadow_.entryDeleted(handle, call());
   }
   hooks_.doDeleteRoute(handle);
}

Qor::Seconds AsyncHookChecks::routeLastAccessedTime(RouteHandle handle) {
   begins("routeLastAccessedTime");
   bool const known = knownEntry(handle);
   Qor::Seconds const time = hooks_.routeLastAccessedTime(handle);
   if (!known) return time;
   Qor::Seconds& before = entries_[handle.value()].hit;
   if (!(time >= 0.0 && time <= Qor::now())) {
      fault(HookDuty::hitAhead,
            text(entry(handle), " was last hit at ", time, " s, and it is ", Qor::now(), " s now"));
   } else if (time < before) {
      fault(HookDuty::hitBack, text(entry(handle), " was last hit at ", time,
                                    " s, and the reading before said ", before, " s"));
   } else {
      before = time;
   }
   return time;
}

// ---- Intervals. ----

// The nearest interval that the platform can keep: its own result is one, and so is each result
// before.
double AsyncHookChecks::adjusted(double interval, double result, double again, Intervals& kept) {
   auto const nearer = std::ranges::find_if(kept, [&](double other) {
      return std::abs(other - interval) < std::abs(result - interval);
   });
   if (!(result >= 0.0) || (std::isinf(result) && std::isfinite(interval))) {
      fault(HookDuty::interval, text("the result for ", interval, " s is ", result, " s"));
   } else if (again != result) {
      fault(HookDuty::interval,
            text("the result for ", interval, " s is ", result,
                 " s, which the platform cannot keep: the result for that is ", again, " s"));
   } else if (nearer != kept.end()) {
      fault(HookDuty::interval, text("the result for ", interval, " s is ", result, " s, but ",
                                     *nearer, " s is nearer and was a result before"));
   } else {
      kept.insert(result);
   }
   return result;
}

double AsyncHookChecks::doGetAdjustedPollingInterval(double interval) {
   begins("doGetAdjustedPollingInterval");
   double const result = hooks_.doGetAdjustedPollingInterval(interval);
   double const again =
         HookQuestion::ask([&] { return hooks_.doGetAdjustedPollingInterval(result); });
   return adjusted(interval, result, again, polling_);
}

double AsyncHookChecks::doGetAdjustedActivityPollInterval(double interval) {
   begins("doGetAdjustedActivityPollInterval");
   double const result = hooks_.doGetAdjustedActivityPollInterval(interval);
   double const again =
         HookQuestion::ask([&] { return hooks_.doGetAdjustedActivityPollInterval(result); });
   return adjusted(interval, result, again, activity_);
}

}  // namespace VelMroute
