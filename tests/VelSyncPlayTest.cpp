// The synchronous path against a literal model of it.
#include "Play.h"
#include "Vel/VelSyncMrouteSm.h"
#include "Vel/VelSyncMrouteSwitch.h"

namespace {

using namespace play;
using Qor::U16;
using Vel::MrouteSwitch;
using Vel::MrouteSwitchSm;
using Vel::MtableOifSet;
using Vel::RouteKeyVlanId;
using Vel::ZombieKey;
using Wisp::Multicast::Fib::RpaIndex;

enum SyncAction : unsigned {
   setVrf = ofThePath,
   noAge,
   zombies,
   full,
   room,
   verify,
   reverify,
   hit,
   busy,
   refuse,
   routing,
   actions
};

// The allocations of a platform and its answers. Both sides have one for each chip.
struct Platform {
   U32 index(PortVlanSet const& members) {
      return lowest(indexes, 31, members.portVlan().empty() ? 99 : room);
   }
   // A handle is never reused, because a listener is notified while the handle's route still exists.
   RouteHandle handle() {
      if (handles.size() >= 6) return RouteHandle();
      handles.insert(++lastHandle);
      return RouteHandle(lastHandle);
   }
   bool isHit(U32 vrfId, IpGenRouteKey const& k, VlanIdOrNone v) const {
      return hits.contains(cat(vrfId, ' ', k, ' ', v));
   }

   std::set<U32> indexes, handles;
   std::set<std::string> hits;
   U32 lastHandle = 0;
   unsigned full = 0, room = 8;  // which tables are full
   bool busy = false, refuses = false;
};
U32 switchId(unsigned chip) {
   return 7 + chip;
}
// The arguments of a route's allocation. The source of the last key is no unicast address.
struct Wanted {
   explicit Wanted(Op const& op)
         : key(op.thing == 11 ? testSupport::key("239.0.0.9", "239.0.0.1") : routeKey(op.thing)),
           bridge(op.other % 5 == 0),
           vlan(bridge ? play::vlan(1 + op.thing % 2) : play::vlan(op.thing)),
           rpa(op.other % 7 == 1   ? RpaIndex::none()
               : op.other % 7 == 2 ? RpaIndex::notProgrammed()
                                   : RpaIndex(static_cast<U16>(op.thing))) {}
   IpGenRouteKey const key;
   bool const bridge;
   VlanIdOrNone const vlan;
   RpaIndex const rpa;
};

template <class Switch, class Record, class Reactor>
class SyncWorld : public World<Switch, Record, Reactor, Platform> {
 public:
   SyncWorld() {
      acsd_->verifyDataIs(Qor::make<Vel::VerifyData>());
      acsd_->verifyData()->verifyRequiredIs(true);
      this->follow(acsd_->verifyData().get(), "verify");
      this->follow(l3_.get(), "l3");
   }
   Ptr<Vel::VelCommonSmData> const acsd_ = Qor::make<Vel::VelCommonSmData>();
   Ptr<Vel::L3Status> const l3_ = Qor::make<Vel::L3Status>();

