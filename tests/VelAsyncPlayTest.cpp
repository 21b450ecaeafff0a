// The asynchronous path against a literal model of it.
#include "Play.h"
#include "Vel/VelAsyncMrouteSm.h"
#include "Vel/VelAsyncMrouteSwitch.h"

namespace {

using namespace play;
using MrouteLib::MrouteFailureReason;
using Vel::Mroute::AsyncMrouteSwitch;
using Vel::Mroute::AsyncMrouteSwitchSm;
using Vel::Mroute::AsyncMtableOifSet;
using Vel::Mroute::InUseRouteHandleKey;
using Vel::Mroute::ZombieKey;
using Wisp::Multicast::Fib::RpaIndex;

enum AsyncAction : unsigned { setVrf = ofThePath, lifetime, purge, hit, reusable, room, actions };

// The allocations of a platform and its answers. Both sides have one for each chip.
struct Platform {
   U32 group() { return lowest(groups, 100, room); }
   RouteHandle handle() { return RouteHandle(lowest(handles, 1, 5)); }
   Seconds hit(RouteHandle h) const { return hits.contains(h.value()) ? hits.at(h.value()) : 0; }

   std::set<U32> groups, handles;
   std::map<U32, Seconds> hits;
   bool reusable = true;
   unsigned room = 9;
};

bool isFixed(RouteKeyType type) {
   return type == RouteKeyType::bridged;
}

template <class Switch, class Record, class Reactor>
class AsyncWorld : public World<Switch, Record, Reactor, Platform> {
 public:
   Ptr<Routing::Hardware::RouteStatus> const vrfs_ = Qor::make<Routing::Hardware::RouteStatus>();
   Hux::XactPtr latest_;  // of the hook called last

