// The interfaces of every kind that this agent serves, on a switch with several agents: a subset of
// AllIntfStatusDir. The per-switch reactors hold the directory for the platform; the library itself
// does not read it.
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
