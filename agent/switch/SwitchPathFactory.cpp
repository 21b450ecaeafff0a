#include "agent/switch/SwitchPathFactory.h"

#include "agent/switch/AsyncPath.h"
#include "agent/switch/SyncPath.h"

namespace Agent {

std::unique_ptr<SwitchPath> newSwitchPath(Path path, Surroundings const& surroundings,
                                          PathConfig const& config) {
   if (path == Path::sync) return std::make_unique<SyncPath>(surroundings, config);
   return std::make_unique<AsyncPath>(surroundings, config);
}

}  // namespace Agent
