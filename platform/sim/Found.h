// The groups and entries that are on a chip when its platform is made: a crashed agent left them.
#pragma once

#include "platform/sim/Chip.h"
#include "programmer/Found.h"

namespace Sim {

using VelMroute::Found;
using VelMroute::FoundEntries;
using VelMroute::FoundGroups;

// The content of a group of the chip.
inline FoundGroups::Content contentOf(Group const& group) {
   return {group.members, group.toCpu};
}

// All groups and entries that are on the chip.
Found foundOn(Chip const& chip);

}  // namespace Sim
