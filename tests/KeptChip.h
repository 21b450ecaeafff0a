// A simulated chip that a test keeps beside the switch on it, to read it and to damage it.
#pragma once

#include "agent/switch/PlatformChoice.h"
#include "platform/sim/SimPlatform.h"

namespace Agent {

class KeptChip {
 public:
   explicit KeptChip(PathKind path, Sim::ChipConfig const& config = {})
         : path_(path), chip_(Qor::make<Sim::Chip>(config)) {}

   PlatformChoice choice() const {
      return {path_, true, [path = path_, chip = chip_]() -> Qor::Ptr<VelMroute::Platform> {
                 if (path == PathKind::sync) return Sim::newSyncPlatform(chip);
                 return Sim::newAsyncPlatform(chip);
              }};
   }
   Sim::Chip& operator*() const { return *chip_; }
   Sim::Chip* operator->() const { return chip_.get(); }

 private:
   PathKind const path_;
   Qor::Ptr<Sim::Chip> const chip_;
};

}  // namespace Agent