 protected:
   std::string recordText(Record const& r) const override {
      return cat(r.usedInHw(), r.skipDelete(), r.zombieLifetime());
   }
   std::string sizesOf(Switch const& sw) const override {
      return cat(sw.mcastIdToOifSet().size(), ' ', sw.inUseRouteHandle().size(), ' ',
                 sw.inUseRouteHandleKey().size());
   }
   void tablesOf(Switch const& sw, Lines& lines) const override {
      auto const value = [](auto const&, auto const& v) { return cat(v); };
      this->list(lines, "mcastId", sw.mcastIdToOifSet(), value);
      this->list(lines, "handle", sw.inUseRouteHandle(), value);
      this->list(lines, "key", sw.inUseRouteHandleKey(), value);
      lines.push_back(cat(sw.mrouteFailureReason()));
   }
   void runOfThePath(Op const& op, typename AsyncWorld::Things const& things) override {
      auto const& [sw, sm, record, route, platform, set, vrf] = things;
      auto const is = [&](unsigned action) { return op.action == action; };
      Hux::XactPtr const blocking = op.thing % 2 ? Qor::make<Hux::Xact>() : nullptr;
      if (is(setVrf) && op.thing % 2) vrfs_->newVrfStatus(vrf, Vel::VrfId(3 + op.chip / 2 % 3));
      if (is(setVrf) && op.thing % 2 == 0) vrfs_->vrfStatusDel(vrf);
      if (!sw) return;
      if (is(allocate)) {
         Hux::XactPtr const xact = sw->doAllocateMtableOifSet(
               {routeKey(op.chip), vrf, vlan(op.chip), RouteKeyType::routed}, set, blocking,
               500 + op.chip % 3, op.thing & 2);
         this->print("its transaction: ", xact ? xact == latest_ : false, bool(xact));
         auto made = Qor::ptrCast<Record>(sw->mtableOifSet());
         if (op.thing != 3) sw->mtableOifSetIs(nullptr);
         if (made && op.other % 2) made->usedInHwIs(true);
         std::swap(record, made);
      }
      if (is(allocateRoute)) {
         sw->doAllocateRoute(routeKey(op.thing), vlan(op.thing), op.other % 2,
                             RpaIndex(static_cast<Qor::U16>(op.thing)), vrf);
         route = sw->routeHandle();
      }
      if (is(point) && record) {
         Hux::XactPtr const xact = sw->doSetMtableOifSet(route, Ptr<Record>(record), blocking);
         this->print("its transaction: ", xact == latest_);
      }
      if (is(deleteRoute)) sw->doDeleteRoute(RouteHandle(route));
      if (is(lifetime) && record) record->zombieLifetimeIs(op.other % 8);
      if (is(purge) && sm) sm->doForcePurgeOneZombie();
      if (is(hit)) platform.hits[op.thing % 8] = this->now();
      if (is(reusable)) platform.reusable = op.thing % 3;
      if (is(room)) platform.room = op.other;
   }
};

// ---- The system. ----

class AsyncSystem final
      : public SystemOf<AsyncWorld<AsyncMrouteSwitch, AsyncMtableOifSet, AsyncMrouteSwitchSm>> {
 public:
   AsyncSystem() : SystemOf("VelAsyncMrouteSm") {}
   ~AsyncSystem() override { releaseAll(); }

 private:
   struct Hooks final : HooksOf<VelHelper::AsyncMrouteHelper> {
      using HooksOf::HooksOf;
      HOOK(void, handleMrouteCounterMode, (Routing::Multicast::Fib::CounterMode mode), void(), mode)
      HOOK(void, handleWildcardCounter, (bool on), void(), on)
      HOOK(U32, doAllocateSharableMulticastGroup,
           (MrouteLib::RouteKeyInfo const& i, OifSetPtr set, Hux::XactPtr blocking, bool frr),
           platform.group(), i, set, bool(blocking), frr)
      HOOK(U32, doAllocateFixedMulticastGroup, (OifSetPtr set, Hux::XactPtr blocking, U32 id), id,
           set, bool(blocking), id)
      HOOK(void, doUpdateMulticastGroupInPlace, (OifSetPtr set, U32 id), void(), set->portVlanSet(),
           id)
      HOOK(Hux::XactPtr, doGetXactForOifSet, (U32 id), system.latest_ = Qor::make<Hux::Xact>(), id)
      HOOK(void, doDeleteOifSet, (U32 id), void(platform.groups.erase(id)), id)
      HOOK(RouteHandle, doAllocateRoute,
           (IpGenRouteKey const& k, VlanIdOrNone v, bool bridge, Wisp::Multicast::Fib::RpaIndex rpa,
            U32 vrfId),
           platform.handle(), k, v, bridge, rpa, vrfId)
      HOOK(void, doSetMtableOifSet, (RouteHandle handle, U32 id, Hux::XactPtr blocking), void(),
           handle, id, bool(blocking))
      HOOK(Hux::XactPtr, doGetXactForIngress, (RouteHandle handle),
           system.latest_ = Qor::make<Hux::Xact>(), handle)
      HOOK(void, doDeleteRoute, (RouteHandle handle), void(platform.handles.erase(handle.value())),
           handle)
      HOOK(Seconds, routeLastAccessedTime, (RouteHandle handle), platform.hit(handle), handle)
      HOOK(bool, needFixedOifSet, (RouteKeyType type), isFixed(type), type)
      HOOK(bool, mcastIdReusable, (U32 id), platform.reusable, id)
      HOOK(bool, mcastIdIsValid, (U32 id), AsyncMrouteHelper::mcastIdIsValid(id), id)
      HOOK(double, doGetAdjustedPollingInterval, (double const& interval), interval + 1, interval)
      HOOK(double, doGetAdjustedActivityPollInterval, (double const& interval), interval, interval)
      HOOK(void, doScheduleVerify, (), void())
   };

   Ptr<AsyncMrouteSwitch> newSwitch(unsigned c) override {
      helper_[c] = Qor::make<Hooks>(*this, c, nullptr, nullptr);
      return Vel::Mroute::asyncMrouteSwitchFactory(chipNames[c], vrfs_, helper_[c]);
   }
   Ptr<AsyncMrouteSwitchSm> makeReactor(unsigned c) override {
      return Vel::Mroute::AsyncMrouteSwitchSmIs(switch_[c], vlans_, config_, hw_, helper_[c],
                                                zombieClock_[c], agingClock_[c], nullptr, nullptr,
                                                nullptr, nullptr, nullptr);
   }

   std::array<Ptr<Hooks>, chips> helper_;
};

// ---- The model. ----

class AsyncChip;
class AsyncRecord;
class AsyncReactor;

class AsyncModel final : public ModelOf<AsyncWorld<AsyncChip, AsyncRecord, AsyncReactor>> {
 public:
   ~AsyncModel() override { releaseAll(); }
   Hux::XactPtr newXact() { return latest_ = Qor::make<Hux::Xact>(); }
};

class AsyncRecord final : public ModelRecord<ZombieKey, true> {
 public:
   AsyncRecord(ModelChip& chip, OifSetPtr const& set, U32 i)
         : ModelRecord(chip, set, i, "AsyncMtableOifSet(mcastId ") {}
   void usedInHwIs(bool v) { usedInHw.is(v); }
   void zombieLifetimeIs(Seconds v) { zombieLifetime.is(v); }