 protected:
   std::string recordText(Record const& r) const override { return cat(r.softwareOnly()); }
   std::string sizesOf(Switch const& sw) const override {
      return cat(sw.oifSetIndexColl().size(), ' ', sw.route().size(), ' ', sw.boundary().size(),
                 ' ', sw.routeKeyToHandle().size());
   }
   void tablesOf(Switch const& sw, Lines& lines) const override {
      this->list(lines, "index", sw.oifSetIndexColl(), [](auto&, bool used) { return cat(used); });
      this->list(lines, "route", sw.route(), [](auto&, auto const& r) {
         return cat(r->handle(), ' ', r->key(), ' ', r->acceptingVlanId(), r->fastdrop(), ' ',
                    r->rpaId(), ' ', r->vrfId(), ' ', r->noAge(), ' ',
                    r->mtableOifSet() ? cat(*r->mtableOifSet()) : "");
      });
      this->list(lines, "boundary", sw.boundary(), [](auto&, auto const& b) {
         return cat(b->handle(), ' ', b->key(), ' ', b->vlanId(), ' ', b->vrfId());
      });
      this->list(lines, "handle", sw.routeKeyToHandle(),
                 [](auto&, auto const& h) { return cat(h); });
      lines.push_back(cat(sw.mtableFree(), sw.mrouteTcamFree(), sw.boundaryTcamFree(),
                          sw.mrouteReviewKick()));
   }
   void runOfThePath(Op const& op, typename SyncWorld::Things const& things) override {
      auto const& [sw, sm, record, route, platform, set, vrf] = things;
      auto const is = [&](unsigned action) { return op.action == action; };
      RouteHandle const handle = route;
      if (is(setVrf)) l3_->vrfNameToVrfIdIs(vrf.name(), Vel::VrfId(op.thing));
      if (is(zombies)) l3_->multicastZombiesEnabledIs(op.other % 3);
      if (is(routing)) this->hw_->hwRoutingIs(op.thing % 2);
      if (is(reverify)) acsd_->verifyData()->reverifyIs(false);
      if (!sw) return;
      if (is(allocate)) {
         sw->doAllocateMtableOifSet(set);
         auto made = Qor::ptrCast<Record>(sw->mtableOifSet());
         if (op.thing != 3) sw->mtableOifSetIs(nullptr);
         std::swap(record, made);
      }
      if (is(allocateRoute)) {
         Wanted const w(op);
         sw->doAllocateRoute(w.key, w.vlan, w.bridge, Ptr<Record>(record), op.other % 2,
                             w.vlan.isNone(), w.rpa, vrf);
         route = sw->routeHandle();
      }
      if (is(point) && record && sw->route(handle))
         sw->doSetMtableOifSet(handle, Ptr<Record>(record));
      if (is(deleteRoute) && (sw->route(handle) || sw->boundary(handle))) sw->doDeleteRoute(handle);
      if (is(noAge) && sw->route(handle)) sw->route(handle)->noAgeIs(op.thing % 2);
      if (is(full)) platform.full = op.other % 8;
      if (is(room)) platform.room = op.other;
      if (is(verify) && sm) sm->handleVerify();
      if (is(hit)) platform.hits.insert(cat(op.chip, ' ', routeKey(op.thing), ' ', vlan(op.other)));
      if (is(busy)) platform.busy = op.thing % 2;
      if (is(refuse)) platform.refuses = op.thing % 2;
   }
   // The reactor is notified of a change before the listener.
   Ptr<Reactor> beginReactor(unsigned c) override {
      this->unfollow(l3_.get());
      auto const made = this->newReactor(c);
      this->follow(l3_.get(), "l3");
      return made;
   }
};

// ---- The system. ----

class SyncSystem final : public SystemOf<SyncWorld<MrouteSwitch, MtableOifSet, MrouteSwitchSm>> {
 public:
   SyncSystem() : SystemOf("VelSyncMrouteSm") {}
   ~SyncSystem() override { releaseAll(); }

 private:
   using RoutePtr = Ptr<Vel::Route const>;
   using BoundaryPtr = Ptr<Vel::Boundary const>;

   struct Hooks final : HooksOf<VelHelper::MrouteSmHelper> {
      using HooksOf::HooksOf;
      HOOK(void, mrouteSwitchInit, (U32 id, bool start), void(), id, start)
      U32 doAllocateMtableOifSet(U32 id, U32 hint, OifSetPtr set) override {
         hook("doAllocateMtableOifSet", id, hint, set->portVlanSet());
         if (hint == 0 || hint == 0xFFFFFFFE) return platform.index(set->portVlanSet());
         return platform.refuses ? 0xFFFFFFFF : hint;
      }
      HOOK(void, handleFreeMtableOifSet, (U32 id, Ptr<MtableOifSet> record),
           void(platform.indexes.erase(record->oifSetIndex())), id, *record)
      HOOK(RouteHandle, doAllocateMroute,
           (U32 id, U16 vrfId, IpGenRouteKey const& k, VlanIdOrNone v, bool bridge, U32 index,
            bool drop, U16 rpa),
           platform.handle(), id, vrfId, k, v, bridge, index, drop, rpa)
      HOOK(RouteHandle, doAllocateMrouteNoRpf,
           (U32 id, U16 vrfId, IpGenRouteKey const& k, bool bridge, U32 index, bool drop, U16 rpa),
           platform.handle(), id, vrfId, k, bridge, index, drop, rpa)
      HOOK(void, doSetMtableOifSet, (U32 id, U16 vrfId, RouteHandle h, RoutePtr r, U32 index),
           void(), id, vrfId, h, r->key(), index)
      HOOK(void, doDeleteMroute, (U32 id, U16 vrfId, RouteHandle h, RoutePtr r),
           void(platform.handles.erase(h.value())), id, vrfId, h, r->key())
      HOOK(void, doDeleteMrouteBoundary, (U32 id, U16 vrfId, RouteHandle h, BoundaryPtr b),
           void(platform.handles.erase(h.value())), id, vrfId, h, b->key())
      HOOK(void, doCommitMrouteBatch, (), void())
      HOOK(bool, mrouteFull, (U32 id), platform.full & 1, id)
      HOOK(bool, mrouteBoundaryFull, (U32 id), platform.full & 2, id)
      HOOK(bool, mtableFull, (U32 id), platform.full & 4, id)
      HOOK(bool, mrouteHitBit,
           (U32 id, U16 vrfId, IpGenRouteKey const& k, VlanIdOrNone v, bool boundary),
           platform.isHit(vrfId, k, v), id, vrfId, k, v, boundary)
      HOOK(Qor::U8, mrouteHitBitCacheRefresh, (U32 id), platform.busy ? 2 : 1, id)
      HOOK(void, mrouteHitBitCacheClear, (U32 id), void(), id)
      HOOK(void, verifyMroute, (U32 id, U16 vrfId, RoutePtr r), void(), id, vrfId, r->handle())
      HOOK(void, verifyMrouteBoundary, (U32 id, U16 vrfId, BoundaryPtr b), void(), id, vrfId,
           b->handle())
   };

