// The synchronous path's records of what is programmed in one switch chip. The programmer
// (Vel/VelSyncMrouteSwitch.h) makes, indexes and deletes them; its reactor and the platform read
// them. Setting an attribute to the value it has tells nobody.
//
// Life of an oif set record:
//
//   state   | recognised by                            | left by
//   --------+------------------------------------------+---------------------------------------
//   in use  | deleted false, zombie expiry never       | its last reference going
//   zombie  | in the switch's zombieOifSet, zombie     | resurrection by an allocation of the
//           | expiry finite                            | same oif set, or leaving zombieOifSet
//   freed   | deleted true                             | destruction with its last reference
#pragma once

#include "MrouteLib/RouteHandle.h"
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

// What counts as a user of the record, and how it ends: Vel/VelOifSetRecord.h.
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

   // `oifSet` is not null. `mrouteSwitch` is the owner; it is not held, and may be null for a
   // record that nobody frees.
   MtableOifSet(MrouteLib::OifSetPtr oifSet, bool toCpu, MrouteSwitch* mrouteSwitch);

   // Which entry of the chip's replication table carries the set; 0 until it is known.
   Qor::U32 oifSetIndex() const { return oifSetIndex_; }
   void oifSetIndexIs(Qor::U32 v) { attrIs<&Notifiee::onOifSetIndex>(oifSetIndex_, v); }

   bool deleted() const { return deleted_; }
   void deletedIs(bool v) { attrIs<&Notifiee::onDeleted>(deleted_, v); }

   // The record's key among the zombies; the default key while it is none.
   ZombieKey const& zombie() const { return zombie_; }
   void zombieIs(ZombieKey v) { attrIs<&Notifiee::onZombie>(zombie_, v); }

   // The index may no longer be shared: the chip's entry is, or may be, another set's.
   bool dirty() const { return dirty_; }
   void dirtyIs(bool v) { attrIs<&Notifiee::onDirty>(dirty_, v); }

   // Whether the set is of the type that stays out of the hardware.
   bool softwareOnly() const { return softwareOnly_; }

   // Hands the record to its switch. Run by the reference counting.
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
         : handle_(handle), acceptingVlanId_(acceptingVlanId), key_(key) {}

   MrouteLib::RouteHandle handle() const { return handle_; }
   IpGenRouteKey const& key() const { return key_; }
   // None for a no-RPF route, which accepts from anywhere.
   Bridging::VlanIdOrNone acceptingVlanId() const { return acceptingVlanId_; }

   // The entry drops what it matches.
   bool fastdrop() const { return fastdrop_; }
   void fastdropIs(bool v) { attrIs<&Notifiee::onFastdrop>(fastdrop_, v); }
   Qor::U16 rpaId() const { return rpaId_; }
   void rpaIdIs(Qor::U16 v) { attrIs<&Notifiee::onRpaId>(rpaId_, v); }
   Qor::U16 vrfId() const { return vrfId_; }
   void vrfIdIs(Qor::U16 v) { attrIs<&Notifiee::onVrfId>(vrfId_, v); }
   // The set the route forwards to; null until it has been pointed at one. Held counted.
   Qor::Ptr<MtableOifSet> const& mtableOifSet() const { return mtableOifSet_; }
   void mtableOifSetIs(Qor::Ptr<MtableOifSet> v) {
      attrIs<&Notifiee::onMtableOifSet>(mtableOifSet_, std::move(v));
   }
   // The route always counts as used. Set by the routing layer.
   bool noAge() const { return noAge_; }
   void noAgeIs(bool v) { attrIs<&Notifiee::onNoAge>(noAge_, v); }
   bool vxlan() const { return vxlan_; }
   void vxlanIs(bool v) { attrIs<&Notifiee::onVxlan>(vxlan_, v); }

 private:
   ~Route() override;

   // What a change of the route looks at comes first: it is in one cache line.
   Qor::Ptr<MtableOifSet> mtableOifSet_;
   MrouteLib::RouteHandle const handle_;
   Qor::U16 rpaId_ = 0;
   Qor::U16 vrfId_ = 0;
   Bridging::VlanIdOrNone const acceptingVlanId_;
   bool fastdrop_ = false;
   bool noAge_ = false;
   bool vxlan_ = false;
   IpGenRouteKey const key_;
};

QOR_PUBLIC Qor::ValidPtr<Route> routeFactory(MrouteLib::RouteHandle handle,
                                             Routing::Multicast::Fib::IpGenRouteKey const& key,
                                             Bridging::VlanIdOrNone acceptingVlanId);

// A boundary entry that the chip holds: what it matches stays in the vlan in which it arrived.
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
