// The synchronous path's records of the oif sets, routes and boundary entries in one switch chip.
// The programmer (Vel/VelSyncMrouteSwitch.h) makes, indexes and deletes the records; its reactor
// and the platform read them. A setter notifies the record's notifiees unless the value is equal to
// the old value.
//
// Life of an oif set record:
//
//   state   | recognised by                            | ends with
//   --------+------------------------------------------+---------------------------------------
//   in use  | deleted false, zombie expiry never       | the loss of the last reference
//   zombie  | in the switch's zombieOifSet, zombie     | resurrection by an allocation of the
//           | expiry finite                            | same oif set, or leaving zombieOifSet
//   freed   | deleted true                             | destruction with the last reference
#pragma once

#include "MrouteLib/RouteHandle.h"
#include "Qor/NumberMap.h"
#include "Qor/Pool.h"
#include "Vel/VelOifSetRecord.h"
#include "Vel/VelSyncMrouteKeys.h"

namespace Vel {

class MrouteSwitch;

struct SyncRecordState {
   ZombieKey zombie_;
   Qor::U32 oifSetIndex_ = 0;
   bool deleted_ = false;
   bool dirty_ = false;
   bool softwareOnly_ = false;
};

// The record of one oif set under one index. Vel/VelOifSetRecord.h states which references count as
// users, and how the record ends.
class QOR_PUBLIC MtableOifSet final
      : public OifSetRecord<MtableOifSet, MrouteSwitch, SyncRecordState>,
        public Qor::Pooled {
 public:
   class Notifiee : public Qor::NotifieeOf<MtableOifSet> {
    public:
      virtual void onOifSetIndex() {}
      virtual void onDeleted() {}
      virtual void onZombie() {}
      virtual void onDirty() {}
      virtual void onZeroReferences() {}
   };

   // `oifSet` is not null (assertion). `mrouteSwitch` is the owner, which the record does not hold.
   // A record with a null `mrouteSwitch` is destroyed without being freed on a chip.
   MtableOifSet(MrouteLib::OifSetPtr oifSet, bool toCpu, MrouteSwitch* mrouteSwitch);

   // The index of the chip's replication entry for the set; 0 until the switch has set the index.
   Qor::U32 oifSetIndex() const { return oifSetIndex_; }
   void oifSetIndexIs(Qor::U32 v) { attrIs<&Notifiee::onOifSetIndex>(oifSetIndex_, v); }

   // True once the switch has freed the index.
   bool deleted() const { return deleted_; }
   void deletedIs(bool v) { attrIs<&Notifiee::onDeleted>(deleted_, v); }

   // The record's key in zombieOifSet; the default key while the record is not a zombie.
   ZombieKey const& zombie() const { return zombie_; }
   void zombieIs(ZombieKey v) { attrIs<&Notifiee::onZombie>(zombie_, v); }

   // True if no further route may share the index, since the chip's entry replicates, or may
   // replicate, a set other than oifSet(). A fast reroute makes a record dirty.
   bool dirty() const { return dirty_; }
   void dirtyIs(bool v) { attrIs<&Notifiee::onDirty>(dirty_, v); }

   // True if the set is of the type that stays out of the hardware.
   bool softwareOnly() const { return softwareOnly_; }

   // Passes the record to its switch, which frees it or makes it a zombie. The reference counting
   // calls this when the last reference goes.
   void doCleanup();

 private:
   ~MtableOifSet() override;
};

QOR_PUBLIC Qor::ValidPtr<MtableOifSet> mtableOifSetFactory(MrouteLib::OifSetPtr oifSet, bool toCpu,
                                                           MrouteSwitch* mrouteSwitch);

using MtableOifSetPtr = RecordName<MtableOifSet>;

// "MtableOifSet(oifSetIndex <index>, OifSet#<serial>)"
QOR_PUBLIC std::ostream& operator<<(std::ostream& os, MtableOifSet const& record);

// A route that the chip holds.
class QOR_PUBLIC Route final : public Qor::Entity<Route>, public Qor::Pooled {
 public:
   using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   class Notifiee : public Qor::NotifieeOf<Route> {
    public:
      virtual void onFastdrop() {}
      virtual void onRpaId() {}
      virtual void onVrfId() {}
      virtual void onMtableOifSet() {}
      virtual void onNoAge() {}
      virtual void onVxlan() {}
   };

   Route(MrouteLib::RouteHandle handle, IpGenRouteKey const& key,
         Bridging::VlanIdOrNone acceptingVlanId)
         : handle_(handle), keyVlanId_(key, acceptingVlanId) {}

   MrouteLib::RouteHandle handle() const { return handle_; }
   IpGenRouteKey const& key() const { return keyVlanId_.route(); }
   // The vlan is none for a no-RPF route, which accepts packets from every vlan.
   Bridging::VlanIdOrNone acceptingVlanId() const { return keyVlanId_.vlan(); }
   RouteKeyVlanId const& keyVlanId() const { return keyVlanId_; }