   RecordAttribute<bool> usedInHw{this, "usedInHw"}, skipDelete{this, "skipDelete"};
   RecordAttribute<Seconds> zombieLifetime{this, "zombieLifetime", 3};

 private:
   void printCleanup() const override {
      print("8 AsyncMtableOifSet::doCleanup()");
      print("7 ", *this, " oifset ", oifSet(), ' ', members());
   }
};

class AsyncChip final : public ModelSwitch<AsyncModel, AsyncRecord, ZombieKey> {
 public:
   using ModelSwitch::ModelSwitch;

   Table<U32, OifSetPtr> mcastIdToOifSet{this, "mcastIdToOifSet"};
   Table<InUseRouteHandleKey, RouteHandle> inUseRouteHandle{this, "inUseRouteHandle"};
   Table<RouteHandle, InUseRouteHandleKey> inUseRouteHandleKey{this, "inUseRouteHandleKey"};
   Attribute<MrouteFailureReason> mrouteFailureReason{this, "mrouteFailureReason"};

   Hux::XactPtr doAllocateMtableOifSet(MrouteLib::RouteKeyInfo const& info, OifSetPtr const& set,
                                       Hux::XactPtr const& blocking, U32 preset, bool frr) {
      PortVlanSet const& members = set->portVlanSet();
      print("8 AsyncMrouteSwitch::doAllocateMtableOifSet( ", info, ", ", set, ", blockingXact ",
            blocking ? "set" : "none", ", presetMulticastId ", preset, ", frrRoute ", frr, " )");
      print("7  oifset ", set, ' ', members);
      failureIs(MrouteFailureReason::none);
      hook("needFixedOifSet", members.type());
      bool const fixed = isFixed(members.type());
      RecordPtr record = fixed ? nullptr : reusableRecord(set);
      if (!record) {
         bool const wasInUse = inUseOifSet().contains(set);
         U32 id = preset;
         if (fixed) {
            hook("doAllocateFixedMulticastGroup", set, bool(blocking), preset);
         } else {
            hook("doAllocateSharableMulticastGroup", info, set, bool(blocking), frr);
            id = platform().group();
         }
         hook("mcastIdIsValid", id);
         if (id == 0xFFFFFFFF) {
            print("2 No free multicastId found");
            print("blip  No free multicastId found. acceptingVlan ", info.acceptingVlanId(), ' ',
                  members);
            failureIs(MrouteFailureReason::noMulticastId);
            return nullptr;
         }
         record = Qor::make<AsyncRecord>(*this, set, id);
         if (fixed) takeOver(id, record);
         print("2 mtableOifSet ", *record, " oifSet ", set, " mcastId ", id);
         inUseOifSet.is(set, record->serial);
         if (!wasInUse && !members.currentIif().isNull()) {
            print("2  Adding FrrOifSet ");
            frrMtableOifSet.is(set, record->serial);
         }
         mcastIdToOifSet.is(id, set);
      }
      mtableOifSetIs(record);
      requestVerify();
      hook("doGetXactForOifSet", record->id);
      return world.newXact();
   }

