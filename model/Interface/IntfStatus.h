// The status of one interface. The interface layer makes and writes it. The per-switch reactors
// watch operStatus of Ethernet interfaces and reroute traffic when an interface goes down.
#pragma once

#include "Interface/IntfOperStatus.h"
#include "Lnet/IntfId.h"
#include "Qor/Entity.h"

namespace Interface {

class IntfStatus : public Qor::Entity<IntfStatus> {
 public:
   class Notifiee : public Qor::NotifieeOf<IntfStatus> {
    public:
      virtual void onOperStatus() {}
   };

   explicit IntfStatus(Lnet::IntfId intfId) : intfId_(intfId) {}

   Qor::Name name() const override { return intfId_.name(); }
   Lnet::IntfId intfId() const { return intfId_; }
   IntfOperStatus operStatus() const { return operStatus_; }
   void operStatusIs(IntfOperStatus v) { attrIs<&Notifiee::onOperStatus>(operStatus_, v); }

 protected:
   ~IntfStatus() override = default;

 private:
   Lnet::IntfId const intfId_;
   IntfOperStatus operStatus_ = IntfOperStatus::unknown;
};

}  // namespace Interface