   Ptr<MrouteSwitch> newSwitch(unsigned c) override {
      helper_[c] = Qor::make<Hooks>(*this, c);
      return Vel::mrouteSwitchFactory(chipNames[c], switchId(c), acsd_, l3_, helper_[c], nullptr,
                                      hw_);
   }
   Ptr<MrouteSwitchSm> makeReactor(unsigned c) override {
      return Vel::MrouteSwitchSmIs(70 + c, acsd_, l3_, switch_[c], vlans_, config_, hw_, helper_[c],
                                   zombieClock_[c], agingClock_[c], nullptr, nullptr, nullptr);
   }
   void seen(Qor::Change const& change, unsigned c) override {
      SystemOf::seen(change, c);
      if (change.member != "route" || !change.key || !switch_[c]) return;
      auto const route = switch_[c]->route(RouteHandle(change.key->text()));
      if (route) follow(route.get(), cat(chipNames[c], " route ", route->handle()));
   }

   std::array<Ptr<Hooks>, chips> helper_;
};

// ---- The model. ----

class SyncChip;
class SyncRecord;
class SyncReactor;

class SyncModel final : public ModelOf<SyncWorld<SyncChip, SyncRecord, SyncReactor>> {
 public:
   ~SyncModel() override { releaseAll(); }
   // The process-wide positions of the review, and of the rewriting of sets that wait.
   struct Position {
      VrfName vrf;
      IpGenRouteKey key;
      SyncReactor const* reactor = nullptr;
   };
   Position reviewPosition_;
   SyncReactor const* rewriteStopped_ = nullptr;
};

class SyncRecord final : public ModelRecord<ZombieKey, false> {
 public:
   SyncRecord(ModelChip& chip, OifSetPtr const& set, U32 i)
         : ModelRecord(chip, set, i, "MtableOifSet(oifSetIndex ") {}
   bool softwareOnly() const { return members().type() == RouteKeyType::softwareOnly; }

 private:
   void printCleanup() const override { print("3 doCleanup (oifset): ", *this); }
};

// A route, or a boundary entry, which has only a vlan and a VRF.
class SyncRoute final : public Entity {
 public:
   SyncRoute(ModelChip& c, RouteHandle h, IpGenRouteKey const& k, VlanIdOrNone v)
         : Entity(c.side, cat(c.title, " route ", h), false), handle_(h), key_(k), vlan_(v) {}
   RouteHandle handle() const { return handle_; }
   IpGenRouteKey const& key() const { return key_; }
   VlanIdOrNone acceptingVlanId() const { return vlan_; }
   VlanIdOrNone vlanId() const { return vlan_; }
   void noAgeIs(bool v) { noAge.is(v); }

   Attribute<bool> fastdrop{this, "fastdrop"}, noAge{this, "noAge"};
   Attribute<U32> vrfId{this, "vrfId"}, rpaId{this, "rpaId"};
   Attribute<Ptr<SyncRecord>> mtableOifSet{this, "mtableOifSet"};

