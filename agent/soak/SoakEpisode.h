// The episodes of a soak. An episode is a random scenario for one path and one size of the chip.
// The seed, the path and the number of operations determine it completely.
//
// Each episode omits some kinds of events and has others often, so a combination of events that is
// rare in most episodes is frequent in some.
#pragma once

#include <cstdint>
#include <vector>

#include "agent/scenario/Scenario.h"

namespace Agent {

struct SoakEpisode {
   std::uint64_t seed = 0;
   PathKind path = PathKind::async;
   Scenario::Settings settings;
   std::vector<Scenario::Line> lines;
};

SoakEpisode soakEpisode(std::uint64_t seed, PathKind path, std::size_t operations);

}  // namespace Agent
