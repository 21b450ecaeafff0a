// All interfaces of the switch, of every kind. The per-switch reactors hold the directory for the
// platform; the library itself does not read it.
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
