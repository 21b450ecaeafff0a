// The internal vlan of each interface: a routed interface has one vlan inside the chip, by which
// routes name it as their accepting interface. An interface has one vlan and a vlan one interface.
//
// The interface layer writes the table. The per-switch reactors look up the vlan of an interface when
// they review routes, and restart recovery the interface of a vlan. Each reads the table again every
// time, so none of them watches it.
#pragma once

#include <utility>

#include "Bridging/VlanId.h"
#include "Lnet/IntfId.h"
#include "Qor/Entity.h"
#include "Qor/Exception.h"
#include "Qor/TwoWayCollection.h"

namespace IntfVlanId {

class Table final : public Qor::Entity<Table, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<Table> {
    public:
      // An interface got a vlan, another vlan, or lost its vlan; and the same seen from the vlan.
      // Both directions hold the new state when the first of them is told.
      virtual void onIntfIdToVlanId(Lnet::IntfId) {}
      virtual void onIntfIdToVlanIdImmediate() {}
      virtual void onVlanIdToIntfId(Bridging::VlanId) {}
      virtual void onVlanIdToIntfIdImmediate() {}

    protected:
      void onImmediate() override {
         onIntfIdToVlanIdImmediate();
         onVlanIdToIntfIdImmediate();
      }
   };
   using VlanColl =
         Qor::TwoWayCollection<Qor::HashMap<Lnet::IntfId, Bridging::VlanId>,
                               Qor::HashMap<Bridging::VlanId, Lnet::IntfId>,
                               &Notifiee::onIntfIdToVlanId, &Notifiee::onIntfIdToVlanIdImmediate,
                               &Notifiee::onVlanIdToIntfId, &Notifiee::onVlanIdToIntfIdImmediate>;

   explicit Table(Qor::Name name = "intfVlanIdTable") : Entity(std::move(name)) {}

   VlanColl::Forward const& intfIdToVlanId() const { return vlan_.forward(); }
   VlanColl::Backward const& vlanIdToIntfId() const { return vlan_.backward(); }
   // None for an interface without a vlan, and for the empty id.
   Bridging::VlanIdOrNone intfIdToVlanId(Lnet::IntfId intfId) const {
      auto const* const entry = vlan_.forward().find(intfId);
      return entry ? Bridging::VlanIdOrNone(entry->second) : Bridging::VlanIdOrNone();
   }
   // The empty id for a vlan without an interface.
   Lnet::IntfId vlanIdToIntfId(Bridging::VlanId vlanId) const {
      auto const* const entry = vlan_.backward().find(vlanId);
      return entry ? entry->second : Lnet::IntfId();
   }

   // Gives the interface its vlan, taking it from the interface that had it before. RangeException
   // "IntfVlanId::Table::intfId empty not allowed" for the empty id, here and wherever a pair is
   // made.
   void intfIdToVlanIdIs(Lnet::IntfId intfId, Bridging::VlanId vlanId) {
      vlan_.is(*this, checked(intfId), vlanId);
   }
   // The vlan of the interface, which gets this one if it has none.
   Bridging::VlanId newIntfIdToVlanId(Lnet::IntfId intfId, Bridging::VlanId vlanId) {
      return vlan_.instantiate(*this, checked(intfId), vlanId);
   }
   void intfIdToVlanIdDel(Lnet::IntfId intfId) { vlan_.del(*this, intfId); }
   VlanColl::Iterator intfIdToVlanIdDel(VlanColl::Iterator it) { return vlan_.delAt(*this, it); }
   void intfIdToVlanIdDelAll() { vlan_.delAll(*this); }
   void intfIdToVlanIdNotify(Lnet::IntfId intfId) { vlan_.notify(*this, intfId); }

   // The same from the vlan's side.
   void vlanIdToIntfIdIs(Bridging::VlanId vlanId, Lnet::IntfId intfId) {
      intfIdToVlanIdIs(intfId, vlanId);
   }
   Lnet::IntfId newVlanIdToIntfId(Bridging::VlanId vlanId, Lnet::IntfId intfId) {
      return vlan_.instantiateValue(*this, vlanId, checked(intfId));
   }
   void vlanIdToIntfIdDel(Bridging::VlanId vlanId) { vlan_.delValue(*this, vlanId); }
   VlanColl::ValueIterator vlanIdToIntfIdDel(VlanColl::ValueIterator it) {
      return vlan_.delValueAt(*this, it);
   }
   void vlanIdToIntfIdDelAll() { vlan_.delAll(*this); }
   void vlanIdToIntfIdNotify(Bridging::VlanId vlanId) { vlan_.notifyValue(*this, vlanId); }

 private:
   static Lnet::IntfId checked(Lnet::IntfId intfId) {
      if (intfId.isNull()) Qor::throwRange("IntfVlanId::Table::intfId empty not allowed");
      return intfId;
   }

   ~Table() override = default;

   VlanColl vlan_;
};

}  // namespace IntfVlanId
