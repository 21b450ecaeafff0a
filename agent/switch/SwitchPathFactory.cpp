#include "agent/switch/SwitchPathFactory.h"

#include "agent/switch/AsyncPath.h"
#include "agent/switch/SyncPath.h"

namespace Agent {

std::unique_ptr<SwitchPath> newSwitchPath(PathKind path, Surroundings const& surroundings,
                                          PathConfig const& config, Crashed const* crashed) {
   if (path == PathKind::sync) return std::make_unique<SyncPath>(surroundings, config, crashed);
   return std::make_unique<AsyncPath>(surroundings, config, crashed);
}

}  // namespace Agent
