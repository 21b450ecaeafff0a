// The interfaces of every kind that this agent itself serves, where a switch has several agents: a
// part of AllIntfStatusDir. For the platform.
#pragma once

#include <utility>

#include "Interface/IntfStatus.h"
#include "Interface/IntfStatusDir.h"

namespace Interface {

class AllIntfStatusLocalDir final : public IntfStatusDir<AllIntfStatusLocalDir, IntfStatus> {
 public:
   static constexpr char const* typeName = "Interface::AllIntfStatusLocalDir";

   explicit AllIntfStatusLocalDir(Qor::Name name = "allIntfStatusLocalDir")
         : IntfStatusDir(std::move(name)) {}

 private:
   ~AllIntfStatusLocalDir() override = default;
};

}  // namespace Interface