 private:
   RouteHandle const handle_;
   IpGenRouteKey const key_;
   VlanIdOrNone const vlan_;
};

class SyncChip final : public ModelSwitch<SyncModel, SyncRecord, ZombieKey> {
 public:
   using RoutePtr = Ptr<SyncRoute>;

   SyncChip(SyncModel& w, unsigned n) : ModelSwitch(w, n) {
      print("2 handleInitialized, switch # ", id_);
      hook("mrouteSwitchInit", id_, true);
   }

   Table<U32, bool> oifSetIndexColl{this, "oifSetIndexColl"};
   Table<RouteHandle, RoutePtr> route{this, "route"}, boundary{this, "boundary"};
   Table<RouteKeyVlanId, RouteHandle> routeKeyToHandle{this, "routeKeyToHandle"};
   Attribute<bool> mtableFree{this, "mtableFree", true},
         mrouteTcamFree{this, "mrouteTcamFree", true},
         boundaryTcamFree{this, "boundaryTcamFree", true};
   Attribute<U64> mrouteReviewKick{this, "mrouteReviewKick"};
   void kick() { mrouteReviewKick.is(mrouteReviewKick() + 1); }

   void doAllocateMtableOifSet(OifSetPtr const& set) {
      PortVlanSet const& members = set->portVlanSet();
      print("2 doAllocateMtableOifSet, PortVlanSet: ", members);
      if (members.portVlan().empty()) {
         hook("doAllocateMtableOifSet", id_, 0, members);
         U32 const index = platform().index(members);
         print("2 Empty port vlan set. OifSetIndex: ", index);
         RecordPtr const record = Qor::make<SyncRecord>(*this, set, index);
         mtableOifSetIs(record);
         return requestVerify();
      }
      print("2 Non-empty port vlan set");
      RecordPtr const existing = inUseRecord(set);
      if (existing && existing->dirty()) {
         print("2 Existing dirty oifSetIndex: ", existing->id);
      } else if (existing) {
         print("2 Found an existing oif set");
         if (existing->isZombie()) {
            print("2 Resurrecting zombie oifSetIndex: 0x", std::hex, existing->id);
            zombieOifSetDel(existing->zombie());
            existing->zombie.is(ZombieKey());
            // A failure may have disarmed the zombie.
            if (!members.currentIif().isNull() && !frrMtableOifSet().contains(set)) {
               print("2  Adding Frr oifSetIndex: ", existing->id);
               frrMtableOifSet.is(set, existing->serial);
            }
         }
         print("2 Sharing existing oifSetIndex: ", existing->id);
         mtableOifSetIs(existing);
         return requestVerify();
      }
      hook("mtableFull", id_);
      if (platform().full & 4) {
         print("2 No multicast group available. Skipping oif allocation");
         mtableOifSetIs(nullptr);
         return mtableFree.is(false);
      }
      hook("doAllocateMtableOifSet", id_, existing && existing->id != 0 ? 0xFFFFFFFE : 0, members);
      U32 const index = platform().index(members);
      if (index == 0xFFFFFFFF) {
         print("2 Full multicast replication table. Skipping oif allocation");
         return mtableOifSetIs(nullptr);
      }
      oifSetIndexColl.is(index, true);
      RecordPtr const record = Qor::make<SyncRecord>(*this, set, index);
      inUseOifSet.is(set, record->serial);
      if (!members.currentIif().isNull()) {
         print("2  Adding Frr oifSetIndex: ", index);
         frrMtableOifSet.is(set, record->serial);
      }
      mtableOifSetIs(record);
      print("2 Allocated oifSetIndex: ", index);
      requestVerify();
   }

