// Hooks of the simulated chip with one mistake each, by its name, for the tests of checked hooks and
// of the kit. A name that ends in "correctly" stands for an unusual behavior that breaks no rule.
#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kit/KitReport.h"
#include "platform/sim/AsyncPlatform.h"
#include "platform/sim/SyncPlatform.h"

namespace VelMroute {

using Hux::Xact;
using Hux::XactPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Qor::U16;
using Qor::U32;
using Routing::Multicast::Fib::IpGenRouteKey;

class Mistaken {
 public:
   explicit Mistaken(std::string mistake) : mistake_(std::move(mistake)) {}
   bool is(std::string_view name) const { return mistake_ == name; }

 protected:
   void throwIf(std::string_view name) const {
      if (is(name)) throw std::runtime_error("busy");
   }
   bool isThird(std::string_view name) { return is(name) && ++given_ == 3; }

   U32 given_ = 0;

 private:
   std::string const mistake_;
};

class AsyncHooks final : public Sim::AsyncPlatform, public Mistaken {
 public:
   AsyncHooks(Qor::Ptr<Sim::Chip> chip, std::string mistake)
         : AsyncPlatform("mistaken", std::move(chip)), Mistaken(std::move(mistake)) {}

   U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& info, OifSetPtr oifSet,
                                        XactPtr blocking, bool excludeEmptyMcid) override {
      auto const& members = oifSet->portVlanSet().portVlan();
      bool const shares =
            is("empty sets share") || (is("empty sets share, correctly") && !excludeEmptyMcid);
      bool const sharesEmpty = shares && oifSet->portVlanSet().empty();
      if (sharesEmpty && emptyUsers_++ > 0) return empty_;
      if (isThird("id twice")) return last_;
      if (is("group ignores the blocking")) blocking = nullptr;
      MrouteLib::PortVlanSet set = oifSet->portVlanSet();
      if (is("sets lose a member") && members.size() > 1) set.portVlanDel(members.begin()->first);
      if (is("no copies to the CPU")) set.toCpuIs(false);
      last_ = AsyncPlatform::doAllocateSharableMulticastGroup(
            info, Qor::make<MrouteLib::OifSet>(nullptr, set), blocking, excludeEmptyMcid);
      if (sharesEmpty) empty_ = last_;
      if (last_ == invalidMulticastId && is("own number for no group, correctly")) return noGroup;
      before_[last_] = oifSet;
      return last_;
   }
   void doUpdateMulticastGroupInPlace(OifSetPtr oifSet, U32 id) override {
      AsyncPlatform::doUpdateMulticastGroupInPlace(is("rewrite ignored") ? before_[id] : oifSet,
                                                   id);
   }
   bool mcastIdIsValid(U32 id) override {
      if (is("no group is one")) return true;
      if (is("group denied") && id == 2) return false;
      if (is("group denied later") && id == 2) return ++given_ < 4;
      if (is("own number for no group, correctly")) return id != noGroup;
      return AsyncPlatform::mcastIdIsValid(id);
   }
   XactPtr doGetXactForOifSet(U32 id) override {
      if (is("null transaction")) return nullptr;
      XactPtr const xact = AsyncPlatform::doGetXactForOifSet(id);
      if (is("stale transaction")) return firstXact_.emplace(id, xact).first->second;
      if (is("never completes") && id == 1) return never_;
      return is("complete too early") ? done_ : xact;
   }
   void doDeleteOifSet(U32 id) override {
      throwIf("deletion throws");
      if (id == empty_ && emptyUsers_ > 0 && --emptyUsers_ > 0) return;
      firstXact_.erase(id);
      if (!is("group deletion ignored")) AsyncPlatform::doDeleteOifSet(id);
   }
   RouteHandle doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan, bool bridge,
                               Wisp::Multicast::Fib::RpaIndex rpaId, U32 vrfId) override {
      if (isThird("handle twice")) return handle_;
      bool const anyVlan = is("star groups ignore the vlan") && key.source().isAny();
      IpGenRouteKey const anySource(Lnet::IpGenPrefix::any(key.group().family()), key.group());
      handle_ = AsyncPlatform::doAllocateRoute(
            is("source ignored") ? anySource : key,
            anyVlan || is("wrong vlan") ? Bridging::VlanIdOrNone() : vlan, bridge, rpaId,
            is("VRF ignored") ? 0 : vrfId);
      return handle_;
   }
   void doSetMtableOifSet(RouteHandle handle, U32 id, XactPtr blocking) override {
      throwIf("pointing throws");
      if (is("pointing ignores the blocking")) blocking = nullptr;
      if (is("points elsewhere first") && pointed_[handle.value()] != id) {
         pointed_[handle.value()] = id;
         if (nowhere_ == invalidMulticastId) {
            nowhere_ = AsyncPlatform::doAllocateSharableMulticastGroup(
                  {}, Qor::make<MrouteLib::OifSet>(nullptr, MrouteLib::PortVlanSet()), nullptr,
                  true);
         }
         AsyncPlatform::doSetMtableOifSet(handle, nowhere_, blocking);
         faults_.slowNext(1, 0.003);
      }
      if (is("second pointing ignored") && pointed_.contains(handle.value())) {
         id = pointed_[handle.value()];
      }
      pointed_.emplace(handle.value(), id);
      AsyncPlatform::doSetMtableOifSet(handle, id, std::move(blocking));
   }
   XactPtr doGetXactForIngress(RouteHandle handle) override {
      XactPtr const xact = AsyncPlatform::doGetXactForIngress(handle);
      if (!xact || is("null transaction of an entry")) return nullptr;
      if (is("stale transaction of an entry")) {
         return firstXact_.emplace(handle.value(), xact).first->second;
      }
      if (!is("points at a failed group") && !is("completes twice") &&
          !is("completes on another thread")) {
         return is("complete too early") ? done_ : xact;
      }
      return after_.emplace_back(std::make_unique<After>(*this, xact))->own;
   }
   void doDeleteRoute(RouteHandle handle) override {
      pointed_.erase(handle.value());
      if (is("late deletion")) {
         late_.push_back(handle);
         if (late_.size() < 3) return;
         handle = late_.front();
         late_.erase(late_.begin());
      }
      if (!is("route deletion ignored")) AsyncPlatform::doDeleteRoute(handle);
   }
   bool needIngressProgramming(Routing::Multicast::Fib::RouteKeyType type) override {
      return !is("no entries needed") && AsyncPlatform::needIngressProgramming(type);
   }
   Qor::String8 doGetXactFailureReason(XactPtr xact, VelHelper::MrouteXactType type) override {
      if (is("reason always")) return "failed";
      return is("no reason") ? "" : AsyncPlatform::doGetXactFailureReason(xact, type);
   }
   Qor::Seconds routeLastAccessedTime(RouteHandle handle) override {
      if (is("hits never")) return 0.0;
      if (is("hits always")) return Qor::now();
      Qor::Seconds const time = AsyncPlatform::routeLastAccessedTime(handle);
      if (is("hits go back") && time > 0) return time / ++given_;
      return is("hits ahead") && time > 0 ? time + 1e6 : time;
   }
   double doGetAdjustedPollingInterval(double const& interval) override {
      if (is("rounds intervals, correctly")) return std::max(4.0, 2.0 * unsigned(interval / 2));
      return is("interval not kept") ? interval / 2 : interval;
   }

 private:
   static constexpr U32 noGroup = 4096;

   // A transaction of its own that completes when the one of the chip does.
   struct After final : Xact::Notifiee {
      After(Mistaken const& m, XactPtr const& xact) : mistaken(m) {
         if (xact->pending()) {
            notifierIs(xact);
         } else {
            onState();
         }
      }
      void onState() override {
         auto const complete = [this] { own->stateIs(Xact::State::succeeded); };
         if (mistaken.is("completes on another thread")) {
            std::thread(complete).join();
         } else {
            complete();
         }
         if (mistaken.is("completes twice")) own->stateIs(Xact::State::failed);
      }
      Mistaken const& mistaken;
      Qor::Ptr<Xact> const own = Qor::make<Xact>();
   };

   U32 last_ = 0, empty_ = 0, emptyUsers_ = 0, nowhere_ = invalidMulticastId;
   RouteHandle handle_;
   std::map<U32, OifSetPtr> before_;
   std::map<U32, XactPtr> firstXact_;
   std::map<U32, U32> pointed_;
   std::vector<RouteHandle> late_;
   std::vector<std::unique_ptr<After>> after_;
   XactPtr const never_ = Qor::make<Xact>();
   XactPtr const done_ = Qor::make<Xact>(Xact::State::succeeded);
};

