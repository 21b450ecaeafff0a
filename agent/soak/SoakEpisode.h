// The random lives that a soak plays: each is a scenario of its own, made from a seed alone, for one
// path and a chip of its own size. Two with the same seed, path and number of operations are equal.
//
// Episodes differ in kind more than in detail: each leaves some kinds of events out and has others
// often, so that among many there are those in which a rare combination is common.
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