   void doAllocateRoute(IpGenRouteKey const& k, VlanIdOrNone v, bool bridge,
                        RecordPtr const& record, bool fastdrop, bool noRpf, RpaIndex rpaId,
                        VrfName const& vrf) {
      print("2 doAllocateRoute , Key: ", k, ", AcceptingVlanId: ", v, ", Bridge: ", bridge,
            ", fastDrop: ", fastdrop, ", noRpf", noRpf, ", rpaId: ", rpaId,
            ", oifSet: ", record ? cat(*record) : "null", ", VRF: ", vrf);
      U32 const vrfId = world.l3_->vrfNameToVrfId(vrf.name()).value();
      if (bridge) return allocateBoundary(k, v, vrfId);
      if (k.source() == prefix("239.0.0.9/32")) {
         print("2 Multicast source address for mroute");
         return routeHandle.is(RouteHandle());
      }
      if (rpaId.value() == 0xFFFE) return routeHandle.is(RouteHandle());
      unsigned const rpa = rpaId.value() == 0xFFFF ? 0 : rpaId.value();
      U32 const index = record ? record->id : 0;
      if (noRpf) {
         hook("doAllocateMrouteNoRpf", id_, vrfId, k, false, index, fastdrop, rpa);
      } else {
         hook("doAllocateMroute", id_, vrfId, k, v, false, index, fastdrop, rpa);
      }
      RouteHandle const handle = platform().handle();
      if (handle.isNull()) {
         hook("mrouteFull", id_);
         if (platform().full & 1) {
            print("2 Full mroute table");
            mrouteTcamFree.is(false);
         }
         return routeHandle.is(handle);
      }
      RoutePtr const made = Qor::make<SyncRoute>(*this, handle, k, v);
      made->followed = isSeen();
      route.is(handle, made);
      routeKeyToHandle.is(RouteKeyVlanId(k, v), handle);
      made->fastdrop.is(fastdrop);
      made->vrfId.is(vrfId);
      made->rpaId.is(rpa);
      world.l3_->multicastReviewPendingInc();
      routeHandle.is(handle);
      requestVerify();
   }

   void doSetMtableOifSet(RouteHandle handle, RecordPtr const& record) {
      RoutePtr const r = route(handle);
      print("2 doSetMtableOifSet, vrfId: ", r->vrfId(), ", Route: ", handle, ", key: ", r->key(),
            ", iif ", r->acceptingVlanId(), ", fastdrop: ", r->fastdrop(),
            ", oifSetIndex: ", record->id);
      if (r->mtableOifSet() == record) return print("2 Mroute unchanged, nothing to do");
      hook("doSetMtableOifSet", id_, r->vrfId(), handle, r->key(), record->id);
      r->mtableOifSet.is(record, cat(*record));
      requestVerify();
   }

   void doDeleteRoute(RouteHandle handle) {
      if (RoutePtr const r = route(handle)) {
         print("2 doDeleteRoute, vrfId: ", r->vrfId(), ", Route: ", handle, ' ', r->key());
         hook("doDeleteMroute", id_, r->vrfId(), handle, r->key());
         platform().handles.erase(handle.value());
         routeKeyToHandle.del(RouteKeyVlanId(r->key(), r->acceptingVlanId()));
         print("2 doDeleteRoute, Route: ", handle,
               ", oifSetIndex: ", r->mtableOifSet() ? r->mtableOifSet()->id : 0);
         route.del(handle);
      } else {
         print("2 doDeleteRoute, Boundary: ", handle);
         RoutePtr const b = boundary(handle);
         hook("doDeleteMrouteBoundary", id_, b->vrfId(), handle, b->key());
         platform().handles.erase(handle.value());
         boundary.del(handle);
         if (!boundaryTcamFree()) {
            hook("mrouteBoundaryFull", id_);
            if (!(platform().full & 2)) {
               print("2 Boundary entries now available - set boundaryTcamFree true");
               boundaryTcamFree.is(true);
            }
         }
      }
      world.l3_->unicastReviewPendingInc();
      world.l3_->unicast6ReviewPendingInc();
      world.l3_->multicastReviewPendingInc();
      requestVerify();
   }

   void handleVerify() {
      print("2 handleVerify, switch # ", id_);
      auto const verifyAll = [&](auto const& entries, std::string const& text, char const* name) {
         for (auto it = entries().begin(); it != entries().end();) {
            auto const [handle, entry] = *it;
            print("2 Verifying ", text, text == "route " ? cat(handle) : "");
            hook(name, id_, entry->vrfId(), handle);
            it = entries().upper_bound(handle);
         }
      };
      verifyAll(route, "route ", "verifyMroute");
      verifyAll(boundary, "boundary", "verifyMrouteBoundary");
   }
   void requestVerify() const override { world.acsd_->verifyData()->reverifyIs(true); }

