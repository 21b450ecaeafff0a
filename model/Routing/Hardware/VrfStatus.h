// A VRF in the hardware. RouteStatus::newVrfStatus makes it; it never changes.
#pragma once

#include <utility>

#include "L3/VrfName.h"
#include "Qor/Entity.h"
#include "Vel/VrfId.h"

namespace Routing::Hardware {

class VrfStatus final : public Qor::EntityBase {
 public:
   VrfStatus(L3::VrfName vrfName, Vel::VrfId vrfId) : vrfName_(std::move(vrfName)), vrfId_(vrfId) {}

   Qor::Name name() const override { return vrfName_.name(); }
   L3::VrfName const& vrfName() const { return vrfName_; }
   // The number of the VRF in the hardware.
   Vel::VrfId vrfId() const { return vrfId_; }

 private:
   ~VrfStatus() override = default;

   L3::VrfName const vrfName_;
   Vel::VrfId const vrfId_;
};

}  // namespace Routing::Hardware
