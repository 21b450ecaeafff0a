// The VRFs in which multicast routing is enabled. The routing layer writes the status. The
// top-level multicast reactor watches it, since multicast routing is off while no VRF is enabled.
// Restart recovery reads it.
#pragma once

#include <utility>

#include "L3/VrfName.h"
#include "Qor/Collection.h"
#include "Qor/Entity.h"

namespace Routing::Multicast::Fib {

class VrfEnabledStatus final : public Qor::Entity<VrfEnabledStatus, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<VrfEnabledStatus> {
    public:
      // Multicast routing was enabled or disabled in a VRF.
      virtual void onVrf(L3::VrfName const&) {}
      virtual void onVrfImmediate() {}

    protected:
      void onImmediate() override { onVrfImmediate(); }
   };
   using VrfColl = Qor::Collection<Qor::OrderedMap<L3::VrfName, bool>, &Notifiee::onVrf,
                                   &Notifiee::onVrfImmediate>;

   explicit VrfEnabledStatus(Qor::Name name = "mcastEnabledStatus") : Entity(std::move(name)) {}

   // The map is a set: all values are true.
   VrfColl::Map const& vrf() const { return vrf_.map(); }
   bool vrf(L3::VrfName const& vrfName) const { return vrf_.value(vrfName); }
   void vrfIs(L3::VrfName vrfName) { vrf_.is(*this, vrfName, true); }
   void vrfDel(L3::VrfName vrfName) { vrf_.del(*this, vrfName); }
   VrfColl::Iterator vrfDel(VrfColl::Iterator it) { return vrf_.del(*this, it); }
   void vrfDelAll() { vrf_.delAll(*this); }
   void vrfNotify(L3::VrfName vrfName) { vrf_.notify(*this, vrfName); }

 private:
   ~VrfEnabledStatus() override = default;

   VrfColl vrf_;
};

}  // namespace Routing::Multicast::Fib
