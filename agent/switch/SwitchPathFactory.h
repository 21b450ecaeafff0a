// Makes the switch path of either kind.
#pragma once

#include <memory>

#include "agent/switch/PathKind.h"
#include "agent/switch/SwitchPath.h"

namespace Agent {

std::unique_ptr<SwitchPath> newSwitchPath(PathKind path, Surroundings const& surroundings,
                                          PathConfig const& config);

}  // namespace Agent