 private:
   void zeroReferencesIs(bool) override {
      deletedIs(true);
      print("2 doCleanup, switch # ", id_);
      hook("mrouteSwitchInit", id_, false);
      mtableOifSetIs(nullptr);
      routeKeyToHandle.delAll();
      route.delAll();
      boundary.delAll();
      recordsDelAll();
      oifSetIndexColl.delAll();
   }

   void printFree(SyncRecord const& r) const override {
      print("2 handleFreeMtableOifSet, OifSet: ", r, ", OifSetIndex: ", r.id);
      if (r.deleted()) print("3 OifSet resources already freed ");
   }
   bool freesAtOnce(SyncRecord const& r) const override {
      if (deleted()) {
         print("3 MrouteSwitch deletion - skipping delayed deletion of oifSet");
      } else if (r.isZombie()) {
         print("3 Now freeing zombie oifSet");
      } else if (r.softwareOnly()) {
         print("3 OifSet not used in hw - skipping delayed deletion");
      } else if (!world.l3_->multicastZombiesEnabled()) {
         print("3 Zombies are not enabled");
      } else {
         return false;
      }
      return true;
   }
   ZombieKey newZombie(SyncRecord& r) const override {
      print("2 Adding zombie");
      return ZombieKey(r.id, world.now() + 4);
   }
   void freeNow(SyncRecord& r) override {
      if (!deleted() && zombieOifSet(r.zombie()).get() == &r) zombieOifSetDel(r.zombie());
      print("2 Freeing OifSetIndex: ", r.id);
      inUseOifSet.del(r.oifSet());
      frrMtableOifSet.del(r.oifSet());
      frrProcessingOifSet.del(r.oifSet());
      r.deleted.is(true);
      oifSetIndexColl.del(r.id);
      hook("handleFreeMtableOifSet", id_, r);
      platform().indexes.erase(r.id);
      if (!mtableFree()) {
         print("2 Free space now available in multicast group table");
         mtableFree.is(true);
      }
   }

   void allocateBoundary(IpGenRouteKey const& k, VlanIdOrNone v, U32 vrfId) {
      hook("doAllocateMroute", id_, vrfId, k, v, true, 0, false, 0);
      RouteHandle const handle = platform().handle();
      if (handle.isNull()) {
         hook("mrouteBoundaryFull", id_);
         if (platform().full & 2) {
            print("2 Full boundary table");
            boundaryTcamFree.is(false);
         }
         return routeHandle.is(handle);
      }
      RoutePtr const made = Qor::make<SyncRoute>(*this, handle, k, v);
      boundary.is(handle, made);
      made->vrfId.is(vrfId);
      routeHandle.is(handle);
   }

   U32 const id_ = switchId(number);
};

class SyncReactor final : public ModelReactor<SyncModel, SyncChip> {
 public:
   using ModelReactor::ModelReactor;

   void initialize() {
      chip_->react = [this](auto const& member, auto const&) {
         if (member == "zombieOifSet") handleZombie();
      };
      onInterval_.call = [this] { handlePollingInterval(); };
      onReview_.call = [this] { scheduleRoutesReview(); };
      onReview_.notifierIs(world_.l3_.get());
      onInterval_.notifierIs(world_.config_.get());
      handleClock();
      print("4 handleInitialized, state machine # ", 70 + chip_->number);
      initialized_ = true;
      disarm();
      handlePollingInterval();
      if (!chip_->zombieOifSet().empty()) handleZombie();
      if (!chip_->route().empty()) scheduleAgingReview();
   }

   void handleVerify() {
      Ptr<SyncChip> const held = chip_;
      print("9 handleVerify, state machine # ", 70 + chip_->number);
      chip_->handleVerify();
   }

   void updateFrrMtableOif(IntfId failed) {
      Ptr<SyncReactor> const self(this);
      SyncChip& c = *chip_;
      Seconds const begun = world_.now();
      print("8 void Vel::MrouteSwitchSm::updateFrrMtableOif(Lnet::IntfId) FrrSwitch from ", failed,
            ", frrOifs ", c.frrMtableOifSet().size());
      lookAtArmed([&](OifSetPtr const& set, U64) {
         PortVlanSet const& members = set->portVlanSet();
         if (!reroutedOn(set, failed)) {
            print("8  skip frrMtableOif ", members);
            if (members.currentIif() != failed)
               return print("blip  skip Frr, currentIif ", members.currentIif());
            return print(
                  "blip No need for inplace update, invalid currentIif: 0, or portVlanFrrs: ",
                  members.portVlanFrr().size());
         }
         auto const held = c.inUseRecord(set);  // until its set has been moved
         bool const live = held && !held->isZombie();
         if (live) held->dirty.is(true);
         c.frrMtableOifSetDel(set);
         if (live) c.frrProcessingOifSetIs(set, held.get());
      });
      rewriteWaitingFrom(begun);
   }

