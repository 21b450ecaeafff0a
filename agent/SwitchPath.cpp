#include "agent/SwitchPath.h"

#include "agent/AsyncPath.h"

namespace Agent {

std::unique_ptr<SwitchPath> SwitchPath::make(Path path, Surroundings const& surroundings,
                                             PathConfig const& config) {
   QOR_ASSERT(path == Path::async);
   return std::make_unique<AsyncPath>(surroundings, config);
}

}  // namespace Agent
