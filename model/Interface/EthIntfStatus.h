// The status of an Ethernet interface. Its notifiees are those of IntfStatus.
#pragma once

#include "Interface/IntfStatus.h"

namespace Interface {

class EthIntfStatus final : public IntfStatus {
 public:
   using IntfStatus::IntfStatus;

 private:
   ~EthIntfStatus() override = default;
};

}  // namespace Interface