   void doAllocateRoute(IpGenRouteKey const& k, VlanIdOrNone v, bool bridge, RpaIndex rpa,
                        VrfName const& vrf) {
      print("8 AsyncMrouteSwitch::doAllocateRoute( ", k, ", acceptingVlanId ", v, ", bridgeAction ",
            bridge, ", rpaId ", rpa, ", vrf ", vrf, " )");
      failureIs(MrouteFailureReason::none);
      auto const status = world.vrfs_->vrfStatus(vrf);
      if (!status) {
         print("8  vrfStatus for vrf: ", vrf, " is not present");
         print("blip  no vrfStatus for vrf: ", vrf);
         return failureIs(MrouteFailureReason::noVrfStatus);
      }
      Vel::VrfId const vrfId = status->vrfId();
      hook("doAllocateRoute", k, v, bridge, rpa, vrfId);
      RouteHandle const handle = platform().handle();
      routeHandle.is(handle);
      if (handle.isNull()) return failureIs(MrouteFailureReason::noRouteHandle);
      InUseRouteHandleKey const inUse(recorded(k), v, vrfId);
      inUseRouteHandle.is(inUse, handle);
      inUseRouteHandleKey.is(handle, inUse);
      print("7 rh ", handle, " -> ", shownRoute(handle));
   }
   static IpGenRouteKey recorded(IpGenRouteKey const& k) {
      return k.kind() == 2 ? key("0.0.0.0/0", "224.0.0.0/4") : k;
   }

   Hux::XactPtr doSetMtableOifSet(RouteHandle handle, RecordPtr const& r,
                                  Hux::XactPtr const& blocking) {
      print("8 AsyncMrouteSwitch::doSetMtableOifSet( ", handle, " )");
      failureIs(MrouteFailureReason::none);
      print("7  rh ", handle, " -> mt ", *r, " oifset ", r->oifSet(), ' ', r->members());
      hook("doSetMtableOifSet", handle, r->id, bool(blocking));
      r->usedInHw.is(true);
      requestVerify();
      hook("doGetXactForIngress", handle);
      return world.newXact();
   }

   void doDeleteRoute(RouteHandle handle) {
      print("8 AsyncMrouteSwitch::doDeleteRoute( ", handle, " )");
      print("7  rh ", handle, ' ', shownRoute(handle));
      InUseRouteHandleKey const inUse = inUseRouteHandleKey(handle);
      print("blip AsyncMrouteSwitch::doDeleteRoute ", inUse.routeKey());
      inUseRouteHandle.del(inUse);
      inUseRouteHandleKey.del(handle);
      hook("doDeleteRoute", handle);
      platform().handles.erase(handle.value());
      requestVerify();
   }

   void requestVerify() const override { hook("doScheduleVerify"); }

 private:
   void zeroReferencesIs(bool) override {
      deletedIs(true);
      mtableOifSetIs(nullptr);
      recordsDelAll();
      mcastIdToOifSet.delAll();
      inUseRouteHandle.delAll();
      inUseRouteHandleKey.delAll();
   }
   void failureIs(MrouteFailureReason v) { mrouteFailureReason.is(v, cat(v)); }
   std::string shownRoute(RouteHandle handle) const {
      if (!inUseRouteHandleKey().contains(handle)) return "?";
      InUseRouteHandleKey const k = inUseRouteHandleKey(handle);
      return cat(k.routeKey(), " vlan", k.vlan(), " vrfId ", k.vrfId());
   }

   RecordPtr reusableRecord(OifSetPtr const& set) {
      RecordPtr const existing = inUseRecord(set);
      if (!existing) return nullptr;
      print("2 Found existing  mtableOifSet ", *existing, " oifSet ", set, " mcastId ",
            existing->id);
      hook("mcastIdReusable", existing->id);
      if (!platform().reusable || existing->dirty()) return nullptr;
      print("2 Found an existing oif set");
      print("blip Foung an existing oif set");
      if (existing->isZombie()) {
         print("2 Resurrecting zombie mtableOifSet ", *existing);
         zombieOifSetDel(existing->zombie());
         existing->zombie.is(ZombieKey());
      }
      return existing;
   }

