#include "agent/switch/SwitchPathFactory.h"

#include "agent/switch/AsyncPath.h"
#include "agent/switch/SyncPath.h"

namespace Agent {

std::unique_ptr<SwitchPath> newSwitchPath(Surroundings const& surroundings,
                                          Crashed const* crashed) {
   if (surroundings.platform->syncHooks()) return std::make_unique<SyncPath>(surroundings, crashed);
   return std::make_unique<AsyncPath>(surroundings, crashed);
}

}  // namespace Agent
