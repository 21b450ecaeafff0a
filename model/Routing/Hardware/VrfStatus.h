// A VRF that exists in the hardware. Made by RouteStatus::newVrfStatus; never changes.
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
   // The number under which the hardware knows the VRF.
   Vel::VrfId vrfId() const { return vrfId_; }

 private:
   ~VrfStatus() override = default;

   L3::VrfName const vrfName_;
   Vel::VrfId const vrfId_;
};

}  // namespace Routing::Hardware