   void takeOver(U32 id, RecordPtr const& newer) {
      if (!mcastIdToOifSet().contains(id)) return;
      RecordPtr old;
      for (RecordPtr const& r : records(mcastIdToOifSet(id))) {
         if (!old && r != newer && r->id == id && !r->deleted()) old = r;
      }
      if (old) {
         print("8 skip delete mtable oifset ", *old);
         return old->skipDelete.is(true);
      }
      print("8 Missing mtableOifSet on mcastId ", id, ".  Restart init?");
      print("blip  missing mtableOifSet on mcastId ", id);
   }

   void printFree(AsyncRecord const& r) const override {
      print("8 AsyncMrouteSwitch::handleFreeMtableOifSet()");
      print("7  mt ", r, " oifset ", r.oifSet(), " acceptingVlan ", r.members().currentIif(),
            " PVs ", r.members(), " multicastId ", r.id);
      if (r.deleted()) print("2 OifSet is already freed");
   }
   bool freesAtOnce(AsyncRecord const& r) const override {
      if (deleted()) {
         print("2 MrouteSwitch deletion, skipping delayed deletion");
      } else if (r.isZombie()) {
         print("2 Freeing zombie oifSet");
      } else if (!r.usedInHw()) {
         print("2 OifSet ", r.oifSet(), " not used in hw, skipping delayed deletion");
      } else {
         return false;
      }
      return true;
   }
   ZombieKey newZombie(AsyncRecord& r) const override {
      print("2 Adding zombie ", r, " with mcastId: ", r.id);
      ZombieKey const key(r.id, world.now() + r.zombieLifetime());
      r.usedInHw.is(false);
      return key;
   }
   void freeNow(AsyncRecord& r) override {
      OifSetPtr const set = r.oifSet();
      print("2 Freeing oifSet resources");
      if (r.skipDelete()) {
         hook("needFixedOifSet", r.members().type());
      } else {
         hook("doDeleteOifSet", r.id);
         platform().groups.erase(r.id);
      }
      if (!deleted() && inUseOifSet(set) == r.serial) {
         print("2 Delete oifset ", set);
         inUseOifSet.del(set);
         // A newer record of a listener keeps its entries.
         if (!inUseOifSet(set)) frrMtableOifSet.del(set);
         if (!inUseOifSet(set)) frrProcessingOifSet.del(set);
         if (!inUseOifSet(set) && mcastIdToOifSet(r.id) == set) mcastIdToOifSet.del(r.id);
      }
      r.deleted.is(true);
   }
};

class AsyncReactor final : public ModelReactor<AsyncModel, AsyncChip> {
 public:
   using ModelReactor::ModelReactor;

   void initialize() {
      chip_->react = [this](auto const& member, auto const& key) { react(member, key); };
      onInterval_.call = [this] { handlePollingInterval(); };
      onInterval_.notifierIs(world_.config_.get());
      print("2 AsyncMrouteSwitchSm::handleMulticastCounterMode()");
      hook("handleMrouteCounterMode", world_.config_->counterMode());
      print("2 AsyncMrouteSwitchSm::handleWildcardCounter()");
      hook("handleWildcardCounter", world_.config_->allCounter());
      handleClock();
      print("2 AsyncMrouteSwitchSm::handleInitialized()");
      disarm();
      handlePollingInterval();
      initialized_ = true;
      if (!chip_->zombieOifSet().empty()) handleZombie();
   }

   void doForcePurgeOneZombie() {
      Ptr<AsyncReactor> const self(this);
      print("2 AsyncMrouteSwitchSm::doForcePurgeOneZombie()");
      if (chip_->zombieOifSet().empty()) return;
      auto const& [key, first] = *chip_->zombieOifSet().begin();
      print("2 Force removing zombie with mcastId: ", first->id);
      print("blip AsyncMrouteSwitchSm::doForcePurgeOneZombie() force removing zombie with mcastId ",
            first->id);
      chip_->zombieOifSetDel(key);
   }

