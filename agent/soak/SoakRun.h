// Plays scenarios under the oracle, in processes of their own: an episode that stops the process,
// by an assertion or a sanitizer, or that never ends, is found like any other.
#pragma once

#include <functional>
#include <map>
#include <optional>

#include "agent/soak/SoakEpisode.h"
#include "agent/soak/SoakOracle.h"

namespace Agent {

struct SoakOutcome {
   // What was found wrong first, and after how many lines of the episode; empty when nothing was.
   std::vector<std::string> found;
   std::size_t lines = 0;  // played
   double time = 0;        // Qor::now() when it was found, or at the end
   SoakFigures figures;

   bool clean() const { return found.empty(); }
};

// How long a process may take for one episode, in seconds of processor time.
inline constexpr unsigned soakProcessorLimit = 300;

struct SoakHow {
   // Everything is looked at once in so many looks; 1 finds a fault where it comes up.
   unsigned looksPerFullCheck = SoakOracle::usualLooks;
   // Told the lines as they are played.
   std::function<void(std::size_t)> played = nullptr;
};

// Plays it in this process, and then: ends what still goes wrong in the platform, and looks at
// everything; withdraws all that is wanted, and looks whether the chip is empty. Failed
// expectations are no finding.
SoakOutcome playSoak(SoakEpisode const& episode, SoakHow const& how = {});

// The same in a process of its own. A process that ends otherwise than it should has found
// something: "the process has ended: ..." with the end of what it said.
SoakOutcome forkSoak(SoakEpisode const& episode, SoakHow how = {});

// Plays an episode, and tells what was found.
using SoakPlay = std::function<SoakOutcome(SoakEpisode const&)>;

// The shortest episode that was come by, in which `play` still finds something wrong: lines are
// left out, and blocks of routes made smaller, as long as that holds, `tries` times at most. It
// begins with the episode up to where that was found wrong.
SoakEpisode reducedSoak(SoakEpisode const& episode, SoakPlay const& play, unsigned tries = 2000);

// The episode as a scenario file for `velmroute run` and `velmroute soak`, with what was found as
// comments, and the expectation that all routes forward as wanted at its end.
std::string reproducerText(SoakEpisode const& episode, SoakOutcome const& outcome);

// How many lines of each kind there are: "route", "link" and so on.
std::map<std::string, std::uint64_t> linesByKind(SoakEpisode const& episode);

}  // namespace Agent