   // True if the entry drops the packets that match.
   bool fastdrop() const { return fastdrop_; }
   void fastdropIs(bool v) { attrIs<&Notifiee::onFastdrop>(fastdrop_, v); }
   Qor::U16 rpaId() const { return rpaId_; }
   void rpaIdIs(Qor::U16 v) { attrIs<&Notifiee::onRpaId>(rpaId_, v); }
   Qor::U16 vrfId() const { return vrfId_; }
   void vrfIdIs(Qor::U16 v) { attrIs<&Notifiee::onVrfId>(vrfId_, v); }
   // The record of the set that the route forwards to, held counted; null until
   // doSetMtableOifSet() has pointed the route at a record.
   Qor::Ptr<MtableOifSet> const& mtableOifSet() const { return mtableOifSet_; }
   void mtableOifSetIs(Qor::Ptr<MtableOifSet> v) {
      attrIs<&Notifiee::onMtableOifSet>(mtableOifSet_, std::move(v));
   }
   // True if the aging review always counts the route as used. The routing layer sets it.
   bool noAge() const { return noAge_; }
   void noAgeIs(bool v) { attrIs<&Notifiee::onNoAge>(noAge_, v); }
   bool vxlan() const { return vxlan_; }
   void vxlanIs(bool v) { attrIs<&Notifiee::onVxlan>(vxlan_, v); }

 private:
   ~Route() override;

   friend class RoutesByKey;

   // The members that a change or a deletion of the route reads come first, so that they share a
   // cache line.
   Qor::Ptr<MtableOifSet> mtableOifSet_;
   MrouteLib::RouteHandle const handle_;
   Qor::U16 rpaId_ = 0;
   Qor::U16 vrfId_ = 0;
   Qor::U32 keyHash_ = 0;
   bool indexed_ = false;  // routeKeyToHandle of the switch has the pair of this key and handle
   bool fastdrop_ = false;
   bool noAge_ = false;
   bool vxlan_ = false;
   RouteKeyVlanId const keyVlanId_;
};

// The routes of a switch as the records of its routeKeyToHandle (Qor/RecordIndex.h), so that this
// collection needs no memory of its own for a route.
class RoutesByKey {
 public:
   using Key = RouteKeyVlanId;
   using Number = MrouteLib::RouteHandle;
   using Record = Route;
   using Map = Qor::NumberMap<MrouteLib::RouteHandle, Qor::Ptr<Route>>;

   explicit RoutesByKey(Map const* routes) : routes_(routes) {}
   static RouteKeyVlanId const& keyOf(Route const& route) { return route.keyVlanId_; }
   static MrouteLib::RouteHandle const& numberOf(Route const& route) { return route.handle_; }
   static Qor::U32 hashOf(Route const& route) { return route.keyHash_; }
   Route* marked(Qor::U32 handle) const {
      auto const* const entry = routes_->find(MrouteLib::RouteHandle(handle));
      return entry && entry->second->indexed_ ? entry->second.get() : nullptr;
   }
   Route* markedAtLeast(Qor::U64 handle) const {
      if (handle > Qor::U32(-1)) return nullptr;
      auto at = routes_->lowerBound(MrouteLib::RouteHandle(static_cast<Qor::U32>(handle)));
      while (at != routes_->end() && !at->second->indexed_)
         ++at;
      return at == routes_->end() ? nullptr : at->second.get();
   }
   bool mark(RouteKeyVlanId const& key, MrouteLib::RouteHandle handle, Qor::U32 hash) {
      auto const* const entry = routes_->find(handle);
      if (!entry || entry->second->indexed_ || !(entry->second->keyVlanId_ == key)) return false;
      entry->second->indexed_ = true;
      entry->second->keyHash_ = hash;
      return true;
   }
   template <class Goes>
   bool unmark(Qor::U32 handle, Goes const& goes) {
      Route* const route = marked(handle);
      if (!route || !goes(*route)) return false;
      route->indexed_ = false;
      return true;
   }

 private:
   Map const* routes_;
};

QOR_PUBLIC Qor::ValidPtr<Route> routeFactory(MrouteLib::RouteHandle handle,
                                             Routing::Multicast::Fib::IpGenRouteKey const& key,
                                             Bridging::VlanIdOrNone acceptingVlanId);

// A boundary entry that the chip holds. Packets that match the entry stay in the vlan in which they
// arrived. The entry notifies nobody.
class QOR_PUBLIC Boundary final : public Qor::EntityBase {
 public:
   using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   Boundary(MrouteLib::RouteHandle handle, IpGenRouteKey const& key, Bridging::VlanId vlanId)
         : handle_(handle), key_(key), vlanId_(vlanId) {}

   MrouteLib::RouteHandle handle() const { return handle_; }
   IpGenRouteKey const& key() const { return key_; }
   Bridging::VlanId vlanId() const { return vlanId_; }
   Qor::U16 vrfId() const { return vrfId_; }
   void vrfIdIs(Qor::U16 v) { vrfId_ = v; }

 private:
   ~Boundary() override;

   MrouteLib::RouteHandle const handle_;
   IpGenRouteKey const key_;
   Bridging::VlanId const vlanId_;
   Qor::U16 vrfId_ = 0;
};

}  // namespace Vel