   void rewriteWaitingFrom(Seconds begun) override {
      Ptr<SyncReactor> const self(this);
      SyncChip& c = *chip_;
      Seconds const deadline = begun + 0.1;
      // The model does not know the position of the last pass.
      std::string const from =
            "8 void Vel::MrouteSwitchSm::handleClock()review FrrProcessingOifSet: ";
      bool const stopped = world_.rewriteStopped_ && world_.nextLine().starts_with(from);
      print(stopped ? world_.nextLine() : from + "null");
      rewriteWaiting(deadline, [&](OifSetPtr const& set, U64 serial) {
         auto const record = c.record(set, serial);
         if (record && c.inUseOifSet().contains(set) && !record->isZombie())
            rewriteSet(set, record->id);
      });
      if (!c.frrProcessingOifSet().empty()) {
         world_.rewriteStopped_ = this;
      } else if (world_.rewriteStopped_ == this) {
         world_.rewriteStopped_ = nullptr;
      }
      setClock();
   }

   void doRouteAgingReview() {
      Ptr<SyncReactor> const self(this);
      Ptr<SyncChip> const chip = chip_;
      U32 const id = switchId(chip->number);
      print("7 doRouteAgingReview");
      bool const byClock = armed();
      auto const stopped = [&] { return byClock && !armed(); };
      SyncModel::Position const last = std::exchange(world_.reviewPosition_, {});
      bool const goesOn = last.reactor && world_.hw_->vrfStatus(last.vrf);
      SyncModel::Position const from = goesOn ? last : SyncModel::Position();
      if (last.reactor) {
         IpGenRouteKey following;
         eachRoute(
               from.vrf, from.key, [](auto&) { return true; },
               [&](auto&, auto const& route) {
                  following = route.key();
                  return false;
               });
         print("6 Current routeIter: ", following);
      }
      if (!goesOn) {
         print("6 VrfItr not found - restarting review and refreshing the cache");
         hook("mrouteHitBitCacheRefresh", id);
         if (platform().busy) return print("6 cmdInProgress_ ");
         if (stopped()) return;
      }
      Seconds const deadline = world_.now() + 0.05;
      unsigned reviewed = 0;
      U32 vrfId = 0;
      auto const enter = [&](VrfName const& name) {
         print("5 Iterating VRF ", name);
         vrfId = world_.l3_->vrfNameToVrfId(name.name()).value();
         return true;
      };
      bool const complete = eachRoute(
            from.vrf, from.key, enter, [&](VrfName const& name, Hardware::RouteStatus& route) {
               reviewRoute(route, vrfId);
               ++reviewed;
               if (world_.now() <= deadline) return true;
               print("6 Route aging review quota reached (reviewed ", reviewed, " routes)");
               world_.reviewPosition_ = {name, route.key(), this};
               return false;
            });
      if (complete) {
         print("6 Review completed");
         hook("doCommitMrouteBatch");
         hook("mrouteHitBitCacheClear", id);
      }
      if (stopped()) {
         reviewStopped();
      } else {
         agingClock().timeMinIs(world_.now() + (complete ? interval() : 0.01));
      }
      if (!complete) return;
      print("6 Kick off a new Mroute review in the MrouteProgrammer");
      chip->kick();
   }

 private:
   class OnReview final : public Vel::L3Status::Notifiee {
    public:
      void onMulticastReviewPending() override { call(); }
      std::function<void()> call;
   };
   ZombieTexts const& texts() const override {
      static constexpr ZombieTexts all = {
            .clock = "6 handleZombieClock",
            .removed = {"5 Removing zombie OifSetIndex: ", "handleZombieClock "},
            .unfinished = nullptr,
            .review = "6 handleZombie",
            .marked = "6 MrouteSwitch marked for deletion - skipping zombie handling",
            .none = "5 Resetting zombie timer",
            .first = {"5 Setting timer for oifSetIndex: ",
                      "handleZombie, Set timer for zombie oifSetIndex: "},
            .atEnd = {"4 Deleting zombie oifSetIndex: ", "doCleanup, Delete zombie oifSetIndex: "}};
      return all;
   }
   void printCleanup() const override {
      print("4 doCleanup, state machine # ", 70 + chip_->number);
   }
   void end() override {
      reviewStopped();
      if (world_.rewriteStopped_ == this) world_.rewriteStopped_ = nullptr;
      onReview_.notifierIs(nullptr);
   }
   void reviewStopped() {
      if (world_.reviewPosition_.reactor == this) world_.reviewPosition_ = {};
   }

