// The status of an Ethernet interface. Its reactors are those of an interface status.
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
