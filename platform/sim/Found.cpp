#include "platform/sim/Found.h"

namespace Sim {

using Qor::U32;

Found foundOn(Chip const& chip) {
   Found found;
   chip.forEachGroup([&](U32 id, Group const& group) { found.groups.add(id, contentOf(group)); });
   auto const addAll = [&](FoundEntries& entries, EntryTable const& table, bool bridge) {
      table.forEach([&](U32 number, Entry const& entry) {
         Group const* const group = chip.group(entry.group);
         bool const sends = bridge || (group && (group->toCpu || !group->members.empty()));
         entries.add(number, {Vel::VrfId(entry.vrfId), entry.key, entry.acceptingVlan, bridge},
                     entry.group == noGroup ? std::nullopt : std::optional(entry.group), sends);
      });
   };
   addAll(found.entries, chip.routes(), false);
   addAll(found.boundaries, chip.boundaries(), true);
   return found;
}

}  // namespace Sim
