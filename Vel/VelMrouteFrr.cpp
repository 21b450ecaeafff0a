#include "Vel/VelMrouteFrr.h"

#include <sstream>

namespace Vel {

bool reroutedOn(MrouteLib::PortVlanSet const& set, Lnet::IntfId failed) {
   return set.currentIif() == failed && !set.currentIif().isNull() && !set.portVlanFrr().empty();
}

Qor::String frrMembers(MrouteLib::PortVlanSet const& set) {
   std::ostringstream os;
   for (auto const& [member, flag] : set.portVlanFrr()) {
      if (os.tellp() > 0) os << ' ';
      os << member;
   }
   return os.str();
}

}  // namespace Vel
