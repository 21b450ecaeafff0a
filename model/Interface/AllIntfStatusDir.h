// The interfaces of the switch, of every kind. Fast reroute looks the state of an interface up
// here.
#pragma once

#include <utility>

#include "Interface/IntfStatus.h"
#include "Interface/IntfStatusDir.h"

namespace Interface {

class AllIntfStatusDir final : public IntfStatusDir<AllIntfStatusDir, IntfStatus> {
 public:
   static constexpr char const* typeName = "Interface::AllIntfStatusDir";

   explicit AllIntfStatusDir(Qor::Name name = "allIntfStatusDir")
         : IntfStatusDir(std::move(name)) {}

 private:
   ~AllIntfStatusDir() override = default;
};

}  // namespace Interface