   void scheduleRoutesReview() {
      Ptr<SyncReactor> const self(this);
      if (!chip_->mrouteTcamFree()) {
         hook("mrouteFull", 70 + chip_->number);
         if (!(platform().full & 1)) {
            print("5 Free space now available in the mroute table");
            chip_->mrouteTcamFree.is(true);
         }
      }
      scheduleAgingReview();
   }

   void scheduleAgingReview() {
      bool const routes = !chip_->route().empty();
      print("7 maybeScheduleAgingReview, Mroutes: ", chip_->route().size());
      if (routes && !armed()) {
         print("5 First mroute, enabling aging review in ", interval(), "s");
         agingClock().timeMinIs(world_.now() + interval());
      } else if (!routes && !armed()) {
         print("6 Kick review to program the unprogrammed multicast routes if any");
         chip_->kick();
      } else if (!routes) {
         print("5 Last mroute, disabling aging review");
         agingClock().timeMinIs(Qor::never);
         reviewStopped();
         if (!world_.hw_->hwRouting()) world_.l3_->waitForRoutingDisabledRefCntInc(1);
      }
   }

   void handlePollingInterval() {
      print("6 handlePollingInterval, polling interval: ", interval(), 's');
      if (!initialized_) return;
      if (armed()) agingClock().timeMinIs(world_.now());
      world_.hw_->pollingIntervalIs(static_cast<Qor::U8>(interval()));
   }

   void rewriteSet(OifSetPtr const& set, U32 index) {
      for (auto const& [member, flag] : set->portVlanSet().portVlanFrr())
         print("8 add port ", member);
      print("8 original pvSet", set->portVlanSet());
      print("8 : Overwrite with new pvSet ", backupOf(set), " to oifSetIndex: ", index);
      print("blip MrouteSwitchSm::handleClock Overwrite with pvSet ", backupOf(set),
            " to oifSetIndex: ", index);
      hook("doAllocateMtableOifSet", switchId(chip_->number), index, backupOf(set));
      if (!platform().refuses) return;
      print("8 : HW resource full ");
      print("blip MrouteSwitchSm::handleClockHW resource full");
   }

   bool isHit(IpGenRouteKey const& k, VlanIdOrNone v, U32 vrfId) {
      hook("mrouteHitBit", switchId(chip_->number), vrfId, k, v, false);
      return platform().isHit(vrfId, k, v);
   }

   void reviewRoute(Hardware::RouteStatus& status, U32 vrfId) {
      IpGenRouteKey const& k = status.key();
      print("7 Aging review: polling state for route ", k);
      VlanIdOrNone const v = vlanOf(status.acceptingIntfId());
      if (v.isNone()) {
         print("7 No accepting vlan for the route. Check fastdrops");
      } else {
         auto const route = chip_->route(chip_->routeKeyToHandle(RouteKeyVlanId(k, v)));
         bool const forced = route && route->noAge();
         if (forced) print("5  Forcing hit for ", k);
         if (forced || isHit(k, v, vrfId)) {
            print("5 Updating activity bits for route ", k);
            status.lastPollTimeIs(world_.now());
         }
      }
      eachFastdrop(status, [&](Qor::Name intf, VlanIdOrNone dropped, Seconds) {
         print("7 Reviewing fastdrop ", intf);
         if (dropped.isNone() || !isHit(k, dropped, vrfId)) return;
         print("5 Updating activity bits for fastdrop route", k, " on vlan ", dropped);
         status.fastdropLastPollTimeIs(intf, world_.now());
      });
   }

   OnReview onReview_;
};

class SyncPlay : public OnVirtualTime {};

TEST_F(SyncPlay, TheSystemDoesWhatTheModelDoes) {
   compare<SyncSystem, SyncModel>(250, 300, actions);
}

}  // namespace
