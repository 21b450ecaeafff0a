// The options of the kit (kit/Kit.h).
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Platform.h"

namespace VelMroute {

// Makes a platform on a chip whose tables are empty. The kit lets go of a platform before it makes
// the next one. An error of the maker ends the run.
using PlatformMaker = std::function<Qor::Ptr<Platform>()>;

struct KitOptions {
   // The platforms run on Qor::now() alone (Abilities::virtualTime). Each life then has an activity
   // manager of its own, on virtual time. Otherwise the lives run on the present activity manager.
   bool virtualTime = false;
   Qor::U64 seed = 1;           // of the random lives
   Qor::U32 lives = 8;          // random lives
   Qor::U32 steps = 120;        // of a random life
   Qor::Seconds lifeTime = 60;  // seconds after which a random life ends early
   Qor::Seconds patience = 10;  // seconds within which each write is complete
   // The number of sets or entries after which the capacity checks stop looking for a full table.
   Qor::U32 room = 1024;
   Vel::VrfId vrfId{0u};  // the VRF of the routes, and of the packets
   // A second VRF, in which packets can arrive at the same ports; none: the check of VRFs is left out.
   std::optional<Vel::VrfId> otherVrfId = {};
   // The ids of the checks to run; empty: all. The others are left out.
   std::vector<std::string> only = {};
   // Called before each check, with the number of checks before it and of all checks.
   std::function<void(std::size_t done, std::size_t all)> onCheck = {};
   // Called before each wait of a life. True ends the run: the check under way and the checks
   // behind it are left out, with the reason "interrupted".
   std::function<bool()> interrupted = {};
};

}  // namespace VelMroute