class SyncHooks final : public Sim::SyncPlatform, public Mistaken {
 public:
   SyncHooks(Qor::Ptr<Sim::Chip> chip, std::string mistake)
         : SyncPlatform("mistaken", std::move(chip), 1), Mistaken(std::move(mistake)) {}

   void mrouteSwitchInit(U32 switchId, bool start) override {
      if (is("not cleared") && (!start || given_++ > 0)) return;
      SyncPlatform::mrouteSwitchInit(switchId, start);
   }
   U32 doAllocateMtableOifSet(U32 switchId, U32 hint, OifSetPtr oifSet) override {
      bool const rewrites = hint != 0 && hint != freshOifSetIndex;
      if (rewrites && is("rewrite ignored")) return hint;
      U32 const index = SyncPlatform::doAllocateMtableOifSet(switchId, hint, oifSet);
      if (rewrites) return is("rewrite moves") ? index + 1 : index;
      if (oifSet->portVlanSet().portVlan().empty()) {
         bool const refused = is("full table refuses the empty set") && SyncPlatform::mtableFull(1);
         return refused ? invalidOifSetIndex : index;
      }
      if (isThird("index twice")) return index - 1;
      if (is("index is the hint")) return freshOifSetIndex;
      return is("index zero") ? 0 : index;
   }
   void handleFreeMtableOifSet(U32 switchId, Qor::Ptr<Vel::MtableOifSet> record) override {
      throwIf("free throws");
      if (is("free ignored")) return;
      if (is("free late")) return late_.push_back(record);
      SyncPlatform::handleFreeMtableOifSet(switchId, record);
   }
   RouteHandle doAllocateMroute(U32 switchId, U16 vrfId, IpGenRouteKey const& key,
                                VlanIdOrNone vlan, bool bridge, U32 index, bool fastDrop,
                                U16 rpaId) override {
      if (is("boundary handle clash") && bridge) return RouteHandle(0);
      if (!bridge && isThird("handle twice")) return RouteHandle(0);
      if (is("wrong vlan")) vlan = VlanIdOrNone(Qor::U64{1});
      return SyncPlatform::doAllocateMroute(switchId, vrfId, key, vlan, bridge, index, fastDrop,
                                            rpaId);
   }
   void doSetMtableOifSet(U32 switchId, U16 vrfId, RouteHandle handle,
                          Qor::Ptr<Vel::Route const> route, U32 index) override {
      if (!is("pointing ignored"))
         SyncPlatform::doSetMtableOifSet(switchId, vrfId, handle, std::move(route), index);
   }
   void doDeleteMroute(U32 switchId, U16 vrfId, RouteHandle handle,
                       Qor::Ptr<Vel::Route const> route) override {
      if (!is("deletion ignored")) SyncPlatform::doDeleteMroute(switchId, vrfId, handle, route);
   }
   void doDeleteMrouteBoundary(U32 switchId, U16 vrfId, RouteHandle handle,
                               Qor::Ptr<Vel::Boundary const> boundary) override {
      if (!is("boundaries stay"))
         SyncPlatform::doDeleteMrouteBoundary(switchId, vrfId, handle, std::move(boundary));
   }
   RouteHandle doAllocateMrouteNoRpf(U32 switchId, U16 vrfId, IpGenRouteKey const& key, bool bridge,
                                     U32 index, bool fastDrop, U16 rpaId) override {
      if (!is("one input with all")) {
         return SyncPlatform::doAllocateMrouteNoRpf(switchId, vrfId, key, bridge, index, fastDrop,
                                                    rpaId);
      }
      return SyncPlatform::doAllocateMroute(switchId, vrfId, key, VlanIdOrNone(Qor::U64{1}), bridge,
                                            index, fastDrop, rpaId);
   }
   bool mtableFull(U32 switchId) override {
      if (is("never full")) return false;
      if (is("empty set takes room") && emptySetsAllocated() > 0) return true;
      bool const full = SyncPlatform::mtableFull(switchId);
      for (auto const& record : std::exchange(late_, {}))
         SyncPlatform::handleFreeMtableOifSet(switchId, record);
      return full || is("always full");
   }
   bool mrouteFull(U32 switchId) override {
      return !is("never full for routes") && SyncPlatform::mrouteFull(switchId);
   }
   bool mrouteHitBit(U32 switchId, U16 vrfId, IpGenRouteKey const& key, VlanIdOrNone vlan,
                     bool boundary) override {
      if (is("hits without an entry")) return true;
      bool const hit = SyncPlatform::mrouteHitBit(switchId, vrfId, key, vlan, boundary);
      if (hit) hit_ = true;
      return !is("hit never") && (hit || (is("hit sticky") && hit_));
   }
   Qor::U8 mrouteHitBitCacheRefresh(U32 switchId) override {
      Qor::U8 const result = SyncPlatform::mrouteHitBitCacheRefresh(switchId);
      return is("cache result unknown") ? Qor::U8{0} : result;
   }

