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
class SyncWorld : public World<Switch, Record, Reactor> {
 public:
   SyncWorld() {
      acsd_->verifyDataIs(Qor::make<Vel::VerifyData>());
      acsd_->verifyData()->verifyRequiredIs(true);
      this->follow(acsd_->verifyData().get(), "verify");
      this->follow(l3_.get(), "l3");
   }
   std::array<Platform, chips> platform_;
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
   void runOfThePath(Op const& op) override {
      unsigned const c = op.chip % chips;
      Ptr<Switch> const sw = this->switch_[c];
      Ptr<Reactor> const sm = this->sm_[c];
      Platform& platform = platform_[c];
      auto& record = this->record_[c][op.thing % slots];
      RouteHandle& route = this->route_[c][op.other % slots];
      RouteHandle const handle = route;
      VrfName const vrf = vrfName(op.chip / 2);
      switch (op.action) {
         case setVrf:
            l3_->vrfNameToVrfIdIs(vrf.name(), Vel::VrfId(op.thing));
            break;
         case zombies:
            l3_->multicastZombiesEnabledIs(op.other % 3);
            break;
         case routing:
            this->hw_->hwRoutingIs(op.thing % 2);
            break;
         case reverify:
            acsd_->verifyData()->reverifyIs(false);
            break;
      }
      if (!sw) return;
      switch (op.action) {
         case allocate: {
            sw->doAllocateMtableOifSet(setOf(op));
            auto made = Qor::ptrCast<Record>(sw->mtableOifSet());
            if (op.thing != 3) sw->mtableOifSetIs(nullptr);
            std::swap(record, made);
            break;
         }
         case allocateRoute: {
            Wanted const w(op);
            sw->doAllocateRoute(w.key, w.vlan, w.bridge, Ptr<Record>(record), op.other % 2,
                                w.vlan.isNone(), w.rpa, vrf);
            route = sw->routeHandle();
            break;
         }
         case point:
            if (record && sw->route(handle)) sw->doSetMtableOifSet(handle, Ptr<Record>(record));
            break;
         case deleteRoute:
            if (sw->route(handle) || sw->boundary(handle)) sw->doDeleteRoute(handle);
            break;
         case noAge:
            if (sw->route(handle)) sw->route(handle)->noAgeIs(op.thing % 2);
            break;
         case full:
            platform.full = op.other % 8;
            break;
         case room:
            platform.room = op.other;
            break;
         case verify:
            if (sm) sm->handleVerify();
            break;
         case hit:
            platform.hits.insert(cat(op.chip, ' ', routeKey(op.thing), ' ', vlan(op.other)));
            break;
         case busy:
            platform.busy = op.thing % 2;
            break;
         case refuse:
            platform.refuses = op.thing % 2;
            break;
      }
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

   class Hooks final : public VelHelper::MrouteSmHelper {
    public:
      Hooks(SyncSystem& s, unsigned chip)
            : MrouteSmHelper(chipNames[chip]), system(s), platform(s.platform_[chip]), me(chip) {}
      template <class... Parts>
      void hook(Parts const&... parts) {
         system.hook(me, parts...);
      }
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

      SyncSystem& system;
      Platform& platform;
      unsigned const me;
   };

   Ptr<MrouteSwitch> newSwitch(unsigned c) override {
      platform_[c] = {};
      helper_[c] = Qor::make<Hooks>(*this, c);
      return Vel::mrouteSwitchFactory(chipNames[c], switchId(c), acsd_, l3_, helper_[c], nullptr,
                                      hw_);
   }
   // The reactor is notified before the listener.
   Ptr<MrouteSwitchSm> newReactor(unsigned c) override {
      unfollow(l3_.get());
      unfollow(switch_[c].get());
      auto const made =
            Vel::MrouteSwitchSmIs(70 + c, acsd_, l3_, switch_[c], vlans_, config_, hw_, helper_[c],
                                  zombieClock_[c], agingClock_[c], nullptr, nullptr, nullptr);
      follow(l3_.get(), "l3");
      if (switch_[c]) follow(switch_[c].get(), chipNames[c]);
      return made;
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
   ~SyncModel() override;
   // The process-wide positions of the review, and of the rewriting of sets that wait.
   struct Position {
      VrfName vrf;
      IpGenRouteKey key;
      SyncReactor const* reactor = nullptr;
   };
   Position reviewPosition_;
   SyncReactor const* rewriteStopped_ = nullptr;

 private:
   Ptr<SyncChip> newSwitch(unsigned c) override;
   Ptr<SyncReactor> newReactor(unsigned c) override;
};

class SyncRecord final : public ModelRecord<SyncRecord, ZombieKey, false> {
 public:
   using ModelRecord::ModelRecord;
   bool softwareOnly() const { return members().type() == RouteKeyType::softwareOnly; }
   friend std::ostream& operator<<(std::ostream& out, SyncRecord const& r) {
      return out << "MtableOifSet(oifSetIndex " << r.id << ", " << r.oifSet() << ')';
   }

 private:
   void printCleanup() const override { print("3 doCleanup (oifset): ", *this); }
};

// A route, or a boundary entry, which has only a vlan and a VRF.
class SyncRoute final : public Qor::RefCounted {
 public:
   SyncRoute(ModelChip& c, RouteHandle h, IpGenRouteKey const& k, VlanIdOrNone v)
         : side_(c.side),
           name_(cat(chipNames[c.number], " route ", h, ' ')),
           handle_(h),
           key_(k),
           vlan_(v) {}
   RouteHandle handle() const { return handle_; }
   IpGenRouteKey const& key() const { return key_; }
   VlanIdOrNone acceptingVlanId() const { return vlan_; }
   VlanIdOrNone vlanId() const { return vlan_; }
   bool fastdrop() const { return fastdrop_; }
   void fastdropIs(bool v) { attribute("fastdrop ", fastdrop_, v, valueToStrep(v)); }
   U32 vrfId() const { return vrfId_; }
   void vrfIdIs(U32 v) { attribute("vrfId ", vrfId_, v, cat(v)); }
   U32 rpaId() const { return rpaId_; }
   void rpaIdIs(U32 v) { attribute("rpaId ", rpaId_, v, cat(v)); }
   bool noAge() const { return noAge_; }
   void noAgeIs(bool v) { attribute("noAge ", noAge_, v, valueToStrep(v)); }
   Ptr<SyncRecord> const& mtableOifSet() const { return record_; }
   void mtableOifSetIs(Ptr<SyncRecord> v) {
      std::string const shown = cat(*v);
      attribute("mtableOifSet ", record_, std::move(v), shown);
   }

   bool followed = false;

 private:
   template <class T>
   void attribute(char const* name, T& attribute, T v, std::string const& shown) {
      if (attribute == v) return;
      std::swap(attribute, v);
      if (followed) side_.event(name_, name, shown);
   }

   Side& side_;
   std::string const name_;
   RouteHandle const handle_;
   IpGenRouteKey const key_;
   VlanIdOrNone const vlan_;
   bool fastdrop_ = false, noAge_ = false;
   U32 vrfId_ = 0, rpaId_ = 0;
   Ptr<SyncRecord> record_;
};

class SyncChip final : public ModelSwitch<SyncModel, SyncRecord, ZombieKey> {
 public:
   using RoutePtr = Ptr<SyncRoute>;

   SyncChip(SyncModel& w, unsigned n) : ModelSwitch(w, n) {
      print("2 handleInitialized, switch # ", id_);
      hook("mrouteSwitchInit", id_, true);
   }

   std::map<U32, bool> const& oifSetIndexColl() const { return indexes_; }
   std::map<RouteHandle, RoutePtr> const& route() const { return routes_; }
   RoutePtr route(RouteHandle h) const { return valueOf(routes_, h); }
   std::map<RouteHandle, RoutePtr> const& boundary() const { return boundaries_; }
   RoutePtr boundary(RouteHandle h) const { return valueOf(boundaries_, h); }
   std::map<RouteKeyVlanId, RouteHandle> const& routeKeyToHandle() const { return handles_; }
   RouteHandle routeKeyToHandle(RouteKeyVlanId const& k) const { return valueOf(handles_, k); }
   bool mtableFree() const { return mtableFree_; }
   bool mrouteTcamFree() const { return mrouteTcamFree_; }
   void mrouteTcamFreeIs(bool v) { attribute("mrouteTcamFree", mrouteTcamFree_, v); }
   bool boundaryTcamFree() const { return boundaryTcamFree_; }
   U64 mrouteReviewKick() const { return kicks_; }
   void kick() { attribute("mrouteReviewKick", kicks_, kicks_ + 1); }
   Platform& platform() const { return world.platform_[number]; }

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
            existing->zombieIs(ZombieKey());
            // A failure may have disarmed the zombie.
            if (!members.currentIif().isNull() && !frr_.contains(set)) {
               print("2  Adding Frr oifSetIndex: ", existing->id);
               frrMtableOifSetIs(set, existing.get());
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
         return attribute("mtableFree", mtableFree_, false);
      }
      hook("doAllocateMtableOifSet", id_, existing && existing->id != 0 ? 0xFFFFFFFE : 0, members);
      U32 const index = platform().index(members);
      if (index == 0xFFFFFFFF) {
         print("2 Full multicast replication table. Skipping oif allocation");
         return mtableOifSetIs(nullptr);
      }
      is("oifSetIndexColl", indexes_, index, true);
      RecordPtr const record = Qor::make<SyncRecord>(*this, set, index);
      inUseOifSetIs(set, record.get());
      if (!members.currentIif().isNull()) {
         print("2  Adding Frr oifSetIndex: ", index);
         frrMtableOifSetIs(set, record.get());
      }
      mtableOifSetIs(record);
      print("2 Allocated oifSetIndex: ", index);
      requestVerify();
   }

   void handleFree(Qor::RefCounted& freed) override {
      Ptr<SyncChip> const held(this);
      auto& r = static_cast<SyncRecord&>(freed);
      print("2 handleFreeMtableOifSet, OifSet: ", r, ", OifSetIndex: ", r.id);
      if (r.deleted()) return print("3 OifSet resources already freed ");
      if (deleted()) {
         print("3 MrouteSwitch deletion - skipping delayed deletion of oifSet");
      } else if (r.isZombie()) {
         print("3 Now freeing zombie oifSet");
         if (valueOf(zombies_, r.zombie()).get() == &r) zombieOifSetDel(r.zombie());
      } else if (r.softwareOnly()) {
         print("3 OifSet not used in hw - skipping delayed deletion");
      } else if (!world.l3_->multicastZombiesEnabled()) {
         print("3 Zombies are not enabled");
      } else {
         print("2 Adding zombie");
         ZombieKey const key(r.id, world.now() + 4);
         r.zombieIs(key);
         if (r.zombie() == key) zombieOifSetIs(&r);
         return requestVerify();
      }
      print("2 Freeing OifSetIndex: ", r.id);
      inUseOifSetDel(r.oifSet());
      frrMtableOifSetDel(r.oifSet());
      frrProcessingOifSetDel(r.oifSet());
      r.deletedIs(true);
      del("oifSetIndexColl", indexes_, r.id);
      hook("handleFreeMtableOifSet", id_, r);
      platform().indexes.erase(r.id);
      if (!mtableFree_) {
         print("2 Free space now available in multicast group table");
         attribute("mtableFree", mtableFree_, true);
      }
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
         return routeHandleIs(RouteHandle());
      }
      if (rpaId.value() == 0xFFFE) return routeHandleIs(RouteHandle());
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
            mrouteTcamFreeIs(false);
         }
         return routeHandleIs(handle);
      }
      RoutePtr const made = Qor::make<SyncRoute>(*this, handle, k, v);
      made->followed = isSeen();
      is("route", routes_, handle, made);
      is("routeKeyToHandle", handles_, RouteKeyVlanId(k, v), handle);
      made->fastdropIs(fastdrop);
      made->vrfIdIs(vrfId);
      made->rpaIdIs(rpa);
      world.l3_->multicastReviewPendingInc();
      routeHandleIs(handle);
      requestVerify();
   }

   void doSetMtableOifSet(RouteHandle handle, RecordPtr const& record) {
      RoutePtr const r = route(handle);
      print("2 doSetMtableOifSet, vrfId: ", r->vrfId(), ", Route: ", handle, ", key: ", r->key(),
            ", iif ", r->acceptingVlanId(), ", fastdrop: ", r->fastdrop(),
            ", oifSetIndex: ", record->id);
      if (r->mtableOifSet() == record) return print("2 Mroute unchanged, nothing to do");
      hook("doSetMtableOifSet", id_, r->vrfId(), handle, r->key(), record->id);
      r->mtableOifSetIs(record);
      requestVerify();
   }

   void doDeleteRoute(RouteHandle handle) {
      if (RoutePtr const r = route(handle)) {
         print("2 doDeleteRoute, vrfId: ", r->vrfId(), ", Route: ", handle, ' ', r->key());
         hook("doDeleteMroute", id_, r->vrfId(), handle, r->key());
         platform().handles.erase(handle.value());
         del("routeKeyToHandle", handles_, RouteKeyVlanId(r->key(), r->acceptingVlanId()));
         print("2 doDeleteRoute, Route: ", handle,
               ", oifSetIndex: ", r->mtableOifSet() ? r->mtableOifSet()->id : 0);
         del("route", routes_, handle);
      } else {
         print("2 doDeleteRoute, Boundary: ", handle);
         RoutePtr const b = boundary(handle);
         hook("doDeleteMrouteBoundary", id_, b->vrfId(), handle, b->key());
         platform().handles.erase(handle.value());
         del("boundary", boundaries_, handle);
         if (!boundaryTcamFree_) {
            hook("mrouteBoundaryFull", id_);
            if (!(platform().full & 2)) {
               print("2 Boundary entries now available - set boundaryTcamFree true");
               attribute("boundaryTcamFree", boundaryTcamFree_, true);
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
      for (auto it = routes_.begin(); it != routes_.end();) {
         auto const [handle, r] = *it;
         print("2 Verifying route ", handle);
         hook("verifyMroute", id_, r->vrfId(), handle);
         it = routes_.upper_bound(handle);
      }
      for (auto it = boundaries_.begin(); it != boundaries_.end();) {
         auto const [handle, b] = *it;
         print("2 Verifying boundary");
         hook("verifyMrouteBoundary", id_, b->vrfId(), handle);
         it = boundaries_.upper_bound(handle);
      }
   }
   void requestVerify() { world.acsd_->verifyData()->reverifyIs(true); }

 private:
   void zeroReferencesIs(bool) override {
      deletedIs(true);
      print("2 doCleanup, switch # ", id_);
      hook("mrouteSwitchInit", id_, false);
      mtableOifSetIs(nullptr);
      delAll("routeKeyToHandle", handles_);
      delAll("route", routes_);
      delAll("boundary", boundaries_);
      recordsDelAll();
      delAll("oifSetIndexColl", indexes_);
   }

   void allocateBoundary(IpGenRouteKey const& k, VlanIdOrNone v, U32 vrfId) {
      hook("doAllocateMroute", id_, vrfId, k, v, true, 0, false, 0);
      RouteHandle const handle = platform().handle();
      if (handle.isNull()) {
         hook("mrouteBoundaryFull", id_);
         if (platform().full & 2) {
            print("2 Full boundary table");
            attribute("boundaryTcamFree", boundaryTcamFree_, false);
         }
         return routeHandleIs(handle);
      }
      RoutePtr const made = Qor::make<SyncRoute>(*this, handle, k, v);
      is("boundary", boundaries_, handle, made);
      made->vrfIdIs(vrfId);
      routeHandleIs(handle);
   }

   U32 const id_ = switchId(number);
   std::map<U32, bool> indexes_;
   std::map<RouteHandle, RoutePtr> routes_, boundaries_;
   std::map<RouteKeyVlanId, RouteHandle> handles_;
   bool mtableFree_ = true, mrouteTcamFree_ = true, boundaryTcamFree_ = true;
   U64 kicks_ = 0;
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

   void handleZombieClock() {
      Ptr<SyncReactor> const self(this);
      print("6 handleZombieClock");
      auto const& zombies = chip_->zombieOifSet();
      while (!zombies.empty()) {
         auto const& [key, first] = *zombies.begin();
         if (first->zombie().expiryTime() > world_.now()) break;
         print("5 Removing zombie OifSetIndex: ", first->id);
         print("blip handleZombieClock ", first->id);
         chip_->zombieOifSetDel(key);
      }
      if (chip_->deleted()) zombieClock().timeMinIs(Qor::never);
      handleZombie();
   }

   void updateFrrMtableOif(IntfId failed) {
      Ptr<SyncReactor> const self(this);
      SyncChip& c = *chip_;
      RerouteTime const time(world_);
      print("8 void Vel::MrouteSwitchSm::updateFrrMtableOif(Lnet::IntfId) FrrSwitch from ", failed,
            ", frrOifs ", c.frrMtableOifSet().size());
      auto const liveRecord = [&](OifSetPtr const& set) {
         auto const record = c.inUseRecord(set);
         return record && record->isZombie() ? nullptr : record;
      };
      // The first notification shows which set is taken.
      auto const firstLine = [&](auto const& entry) {
         OifSetPtr const& set = entry.first;
         if (!reroutedOn(set, failed)) return cat("8  skip frrMtableOif ", set->portVlanSet());
         auto const record = liveRecord(set);
         bool const turnsDirty = record && !record->dirty() && record->followed;
         return turnsDirty ? cat(chipNames[c.number], ' ', *record, " dirty True")
                           : cat(chipNames[c.number], " frrMtableOifSet of ", set, " |");
      };
      lookAtArmed(firstLine, [&](OifSetPtr const& set, U64) {
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
         auto const record = liveRecord(set);
         if (record) record->dirtyIs(true);
         c.frrMtableOifSetDel(set);
         if (record) c.frrProcessingOifSetIs(set, record.get());
      });
      rewriteWaitingUntil(time.deadline);
   }

   void handleClock() { rewriteWaitingUntil(world_.now() + 0.1); }

   void rewriteWaitingUntil(Seconds deadline) {
      Ptr<SyncReactor> const self(this);
      SyncChip& c = *chip_;
      // The model does not know the position of the last pass.
      std::string const from =
            "8 void Vel::MrouteSwitchSm::handleClock()review FrrProcessingOifSet: ";
      bool const stopped = world_.rewriteStopped_ && world_.nextLine().starts_with(from);
      print(stopped ? world_.nextLine() : from + "null");
      auto const isRewritten = [&](OifSetPtr const& set, U64 serial) {
         auto const record = c.record(set, serial);
         return record && c.inUseOifSet().contains(set) && !record->isZombie();
      };
      auto const firstLine = [&](auto const& entry) {
         auto const& [set, serial] = entry;
         auto const& backups = set->portVlanSet().portVlanFrr();
         if (!isRewritten(set, serial))
            return cat(chipNames[c.number], " frrProcessingOifSet of ", set, " |");
         return backups.empty() ? cat("8 original pvSet", set->portVlanSet())
                                : cat("8 add port ", backups.begin()->first);
      };
      rewriteWaiting(deadline, firstLine, [&](OifSetPtr const& set, U64 serial) {
         if (isRewritten(set, serial)) rewriteSet(set, c.record(set, serial)->id);
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
      auto const& vrfs = world_.hw_->vrfStatus();
      bool const goesOn = last.reactor && world_.hw_->vrfStatus(last.vrf);
      auto const firstOf = [&](auto const& v) {
         bool const inside = goesOn && v->first == last.vrf;
         return inside ? v->second->route().upperBound(last.key) : v->second->route().begin();
      };
      auto const begin = goesOn ? vrfs.lowerBound(last.vrf) : vrfs.begin();
      if (last.reactor) {
         IpGenRouteKey following;
         for (auto v = begin; v != vrfs.end() && following.isNull(); ++v) {
            if (auto const r = firstOf(v); r != v->second->route().end()) following = r->first;
         }
         print("6 Current routeIter: ", following);
      }
      if (!goesOn) {
         print("6 VrfItr not found - restarting review and refreshing the cache");
         hook("mrouteHitBitCacheRefresh", id);
         if (chip->platform().busy) return print("6 cmdInProgress_ ");
         if (stopped()) return;
      }
      Seconds const deadline = world_.now() + 0.05;
      unsigned reviewed = 0;
      bool complete = true;
      for (auto v = goesOn ? vrfs.lowerBound(last.vrf) : vrfs.begin();
           complete && v != vrfs.end();) {
         auto const [name, status] = *v;
         print("5 Iterating VRF ", name);
         U32 const vrfId = world_.l3_->vrfNameToVrfId(name.name()).value();
         for (auto r = firstOf(v);
              complete && r != status->route().end() && world_.hw_->vrfStatus(name) == status;) {
            auto const [k, route] = *r;
            reviewRoute(*route, vrfId);
            ++reviewed;
            if (world_.now() > deadline) {
               print("6 Route aging review quota reached (reviewed ", reviewed, " routes)");
               world_.reviewPosition_ = {name, k, this};
               complete = false;
            }
            r = status->route().upperBound(k);
         }
         v = vrfs.upperBound(name);
      }
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
   void zeroReferencesIs(bool) override {
      SyncChip& c = *chip_;
      print("4 doCleanup, state machine # ", 70 + c.number);
      c.deletedIs(true);
      for (unsigned n = 0; !c.zombieOifSet().empty(); ++n) {
         auto const [key, record] = *c.zombieOifSet().begin();
         print("4 Deleting zombie oifSetIndex: ", record->id, ", iter ", n);
         print("blip doCleanup, Delete zombie oifSetIndex: ", record->id);
         c.zombieOifSetDel(key);
      }
      disarm();
      reviewStopped();
      if (world_.rewriteStopped_ == this) world_.rewriteStopped_ = nullptr;
      onReview_.notifierIs(nullptr);
      onInterval_.notifierIs(nullptr);
      c.react = nullptr;
   }
   void reviewStopped() {
      if (world_.reviewPosition_.reactor == this) world_.reviewPosition_ = {};
   }

   void handleZombie() {
      auto const& all = chip_->zombieOifSet();
      print("6 handleZombie");
      if (!initialized_) return;
      if (chip_->deleted())
         return print("6 MrouteSwitch marked for deletion - skipping zombie handling");
      if (all.empty()) {
         zombieClock().timeMinIs(Qor::never);
         print("5 Resetting zombie timer");
      } else {
         SyncRecord const& first = *all.begin()->second;
         print("5 Setting timer for oifSetIndex: ", first.id);
         print("blip handleZombie, Set timer for zombie oifSetIndex: ", first.id);
         zombieClock().timeMinIs(first.zombie().expiryTime());
      }
      chip_->requestVerify();
   }

   void scheduleRoutesReview() {
      Ptr<SyncReactor> const self(this);
      if (!chip_->mrouteTcamFree()) {
         hook("mrouteFull", 70 + chip_->number);
         if (!(chip_->platform().full & 1)) {
            print("5 Free space now available in the mroute table");
            chip_->mrouteTcamFreeIs(true);
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
      if (!chip_->platform().refuses) return;
      print("8 : HW resource full ");
      print("blip MrouteSwitchSm::handleClockHW resource full");
   }

   bool isHit(IpGenRouteKey const& k, VlanIdOrNone v, U32 vrfId) {
      hook("mrouteHitBit", switchId(chip_->number), vrfId, k, v, false);
      return chip_->platform().isHit(vrfId, k, v);
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
      auto const& fastdrops = status.fastdropLastPollTime();
      for (auto f = fastdrops.begin(); f != fastdrops.end();) {
         Qor::Name const intf = f->first;
         print("7 Reviewing fastdrop ", intf);
         VlanIdOrNone const dropped = vlanOf(IntfId(intf));
         if (!dropped.isNone() && isHit(k, dropped, vrfId)) {
            print("5 Updating activity bits for fastdrop route", k, " on vlan ", dropped);
            status.fastdropLastPollTimeIs(intf, world_.now());
         }
         f = fastdrops.upperBound(intf);
      }
   }

   OnReview onReview_;
};

SyncModel::~SyncModel() {
   releaseAll();
}
Ptr<SyncChip> SyncModel::newSwitch(unsigned c) {
   platform_[c] = {};
   return Qor::make<SyncChip>(*this, c);
}
Ptr<SyncReactor> SyncModel::newReactor(unsigned c) {
   unfollow(l3_.get());
   Ptr<SyncChip> const chip = switch_[c];
   chip->followed = false;
   auto const made = Qor::make<SyncReactor>(*this, *chip);
   made->initialize();
   chip->followed = switch_[c] != nullptr;
   follow(l3_.get(), "l3");
   return made;
}

class SyncPlay : public OnVirtualTime {};

TEST_F(SyncPlay, TheSystemDoesWhatTheModelDoes) {
   compare<SyncSystem, SyncModel>(250, 300, actions);
}

}  // namespace