   void updateFrrMtableOif(IntfId failed) {
      Ptr<AsyncReactor> const self(this);
      AsyncChip& c = *chip_;
      Seconds const begun = world_.now();
      print("8 AsyncMrouteSwitchSm::updateFrrMtableOif( ", failed, ", vlan 0 )");
      lookAtArmed([&](OifSetPtr const& set, U64 serial) {
         PortVlanSet const& members = set->portVlanSet();
         if (!reroutedOn(set, failed)) return print("2  skip frrMtableOif ", members);
         std::string backups;
         for (auto const& [member, flag] : members.portVlanFrr())
            backups += cat(backups.empty() ? "" : " ", member);
         print("2  FrrSwitch from ", members, ", frrOifs ", backups);
         print("blip MrouteSwitchSm:: FrrSwitch from ", members, ", frrOifs ", backups);
         for (auto const& r : c.records(set))
            r->dirty.is(true);
         auto record = c.record(set, serial);
         if (!record) record = c.inUseRecord(set);
         c.frrMtableOifSetDel(set);
         if (record) c.frrProcessingOifSetIs(set, record.get());
      });
      rewriteWaitingFrom(begun);
   }

   void rewriteWaitingFrom(Seconds begun) override {
      Ptr<AsyncReactor> const self(this);
      AsyncChip& c = *chip_;
      Seconds const deadline = begun + 0.1;
      print("8 review FrrProcessingOifSets: ", c.frrProcessingOifSet().size());
      print("blip AsyncMrouteSwitchSm:: frrProcessingOifSets: ", c.frrProcessingOifSet().size());
      rewriteWaiting(deadline, [&](auto const& set, U64 serial) { rewriteSet(set, serial); });
      setClock();
   }

   void doRouteAgingReview() {
      Ptr<AsyncReactor> const self(this);
      print("2 AsyncMrouteSwitchSm::doRouteAgingReview()");
      if (world_.hw_->routes() == 0) {
         print("2 No routes present in mfibHwStatus. Nothing to review");
         return scheduleReview();
      }
      Vel::VrfId vrfId;
      auto const enter = [&](VrfName const& name) {
         auto const vrf = world_.vrfs_->vrfStatus(name);
         if (vrf) {
            vrfId = vrf->vrfId();
         } else {
            print("2 AsyncMrouteSwitch::doRouteAgingReview() vrfStatus for vrf: ", name,
                  " is not present");
         }
         return vrf != nullptr;
      };
      eachRoute({}, {}, enter, [&](VrfName const&, Hardware::RouteStatus& route) {
         reviewRoute(route, vrfId);
         return true;
      });
      print("2 Review completed");
      Seconds const completed = world_.now();
      agingClock().timeMinIs(completed + pollingInterval());
   }

 private:
   ZombieTexts const& texts() const override {
      static constexpr ZombieTexts all = {
            .clock = "2 AsyncMrouteSwitchSm::handleZombieClock()",
            .removed = {"2 Removing zombie with mcastId: ", nullptr},
            .unfinished = "8 Not finishing reviewing all zombies.",
            .review = "2 AsyncMrouteSwitchSm::handleZombie()",
            .marked = "2 MrouteSwitch marked for deletion. Skipping Zombie handling",
            .none = "2 Cancelling zombie timer",
            .first = {"2 Starting zombie timer for mcastId: ", nullptr},
            .atEnd = {"2 Deleting zombie with mcastId: ", nullptr}};
      return all;
   }
   void printCleanup() const override { print("2 AsyncMrouteSwitchSm::doCleanup()"); }
   void react(std::string const& member, std::string const& key) {
      if (member == "zombieOifSet" && !key.empty()) {
         print("2 AsyncMrouteSwitchSm::handleZombie() key ", key);
         if (initialized_ && !chip_->deleted()) handleZombie();
      } else if (member == "zombieOifSet") {
         handleZombie();
      } else if (member == "inUseRouteHandleKey") {
         print("2 AsyncMrouteSwitchSm::handleRoute( ", key, " )");
         if (chip_->inUseRouteHandleKey().contains(RouteHandle(key))) scheduleReview();
      }
   }