 private:
   std::vector<Qor::Ptr<Vel::MtableOifSet>> late_;
   bool hit_ = false;
};

// ---- The mistakes, with the checks of the kit that find them. ----

namespace Mistakes {

struct Case {
   char const* mistake;  // empty: none
   KitCulprit culprit = KitCulprit::none;
   char const* check = "";  // the first that fails, besides "calls"
   char const* text = "";   // a part of its text
   // The rules that the calls of all checks break.
   char const* rules = culprit == KitCulprit::hook ? text : "";
};

inline constexpr auto hook = KitCulprit::hook, platform = KitCulprit::platform;

inline constexpr Case async[] = {
      {""},
      {"empty sets share, correctly"},
      {"own number for no group, correctly"},
      {"rounds intervals, correctly"},
      {"id twice", hook, "forwarding", "set-twice"},
      {"group denied", hook, "forwarding", "set-validity"},
      {"group denied later", hook, "forwarding", "set-validity"},
      {"no group is one", hook, "room-for-sets", "set-validity"},
      {"handle twice", hook, "forwarding", "entry-twice"},
      {"null transaction", hook, "forwarding", "xact-null"},
      {"null transaction of an entry", hook, "forwarding", "xact-null"},
      {"never completes", hook, "forwarding", "xact-never"},
      {"completes twice", hook, "forwarding", "xact-twice", "xact-twice pointed-at-failed-set"},
      {"completes on another thread", hook, "forwarding", "xact-thread"},
      {"pointing throws", hook, "forwarding", "throws"},
      {"deletion throws", hook, "rewrite-in-place", "deletion-throws"},
      {"no entries needed", hook, "forwarding", "needIngressProgramming returns false", ""},
      {"second pointing ignored", platform, "forwarding", "doSetMtableOifSet, call",
       "pointed-at-failed-set"},
      {"sets lose a member", platform, "forwarding", "on the chip: kit4:4"},
      {"wrong vlan", platform, "forwarding", "at kit2"},
      {"source ignored", platform, "forwarding", "matches the same packets"},
      {"route deletion ignored", platform, "forwarding", "doDeleteRoute, call"},
      {"late deletion", platform, "forwarding", "doDeleteRoute, call"},
      {"points elsewhere first", platform, "make-before-break", "the first lost packet"},
      {"star groups ignore the vlan", platform, "star-groups", "from 10.0.0.99"},
      {"VRF ignored", platform, "vrfs", "matches the same packets"},
      {"no copies to the CPU", platform, "cpu-copies", "by the calls: cpu"},
      {"rewrite ignored", platform, "rewrite-in-place", "doUpdateMulticastGroupInPlace, call"},
      {"stale transaction", hook, "rewrite-in-place", "xact-stale"},
      {"stale transaction of an entry", hook, "forwarding", "xact-stale"},
      {"empty sets share", hook, "empty-sets", "set-shared"},
      {"complete too early", hook, "blocking-transaction", "blocking-ignored"},
      {"group ignores the blocking", hook, "blocking-transaction", "blocking-ignored"},
      {"pointing ignores the blocking", hook, "blocking-transaction", "blocking-ignored"},
      {"points at a failed group", hook, "failed-set", "pointed-at-failed-set"},
      {"no reason", hook, "failed-set", "reason-missing"},
      {"hits never", platform, "hits", "stays at 0"},
      {"hits always", platform, "hits", "before any packet"},
      {"hits ahead", hook, "hits", "hit-ahead"},
      {"hits go back", hook, "hits", "hit-back"},
      {"interval not kept", hook, "forwarding", "interval"},
      {"group deletion ignored", platform, "room-for-sets", "no other fits"},
};

inline constexpr Case sync[] = {
      {""},
      {"index twice", hook, "forwarding", "set-twice"},
      {"index zero", hook, "forwarding", "set-zero"},
      {"index is the hint", hook, "forwarding", "set-hint"},
      {"handle twice", hook, "forwarding", "entry-twice"},
      {"always full", hook, "forwarding", "full-when-empty"},
      {"free throws", hook, "room-for-sets", "deletion-throws"},
      {"wrong vlan", platform, "forwarding", "at kit1", "refused-with-room"},
      {"pointing ignored", platform, "forwarding", "doSetMtableOifSet, call"},
      {"deletion ignored", platform, "forwarding", "doDeleteMroute, call", "refused-with-room"},
      {"boundary handle clash", hook, "boundaries", "entry-in-other-table",
       "entry-in-other-table entry-twice"},
      {"boundaries stay", platform, "boundaries", "on the chip: nothing"},
      {"one input with all", platform, "any-input", "at kit2"},
      {"rewrite ignored", platform, "rewrite-in-place", "doAllocateMtableOifSet, call"},
      {"rewrite moves", hook, "rewrite-in-place", "rewrite-moves"},
      {"hit never", platform, "hits", "no review reports it"},
      {"hit sticky", platform, "hits", "reports a hit again", "hit-without-entry"},
      {"cache result unknown", hook, "hits", "hit-cache-result"},
      {"never full", hook, "room-for-sets", "refused-with-room"},
      {"never full for routes", hook, "room-for-entries", "refused-with-room"},
      {"free ignored", platform, "room-for-sets", "mtableFull returns true", "full-when-empty"},
      {"free late", platform, "room-for-sets", "mtableFull returns true", "full-when-empty"},
      {"full table refuses the empty set", hook, "room-for-sets", "empty-set-refused"},
      {"empty set takes room", hook, "cpu-copies", "empty-set-takes-room"},
      {"not cleared", platform, "end-of-service", "on the chip: kit"},
};

}  // namespace Mistakes

}  // namespace VelMroute
