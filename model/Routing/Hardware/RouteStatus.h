// The VRFs in the hardware, with their numbers. The layer that programs VRFs writes the status. The
// asynchronous programmer looks VRFs up by name; it programs no route of a VRF that is not here,
// and its aging review passes the VRF's number to the platform.
#pragma once

#include <utility>

#include "Qor/Collection.h"
#include "Qor/Entity.h"
#include "Qor/Exception.h"
#include "Routing/Hardware/VrfStatus.h"

namespace Routing::Hardware {

class RouteStatus final : public Qor::Entity<RouteStatus, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<RouteStatus> {
    public:
      // A VRF was added to the hardware or removed from it.
      virtual void onVrfStatus(L3::VrfName const&) {}
      virtual void onVrfStatusImmediate() {}

    protected:
      void onImmediate() override { onVrfStatusImmediate(); }
   };
   using VrfStatusColl = Qor::Collection<Qor::OrderedMap<L3::VrfName, Qor::Ptr<VrfStatus>>,
                                         &Notifiee::onVrfStatus, &Notifiee::onVrfStatusImmediate>;

   explicit RouteStatus(Qor::Name name = "routeStatus") : Entity(std::move(name)) {}

   VrfStatusColl::Map const& vrfStatus() const { return vrfStatus_.map(); }
   // Returns null for a VRF that is not in the hardware.
   Qor::Ptr<VrfStatus> vrfStatus(L3::VrfName const& vrfName) const {
      return vrfStatus_.value(vrfName);
   }
   // Makes the VRF, or returns the present one. The number of a present VRF cannot change: another
   // `vrfId` raises ReinstantiationException "... constructor parameter attribute _vrfId has a
   // different value of <present number>".
   Qor::Ptr<VrfStatus> newVrfStatus(L3::VrfName vrfName, Vel::VrfId vrfId) {
      Qor::Ptr<VrfStatus> const present = vrfStatus(vrfName);
      if (present && present->vrfId() != vrfId) {
         Qor::throwReinstantiation("vrfId", present->vrfId().strep());
      }
      return vrfStatus_.instantiate(*this, vrfName,
                                    [&] { return Qor::make<VrfStatus>(vrfName, vrfId); });
   }
   void vrfStatusDel(L3::VrfName vrfName) { vrfStatus_.del(*this, vrfName); }
   VrfStatusColl::Iterator vrfStatusDel(VrfStatusColl::Iterator it) {
      return vrfStatus_.del(*this, it);
   }
   void vrfStatusDelAll() { vrfStatus_.delAll(*this); }
   void vrfStatusNotify(L3::VrfName vrfName) { vrfStatus_.notify(*this, vrfName); }

 private:
   ~RouteStatus() override = default;

   VrfStatusColl vrfStatus_;
};

}  // namespace Routing::Hardware