   void rewriteSet(OifSetPtr const& set, U64 serial) {
      auto const inUse = chip_->inUseRecord(set);
      if (!inUse) {
         print("2 oif not in inUseOifSet:", set);
         return print("blip  frrOifSet not in use ", set);
      }
      auto const waiting = chip_->record(set, serial) ? chip_->record(set, serial) : inUse;
      if (waiting->isZombie()) {
         print("blip  frrOifSet becomes zombie, mcastId: ", waiting->id);
         if (inUse->isZombie()) return;
      }
      print("8 original pvSet", set->portVlanSet());
      for (auto const& [member, flag] : set->portVlanSet().portVlanFrr())
         print("8 add port ", member);
      for (auto const& r : chip_->records(set)) {
         if (r->isZombie() || r->deleted() || r->skipDelete()) continue;
         print("8 : Overwrite with new pvSet ", backupOf(set), " to mcastId: ", r->id);
         print("blip  Overwrite with pvSet ", backupOf(set), " to mcastId: ", r->id);
         r->dirty.is(true);
         hook("doUpdateMulticastGroupInPlace", backupOf(set), r->id);
      }
   }

   Seconds pollingInterval() const {
      double const configured = interval();
      hook("doGetAdjustedPollingInterval", configured);
      return configured + 1;
   }

   void handlePollingInterval() {
      Ptr<AsyncReactor> const self(this);
      double const configured = interval();
      print("2 AsyncMrouteSwitchSm::handlePollingInterval()");
      Seconds const polling = pollingInterval();
      if (agingClock().timeMin() >= Qor::maxFinite) {
         print("2 Setting polling interval to: ", polling);
         agingClock().timeMinIs(world_.now() + polling);
      }
      hook("doGetAdjustedActivityPollInterval", configured);
      print("2 AsyncMrouteSwitchSm::handlePollingInterval( ", configured, ", ", polling, ", ",
            configured, " )");
      world_.hw_->pollingIntervalIs(static_cast<Qor::U8>(configured));
   }

   void scheduleReview() {
      Ptr<AsyncReactor> const self(this);
      bool const routes = world_.hw_->routes() != 0;
      print("2 AsyncMrouteSwitchSm::doMaybeScheduleRouteAgingReview()");
      if (routes && !armed()) {
         Seconds const polling = pollingInterval();
         print("2 Enabling aging review in: ", polling, " s");
         agingClock().timeMinIs(world_.now() + polling);
      } else if (!routes && armed()) {
         print("2 Disabling aging review");
         agingClock().timeMinIs(Qor::never);
      }
   }

   void reviewRoute(Hardware::RouteStatus& route, Vel::VrfId vrfId) {
      IpGenRouteKey const& k = route.key();
      print("2 Reviewing ", k);
      VlanIdOrNone const v = vlanOf(route.acceptingIntfId());
      if (v.isNone() && !route.acceptingIntfId().isNull()) {
         print("2 No accepting vlan for the route - still check for fastdrops");
      } else if (Seconds const t = lastPollTime(k, v, vrfId); t > route.lastPollTime()) {
         print("2 Updating activity bits for route: ", k);
         route.lastPollTimeIs(t);
      }
      eachFastdrop(route, [&](Qor::Name intf, VlanIdOrNone dropped, Seconds last) {
         print("2 Reviewing fastdrop ", intf);
         Seconds const t = dropped.isNone() ? 0 : lastPollTime(k, dropped, vrfId);
         if (t <= last) return;
         print("2 Updating activity bits for fastdrop route: ", k, ", vlan: ", dropped);
         route.fastdropLastPollTimeIs(intf, t);
      });
   }

   Seconds lastPollTime(IpGenRouteKey const& k, VlanIdOrNone v, Vel::VrfId vrfId) {
      print("2 AsyncMrouteSwitchSm::lastRoutePollTime()");
      InUseRouteHandleKey const inUse(AsyncChip::recorded(k), v, vrfId);
      auto const& handles = chip_->inUseRouteHandle();
      if (!handles.contains(inUse)) {
         print("2 RouteHandle not found for the route: ", k, ", vlan: ", v);
         return 0;
      }
      RouteHandle const handle = handles.at(inUse);
      hook("routeLastAccessedTime", handle);
      Seconds const t = platform().hit(handle);
      print("2 last accessed time for routeHandle ", handle, ' ', t);
      return t;
   }
};

class AsyncPlay : public OnVirtualTime {};

TEST_F(AsyncPlay, TheSystemDoesWhatTheModelDoes) {
   compare<AsyncSystem, AsyncModel>(250, 300, actions);
}

}  // namespace
