// The checks of the kit as a table, and what a check gets from the kit.
#pragma once

#include <span>

#include "kit/internal/Life.h"

namespace VelMroute::KitParts {

// The parts of a platform that a check needs. A check is left out if one is missing.
enum Need : unsigned {
   chip = 1,  // a probe or a view
   packets = 2,
   ipv6 = 4,
   wildcards = 8,
   ranges = 16,
   cpu = 32,
   fastdrop = 64,
   bridging = 128,
   noRpf = 256,
   reroute = 512,
   hits = 1024,
   faults = 2048,
   restart = 4096,
};

// The first of the needs that the platform does not have, for people; null if it has all.
char const* lacking(unsigned needs, Platform& platform);

// One run of one check.
struct CheckRun {
   std::unique_ptr<Life> life(Life::Options how = {}) const {
      return std::make_unique<Life>(options, make, faults, std::move(how));
   }

   KitOptions const& options;
   PlatformMaker const& make;
   HookPath const path;
   Abilities const abilities;
   Qor::Ptr<HookFaults> faults = Qor::make<HookFaults>();  // of the lives of the check
   Qor::String figures = {};                               // that the check measured
};

struct Check {
   KitCheck about;
   unsigned needs;
   // Throws a Difference, or LeftOut. Null: the check sums up the others.
   void (*run)(CheckRun& run);
};

// By ascending number.
std::span<Check const> allChecks();

// The checks.
void forwarding(CheckRun& run);
void sharedSets(CheckRun& run);
void makeBeforeBreak(CheckRun& run);
void ipv6Routes(CheckRun& run);
void starGroups(CheckRun& run);
void groupRanges(CheckRun& run);
void vrfs(CheckRun& run);
void inputVlan(CheckRun& run);
void copiesToCpu(CheckRun& run);
void fastdropEntries(CheckRun& run);
void boundaries(CheckRun& run);
void anyInput(CheckRun& run);
void rewriteInPlace(CheckRun& run);
void emptySets(CheckRun& run);
void blockingTransaction(CheckRun& run);
void failedSet(CheckRun& run);
void deletions(CheckRun& run);
void hitTimes(CheckRun& run);
void roomForSets(CheckRun& run);
void roomForEntries(CheckRun& run);
void roomForBoundaries(CheckRun& run);
void failedWrites(CheckRun& run);
void randomLives(CheckRun& run);
void adoption(CheckRun& run);
void endOfService(CheckRun& run);

}  // namespace VelMroute::KitParts
