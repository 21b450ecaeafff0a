#include "Vel/VelFrr.h"

namespace Vel {

Qor::String frrMembers(MrouteLib::PortVlanSet const& set) {
   Qor::String text;
   for (auto const& [member, flag] : set.portVlanFrr()) {
      if (!text.empty()) text += ' ';
      member.appendTo(text);
   }
   return text;
}

}  // namespace Vel
