// The Ethernet interfaces of the switch. For fast reroute, the per-switch reactors watch the
// directory and the status of each member.
#pragma once

#include <utility>

#include "Interface/EthIntfStatus.h"
#include "Interface/IntfStatusDir.h"

namespace Interface {

class EthIntfStatusDir final : public IntfStatusDir<EthIntfStatusDir, EthIntfStatus> {
 public:
   static constexpr char const* typeName = "Interface::EthIntfStatusDir";

   explicit EthIntfStatusDir(Qor::Name name = "ethIntfStatusDir")
         : IntfStatusDir(std::move(name)) {}

 private:
   ~EthIntfStatusDir() override = default;
};

}  // namespace Interface
