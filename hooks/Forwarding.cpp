#include "hooks/Forwarding.h"

#include <tuple>

#include "Qor/EnumText.h"

namespace VelMroute {

std::ostream& operator<<(std::ostream& os, Forwarding forwarding) {
   static constexpr char const* names[] = {"forwarded",  "noRoute",   "wrongVlan", "notPointed",
                                           "emptyGroup", "portsDown", "bridged"};
   return Qor::printEnum(os, forwarding, names);
}

Forwarded match(EntryTable const& routes, EntryTable const& boundaries, Packet const& p,
                EntryTable::OtherVlan otherVlan) {
   using OtherVlan = EntryTable::OtherVlan;
   auto const route = routes.lookup(p.vrfId, p.source, p.group, p.vlan, otherVlan);
   auto const boundary = boundaries.lookup(p.vrfId, p.source, p.group, p.vlan, OtherVlan::passed);
   bool const kept = boundary.index && std::tie(boundary.groupLength, boundary.sourceLength) >=
                                             std::tie(route.groupLength, route.sourceLength);
   Forwarded out;
   if (kept) {
      out.result = Forwarding::bridged;
      out.entry = boundary.index;
   } else if (route.index) {
      out.result = Forwarding::notPointed;
      out.entry = route.index;
   } else {
      out.result = route.keyFound ? Forwarding::wrongVlan : Forwarding::noRoute;
   }
   return out;
}

}  // namespace VelMroute
